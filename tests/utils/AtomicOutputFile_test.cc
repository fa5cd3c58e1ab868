#include "utils/AtomicOutputFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace velmor {
namespace {

namespace fs = std::filesystem;

std::string Read(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// The folder's entries other than `except`: what a write left behind.
int OtherEntries(const fs::path& folder, const std::string& except) {
  int count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    count += entry.path().filename() != except;
  }
  return count;
}

class AtomicOutputFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("atomic_output_" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  fs::path dir_;
};

// Returns the error code of the std::system_error that `call` throws.
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

TEST_F(AtomicOutputFileTest, TheDestinationHoldsTheOldOrTheWholeNewContent) {
  const fs::path path = dir_ / "out.csv";
  std::ofstream(path) << "old\n";
  fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);

  // Until the commit the old file stays, and nothing else remains after it.
  {
    AtomicOutputFile file(path.string());
    file.Stream() << "new\n";
    file.Stream().flush();
    EXPECT_EQ(Read(path), "old\n");
    EXPECT_EQ(OtherEntries(dir_, "out.csv"), 1);  // the temporary file
    file.Commit();
  }
  EXPECT_EQ(Read(path), "new\n");
  EXPECT_EQ(OtherEntries(dir_, "out.csv"), 0);
  // The replaced file's mode is kept.
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);

  // A writer that fails leaves the old file and no temporary file.
  EXPECT_THROW(WriteWholeFile(path.string(),
                              [](std::ostream& out) {
                                out << "half";
                                throw std::runtime_error("writer failed");
                              }),
               std::runtime_error);
  EXPECT_EQ(Read(path), "new\n");
  EXPECT_EQ(OtherEntries(dir_, "out.csv"), 0);

  // A symbolic link stays a link; its target is replaced.
  const fs::path target = dir_ / "target.csv";
  std::ofstream(target) << "old\n";
  fs::create_symlink(target, dir_ / "link.csv");
  WriteWholeFile((dir_ / "link.csv").string(), [](std::ostream& out) { out << "linked\n"; });
  EXPECT_TRUE(fs::is_symlink(dir_ / "link.csv"));
  EXPECT_EQ(Read(target), "linked\n");

  // A new name gets the umask's mode, like any new file of the process.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  WriteWholeFile((dir_ / "fresh.csv").string(), [](std::ostream& out) { out << "x"; });
  struct stat status {};
  ASSERT_EQ(::stat((dir_ / "fresh.csv").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0666 & ~mask);
}

TEST_F(AtomicOutputFileTest, FailuresAreSystemErrorsAndChangeNothing) {
  // No such folder, a folder in the way, a full device written in place.
  const std::string missing = (dir_ / "no" / "out.csv").string();
  EXPECT_EQ(SystemErrorOf([&] { AtomicOutputFile file(missing); }), ENOENT);
  EXPECT_EQ(AtomicOutputFile::Problem(missing), std::string(std::strerror(ENOENT)));
  fs::create_directory(dir_ / "folder");
  EXPECT_EQ(SystemErrorOf([&] { AtomicOutputFile file((dir_ / "folder").string()); }), EISDIR);
  EXPECT_EQ(
      SystemErrorOf([] { WriteWholeFile("/dev/full", [](std::ostream& out) { out << "x"; }); }),
      ENOSPC);
  EXPECT_EQ(AtomicOutputFile::Problem("/dev/full"), std::nullopt);

  // A folder that may not be written: the probe fails and leaves nothing
  // (root writes anyway, so only the emptiness is checked then).
  const fs::path locked = dir_ / "locked";
  fs::create_directory(locked);
  fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
  const std::optional<std::string> problem =
      AtomicOutputFile::Problem((locked / "out.csv").string());
  if (::geteuid() != 0) {
    EXPECT_EQ(problem, std::string(std::strerror(EACCES)));
  }
  EXPECT_TRUE(fs::is_empty(locked));
  fs::permissions(locked, fs::perms::owner_all);
  EXPECT_EQ(OtherEntries(dir_, "folder"), 1);  // locked/
}

}  // namespace
}  // namespace velmor
