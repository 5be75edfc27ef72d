#include "platform/imageio/jpeg_errors.h"

#include <jerror.h>

namespace brenvia::imageio::detail {
namespace {

[[noreturn]] void jumpBack(j_common_ptr c) { std::longjmp(reinterpret_cast<JpegErrors*>(c->err)->jump, 1); }

[[noreturn]] void onError(j_common_ptr c) {
  (*c->err->format_message)(c, reinterpret_cast<JpegErrors*>(c->err)->message);
  jumpBack(c);
}

// Warnings after which libjpeg would carry on with grey or garbled pixels. A picture is either
// decoded whole or refused.
bool meansDamagedData(int code, bool inScanData) {
  switch (code) {
    case JWRN_JPEG_EOF:
    case JWRN_HIT_MARKER:
    case JWRN_MUST_RESYNC:
    case JWRN_NOT_SEQUENTIAL:
    case JWRN_HUFF_BAD_CODE:
    case JWRN_ARITH_BAD_CODE:
    case JWRN_BOGUS_PROGRESSION: return true;
    case JWRN_EXTRANEOUS_DATA: return inScanData;
    default: return false;
  }
}

void onMessage(j_common_ptr c, int level) {
  if (level >= 0) return;  // trace output
  if (meansDamagedData(c->err->msg_code, reinterpret_cast<JpegErrors*>(c->err)->inScanData)) onError(c);
  c->err->num_warnings++;
}

void discardMessage(j_common_ptr) {}

}  // namespace

JpegErrors::JpegErrors() : pub{}, jump{}, message{}, inScanData(false) {
  jpeg_std_error(&pub);
  pub.error_exit = onError;
  pub.emit_message = onMessage;
  pub.output_message = discardMessage;
}

void jpegFail(j_common_ptr c, const char* message) {
  std::snprintf(reinterpret_cast<JpegErrors*>(c->err)->message, JMSG_LENGTH_MAX, "%s", message);
  jumpBack(c);
}

}  // namespace brenvia::imageio::detail
