#ifndef VELMOR_UTILS_ATOMICOUTPUTFILE_H_
#define VELMOR_UTILS_ATOMICOUTPUTFILE_H_

// An output file that appears whole or not at all. The bytes go to a
// temporary file in the destination's folder (".<name>.XXXXXX"), which
// Commit() renames over the destination: a reader, a failed write or a killed
// process leaves either the previous file (or none) or the complete new one.
//
// The new file keeps the mode of the file it replaces (a new name gets
// 0666 less the umask). A symbolic link is followed and its target replaced.
// A destination that exists and is not a regular file (/dev/stdout, a pipe, a
// device such as /dev/full, a folder) cannot be replaced: it is opened and
// written in place, so its own errors are reported as they are.

#include <memory>
#include <optional>
#include <ostream>
#include <string>

namespace velmor {

class AtomicOutputFile {
 public:
  // Creates the temporary file (or opens the destination written in place).
  // Throws std::system_error whose what() is the system's error text
  // ("Permission denied", "No such file or directory", ...).
  explicit AtomicOutputFile(const std::string& path);
  // Removes the temporary file unless Commit() succeeded.
  ~AtomicOutputFile();
  AtomicOutputFile(const AtomicOutputFile&) = delete;
  AtomicOutputFile& operator=(const AtomicOutputFile&) = delete;

  std::ostream& Stream();

  // Flushes and closes the file and renames it into place. Throws
  // std::system_error as above when a write, the close
  // or the rename failed; the destination is then unchanged (a destination
  // written in place holds what was written).
  void Commit();

  // Why `path` cannot be written (the system's error text), or std::nullopt.
  // Nothing is changed: the temporary file is removed again, and a
  // destination written in place is opened without truncation.
  static std::optional<std::string> Problem(const std::string& path);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Writes a whole file: `write(std::ostream&)` fills the stream, then the file
// is committed. Any exception (the writer's own or a std::system_error)
// leaves the destination unchanged.
template <typename Write>
void WriteWholeFile(const std::string& path, Write&& write) {
  AtomicOutputFile file(path);
  write(file.Stream());
  file.Commit();
}

// Removes the temporary files of every AtomicOutputFile not yet committed or
// destroyed. Async-signal-safe: for handlers that end the process.
void RemoveUnfinishedOutputFiles();

}  // namespace velmor

#endif  // VELMOR_UTILS_ATOMICOUTPUTFILE_H_
