// Whole-file writes that never leave a partial file at the destination.

#include "platform/imageio/codec_internal.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace brenvia::imageio {
namespace {

std::string systemError(const char* what) { return std::string(what) + " (" + std::strerror(errno) + ")"; }

bool writeAll(int fd, const uint8_t* p, size_t n) {
  while (n > 0) {
    ssize_t k = ::write(fd, p, n);
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) return false;
    p += k;
    n -= static_cast<size_t>(k);
  }
  return true;
}

// A name beside the destination, unique within this process and, through O_EXCL, on disk.
std::string temporaryName(const std::string& path, unsigned attempt) {
  static std::atomic<unsigned> counter{0};
  size_t slash = path.rfind('/');
  std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  return folder + "." + base + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" +
         std::to_string(attempt);
}

bool writeAtomically(const std::string& path, const std::vector<uint8_t>& bytes, std::string& why) {
  if (path.empty() || path.back() == '/') {
    why = "not a file name";
    return false;
  }
  std::string temp;
  int fd = -1;
  for (unsigned attempt = 0; attempt < 16 && fd < 0; ++attempt) {
    temp = temporaryName(path, attempt);
    // 0666 and the process umask: the same permissions a plain create would give.
    fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    why = systemError("cannot create a temporary file beside it");
    return false;
  }
  bool ok = writeAll(fd, bytes.data(), bytes.size());
  if (!ok) why = systemError("cannot write the data");
  if (ok && ::fsync(fd) != 0) {
    ok = false;
    why = systemError("cannot flush the data to disk");
  }
  if (::close(fd) != 0 && ok) {
    ok = false;
    why = systemError("cannot close the file");
  }
  if (ok && ::rename(temp.c_str(), path.c_str()) != 0) {
    ok = false;
    why = systemError("cannot move the new file into place");
  }
  if (!ok) ::unlink(temp.c_str());
  return ok;
}

}  // namespace

bool writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes, std::string* error) {
  std::string why;
  if (writeAtomically(path, bytes, why)) return true;
  if (error) {
    *error = why;
  } else {
    detail::logFailure("write", path, why);
  }
  return false;
}

}  // namespace brenvia::imageio
