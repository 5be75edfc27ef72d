#pragma once

// The four tone curves of an ACV file (master, red, green, blue) and the colour cube they make.

#include "curves/color_curve.h"
#include "curves/data_scanner.h"

#include <optional>
#include <string>

namespace brenvia {

class CACVObject;
using CACVObjectRef = std::shared_ptr<const CACVObject>;

class CACVObject : public BVCoding {
 public:
  // Null when the file cannot be read or does not hold four curves of at least one point each.
  static CACVObjectRef initWithURL(const std::string& path);
  static CACVObjectRef initWithData(BVData data);
  // The fields as stored, without reading the file again.
  static CACVObjectRef initWithCoder(BVKeyedUnarchiver& coder);
  static void registerCodingClass();

  // A colour cube of n^3 cells of float (red, green, blue, 1), red varying fastest, from the red,
  // green and blue curves with the master curve added in; alpha (0...1) blends from the identity.
  BVData threeDimensionalLUT(uint64_t dimensionSize, float alpha) const;
  // Absent curves count as curves without points: every component of their channel is 1.
  static BVData threeDimensionalLUT(const CColorCurveRef& redCurve, const CColorCurveRef& greenCurve,
                                    const CColorCurveRef& blueCurve, uint64_t dimensionSize, float alpha);

  const CColorCurveRef& RGBCurve() const { return RGBCurve_; }
  const CColorCurveRef& redCurve() const { return redCurve_; }
  const CColorCurveRef& greenCurve() const { return greenCurve_; }
  const CColorCurveRef& blueCurve() const { return blueCurve_; }
  const std::optional<std::string>& URL() const { return URL_; }
  const BVData& data() const { return data_; }

  std::string className() const override { return "CACVObject"; }
  void encodeWithCoder(BVKeyedArchiver& coder) const override;

 private:
  bool read();

  CColorCurveRef RGBCurve_, redCurve_, greenCurve_, blueCurve_;
  std::optional<std::string> URL_;
  BVData data_;
};

}  // namespace brenvia
