#include "command-line-utils/common-command-line-routines.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/temp_files.h"

namespace velmor {
namespace {

using testing::ReadFile;

// The plotting scripts run under Debian's python with matplotlib (no display):
// python reports the panels and the arrays numpy read from each script.
TEST(GainsPlotScript, RunsUnderPythonWithTheValuesWritten) {
  const testing::TempDir dir;
  // Gains decrease as a greedy's do; values that need all digits. Bit 0 of the
  // script's index: unnormalized gains, bit 1: log scale. A curvature one entry
  // short is left out (four panels).
  struct Script {
    std::vector<int32_t> order;
    std::vector<float> gains;
    std::vector<double> curvature;
    bool with_curvature;
  };
  const std::vector<Script> scripts = {
      {{9, 3, 0, 7, 12, 5},
       {0.9f, 0.31f, 0.1234567f, 3.0e-5f, 1.0e-7f, 7.0e-8f},
       {0.0, 0.1, 1.0 / 3.0, 0.5, 2.0 / 3.0, 0.999999999999},
       true},
      {{4, 0, 2}, {1.5f, 0.25f, 0.125f}, {0.0, 0.5, 0.0625}, true},
      {{3, 1}, {1.0f, 0.5f}, {0.1}, false},
      {{8, 2, 6}, {2.0f, 1.0f, 1.0e-3f}, {0.0, 0.25, 0.75}, true},
  };
  std::string runner =
      "import runpy, math\nimport matplotlib\nmatplotlib.use('Agg')\n"
      "import matplotlib.pyplot as plt\n"
      "def show(script, image):\n"
      "    plt.show = lambda *a, **k: plt.savefig(image)\n"
      "    sys.argv = [script]\n"
      "    g = runpy.run_path(script, run_name='__main__')\n"
      "    plt.close('all')\n"
      "    print(len(g['axes']), os.path.getsize(image) > 1000)\n"
      "    print(' '.join(repr(float(x)) for x in g['gains']))\n"
      "    print(' '.join(str(int(x)) for x in g['elements_in_order']))\n"
      "    print(' '.join(repr(float(x)) for x in g.get('conditional_curvature', [])))\n";
  for (std::size_t i = 0; i < scripts.size(); ++i) {
    const std::string name = dir.File("plot" + std::to_string(i));
    const Script& s = scripts[i];
    WriteGainsPlotScript((name + ".py").c_str(), (i & 1) != 0, (i & 2) != 0, s.order, s.gains,
                         s.curvature);
    runner += "show('" + name + ".py', '" + name + ".png')\n";
  }
  std::istringstream lines(testing::RunPython(dir, runner));
  for (const Script& s : scripts) {
    std::string panels, gains_line, order_line, curvature_line;
    std::getline(lines, panels);
    std::getline(lines, gains_line);
    std::getline(lines, order_line);
    std::getline(lines, curvature_line);
    EXPECT_EQ(panels, s.with_curvature ? "5 True" : "4 True");
    std::istringstream read_gains(gains_line), read_order(order_line),
        read_curvature(curvature_line);
    double value = 0.0;
    for (float g : s.gains) {
      ASSERT_TRUE(read_gains >> value);
      EXPECT_EQ(static_cast<float>(value), g);
    }
    for (int32_t e : s.order) {
      int32_t element = -1;
      ASSERT_TRUE(read_order >> element);
      EXPECT_EQ(element, e);
    }
    if (s.with_curvature) {
      for (double c : s.curvature) {
        ASSERT_TRUE(read_curvature >> value);
        EXPECT_NEAR(value, c, 1e-15);
      }
    }
    EXPECT_FALSE(read_curvature >> value);
  }
}

TEST(GainsPlotScript, UnwritablePathsAreNotErrorsAndFilesAreReplaced) {
  const testing::TempDir dir;
  ::testing::internal::CaptureStdout();
  WriteGainsPlotScript(nullptr, false, false, {1}, {1.0f}, {});
  const std::string missing_dir = dir.File("no/such/dir/plot.py");
  WriteGainsPlotScript(missing_dir.c_str(), false, false, {1}, {1.0f}, {});
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Can't open file '" + missing_dir + "' for writing to output\n");
  const std::string path = dir.File("plot.py");
  WriteGainsPlotScript(path.c_str(), false, false, {1, 2}, {1.0f, 0.5f}, {});
  WriteGainsPlotScript(path.c_str(), false, false, {7}, {3.0f}, {});
  const std::string text = ReadFile(path);
  EXPECT_EQ(text.find("import matplotlib"), text.rfind("import matplotlib"));
  EXPECT_NE(text.find("elements_in_order = np.array([7,])"), std::string::npos);
}

}  // namespace
}  // namespace velmor
