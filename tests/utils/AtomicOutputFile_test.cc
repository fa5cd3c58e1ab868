#include "utils/AtomicOutputFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "support/temp_files.h"

namespace velmor {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;

// The folder's entries other than `except`: what a write left behind.
int OtherEntries(const fs::path& folder, const std::string& except) {
  int count = 0;
  for (const auto& entry : fs::directory_iterator(folder))
    count += entry.path().filename() != except;
  return count;
}

// The error code of the std::system_error that `call` throws.
template <typename Call>
int SystemErrorOf(Call&& call) {
  try {
    call();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  ADD_FAILURE() << "no std::system_error";
  return 0;
}

TEST(AtomicOutputFile, TheDestinationHoldsTheOldOrTheWholeNewContent) {
  const testing::TempDir dir;
  const std::string path = dir.Write("out.csv", "old\n");
  const fs::perms mode = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
  fs::permissions(path, mode);
  // Until the commit the old file stays, and nothing else remains after it.
  {
    AtomicOutputFile file(path);
    file.Stream() << "new\n";
    file.Stream().flush();
    EXPECT_EQ(ReadFile(path), "old\n");
    EXPECT_EQ(OtherEntries(dir.path(), "out.csv"), 1);  // the temporary file
    file.Commit();
  }
  EXPECT_EQ(ReadFile(path), "new\n");
  EXPECT_EQ(OtherEntries(dir.path(), "out.csv"), 0);
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::all, mode);  // the mode is kept
  // A writer that fails leaves the old file and no temporary file.
  EXPECT_THROW(WriteWholeFile(path,
                              [](std::ostream& out) {
                                out << "half";
                                throw std::runtime_error("writer failed");
                              }),
               std::runtime_error);
  EXPECT_EQ(ReadFile(path), "new\n");
  EXPECT_EQ(OtherEntries(dir.path(), "out.csv"), 0);
  // A symbolic link stays a link; its target is replaced.
  const std::string target = dir.Write("target.csv", "old\n");
  fs::create_symlink(target, dir.File("link.csv"));
  WriteWholeFile(dir.File("link.csv"), [](std::ostream& out) { out << "linked\n"; });
  EXPECT_TRUE(fs::is_symlink(dir.File("link.csv")));
  EXPECT_EQ(ReadFile(target), "linked\n");
  // A new name gets the umask's mode, like any new file of the process.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  WriteWholeFile(dir.File("fresh.csv"), [](std::ostream& out) { out << "x"; });
  struct stat status {};
  ASSERT_EQ(::stat(dir.File("fresh.csv").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0666 & ~mask);
}

TEST(AtomicOutputFile, FailuresAreSystemErrorsAndChangeNothing) {
  const testing::TempDir dir;
  // No such folder, a folder in the way, a full device written in place.
  const std::string missing = dir.File("no/out.csv");
  EXPECT_EQ(SystemErrorOf([&] { AtomicOutputFile file(missing); }), ENOENT);
  EXPECT_EQ(AtomicOutputFile::Problem(missing), std::string(std::strerror(ENOENT)));
  fs::create_directory(dir.File("folder"));
  EXPECT_EQ(SystemErrorOf([&] { AtomicOutputFile file(dir.File("folder")); }), EISDIR);
  EXPECT_EQ(
      SystemErrorOf([] { WriteWholeFile("/dev/full", [](std::ostream& out) { out << "x"; }); }),
      ENOSPC);
  EXPECT_EQ(AtomicOutputFile::Problem("/dev/full"), std::nullopt);
  // A folder that may not be written: the probe fails and leaves nothing
  // (root writes anyway, so only the emptiness is checked then).
  const std::string locked = dir.File("locked");
  fs::create_directory(locked);
  fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
  const std::optional<std::string> problem = AtomicOutputFile::Problem(locked + "/out.csv");
  EXPECT_TRUE(::geteuid() == 0 || problem == std::string(std::strerror(EACCES)))
      << problem.value_or("no problem");
  EXPECT_TRUE(fs::is_empty(locked));
  fs::permissions(locked, fs::perms::owner_all);
}

}  // namespace
}  // namespace velmor
