#include "platform/coreimage/engine/color_conversion.h"
#include "platform/coreimage/ops/op_support.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace brenvia::ci {
namespace {

using color::Mat3;

// Robertson's isotemperature lines: reciprocal megakelvin, CIE 1960 u and v of the Planckian
// locus, and the slope of the line through it (Wyszecki & Stiles, Color Science, 2nd ed.). The
// u at 325 is the corrected 0.24792; the printed 0.24702 is a known misprint.
struct IsotemperatureLine {
  double mired, u, v, slope;
};
constexpr IsotemperatureLine kRobertson[] = {
    {0, 0.18006, 0.26352, -0.24341},   {10, 0.18066, 0.26589, -0.25479},  {20, 0.18133, 0.26846, -0.26876},
    {30, 0.18208, 0.27119, -0.28539},  {40, 0.18293, 0.27407, -0.30470},  {50, 0.18388, 0.27709, -0.32675},
    {60, 0.18494, 0.28021, -0.35156},  {70, 0.18611, 0.28342, -0.37915},  {80, 0.18740, 0.28668, -0.40955},
    {90, 0.18880, 0.28997, -0.44278},  {100, 0.19032, 0.29326, -0.47888}, {125, 0.19462, 0.30141, -0.58204},
    {150, 0.19962, 0.30921, -0.70471}, {175, 0.20525, 0.31647, -0.84901}, {200, 0.21142, 0.32312, -1.0182},
    {225, 0.21807, 0.32909, -1.2168},  {250, 0.22511, 0.33439, -1.4512},  {275, 0.23247, 0.33904, -1.7298},
    {300, 0.24010, 0.34308, -2.0637},  {325, 0.24792, 0.34655, -2.4681},  {350, 0.25591, 0.34951, -2.9641},
    {375, 0.26400, 0.35200, -3.5814},  {400, 0.27218, 0.35407, -4.3633},  {425, 0.28039, 0.35577, -5.3762},
    {450, 0.28863, 0.35714, -6.7262},  {475, 0.29685, 0.35823, -8.5955},  {500, 0.30505, 0.35907, -11.324},
    {525, 0.31320, 0.35968, -15.628},  {550, 0.32129, 0.36011, -23.325},  {575, 0.32931, 0.36038, -40.770},
    {600, 0.33724, 0.36051, -116.45},
};
constexpr size_t kLines = std::size(kRobertson);

// Tint moves the white along the isotemperature line, 3000 tint units per unit of uv distance;
// positive tint goes towards green.
constexpr double kTintScale = -3000.0;

// CIE XYZ (Y = 1) of the white with this temperature (kelvin) and tint. Temperatures below the
// table (about 1667 K), and unusable ones, are held at its end.
std::array<double, 3> whiteXYZ(double kelvin, double tint) {
  const double maxMired = kRobertson[kLines - 1].mired;
  const double mired = kelvin > 0 ? std::min(1e6 / kelvin, maxMired) : maxMired;
  size_t i = 0;
  while (i + 2 < kLines && mired >= kRobertson[i + 1].mired) ++i;
  const IsotemperatureLine &lo = kRobertson[i], &hi = kRobertson[i + 1];
  const double f = (hi.mired - mired) / (hi.mired - lo.mired);  // weight of `lo`
  double u = lo.u * f + hi.u * (1 - f), v = lo.v * f + hi.v * (1 - f);
  // Unit directions of the two lines, interpolated and renormalised.
  const double l0 = std::hypot(1.0, lo.slope), l1 = std::hypot(1.0, hi.slope);
  double du = f / l0 + (1 - f) / l1, dv = f * lo.slope / l0 + (1 - f) * hi.slope / l1;
  const double len = std::hypot(du, dv);
  const double offset = tint / kTintScale;
  u += du / len * offset;
  v += dv / len * offset;
  const double d = 2 * u - 8 * v + 4, x = 3 * u / d, y = 2 * v / d;
  return {x / y, 1.0, (1 - x - y) / y};
}

std::array<double, 3> applyMatrix(const Mat3& m, const std::array<double, 3>& v) {
  return {m[0] * v[0] + m[1] * v[1] + m[2] * v[2], m[3] * v[0] + m[4] * v[1] + m[5] * v[2],
          m[6] * v[0] + m[7] * v[1] + m[8] * v[2]};
}

// Bradford adaptation of XYZ colours from the source white to the target white.
Mat3 bradford(const std::array<double, 3>& sourceWhite, const std::array<double, 3>& targetWhite) {
  constexpr Mat3 kBradford{0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0685, 1.0296};
  const auto rs = applyMatrix(kBradford, sourceWhite), rt = applyMatrix(kBradford, targetWhite);
  const Mat3 scale{rt[0] / rs[0], 0, 0, 0, rt[1] / rs[1], 0, 0, 0, rt[2] / rs[2]};
  return color::multiply(color::invert(kBradford), color::multiply(scale, kBradford));
}

// m is a 3 × 3 map of linear rgb, by rows.
BV_VECTOR_CLONES void linearAdaptSpan(Span& s, std::array<float, 9> m) {
  for (int i = 0; i < s.n; ++i) {
    const float r = s.r[i], g = s.g[i], b = s.b[i];
    s.r[i] = m[0] * r + m[1] * g + m[2] * b;
    s.g[i] = m[3] * r + m[4] * g + m[5] * b;
    s.b[i] = m[6] * r + m[7] * g + m[8] * b;
  }
}

// The same on sRGB-encoded colour: decoded, mapped, encoded again.
BV_VECTOR_CLONES void encodedAdaptSpan(Span& s, std::array<float, 9> m) {
  for (int i = 0; i < s.n; ++i) {
    const float k = unpremultiplyFactor(s.a[i]), a = s.a[i];
    const float r = srgbDecodeFast(s.r[i] * k), g = srgbDecodeFast(s.g[i] * k), b = srgbDecodeFast(s.b[i] * k);
    s.r[i] = srgbEncodeFast(m[0] * r + m[1] * g + m[2] * b) * a;
    s.g[i] = srgbEncodeFast(m[3] * r + m[4] * g + m[5] * b) * a;
    s.b[i] = srgbEncodeFast(m[6] * r + m[7] * g + m[8] * b) * a;
  }
}

// The adaptation carried to the working space's primaries and applied to linear light: a
// gamma-encoded working space is decoded first and encoded again after. In linear light the map is
// a matrix, which commutes with premultiplication.
class TemperatureKernel final : public PointKernel {
 public:
  explicit TemperatureKernel(const Mat3& adaptation) : adaptation_(adaptation) {}
  std::string_view name() const override { return "CITemperatureAndTint"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv& env) const override {
    // Without colour management the values are taken as linear sRGB.
    const Mat3& toXYZ = env.workingSpace ? env.workingSpace->toXYZ() : color::kSRGBToXYZ;
    const Mat3 md = color::multiply(color::invert(toXYZ), color::multiply(adaptation_, toXYZ));
    std::array<float, 9> m;
    for (size_t k = 0; k < 9; ++k) m[k] = float(md[k]);
    if (env.workingIsLinear()) {
      linearAdaptSpan(s, m);
    } else {
      encodedAdaptSpan(s, m);
    }
  }

 private:
  Mat3 adaptation_;
};

}  // namespace

void registerTemperatureAndTint() {
  CIFilter::registerOperation(
      "CITemperatureAndTint",
      {"Temperature and Tint",
       builtinCategories({kCICategoryColorAdjustment}),
       {imageInput(), vectorInput("inputNeutral", {6500, 0}), vectorInput("inputTargetNeutral", {6500, 0})}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        const CIVector neutral = f.vector("inputNeutral"), target = f.vector("inputTargetNeutral");
        if (neutral.X() == target.X() && neutral.Y() == target.Y()) return input;
        Mat3 adaptation = bradford(whiteXYZ(neutral.X(), neutral.Y()), whiteXYZ(target.X(), target.Y()));
        return CIImage::makePoint(std::make_shared<TemperatureKernel>(adaptation), {input}, input->extent());
      });
}

}  // namespace brenvia::ci
