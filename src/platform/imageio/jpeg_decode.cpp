// JPEG reading with the libjpeg API: header and EXIF only, or pixels with DCT scaling, embedded
// profiles applied and CMYK converted to RGB.

#include "platform/foundation/executor.h"
#include "platform/imageio/codec_internal.h"
#include "platform/imageio/jpeg_dc_scan.h"
#include "platform/imageio/jpeg_errors.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>

namespace brenvia::imageio::detail {
namespace {

// More scans than any real encoder writes; a crafted file with thousands of them would take
// minutes to decode.
constexpr int kMaxScans = 500;
// Rows handed to libjpeg per call.
constexpr unsigned kRowBatch = 16;
// Pictures smaller than this are decoded before decodeFile returns even when the caller allows
// the background: handing them to the pool costs more than it saves.
constexpr size_t kBackgroundMinPixels = size_t{1} << 20;

void limitScans(j_common_ptr c) {
  if (c->is_decompressor && reinterpret_cast<j_decompress_ptr>(c)->input_scan_number > kMaxScans)
    jpegFail(c, "too many scans");
}

struct JpegReader {
  jpeg_decompress_struct cinfo{};
  JpegErrors errors;
  jpeg_progress_mgr progress{};
  bool created = false;
  Source source;
  bool wantPixels = false;
  bool cmyk = false;
  JOCTET* icc = nullptr;
  unsigned int iccSize = 0;
  PixelBuffer pixels;
  std::vector<uint8_t> cmykRow;
  std::unique_ptr<CMYKConverter> cmykToRGB;
  // Told the rows decoded so far after each batch; false stops the decode.
  std::function<bool(size_t)> rowsDecoded;

  JpegReader() {
    cinfo.err = &errors.pub;
    progress.progress_monitor = limitScans;
  }
  ~JpegReader() {
    if (created) jpeg_destroy_decompress(&cinfo);
    std::free(icc);
  }
};

void readHeaderStep(JpegReader& r) {
  jpeg_create_decompress(&r.cinfo);
  r.created = true;
  r.cinfo.progress = &r.progress;
  if (r.source.file) {
    jpeg_stdio_src(&r.cinfo, r.source.file);
  } else {
    jpeg_mem_src(&r.cinfo, r.source.data, static_cast<unsigned long>(r.source.size));
  }
  jpeg_save_markers(&r.cinfo, JPEG_APP0 + 1, 0xffff);
  if (r.wantPixels) jpeg_save_markers(&r.cinfo, JPEG_APP0 + 2, 0xffff);
  jpeg_read_header(&r.cinfo, TRUE);
}

void readProfileStep(JpegReader& r) {
  if (!r.icc) jpeg_read_icc_profile(&r.cinfo, &r.icc, &r.iccSize);
}

void startStep(JpegReader& r) {
  readProfileStep(r);
  r.errors.inScanData = true;
  jpeg_start_decompress(&r.cinfo);
}

void readRowsStep(JpegReader& r) {
  jpeg_decompress_struct& c = r.cinfo;
  while (c.output_scanline < c.output_height) {
    JDIMENSION y = c.output_scanline;
    JDIMENSION got;
    if (r.cmyk) {
      JSAMPROW row = r.cmykRow.data();
      got = jpeg_read_scanlines(&c, &row, 1);
      if (got == 1) r.cmykToRGB->convert(row, r.pixels.row(y), c.output_width);
    } else {
      JSAMPROW rows[kRowBatch];
      unsigned n = std::min<unsigned>(kRowBatch, c.output_height - y);
      for (unsigned i = 0; i < n; ++i) rows[i] = r.pixels.row(y + i);
      got = jpeg_read_scanlines(&c, rows, n);
    }
    if (got == 0) jpegFail(reinterpret_cast<j_common_ptr>(&c), "the decoder stopped early");
    if (r.rowsDecoded && !r.rowsDecoded(c.output_scanline)) jpegFail(reinterpret_cast<j_common_ptr>(&c), "cancelled");
  }
}

// Decodes a picture's rows as a task on the pool while the bitmap is already in use. The task
// lives as long as the bitmap: dropping the bitmap early cancels the decode.
//
// The bitmap's readers are often the pool's own workers, rendering and waiting for rows. Were
// every worker waiting so, none would be left to start the decode, and the render would wait for
// ever. So a reader that finds the decode not yet started runs it itself: it decodes the whole
// picture while the other readers take the rows as they arrive, and waiting never depends on a
// free worker. A dedicated thread or arena for decoders would hold a thread beside the pool's.
class BackgroundRows final : public CGImageRowArrival {
 public:
  BackgroundRows(std::unique_ptr<JpegReader> reader, std::string name)
      : reader_(std::move(reader)), name_(std::move(name)) {
    reader_->rowsDecoded = [this](size_t rows) {
      publish(rows);
      return !cancelled_.load(std::memory_order_relaxed);
    };
  }
  ~BackgroundRows() override {
    cancelled_ = true;
    task_.wait();
  }

  void start() {
    task_ = BVExecutorAsync([this] { run(); });
  }
  void waitForRows(size_t rows) const override {
    if (ready_.load(std::memory_order_acquire) >= rows) return;
    task_.runIfPending();
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return ready_.load(std::memory_order_relaxed) >= rows; });
  }
  bool failed() const override { return failed_.load(std::memory_order_acquire); }

 private:
  void run() {
    PixelBuffer pixels = reader_->pixels;
    if (cancelled_) {
      failed_.store(true, std::memory_order_release);
    } else if (!runJpegStep(*reader_, readRowsStep)) {
      size_t decoded = std::min<size_t>(reader_->cinfo.output_scanline, pixels.height);
      std::memset(pixels.row(decoded), 0, (pixels.height - decoded) * pixels.bytesPerRow);
      if (!cancelled_) logFailure("read", name_, std::string("JPEG: ") + reader_->errors.message);
      failed_.store(true, std::memory_order_release);
    }
    reader_.reset();
    publish(pixels.height);
  }

  void publish(size_t rows) {
    {
      std::lock_guard lock(mutex_);
      ready_.store(rows, std::memory_order_release);
    }
    arrived_.notify_all();
  }

  std::unique_ptr<JpegReader> reader_;  // its source keeps the encoded bytes alive
  std::string name_;
  std::atomic<bool> cancelled_{false}, failed_{false};
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  BVAsyncTask task_;
};

// False when the data cannot hold the picture its header announces, so nothing is allocated for
// it. Only single-scan Huffman-coded pictures have a simple bound: each 8x8 block needs at least
// two bits (a DC code and an AC code). Multi-scan pictures are read whole before any allocation.
bool longEnoughForPicture(const jpeg_decompress_struct& c, size_t size) {
  if (c.progressive_mode || c.arith_code || c.comps_in_scan != c.num_components) return true;
  uint64_t blocks = 0;
  for (int i = 0; i < c.num_components; ++i)
    blocks += uint64_t{c.comp_info[i].width_in_blocks} * c.comp_info[i].height_in_blocks;
  return size >= blocks / 4;
}

const jpeg_marker_struct* findExif(const jpeg_decompress_struct& c) {
  for (const jpeg_marker_struct* m = c.marker_list; m; m = m->next)
    if (m->marker == JPEG_APP0 + 1 && m->data_length >= 6 && std::memcmp(m->data, "Exif\0\0", 6) == 0) return m;
  return nullptr;
}

// Hands the reader, ready to read rows, to the pool and gives the arriving bitmap.
bool decodeInBackground(std::unique_ptr<JpegReader> reader, const Source& source, CGColorSpaceRef space,
                        DecodedImage& out, std::string& why) {
  const PixelBuffer pixels = reader->pixels;
  auto rows = std::make_shared<BackgroundRows>(std::move(reader), source.name);
  out.image = CGImage::createArriving(pixels.width, pixels.height, pixels.bytesPerRow, pixels.format, std::move(space),
                                      pixels.data, rows);
  if (!out.image) {
    why = "JPEG: the decoded bitmap is invalid";
    return false;
  }
  rows->start();
  return true;
}

}  // namespace

bool readJPEG(const Source& source, ReadMode mode, const DecodeOptions& options, DecodedImage& out, std::string& why) {
  auto reader = std::make_unique<JpegReader>();
  JpegReader& r = *reader;
  r.source = source;
  r.wantPixels = mode == ReadMode::Pixels;
  auto fail = [&] {
    why = std::string("JPEG: ") + r.errors.message;
    return false;
  };
  if (!runJpegStep(r, readHeaderStep)) return fail();
  jpeg_decompress_struct& c = r.cinfo;
  if (!pictureSizeAllowed(c.image_width, c.image_height, why)) return false;

  out.properties = baseProperties(c.image_width, c.image_height);
  if (const jpeg_marker_struct* exif = findExif(c)) mergeExif(exif->data, exif->data_length, out.properties);
  if (mode == ReadMode::HeaderOnly) return true;

  CGPixelFormat format = CGPixelFormat::RGB8;
  switch (c.jpeg_color_space) {
    case JCS_GRAYSCALE:
      c.out_color_space = JCS_GRAYSCALE;
      format = CGPixelFormat::Gray8;
      break;
    case JCS_YCbCr:
    case JCS_RGB: c.out_color_space = JCS_EXT_RGB; break;
    case JCS_CMYK:
    case JCS_YCCK:
      c.out_color_space = JCS_CMYK;  // libjpeg turns YCCK into CMYK; we take it to RGB
      r.cmyk = true;
      break;
    default:
      why = "JPEG: unsupported colour layout with " + std::to_string(c.num_components) + " components";
      return false;
  }
  c.scale_num = 1;
  c.scale_denom = scaleDenominator(c.image_width, c.image_height, options.maxPixelSize);

  if (!source.file && !longEnoughForPicture(c, source.size)) {
    why = "JPEG: the data is too short for its picture size";
    return false;
  }
  // At 1/8 of the size only the DC coefficients count: they are read alone when the layout allows.
  const bool dcOnly = c.scale_denom == 8 && !source.file && !r.cmyk && runJpegStep(r, readProfileStep) &&
                      decodeDCScan(c, c.src->next_input_byte, c.src->bytes_in_buffer, format, r.pixels);
  if (!dcOnly) {
    if (!runJpegStep(r, startStep)) return fail();
    int components = format == CGPixelFormat::Gray8 ? 1 : r.cmyk ? 4 : 3;
    if (c.output_components != components) {
      why = "JPEG: unexpected number of output components";
      return false;
    }
    if (!r.pixels.allocate(c.output_width, c.output_height, format)) {
      why = "JPEG: not enough memory for the pixels";
      return false;
    }
    if (r.cmyk) {
      r.cmykRow.resize(size_t{c.output_width} * 4);
      r.cmykToRGB = std::make_unique<CMYKConverter>(r.icc, r.iccSize, c.saw_Adobe_marker);
    }
    if (options.background && source.owner && !r.cmyk &&
        size_t{c.output_width} * c.output_height >= kBackgroundMinPixels) {
      std::optional<CGColorSpaceRef> space =
          format == CGPixelFormat::Gray8 ? CGColorSpaceCreateDeviceGray() : spaceKeepingPixels(r.icc, r.iccSize);
      if (space) return decodeInBackground(std::move(reader), source, std::move(*space), out, why);
    }
    if (!runJpegStep(r, readRowsStep)) return fail();
  }

  CGColorSpaceRef space;
  if (format == CGPixelFormat::Gray8) {
    space = CGColorSpaceCreateDeviceGray();
  } else if (r.cmyk) {
    space = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
  } else {
    space = adoptEmbeddedProfile(r.icc, r.iccSize, r.pixels);
  }
  out.image = r.pixels.finish(std::move(space));
  if (!out.image) {
    why = "JPEG: the decoded bitmap is invalid";
    return false;
  }
  return true;
}

}  // namespace brenvia::imageio::detail
