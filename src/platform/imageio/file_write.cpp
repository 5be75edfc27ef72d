// Whole-file writes that never leave a partial file at the destination.

#include "platform/imageio/codec_internal.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>
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

// A name beside the destination, unique within this process and, through O_EXCL, on disk:
// ".<name>.tmp-<pid>-<counter>-<attempt>".
std::string temporaryName(const std::string& path, unsigned attempt) {
  static std::atomic<unsigned> counter{0};
  size_t slash = path.rfind('/');
  std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  return folder + "." + base + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" +
         std::to_string(attempt);
}

// The process that made a temporary name, or 0 for other names.
pid_t makerOf(const std::string& name) {
  const size_t mark = name.rfind(".tmp-");
  if (name.empty() || name[0] != '.' || mark == std::string::npos) return 0;
  char* end = nullptr;
  const long pid = std::strtol(name.c_str() + mark + 5, &end, 10);
  return pid > 0 && end && *end == '-' ? pid_t(pid) : 0;
}

// Removes, once per folder and process, the temporary files of processes that have ended (killed
// before they could clean up).
void removeStaleTemporaryFiles(const std::string& destination) {
  static std::mutex mutex;
  static std::set<std::string> swept;
  const std::filesystem::path folder = std::filesystem::path(destination).parent_path();
  {
    std::lock_guard lock(mutex);
    if (!swept.insert(folder.string()).second) return;
  }
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, error)) {
    const pid_t maker = makerOf(entry.path().filename().string());
    if (maker != 0 && maker != ::getpid() && ::kill(maker, 0) != 0 && errno == ESRCH) {
      std::filesystem::remove(entry.path(), error);
    }
  }
}

// The temporary names of open writers, for removal from a signal handler: fixed storage that the
// handler reads without locks or allocation.
constexpr int kOpenSlots = 64;
constexpr size_t kNameBytes = 4096;
char gOpenNames[kOpenSlots][kNameBytes];
std::atomic<bool> gSlotUsed[kOpenSlots];

int takeSlot(const std::string& name) {
  if (name.size() >= kNameBytes) return -1;
  for (int i = 0; i < kOpenSlots; ++i) {
    bool expected = false;
    if (gSlotUsed[i].compare_exchange_strong(expected, true)) {
      std::memcpy(gOpenNames[i], name.c_str(), name.size() + 1);
      return i;
    }
  }
  return -1;
}

void releaseSlot(int slot) {
  if (slot >= 0) gSlotUsed[slot] = false;
}

// Where the data go: the file a symbolic link names, so that the link is kept.
std::string followedDestination(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_symlink(path, error)) return path;
  const std::filesystem::path target = std::filesystem::weakly_canonical(path, error);
  return error ? path : target.string();
}

}  // namespace

void AtomicFileWriter::removeOpenTemporaryFiles() {
  for (int i = 0; i < kOpenSlots; ++i) {
    if (gSlotUsed[i]) ::unlink(gOpenNames[i]);
  }
}

AtomicFileWriter::AtomicFileWriter(std::string path, WriteDurability durability)
    : path_(std::move(path)), durability_(durability) {
  if (path_.empty() || path_.back() == '/') {
    error_ = "not a file name";
    return;
  }
  path_ = followedDestination(path_);
  removeStaleTemporaryFiles(path_);
  for (unsigned attempt = 0; attempt < 16 && fd_ < 0; ++attempt) {
    temp_ = temporaryName(path_, attempt);
    // 0666 and the process umask: the same permissions a plain create would give.
    fd_ = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ < 0 && errno != EEXIST) break;
  }
  if (fd_ < 0) {
    error_ = systemError("cannot create a temporary file beside it");
    return;
  }
  slot_ = takeSlot(temp_);
  // A file that is replaced keeps its permissions.
  struct stat existing {};
  if (::stat(path_.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) ::fchmod(fd_, existing.st_mode & 07777);
}

AtomicFileWriter::~AtomicFileWriter() {
  if (fd_ >= 0) ::close(fd_);
  if (!temp_.empty() && !committed_) ::unlink(temp_.c_str());
  releaseSlot(slot_);
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
