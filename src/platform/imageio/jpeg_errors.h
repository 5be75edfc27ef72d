#pragma once

// libjpeg error handling shared by the JPEG reader and writer.
//
// libjpeg reports errors by calling a handler that must not return; ours longjmps back to the
// caller. To keep that safe in C++, every libjpeg call runs inside a "step" function that holds no
// objects with destructors; all C++ state lives in a codec object owned by the caller of the step.

#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

namespace brenvia::imageio::detail {

struct JpegErrors {
  jpeg_error_mgr pub;  // first, so libjpeg's pointer is also ours
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  bool inScanData;  // stray bytes between markers only matter once pixel data is being read

  // Installs the handlers; libjpeg's own output to stderr is suppressed.
  JpegErrors();
};

// Ends the current step with this message.
[[noreturn]] void jpegFail(j_common_ptr c, const char* message);

// Runs step(codec) and gives false when libjpeg reported an error (the message is in errors).
// setjmp is called here, in a frame with nothing to destroy.
template <typename Codec>
bool runJpegStep(Codec& codec, void (*step)(Codec&)) {
  if (setjmp(codec.errors.jump)) return false;
  step(codec);
  return true;
}

}  // namespace brenvia::imageio::detail
