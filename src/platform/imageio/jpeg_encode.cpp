// JPEG writing with the libjpeg API.
//
// Large pictures are encoded in horizontal strips on several threads. Each strip is a complete
// baseline JPEG with the same tables; because the Huffman tables are the fixed standard ones and
// every strip holds exactly one restart interval, the strips' entropy-coded data can be joined
// with restart markers into one valid stream that decodes to the same pixels as a serial encode.

#include "platform/foundation/executor.h"
#include "platform/foundation/log.h"
#include "platform/imageio/codec_internal.h"
#include "platform/imageio/jpeg_errors.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include <jerror.h>

namespace brenvia::imageio::detail {
namespace {

// Rows handed to libjpeg per call.
constexpr unsigned kRowBatch = 16;
// Below this many pixels threads cost more than they save.
constexpr size_t kParallelMinPixels = size_t{1} << 20;

// What every strip shares.
struct Settings {
  size_t width = 0;
  int quality = 100;
  OutputColor color;
  std::vector<uint8_t> exif;
  // Rows are passed straight from the image when they are in this layout, else converted to it.
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

// Encodes rows [firstRow, firstRow + rowCount) of the image as a JPEG of that height.
struct JpegWriter {
  jpeg_compress_struct cinfo{};
  JpegErrors errors;
  VectorDestination destination{};
  bool created = false;
  const Settings* settings = nullptr;
  const CGImage* image = nullptr;
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
  c.image_width = static_cast<JDIMENSION>(s.width);
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

  size_t rowBytes = rowLayoutBytesPerPixel(s.layout) * s.width;
  while (c.next_scanline < c.image_height) {
    JDIMENSION y = c.next_scanline;
    unsigned n = std::min<unsigned>(kRowBatch, c.image_height - y);
    JSAMPROW rows[kRowBatch];
    for (unsigned i = 0; i < n; ++i) {
      size_t imageRow = w.firstRow + y + i;
      rows[i] = const_cast<JSAMPROW>(rowIfAlready(*w.image, imageRow, s.layout));
      if (!rows[i]) {
        rows[i] = w.scratch.data() + i * rowBytes;
        convertRow(*w.image, imageRow, s.layout, rows[i]);
      }
    }
    jpeg_write_scanlines(&c, rows, n);
  }
  jpeg_finish_compress(&c);
}

bool encodeStrip(const Settings& s, const CGImage& image, size_t firstRow, size_t rowCount, unsigned restartInterval,
                 bool markers, std::vector<uint8_t>& out, std::string& why) {
  JpegWriter w;
  w.settings = &s;
  w.image = &image;
  w.firstRow = firstRow;
  w.rowCount = rowCount;
  w.restartInterval = restartInterval;
  w.writeMarkers = markers;
  w.scratch.resize(rowLayoutBytesPerPixel(s.layout) * s.width * kRowBatch);
  // A first guess at the output size; the destination grows when it is too small.
  size_t samples = s.width * rowCount * (s.color.gray ? 1 : 3);
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

// Sends what strip k adds to the joined file: the first strip with its headers (the frame
// height set to the whole picture's), every later one from its scan data on, after the restart
// marker RST0..RST7 in turn; each without its end-of-image marker, which the file gets once.
bool sendStrip(std::vector<uint8_t>& strip, size_t k, size_t height, const JPEGStripEncoder::Sink& sink) {
  size_t scanStart = 0, heightOffset = 0;
  if (!locateScan(strip, scanStart, heightOffset)) return false;
  if (k == 0) {
    strip[heightOffset] = static_cast<uint8_t>(height >> 8);
    strip[heightOffset + 1] = static_cast<uint8_t>(height);
    return sink(strip.data(), strip.size() - 2);
  }
  const uint8_t marker[2] = {0xff, static_cast<uint8_t>(0xd0 + ((k - 1) & 7))};
  return sink(marker, 2) && sink(strip.data() + scanStart, strip.size() - 2 - scanStart);
}

int encoderQuality(double q) {
  if (std::isnan(q)) q = 1.0;
  q = std::clamp(q, 0.0, 1.0);
  return std::clamp(static_cast<int>(std::lround(q * 100)), 1, 100);
}

Settings makeSettings(size_t width, CGPixelFormat format, const CGColorSpaceRef& space, const EncodeOptions& options) {
  Settings s;
  s.width = width;
  s.quality = encoderQuality(options.quality);
  s.color = chooseOutputColor(format, space);
  if (options.orientation >= 2 && options.orientation <= 8) s.exif = orientationExif(options.orientation);
  if (s.color.gray) {
    s.layout = RowLayout::Gray8;
    s.inputSpace = JCS_GRAYSCALE;
    s.inputComponents = 1;
  } else if (CGPixelFormatBytesPerPixel(format) == 4) {
    s.layout = RowLayout::RGBA8;  // libjpeg skips the fourth byte itself
    s.inputSpace = JCS_EXT_RGBX;
    s.inputComponents = 4;
  }
  // Colour below quality 100 subsamples chroma 2x2, so an MCU covers 16 x 16 pixels.
  s.mcuSize = !s.color.gray && s.quality < 100 ? 16 : 8;
  return s;
}

}  // namespace

}  // namespace brenvia::imageio::detail

namespace brenvia::imageio {

struct JPEGStripEncoder::State {
  detail::Settings settings;
  size_t height = 0, stripRows = 0, strips = 0;
  unsigned interval = 0;  // restart interval in MCUs: one strip; 0 for a single strip
  std::vector<std::vector<uint8_t>> parts;
  std::vector<char> done;
  std::vector<std::string> errors;
  // Strips go to the sink in order, each as soon as it and those before it are encoded.
  std::mutex sending;
  Sink sink;
  size_t sent = 0;
  std::string sinkError;

  void sendReady() {
    std::lock_guard lock(sending);
    while (sink && sinkError.empty() && sent < strips && done[sent]) {
      if (!detail::sendStrip(parts[sent], sent, height, sink)) sinkError = "the encoded strips could not be joined or written";
      std::vector<uint8_t>().swap(parts[sent++]);
    }
  }
};

JPEGStripEncoder::JPEGStripEncoder(size_t width, size_t height, CGPixelFormat format, const CGColorSpaceRef& space,
                                   const EncodeOptions& options, size_t preferredStripRows)
    : state_(std::make_unique<State>()) {
  State& st = *state_;
  st.settings = detail::makeSettings(width, format, space, options);
  st.height = height;
  // Strips hold whole MCU rows, and one strip's MCUs must fit the 16-bit restart interval.
  const size_t mcu = st.settings.mcuSize;
  const size_t mcusPerRow = (width + mcu - 1) / mcu;
  const size_t maxStripMCURows = 65535 / std::max<size_t>(mcusPerRow, 1);
  const size_t stripMCURows = preferredStripRows >= height
                                  ? 0
                                  : std::min(std::max<size_t>(preferredStripRows / mcu, 1), maxStripMCURows);
  st.stripRows = stripMCURows == 0 ? height : stripMCURows * mcu;
  st.strips = std::max<size_t>((height + st.stripRows - 1) / std::max<size_t>(st.stripRows, 1), 1);
  if (st.strips == 1) st.stripRows = height;
  st.interval = st.strips > 1 ? static_cast<unsigned>(stripMCURows * mcusPerRow) : 0;
  st.parts.resize(st.strips);
  st.done.assign(st.strips, 0);
  st.errors.resize(st.strips);
}

JPEGStripEncoder::~JPEGStripEncoder() = default;

size_t JPEGStripEncoder::stripRows() const { return state_->stripRows; }
size_t JPEGStripEncoder::stripCount() const { return state_->strips; }

bool JPEGStripEncoder::encodeStrip(size_t k, const CGImage& image, size_t firstRow) {
  State& st = *state_;
  if (k >= st.strips) return false;
  const size_t rows = std::min(st.stripRows, st.height - k * st.stripRows);
  if (image.width() != st.settings.width || firstRow + rows > image.height()) {
    st.errors[k] = "a strip's pixels do not match the picture";
    return false;
  }
  st.done[k] = detail::encodeStrip(st.settings, image, firstRow, rows, st.interval, k == 0, st.parts[k], st.errors[k]);
  if (st.done[k]) st.sendReady();
  return st.done[k];
}

void JPEGStripEncoder::setSink(Sink sink) { state_->sink = std::move(sink); }

bool JPEGStripEncoder::finish() {
  State& st = *state_;
  st.sendReady();
  std::string why = st.sinkError;
  auto failed = std::find(st.done.begin(), st.done.end(), 0);
  if (failed != st.done.end()) {
    why = st.errors[size_t(failed - st.done.begin())];
    if (why.empty()) why = "a strip was not encoded";
  }
  static constexpr uint8_t kEndOfImage[2] = {0xff, 0xd9};
  if (why.empty() && st.sink && st.sink(kEndOfImage, 2)) return true;
  BVLog("[ImageIO] Could not encode JPEG: " + (why.empty() ? std::string("the output could not be written") : why));
  return false;
}

bool JPEGStripEncoder::finish(std::vector<uint8_t>& out) {
  State& st = *state_;
  out.clear();
  size_t total = 2;
  for (const auto& part : st.parts) total += part.size();
  out.reserve(total);
  setSink([&out](const uint8_t* data, size_t size) {
    out.insert(out.end(), data, data + size);
    return true;
  });
  if (finish()) return true;
  out.clear();
  return false;
}

}  // namespace brenvia::imageio

namespace brenvia::imageio::detail {

bool encodeJPEGWithThreads(const CGImage& image, const EncodeOptions& options, unsigned threads,
                           std::vector<uint8_t>& out) {
  // Small pictures and single threads make one strip, without restart markers.
  size_t stripRows = image.height();
  if (threads > 1 && image.width() * image.height() >= kParallelMinPixels)
    stripRows = (image.height() + threads * 2 - 1) / (threads * 2);
  JPEGStripEncoder encoder(image.width(), image.height(), image.format(), image.colorSpace(), options, stripRows);
  BVExecutorParallelFor(encoder.stripCount(), threads,
                        [&](size_t k) { encoder.encodeStrip(k, image, k * encoder.stripRows()); });
  return encoder.finish(out);
}

}  // namespace brenvia::imageio::detail

namespace brenvia::imageio {

bool encodeJPEG(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out) {
  unsigned threads = std::min(BVExecutorConcurrency(), 8u);
  return detail::encodeJPEGWithThreads(image, options, threads, out);
}

}  // namespace brenvia::imageio
