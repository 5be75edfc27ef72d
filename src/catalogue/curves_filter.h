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

// Tone curves from control points in the recipe, an ACV file or a lookup-table file (the 32^3
// text tables, or 3-D ".cube" files), applied through one colour cube whose strength is the
// filter's alpha. Points win over an ACV file, and both over a table.
class BVCurvesFilter : public BVBlendFilter {
 public:
  using BVBlendFilter::initWithParameters;
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Replaces the context's pixels by their channels looked up in the curves' byte tables; alpha,
  // mask and blend mode play no part.
  void applyToCGContext(BVBitmapContext* context) override;
  std::string description() const override;
  std::string className() const override { return "BVCurvesFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVBlendFilter", "BVFilter"}; }

  const std::optional<std::string>& acvFileName() const { return acvFileName_; }
  const std::optional<std::string>& lutFileName() const { return lutFileName_; }
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
  BVFilterRef makeBlank() const override { return std::make_shared<BVCurvesFilter>(); }

 private:
  struct Cube {
    BVData data;
    uint32_t dimension = 0;
  };

  CColorCurveRef channelCurve(const std::optional<BVCurve>& curve, const CColorCurveRef& (CACVObject::*fromFile)() const);
  std::string pathOf(const std::string& name) const;
  std::optional<Cube> makeCube(float strength);
  std::optional<Cube> cubeFromTableFile(float strength) const;

  std::map<double, Cube> colorCubeData_;
  std::optional<std::string> acvFileName_, lutFileName_;
  std::optional<BVCurve> redCurve_, greenCurve_, blueCurve_;
  CACVObjectRef acvObject_;
};

}  // namespace brenvia
