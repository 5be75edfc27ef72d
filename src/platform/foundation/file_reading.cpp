#include "platform/foundation/file_reading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

namespace brenvia {
namespace {

std::string describeKind(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder, not a file";
  if (S_ISFIFO(mode) || S_ISSOCK(mode)) return "a pipe, not a file";
  return "a device, not a file";
}

std::string megabytes(size_t bytes) { return std::to_string(bytes >> 20) + " MB"; }

// An open descriptor of the regular file, or -1 with `error` set. A pipe is opened without waiting.
int openRegularFile(const std::string& path, size_t limit, std::string& error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    error = std::strerror(errno);
    return -1;
  }
  struct stat status {};
  if (::fstat(fd, &status) != 0) {
    error = std::strerror(errno);
  } else if (!S_ISREG(status.st_mode)) {
    error = describeKind(status.st_mode);
  } else if (uint64_t(status.st_size) > limit) {
    error = "larger than " + megabytes(limit);
  } else {
    return fd;
  }
  ::close(fd);
  return -1;
}

template <class Bytes>
std::optional<Bytes> readRegularFile(const std::string& path, size_t limit, std::string& error) {
  const int fd = openRegularFile(path, limit, error);
  if (fd < 0) return std::nullopt;
  Bytes bytes;
  char chunk[65536];
  for (;;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) error = std::strerror(errno);
    if (n <= 0) break;
    // A file that grows while it is read still stops at the limit.
    if (bytes.size() + size_t(n) > limit) {
      error = "larger than " + megabytes(limit);
      break;
    }
    bytes.insert(bytes.end(), chunk, chunk + n);
  }
  ::close(fd);
  if (!error.empty()) return std::nullopt;
  return bytes;
}

}  // namespace

bool BVIsRegularFile(const std::string& path, std::string& error) {
  const int fd = openRegularFile(path, SIZE_MAX, error);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

std::optional<std::vector<uint8_t>> BVReadRegularFile(const std::string& path, size_t limit, std::string& error) {
  error.clear();
  return readRegularFile<std::vector<uint8_t>>(path, limit, error);
}

std::optional<std::string> BVReadRegularTextFile(const std::string& path, size_t limit, std::string& error) {
  error.clear();
  return readRegularFile<std::string>(path, limit, error);
}

}  // namespace brenvia
