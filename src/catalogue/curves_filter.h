#pragma once

#include "curves/acv_object.h"
#include "filter/blend_filter.h"

#include <map>
#include <optional>
#include <string>

namespace brenvia {

inline constexpr std::string_view kBVFilterCurvesACVFileNameKey = "acvFileName";
inline constexpr std::string_view kBVFilterCurvesLUTFileNameKey = "lutFileName";
inline constexpr std::string_view kBVFilterCurvesMasterPointsKey = "masterPoints";
inline constexpr std::string_view kBVFilterCurvesRedPointsKey = "redPoints";
inline constexpr std::string_view kBVFilterCurvesGreenPointsKey = "greenPoints";
inline constexpr std::string_view kBVFilterCurvesBluePointsKey = "bluePoints";

struct BVCurvesSettings {
  std::optional<std::string> acvFileName, lutFileName;
  std::optional<std::string> masterPoints, redPoints, greenPoints, bluePoints;
};

// Tone curves from control points in the recipe, an ACV file or a lookup-table file (the 32^3
// text tables, or 3-D ".cube" files), applied through one colour cube whose strength is the
// filter's alpha. Points win over an ACV file, and both over a table.
class BVCurvesFilter : public BVFilterOf<BVCurvesFilter, BVBlendFilter, BVCurvesSettings> {
 public:
  static constexpr std::string_view kClassName = "BVCurvesFilter";
  static const BVParameterTable<BVCurvesSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Replaces the context's pixels by their channels looked up in the curves' byte tables; alpha,
  // mask and blend mode play no part.
  void applyToCGContext(BVBitmapContext* context) override;

  const std::optional<std::string>& acvFileName() const { return settings().acvFileName; }
  const std::optional<std::string>& lutFileName() const { return settings().lutFileName; }
  const std::optional<BVCurve>& redCurve() const { return redCurve_; }
  const std::optional<BVCurve>& greenCurve() const { return greenCurve_; }
  const std::optional<BVCurve>& blueCurve() const { return blueCurve_; }
  // The ACV file's curves, read on first success and then kept; null without a readable file.
  CACVObjectRef acvObject();
  // A channel's curve with its master: from the recipe's points, else from the ACV file.
  CColorCurveRef redCCurve() { return channelCurve(redCurve_, &CACVObject::redCurve); }
  CColorCurveRef greenCCurve() { return channelCurve(greenCurve_, &CACVObject::greenCurve); }
  CColorCurveRef blueCCurve() { return channelCurve(blueCurve_, &CACVObject::blueCurve); }
  // The ACV file's curves drawn for debugging (see BVCurvesImage); null without a readable file.
  CGImageRef curvesImage();

 protected:
  // Makes the curves of the point strings; channels take the master curve in.
  void readParameters(const Value& parameters, const BVParameterReader& reader) override;

 private:
  struct Cube {
    BVData data;
    uint32_t dimension = 0;
  };

  CColorCurveRef channelCurve(const std::optional<BVCurve>& curve,
                              const CColorCurveRef& (CACVObject::*fromFile)() const);
  // The file of a name in the asset folder; nothing for a name that leads out of it.
  std::optional<std::string> pathOf(const std::string& name) const;
  std::optional<Cube> makeCube(float strength);
  std::optional<Cube> cubeFromTableFile(float strength) const;

  std::map<double, Cube> colorCubeData_;
  std::optional<BVCurve> redCurve_, greenCurve_, blueCurve_;
  CACVObjectRef acvObject_;
};

}  // namespace brenvia
