// Writes seed corpora for the fuzz targets: <folder>/jpeg, png, heif, webp, tiff, property_list,
// keyed_archive, acv, lut_text, curve_points and recipe, each a set of small valid files. Layouts
// our encoders do not produce (progressive and arithmetic JPEG, CMYK, restart markers, palettes,
// low bit depths, interlacing, lossless WebP, tiled and palette TIFF) are written with libjpeg,
// libspng, libwebp and libtiff.

#include "platform/foundation/keyed_archive.h"
#include "platform/foundation/property_list.h"
#include "platform/imageio/image_io.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <jpeglib.h>
#include <lcms2.h>
#include <spng.h>
#include <tiffio.h>
#include <webp/encode.h>

namespace {

using namespace brenvia;
using F = CGPixelFormat;

std::filesystem::path gFolder;

void save(const char* kind, const std::string& name, const std::vector<uint8_t>& bytes) {
  std::filesystem::create_directories(gFolder / kind);
  std::ofstream(gFolder / kind / name, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::shared_ptr<CGImage> picture(F format, size_t w, size_t h, CGColorSpaceRef space) {
  auto image = CGImage::allocate(w, h, format, std::move(space));
  size_t bytes = w * CGPixelFormatBytesPerPixel(format);
  for (size_t y = 0; y < h; ++y)
    for (size_t i = 0; i < bytes; ++i) image->mutableRow(y)[i] = static_cast<uint8_t>(i * 7 + y * 13 + (i * y) % 5);
  return image;
}

std::vector<uint8_t> wideGamutProfile() {
  cmsCIExyY white{0.3127, 0.3290, 1};
  cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}};
  cmsToneCurve* gamma = cmsBuildGamma(nullptr, 2.2);
  cmsToneCurve* curves[3] = {gamma, gamma, gamma};
  cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsFreeToneCurve(gamma);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile, nullptr, &size);
  std::vector<uint8_t> bytes(size);
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  return bytes;
}

enum JpegVariant { kProgressive, kArithmetic, kRestarts, kCMYK };

std::vector<uint8_t> libjpegFile(JpegVariant variant) {
  jpeg_compress_struct c{};
  jpeg_error_mgr errors{};
  c.err = jpeg_std_error(&errors);
  jpeg_create_compress(&c);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&c, &buffer, &size);
  c.image_width = 40;
  c.image_height = 24;
  c.input_components = variant == kCMYK ? 4 : 3;
  c.in_color_space = variant == kCMYK ? JCS_CMYK : JCS_RGB;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 80, TRUE);
  if (variant == kProgressive) jpeg_simple_progression(&c);
  if (variant == kArithmetic) c.arith_code = TRUE;
  if (variant == kRestarts) c.restart_interval = 2;
  jpeg_start_compress(&c, TRUE);
  std::vector<uint8_t> row(40 * static_cast<size_t>(c.input_components));
  while (c.next_scanline < c.image_height) {
    for (size_t i = 0; i < row.size(); ++i) row[i] = static_cast<uint8_t>(i * 5 + c.next_scanline * 9);
    JSAMPROW rows[1] = {row.data()};
    jpeg_write_scanlines(&c, rows, 1);
  }
  jpeg_finish_compress(&c);
  std::vector<uint8_t> bytes(buffer, buffer + size);
  jpeg_destroy_compress(&c);
  std::free(buffer);
  return bytes;
}

std::vector<uint8_t> libspngFile(uint8_t colorType, uint8_t depth, bool interlaced, bool transparency) {
  const uint32_t w = 13, h = 9;
  spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
  spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
  spng_ihdr ihdr{w, h, depth, colorType, 0, 0, static_cast<uint8_t>(interlaced ? 1 : 0)};
  spng_set_ihdr(ctx, &ihdr);
  if (colorType == SPNG_COLOR_TYPE_INDEXED) {
    spng_plte plte{};
    plte.n_entries = 1u << depth;
    for (uint32_t i = 0; i < plte.n_entries; ++i)
      plte.entries[i] = {uint8_t(i * 37), uint8_t(i * 91), uint8_t(255 - i), 0};
    spng_set_plte(ctx, &plte);
  }
  if (transparency) {
    spng_trns trns{};
    trns.gray = 1;
    trns.red = trns.green = trns.blue = 2;
    trns.n_type3_entries = 2;
    trns.type3_alpha[1] = 90;
    spng_set_trns(ctx, &trns);
  }
  int channels = colorType == SPNG_COLOR_TYPE_TRUECOLOR         ? 3
                 : colorType == SPNG_COLOR_TYPE_GRAYSCALE_ALPHA ? 2
                 : colorType == SPNG_COLOR_TYPE_TRUECOLOR_ALPHA ? 4
                                                                : 1;
  size_t rowBytes = (w * channels * depth + 7) / 8;
  std::vector<uint8_t> pixels(rowBytes * h);
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * 29);
  if (colorType == SPNG_COLOR_TYPE_INDEXED && depth == 8)
    for (auto& p : pixels) p %= 2;
  int err = spng_encode_image(ctx, pixels.data(), pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
  size_t size = 0;
  auto* buffer = static_cast<uint8_t*>(err ? nullptr : spng_get_png_buffer(ctx, &size, &err));
  std::vector<uint8_t> bytes(buffer, buffer + (buffer ? size : 0));
  std::free(buffer);
  spng_ctx_free(ctx);
  if (bytes.empty()) std::fprintf(stderr, "could not write a PNG seed: %s\n", spng_strerror(err));
  return bytes;
}

std::vector<uint8_t> losslessWebP() {
  std::vector<uint8_t> rgba(17 * 11 * 4);
  for (size_t i = 0; i < rgba.size(); ++i) rgba[i] = static_cast<uint8_t>(i * 13);
  uint8_t* out = nullptr;
  size_t size = WebPEncodeLosslessRGBA(rgba.data(), 17, 11, 17 * 4, &out);
  std::vector<uint8_t> bytes(out, out + size);
  WebPFree(out);
  return bytes;
}

// A one-strip deflated TIFF of `samples` grey samples a pixel (2: grey and straight alpha), the
// layouts behind a slow read and a wrong alpha found before.
void libtiffStrip(const std::filesystem::path& path, uint32_t height, uint16_t samples) {
  std::filesystem::create_directories(path.parent_path());
  TIFF* tiff = TIFFOpen(path.c_str(), "w");
  if (!tiff) return;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 24);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, height);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
  std::vector<uint16_t> extra(size_t(samples - 1), EXTRASAMPLE_UNASSALPHA);
  TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, uint16_t(extra.size()), extra.data());
  std::vector<uint8_t> data(size_t(24) * height * samples, 100);
  TIFFWriteEncodedStrip(tiff, 0, data.data(), tmsize_t(data.size()));
  TIFFClose(tiff);
}

// A 20 x 18 TIFF through libtiff: 8-bit RGB in 16 x 16 tiles, or 4-bit palette strips.
void libtiffFile(const std::filesystem::path& path, bool tiled) {
  std::filesystem::create_directories(path.parent_path());
  TIFF* tiff = TIFFOpen(path.c_str(), "w");
  if (!tiff) return;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 20);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 18);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, tiled ? 8 : 4);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, tiled ? 3 : 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, tiled ? PHOTOMETRIC_RGB : PHOTOMETRIC_PALETTE);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  std::vector<uint8_t> block(16 * 16 * 3);
  for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i * 11);
  if (tiled) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
    for (uint32_t y = 0; y < 18; y += 16)
      for (uint32_t x = 0; x < 20; x += 16) TIFFWriteTile(tiff, block.data(), x, y, 0, 0);
  } else {
    std::vector<uint16_t> map(16);
    for (size_t i = 0; i < 16; ++i) map[i] = static_cast<uint16_t>(i * 4369);
    TIFFSetField(tiff, TIFFTAG_COLORMAP, map.data(), map.data(), map.data());
    for (uint32_t y = 0; y < 18; ++y) TIFFWriteScanline(tiff, block.data() + y * 10, y, 0);
  }
  TIFFClose(tiff);
}

// The record the keyed-archive target registers, with every kind of field filled in.
struct FuzzRecord : BVCoding {
  std::shared_ptr<const FuzzRecord> child;
  std::string className() const override { return "BVFuzzRecord"; }
  void encodeWithCoder(BVKeyedArchiver& coder) const override {
    coder.encodeDouble(0.35, "amount");
    coder.encodeInteger(-1, "count");
    coder.encodeBool(true, "enabled");
    coder.encodeCGPoint({12.5, -3}, "center");
    coder.encodeObject(Value{{"type", "adjustment"}, {"saturation", 1.2}, {"tags", {"grain", "frame"}}}, "settings");
    coder.encodeObject(child, "child");
  }
};

void writeArchiveSeeds() {
  // A recipe as a user would give one: an array of parameter dictionaries.
  Value recipe = Value::array({{{"type", "adjustment"}, {"exposure", 0.3}, {"useVibrance", true}},
                               {{"type", "image"}, {"image", "grain"}, {"alpha", 0.35}, {"tags", {"grain"}}}});
  save("property_list", "recipe.bplist", BVPropertyListWrite(recipe, BVPropertyListFormat::Binary));
  save("property_list", "recipe.plist", BVPropertyListWrite(recipe, BVPropertyListFormat::XML));
  auto inner = std::make_shared<FuzzRecord>();
  FuzzRecord outer;
  outer.child = inner;
  save("keyed_archive", "nested.bplist", BVKeyedArchiver::archivedData(outer, BVPropertyListFormat::Binary));
  save("keyed_archive", "nested.plist", BVKeyedArchiver::archivedData(outer, BVPropertyListFormat::XML));
}

// JSON recipes whose values move: random ranges and picks, and sliders through nested key paths.
void writeRecipeSeeds() {
  Value moving = Value::array(
      {{{"type", "adjustment"},
        {"exposure", 0.1},
        {"filterFrequency", 0.5},
        {"random",
         {{{"keyPath", "exposure"}, {"minimum", -1}, {"maximum", 1}}, {{"keyPath", "hue"}, {"values", {0, 0.5, 1}}}}},
        {"sliderInput", {{{"keyPath", "saturation"}, {"minimum", 0}, {"maximum", 2}}}}},
       {{"type", "image"},
        {"mask", {{"center", {{"x", 0}}}}},
        {"sliderInput", {{"keyPath", "mask.center.x"}, {"minimum", -0.5}, {"maximum", 0.5}}}}});
  std::string text = moving.dump();
  save("recipe", "moving.json", std::vector<uint8_t>(text.begin(), text.end()));
  // Hostile shapes found before: wrong types, inverted ranges, huge radii, deep nesting.
  const std::string hostile[][2] = {
      {"types.json", R"([{"type": "adjustment", "exposure": "0.5", "enabled": "false", "alpha": [1]}, 42, null])"},
      {"inverted.json",
       R"([{"type": "adjustment", "random": [{"keyPath": "exposure", "minimum": 5, "maximum": -5}]}])"},
      {"radius.json", R"([{"type": "unsharp", "radius": 1e9, "intensity": 1}])"},
      {"deep.json",
       "[{\"type\": \"adjustment\", \"exposure\": " + std::string(100, '[') + "1" + std::string(100, ']') + "}]"},
  };
  for (const auto& [name, body] : hostile) save("recipe", name, std::vector<uint8_t>(body.begin(), body.end()));
}

}  // namespace

// An ACV file: version 4, the four curves with a few (y, x) points each, big-endian.
void writeCurveSeeds() {
  std::vector<uint8_t> acv = {0, 4, 0, 4};
  const std::vector<std::vector<int>> curves = {
      {0, 0, 255, 255}, {10, 0, 140, 100, 250, 255}, {0, 0, 255, 255}, {30, 0, 200, 128, 255, 240}};
  for (const auto& points : curves) {
    acv.insert(acv.end(), {0, uint8_t(points.size() / 2)});
    for (int v : points) acv.insert(acv.end(), {uint8_t(v >> 8), uint8_t(v)});
  }
  save("acv", "curves.acv", acv);
  std::string cube = "TITLE \"seed\"\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\nLUT_3D_SIZE 2\n";
  for (int i = 0; i < 8; ++i) cube += std::to_string(i & 1) + " " + std::to_string(i >> 1 & 1) + " 0.5\n";
  save("lut_text", "seed.cube", std::vector<uint8_t>(cube.begin(), cube.end()));
  const std::string points = "{0 0},{64 50},{128 140},{255 255}";
  save("curve_points", "points.txt", std::vector<uint8_t>(points.begin(), points.end()));
}

// The HEVC encoder keeps a few internal blocks until the process ends; they are not ours.
extern "C" const char* __lsan_default_suppressions() { return "leak:libx265\n"; }

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <folder>\n", argv[0]);
    return 2;
  }
  gFolder = argv[1];
  auto srgb = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
  auto p3 = CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3);
  auto wideICC = wideGamutProfile();
  auto wide = CGColorSpaceCreateWithICCData(wideICC.data(), wideICC.size());

  struct Own {
    const char* name;
    std::shared_ptr<CGImage> image;
    imageio::EncodeOptions options;
  };
  imageio::EncodeOptions best, lower, rotated, deep;
  lower.quality = 0.6;
  rotated.orientation = 6;
  deep.sixteenBit = true;
  const Own own[] = {
      {"gray", picture(F::Gray8, 24, 16, CGColorSpaceCreateDeviceGray()), best},
      {"rgb444", picture(F::RGB8, 33, 17, srgb), best},
      {"rgb420", picture(F::RGB8, 33, 17, srgb), lower},
      {"rgba_oriented", picture(F::RGBA8, 20, 20, srgb), rotated},
      {"p3", picture(F::RGB8, 16, 16, p3), lower},
      {"wide_gamut", picture(F::RGB8, 16, 16, wide), best},
      {"rgb16", picture(F::RGB16, 12, 10, srgb), deep},
      {"rgba16_p3", picture(F::RGBA16, 12, 10, p3), deep},
      {"gray16", picture(F::Gray16, 12, 10, CGColorSpaceCreateDeviceGray()), deep},
  };
  for (const Own& o : own) {
    std::vector<uint8_t> bytes;
    if (imageio::encodeJPEG(*o.image, o.options, bytes)) save("jpeg", std::string(o.name) + ".jpg", bytes);
    if (imageio::encodePNG(*o.image, o.options, bytes)) save("png", std::string(o.name) + ".png", bytes);
    if (imageio::encodeWebP(*o.image, o.options, bytes)) save("webp", std::string(o.name) + ".webp", bytes);
    if (imageio::encodeTIFF(*o.image, o.options, bytes)) save("tiff", std::string(o.name) + ".tif", bytes);
    if (imageio::encodeHEIF(*o.image, o.options, bytes)) save("heif", std::string(o.name) + ".heic", bytes);
  }
  save("webp", "lossless.webp", losslessWebP());
  libtiffFile(gFolder / "tiff" / "tiled.tif", true);
  libtiffFile(gFolder / "tiff" / "palette.tif", false);
  libtiffStrip(gFolder / "tiff" / "grey-alpha.tif", 16, 2);
  libtiffStrip(gFolder / "tiff" / "many-samples.tif", 4096, 65);
  save("jpeg", "progressive.jpg", libjpegFile(kProgressive));
  save("jpeg", "arithmetic.jpg", libjpegFile(kArithmetic));
  save("jpeg", "restarts.jpg", libjpegFile(kRestarts));
  save("jpeg", "cmyk_adobe.jpg", libjpegFile(kCMYK));
  save("png", "palette.png", libspngFile(SPNG_COLOR_TYPE_INDEXED, 8, false, false));
  save("png", "palette_trns.png", libspngFile(SPNG_COLOR_TYPE_INDEXED, 8, false, true));
  save("png", "palette2_interlaced.png", libspngFile(SPNG_COLOR_TYPE_INDEXED, 2, true, false));
  save("png", "gray1.png", libspngFile(SPNG_COLOR_TYPE_GRAYSCALE, 1, false, false));
  save("png", "gray4_trns.png", libspngFile(SPNG_COLOR_TYPE_GRAYSCALE, 4, false, true));
  save("png", "gray_alpha.png", libspngFile(SPNG_COLOR_TYPE_GRAYSCALE_ALPHA, 8, false, false));
  save("png", "gray_alpha16_interlaced.png", libspngFile(SPNG_COLOR_TYPE_GRAYSCALE_ALPHA, 16, true, false));
  save("png", "rgb_trns.png", libspngFile(SPNG_COLOR_TYPE_TRUECOLOR, 8, false, true));
  save("png", "rgba_interlaced.png", libspngFile(SPNG_COLOR_TYPE_TRUECOLOR_ALPHA, 8, true, false));
  writeArchiveSeeds();
  writeCurveSeeds();
  writeRecipeSeeds();
  return 0;
}
