// JPEG writing with the libjpeg API.
//
// Large pictures are encoded in horizontal strips on several threads. Each strip is a complete
// baseline JPEG with the same tables; because the Huffman tables are the fixed standard ones and
// every strip holds exactly one restart interval, the strips' entropy-coded data can be joined
// with restart markers into one valid stream that decodes to the same pixels as a serial encode.

#include "platform/foundation/log.h"
#include "platform/imageio/codec_internal.h"
#include "platform/imageio/jpeg_errors.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>

#include <jerror.h>

namespace brenvia::imageio::detail {
namespace {

// Rows handed to libjpeg per call.
constexpr unsigned kRowBatch = 16;
// Below this many pixels threads cost more than they save.
constexpr size_t kParallelMinPixels = size_t{1} << 20;

// What every strip shares.
struct Settings {
  const CGImage* image = nullptr;
  int quality = 100;
  OutputColor color;
  std::vector<uint8_t> exif;
  // Rows are passed straight from the image when its layout is one libjpeg takes, else converted.
  bool direct = false;
  RowLayout layout = RowLayout::RGB8;
  J_COLOR_SPACE inputSpace = JCS_EXT_RGB;
  int inputComponents = 3;
  unsigned mcuSize = 8;  // MCU width and height in pixels
};

// Appends the encoder's output straight into a vector, doubling it as needed.
struct VectorDestination {
  jpeg_destination_mgr pub;
  std::vector<uint8_t>* out;
};

void initDestination(j_compress_ptr c) {
  auto* d = reinterpret_cast<VectorDestination*>(c->dest);
  d->pub.next_output_byte = d->out->data();
  d->pub.free_in_buffer = d->out->size();
}

boolean growDestination(j_compress_ptr c) {
  auto* d = reinterpret_cast<VectorDestination*>(c->dest);
  size_t used = d->out->size();
  bool grown = true;
  try {
    d->out->resize(used * 2);
  } catch (...) {
    grown = false;
  }
  if (!grown) ERREXIT(c, JERR_OUT_OF_MEMORY);
  d->pub.next_output_byte = d->out->data() + used;
  d->pub.free_in_buffer = d->out->size() - used;
  return TRUE;
}

void termDestination(j_compress_ptr c) {
  auto* d = reinterpret_cast<VectorDestination*>(c->dest);
  d->out->resize(d->out->size() - d->pub.free_in_buffer);
}

// Encodes rows [firstRow, firstRow + rowCount) as a JPEG of that height.
struct JpegWriter {
  jpeg_compress_struct cinfo{};
  JpegErrors errors;
  VectorDestination destination{};
  bool created = false;
  const Settings* settings = nullptr;
  size_t firstRow = 0, rowCount = 0;
  unsigned restartInterval = 0;  // in MCUs; 0 for none
  bool writeMarkers = true;      // EXIF and ICC segments, in the first strip only
  std::vector<uint8_t> scratch;

  JpegWriter() {
    cinfo.err = &errors.pub;
    destination.pub.init_destination = initDestination;
    destination.pub.empty_output_buffer = growDestination;
    destination.pub.term_destination = termDestination;
  }
  ~JpegWriter() {
    if (created) jpeg_destroy_compress(&cinfo);
  }
};

void compressStep(JpegWriter& w) {
  const Settings& s = *w.settings;
  jpeg_compress_struct& c = w.cinfo;
  jpeg_create_compress(&c);
  w.created = true;
  c.dest = &w.destination.pub;
  c.image_width = static_cast<JDIMENSION>(s.image->width());
  c.image_height = static_cast<JDIMENSION>(w.rowCount);
  c.input_components = s.inputComponents;
  c.in_color_space = s.inputSpace;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, s.quality, TRUE);
  if (s.quality >= 100) {
    for (int i = 0; i < c.num_components; ++i) c.comp_info[i].h_samp_factor = c.comp_info[i].v_samp_factor = 1;
  }
  c.restart_interval = w.restartInterval;
  // EXIF files start with their APP1 segment rather than JFIF's APP0.
  if (!s.exif.empty()) c.write_JFIF_header = FALSE;
  jpeg_start_compress(&c, TRUE);
  if (w.writeMarkers && !s.exif.empty())
    jpeg_write_marker(&c, JPEG_APP0 + 1, s.exif.data(), static_cast<unsigned>(s.exif.size()));
  if (w.writeMarkers && s.color.profile)
    jpeg_write_icc_profile(&c, s.color.profile->data(), static_cast<unsigned>(s.color.profile->size()));

  size_t rowBytes = rowLayoutBytesPerPixel(s.layout) * s.image->width();
  while (c.next_scanline < c.image_height) {
    JDIMENSION y = c.next_scanline;
    unsigned n = std::min<unsigned>(kRowBatch, c.image_height - y);
    JSAMPROW rows[kRowBatch];
    for (unsigned i = 0; i < n; ++i) {
      size_t imageRow = w.firstRow + y + i;
      if (s.direct) {
        rows[i] = const_cast<JSAMPROW>(s.image->row(imageRow));
      } else {
        rows[i] = w.scratch.data() + i * rowBytes;
        convertRow(*s.image, imageRow, s.layout, rows[i]);
      }
    }
    jpeg_write_scanlines(&c, rows, n);
  }
  jpeg_finish_compress(&c);
}

bool encodeStrip(const Settings& s, size_t firstRow, size_t rowCount, unsigned restartInterval, bool markers,
                 std::vector<uint8_t>& out, std::string& why) {
  JpegWriter w;
  w.settings = &s;
  w.firstRow = firstRow;
  w.rowCount = rowCount;
  w.restartInterval = restartInterval;
  w.writeMarkers = markers;
  if (!s.direct) w.scratch.resize(rowLayoutBytesPerPixel(s.layout) * s.image->width() * kRowBatch);
  // A first guess at the output size; the destination grows when it is too small.
  size_t samples = s.image->width() * rowCount * (s.color.gray ? 1 : 3);
  out.resize(std::max<size_t>(size_t{1} << 16, samples / (s.quality >= 90 ? 2 : 8)));
  w.destination.out = &out;
  if (runJpegStep(w, compressStep)) return true;
  why = w.errors.message;
  return false;
}

// Where a strip's entropy-coded data starts (just after its scan header) and the offset of the
// frame height in its frame header. The data runs to the end-of-image marker in the last 2 bytes.
bool locateScan(const std::vector<uint8_t>& jpeg, size_t& scanStart, size_t& heightOffset) {
  heightOffset = 0;
  size_t i = 2;
  while (i + 4 <= jpeg.size() && jpeg[i] == 0xff) {
    uint8_t marker = jpeg[i + 1];
    size_t length = size_t{jpeg[i + 2]} << 8 | jpeg[i + 3];
    if (marker >= 0xc0 && marker <= 0xc3) heightOffset = i + 5;
    if (marker == 0xda) {
      scanStart = i + 2 + length;
      return heightOffset != 0 && scanStart + 2 <= jpeg.size() && jpeg[jpeg.size() - 2] == 0xff &&
             jpeg.back() == 0xd9;
    }
    i += 2 + length;
  }
  return false;
}

// Joins strips: the first one's headers with the full height, then each strip's data, the ones
// after the first preceded by restart markers RST0..RST7 in turn.
bool joinStrips(std::vector<std::vector<uint8_t>>& strips, size_t height, std::vector<uint8_t>& out) {
  std::vector<uint8_t>& first = strips[0];
  size_t scanStart = 0, heightOffset = 0;
  if (!locateScan(first, scanStart, heightOffset)) return false;
  first[heightOffset] = static_cast<uint8_t>(height >> 8);
  first[heightOffset + 1] = static_cast<uint8_t>(height);
  out = std::move(first);
  out.resize(out.size() - 2);
  for (size_t k = 1; k < strips.size(); ++k) {
    if (!locateScan(strips[k], scanStart, heightOffset)) return false;
    out.push_back(0xff);
    out.push_back(static_cast<uint8_t>(0xd0 + ((k - 1) & 7)));
    out.insert(out.end(), strips[k].begin() + static_cast<ptrdiff_t>(scanStart), strips[k].end() - 2);
  }
  out.push_back(0xff);
  out.push_back(0xd9);
  return true;
}

int encoderQuality(double q) {
  if (std::isnan(q)) q = 1.0;
  q = std::clamp(q, 0.0, 1.0);
  return std::clamp(static_cast<int>(std::lround(q * 100)), 1, 100);
}

Settings makeSettings(const CGImage& image, const EncodeOptions& options) {
  Settings s;
  s.image = &image;
  s.quality = encoderQuality(options.quality);
  s.color = chooseOutputColor(image);
  if (options.orientation >= 2 && options.orientation <= 8) s.exif = orientationExif(options.orientation);
  if (s.color.gray) {
    s.layout = RowLayout::Gray8;
    s.inputSpace = JCS_GRAYSCALE;
    s.inputComponents = 1;
    s.direct = image.format() == CGPixelFormat::Gray8;
  } else if (image.format() == CGPixelFormat::RGBA8) {
    s.layout = RowLayout::RGBA8;  // libjpeg skips the fourth byte itself
    s.inputSpace = JCS_EXT_RGBX;
    s.inputComponents = 4;
    s.direct = true;
  } else {
    s.direct = image.format() == CGPixelFormat::RGB8;
  }
  // Colour below quality 100 subsamples chroma 2x2, so an MCU covers 16 x 16 pixels.
  s.mcuSize = !s.color.gray && s.quality < 100 ? 16 : 8;
  return s;
}

}  // namespace

bool encodeJPEGWithThreads(const CGImage& image, const EncodeOptions& options, unsigned threads,
                           std::vector<uint8_t>& out) {
  out.clear();
  Settings s = makeSettings(image, options);
  std::string why;

  // Strips hold whole MCU rows, and one strip's MCUs must fit the 16-bit restart interval.
  size_t mcusPerRow = (image.width() + s.mcuSize - 1) / s.mcuSize;
  size_t mcuRows = (image.height() + s.mcuSize - 1) / s.mcuSize;
  size_t maxStripMCURows = 65535 / mcusPerRow;
  size_t strips = 1;
  size_t stripMCURows = mcuRows;
  if (threads > 1 && image.width() * image.height() >= kParallelMinPixels && maxStripMCURows > 0) {
    stripMCURows = std::min((mcuRows + threads * 2 - 1) / (threads * 2), maxStripMCURows);
    strips = (mcuRows + stripMCURows - 1) / stripMCURows;
  }

  bool ok;
  if (strips <= 1) {
    ok = encodeStrip(s, 0, image.height(), 0, true, out, why);
  } else {
    size_t stripRows = stripMCURows * s.mcuSize;
    auto interval = static_cast<unsigned>(stripMCURows * mcusPerRow);
    std::vector<std::vector<uint8_t>> parts(strips);
    std::vector<std::string> errors(strips);
    std::vector<char> done(strips, 0);
    std::atomic<size_t> next{0};
    auto work = [&] {
      for (size_t k; (k = next++) < strips;) {
        size_t first = k * stripRows;
        size_t rows = std::min(stripRows, image.height() - first);
        done[k] = encodeStrip(s, first, rows, interval, k == 0, parts[k], errors[k]);
      }
    };
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < std::min<size_t>(threads, strips); ++t) pool.emplace_back(work);
    work();
    for (std::thread& t : pool) t.join();
    auto failed = std::find(done.begin(), done.end(), 0);
    ok = failed == done.end();
    if (!ok) why = errors[static_cast<size_t>(failed - done.begin())];
    if (ok && !joinStrips(parts, image.height(), out)) {
      ok = false;
      why = "the encoded strips could not be joined";
    }
  }
  if (!ok) {
    out.clear();
    BVLog("[ImageIO] Could not encode JPEG: " + why);
  }
  return ok;
}

}  // namespace brenvia::imageio::detail

namespace brenvia::imageio {

bool encodeJPEG(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out) {
  unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
  return detail::encodeJPEGWithThreads(image, options, threads, out);
}

}  // namespace brenvia::imageio
