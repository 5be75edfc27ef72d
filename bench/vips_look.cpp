// The film look of bench/recipes/look.json done with libvips, file to file, as near as it goes:
// saturation and contrast on the sRGB values, the tone curves as per-channel lookup tables (libvips
// has no 3-D table), the grain plate enlarged to the picture and laid over it in overlay mode at
// 35%, and the vignette as a radial multiplier. Then a JPEG at quality 100 without chroma
// subsampling.
#include <vips/vips8>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

using vips::VImage;

namespace {

using Points = std::vector<std::pair<double, double>>;

// Piecewise-linear curve through the points, as a 256-entry table.
std::vector<double> table(const Points& points) {
  std::vector<double> t(256);
  for (int x = 0; x < 256; ++x) {
    size_t i = 1;
    while (i + 1 < points.size() && points[i].first < x) ++i;
    const auto [x0, y0] = points[i - 1];
    const auto [x1, y1] = points[i];
    t[size_t(x)] = std::clamp(y0 + (y1 - y0) * (x - x0) / (x1 - x0), 0.0, 255.0);
  }
  return t;
}

// The master curve after each channel's, as one three-band 256 x 1 lookup image.
VImage curves() {
  const std::vector<double> master = table({{0, 20}, {64, 60}, {128, 132}, {192, 200}, {255, 238}});
  const std::vector<Points> channels = {{{0, 0}, {128, 134}, {255, 255}}, {{0, 0}, {255, 255}}, {{0, 14}, {128, 122}, {255, 236}}};
  std::vector<double> lut;
  for (int x = 0; x < 256; ++x)
    for (const Points& channel : channels) lut.push_back(master[size_t(std::lround(table(channel)[size_t(x)]))]);
  return VImage::new_matrix(768, 1, lut.data(), int(lut.size())).bandfold(VImage::option()->set("factor", 3)).cast(VIPS_FORMAT_UCHAR);
}

}  // namespace

int main(int argc, char** argv) {
  if (VIPS_INIT(argv[0]) || argc != 4) {
    std::fprintf(stderr, "usage: %s INPUT GRAIN OUTPUT\n", argv[0]);
    return 2;
  }
  const double s = 0.88, wr = 0.2126, wg = 0.7152, wb = 0.0722, contrast = 1.06;
  VImage x = VImage::new_from_file(argv[1], VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
  const int w = x.width(), h = x.height();
  x = x.recomb(VImage::new_matrixv(3, 3, wr + (1 - wr) * s, wg * (1 - s), wb * (1 - s), wr * (1 - s),
                                   wg + (1 - wg) * s, wb * (1 - s), wr * (1 - s), wg * (1 - s), wb + (1 - wb) * s));
  x = x.linear(contrast, (1 - contrast) * 127.5).cast(VIPS_FORMAT_UCHAR);
  x = x.maplut(curves());

  VImage grain = VImage::new_from_file(argv[2]);
  grain = grain.resize(double(w) / grain.width(), VImage::option()->set("vscale", double(h) / grain.height()));
  const auto srgb = [](const VImage& image) {
    return image.copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
  };
  grain = srgb(grain.bandjoin({grain, grain}).bandjoin_const({0.35 * 255}));
  x = srgb(x.bandjoin_const({255})).composite2(grain, VIPS_BLEND_MODE_OVERLAY).extract_band(0, VImage::option()->set("n", 3));

  // Vignette: 1 - 0.35 * smoothstep(r, 2.1 r, d), r = 0.55 of the short side.
  const double r = 0.55 * std::min(w, h), outer = r * (1 + 2 * 0.55);
  VImage xy = VImage::xyz(w, h);
  VImage d = ((xy[0] - w / 2.0).pow(2) + (xy[1] - h / 2.0).pow(2)).pow(0.5);
  VImage t = ((d - r) / (outer - r)).relational_const(VIPS_OPERATION_RELATIONAL_MORE, {0}).ifthenelse(
      ((d - r) / (outer - r)).relational_const(VIPS_OPERATION_RELATIONAL_LESS, {1}).ifthenelse((d - r) / (outer - r), 1.0),
      0.0);
  VImage fade = 1 - 0.35 * t * t * (3 - 2 * t);
  x = (x * fade).cast(VIPS_FORMAT_UCHAR);
  x.jpegsave(argv[3], VImage::option()->set("Q", 100)->set("subsample_mode", VIPS_FOREIGN_SUBSAMPLE_OFF));
  vips_shutdown();
  return 0;
}
