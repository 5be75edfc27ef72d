// The adjustment of bench/recipes/adjust.json done with libvips, file to file: exposure, saturation,
// brightness and contrast on the sRGB-encoded values (as our still processor works in the
// picture's own space), then a JPEG at quality 100 without chroma subsampling.
#include <vips/vips8>

#include <cmath>
#include <cstdio>

using vips::VImage;

int main(int argc, char** argv) {
  if (VIPS_INIT(argv[0]) || argc != 3) {
    std::fprintf(stderr, "usage: %s INPUT OUTPUT\n", argv[0]);
    return 2;
  }
  const double s = 1.3, wr = 0.2126, wg = 0.7152, wb = 0.0722, contrast = 1.15, brightness = 0.03;
  VImage x = VImage::new_from_file(argv[1], VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
  x = x.linear(std::pow(2.0, 0.2) / 255.0, 0.0);
  x = x.recomb(VImage::new_matrixv(3, 3, wr + (1 - wr) * s, wg * (1 - s), wb * (1 - s), wr * (1 - s),
                                   wg + (1 - wg) * s, wb * (1 - s), wr * (1 - s), wg * (1 - s), wb + (1 - wb) * s));
  x = x.linear(contrast * 255.0, ((brightness - 0.5) * contrast + 0.5) * 255.0);
  x.cast(VIPS_FORMAT_UCHAR).jpegsave(argv[2], VImage::option()->set("Q", 100)->set("subsample_mode", VIPS_FOREIGN_SUBSAMPLE_OFF));
  vips_shutdown();
  return 0;
}
