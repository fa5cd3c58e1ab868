#include "utils/AtomicOutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace velmor {
namespace {

std::string SystemErrorText(int error) {
  char buffer[256];
  // GNU strerror_r returns the text, which may or may not be in `buffer`.
  return strerror_r(error, buffer, sizeof(buffer));
}

[[noreturn]] void ThrowSystemError(int error) {
  throw std::system_error(error, std::generic_category());
}

// Temporary files not yet renamed or removed, for RemoveUnfinishedOutputFiles.
// A file that finds no free slot is simply not removed by a handler.
std::array<std::atomic<char*>, 16> unfinished_files{};

void RememberUnfinished(char* path) {
  for (std::atomic<char*>& slot : unfinished_files) {
    char* empty = nullptr;
    if (slot.compare_exchange_strong(empty, path)) return;
  }
}

void ForgetUnfinished(char* path) {
  for (std::atomic<char*>& slot : unfinished_files) {
    char* expected = path;
    if (slot.compare_exchange_strong(expected, nullptr)) return;
  }
}

mode_t NewFileMode() {
  static const mode_t mode = [] {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return static_cast<mode_t>(0666 & ~mask);
  }();
  return mode;
}

}  // namespace

struct AtomicOutputFile::State {
  std::string destination;
  std::string temporary;  // empty when written in place
  std::ofstream stream;
  bool done = false;

  explicit State(const std::string& path) : destination(path) {}

  // Decides where the bytes go and opens the stream there. A failure after
  // the temporary file exists leaves it to the destructor.
  void Open() {
    struct stat status {};
    bool exists = ::lstat(destination.c_str(), &status) == 0;
    if (exists && S_ISLNK(status.st_mode)) {
      std::error_code ignored;
      const std::filesystem::path target = std::filesystem::weakly_canonical(destination, ignored);
      if (!target.empty()) destination = target.string();
      exists = ::stat(destination.c_str(), &status) == 0;
    }
    errno = 0;
    if (!(exists && !S_ISREG(status.st_mode))) {
      CreateTemporary(exists ? status.st_mode & 07777 : NewFileMode());
    }
    stream.open(temporary.empty() ? destination : temporary,
                std::ios_base::out | std::ios_base::trunc | std::ios_base::binary);
    if (!stream) ThrowSystemError(errno != 0 ? errno : EIO);
  }

  ~State() {
    if (temporary.empty() || done) return;
    // Removed before it is forgotten, so that a signal between the two
    // finds it still listed.
    ::unlink(temporary.c_str());
    ForgetUnfinished(temporary.data());
  }

  void CreateTemporary(mode_t mode) {
    const std::filesystem::path path(destination);
    const std::string folder = path.has_parent_path() ? path.parent_path().string() + "/" : "";
    // Listed before mkstemp fills in the name and creates the file, so that a
    // signal at any moment after the creation finds it (a signal before it
    // only unlinks a name that does not exist).
    temporary = folder + "." + path.filename().string().substr(0, 200) + ".XXXXXX";
    RememberUnfinished(temporary.data());
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
      const int error = errno;
      ForgetUnfinished(temporary.data());
      temporary.clear();
      ThrowSystemError(error);
    }
    const bool mode_set = ::fchmod(fd, mode) == 0;
    const int error = errno;
    ::close(fd);
    if (!mode_set) ThrowSystemError(error);
  }
};

AtomicOutputFile::AtomicOutputFile(const std::string& path)
    : state_(std::make_unique<State>(path)) {
  state_->Open();
}

AtomicOutputFile::~AtomicOutputFile() = default;

std::ostream& AtomicOutputFile::Stream() { return state_->stream; }

void AtomicOutputFile::Commit() {
  State& state = *state_;
  // A stream that failed earlier keeps the error of its failed write.
  if (state.stream) errno = 0;
  state.stream.flush();
  state.stream.close();
  if (!state.stream) ThrowSystemError(errno != 0 ? errno : EIO);
  if (state.temporary.empty()) return;
  if (std::rename(state.temporary.c_str(), state.destination.c_str()) != 0) {
    ThrowSystemError(errno);
  }
  ForgetUnfinished(state.temporary.data());
  state.done = true;
}

std::optional<std::string> AtomicOutputFile::Problem(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) return SystemErrorText(errno);
    ::close(fd);
    return std::nullopt;
  }
  try {
    AtomicOutputFile probe(path);
  } catch (const std::system_error& error) {
    return std::string(error.what());
  }
  return std::nullopt;
}

void RemoveUnfinishedOutputFiles() {
  for (std::atomic<char*>& slot : unfinished_files) {
    if (char* path = slot.exchange(nullptr)) ::unlink(path);
  }
}

}  // namespace velmor
