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

}  // namespace

AtomicFileWriter::AtomicFileWriter(std::string path, WriteDurability durability)
    : path_(std::move(path)), durability_(durability) {
  if (path_.empty() || path_.back() == '/') {
    error_ = "not a file name";
    return;
  }
  for (unsigned attempt = 0; attempt < 16 && fd_ < 0; ++attempt) {
    temp_ = temporaryName(path_, attempt);
    // 0666 and the process umask: the same permissions a plain create would give.
    fd_ = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ < 0 && errno != EEXIST) break;
  }
  if (fd_ < 0) error_ = systemError("cannot create a temporary file beside it");
}

AtomicFileWriter::~AtomicFileWriter() {
  if (fd_ >= 0) ::close(fd_);
  if (!temp_.empty() && !committed_) ::unlink(temp_.c_str());
}

bool AtomicFileWriter::append(const uint8_t* data, size_t size) {
  if (!ok()) return false;
  if (!writeAll(fd_, data, size)) return fail("cannot write the data");
  // Writing back starts now, so that the flush of commit() has little left to wait for.
  if (durability_ == WriteDurability::Flushed) {
    ::sync_file_range(fd_, off64_t(written_), off64_t(size), SYNC_FILE_RANGE_WRITE);
  }
  written_ += size;
  return true;
}

bool AtomicFileWriter::commit() {
  if (!ok()) return false;
  if (durability_ == WriteDurability::Flushed && ::fsync(fd_) != 0) return fail("cannot flush the data to disk");
  int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) return fail("cannot close the file");
  if (::rename(temp_.c_str(), path_.c_str()) != 0) return fail("cannot move the new file into place");
  committed_ = true;
  return true;
}

bool AtomicFileWriter::fail(const char* what) {
  error_ = systemError(what);
  return false;
}

bool writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes, std::string* error,
                         WriteDurability durability) {
  AtomicFileWriter file(path, durability);
  if (file.append(bytes.data(), bytes.size()) && file.commit()) return true;
  if (error) {
    *error = file.error();
  } else {
    detail::logFailure("write", path, file.error());
  }
  return false;
}

}  // namespace brenvia::imageio
