// Every seed of the fuzz corpora (fuzz/corpus/<surface>) and every input that
// once made a harness fail (fuzz/regressions/<surface>) replayed through the
// harness's checks: a parser returns a result its harness accepts or throws a
// std::exception where the harness expects one. A failed check aborts the
// test program with the input's name; the sanitizer build also catches the
// memory and undefined-behaviour errors these inputs once caused.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"

namespace velmor::fuzz {
namespace {

struct Surface {
  const char* name;
  int (*harness)(const uint8_t*, std::size_t);
};

void PrintTo(const Surface& surface, std::ostream* out) { *out << surface.name; }

class FuzzReplay : public ::testing::TestWithParam<Surface> {};

TEST_P(FuzzReplay, SeedsAndPastFindingsPassTheHarness) {
  const Surface surface = GetParam();
  int replayed = 0;
  for (const char* kind : {"corpus", "regressions"}) {
    const std::filesystem::path folder =
        std::filesystem::path(VELMOR_TEST_SOURCE_DIR) / "fuzz" / kind / surface.name;
    if (!std::filesystem::is_directory(folder)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      std::ifstream in(entry.path(), std::ios::binary);
      const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                       std::istreambuf_iterator<char>());
      SetInputNameForReports(entry.path().string());
      try {
        surface.harness(bytes.data(), bytes.size());
      } catch (const std::exception& e) {
        ADD_FAILURE() << entry.path() << ": an unexpected exception: " << e.what();
      }
      ++replayed;
    }
  }
  EXPECT_GT(replayed, 0) << "no seeds for " << surface.name;
}

INSTANTIATE_TEST_SUITE_P(
    Harnesses, FuzzReplay,
    ::testing::Values(Surface{"dense_csv", &FuzzDenseCSV}, Surface{"sparse_csv", &FuzzSparseCSV},
                      Surface{"numpy", &FuzzNumpy}, Surface{"npz", &FuzzScipyNPZ},
                      Surface{"binary", &FuzzDenseBinary},
                      Surface{"matroid_json", &FuzzMatroidJSON},
                      Surface{"argument_file", &FuzzArgumentFile},
                      Surface{"set_specification", &FuzzSetSpecification},
                      Surface{"matrix_transformation", &FuzzMatrixTransformation},
                      Surface{"command_line", &FuzzCommandLine}),
    [](const ::testing::TestParamInfo<Surface>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmor::fuzz
