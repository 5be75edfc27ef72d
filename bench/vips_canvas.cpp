// Straightening and cropping done with libvips, file to file: a 3 degree rotation about the centre
// with bilinear resampling, the centre crop given, then a JPEG at quality 100 without chroma
// subsampling.
#include <vips/vips8>

#include <cstdio>
#include <cstdlib>

using vips::VImage;

int main(int argc, char** argv) {
  if (VIPS_INIT(argv[0]) || argc != 7) {
    std::fprintf(stderr, "usage: %s INPUT OUTPUT X Y W H\n", argv[0]);
    return 2;
  }
  VImage x = VImage::new_from_file(argv[1], VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
  x = x.rotate(3, VImage::option()->set("interpolate", vips::VInterpolate::new_from_name("bilinear")));
  const int left = std::atoi(argv[3]) + (x.width() - VImage::new_from_file(argv[1]).width()) / 2;
  const int top = std::atoi(argv[4]) + (x.height() - VImage::new_from_file(argv[1]).height()) / 2;
  x = x.crop(left, top, std::atoi(argv[5]), std::atoi(argv[6]));
  x.jpegsave(argv[2], VImage::option()->set("Q", 100)->set("subsample_mode", VIPS_FOREIGN_SUBSAMPLE_OFF));
  vips_shutdown();
  return 0;
}
