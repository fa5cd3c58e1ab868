#include "command-line-utils/common-command-line-routines.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/temp_files.h"

namespace velmor {
namespace {

// The plotting scripts run under Debian's python with matplotlib (no display).
// An unwritable path is reported and is no error: checked end to end.
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
  // Python checks the panels and the arrays numpy read from each script
  // against the values written.
  std::string runner =
      "import runpy\nimport matplotlib\nmatplotlib.use('Agg')\n"
      "import matplotlib.pyplot as plt\n"
      "def check(script, panels, gains, order, curvature):\n"
      "    plt.show = lambda *a, **k: plt.savefig(script + '.png')\n"
      "    sys.argv = [script]\n"
      "    g = runpy.run_path(script, run_name='__main__')\n"
      "    plt.close('all')\n"
      "    assert len(g['axes']) == panels and os.path.getsize(script + '.png') > 1000, script\n"
      "    assert (np.float32(g['gains']) == np.float32(gains)).all(), (script, g['gains'])\n"
      "    assert list(g['elements_in_order']) == order, script\n"
      "    read = g.get('conditional_curvature', [])\n"
      "    assert len(read) == len(curvature) and np.allclose(read, curvature, rtol=0, "
      "atol=1e-15)\n"
      "    print('ok')\n";
  // Shortest texts that read back as the same float, double or integer.
  const auto list = [](const auto& values) { return fmt::format("[{}]", fmt::join(values, ", ")); };
  // An existing file is replaced, not appended to.
  dir.Write("plot0.py", "raise SystemExit(3)\n");
  for (std::size_t i = 0; i < scripts.size(); ++i) {
    const std::string name = dir.File("plot" + std::to_string(i) + ".py");
    const Script& s = scripts[i];
    WriteGainsPlotScript(name.c_str(), (i & 1) != 0, (i & 2) != 0, s.order, s.gains, s.curvature);
    runner += "check('" + name + "', " + (s.with_curvature ? "5, " : "4, ") + list(s.gains) + ", " +
              list(s.order) + ", " + (s.with_curvature ? list(s.curvature) : std::string("[]")) +
              ")\n";
  }
  EXPECT_EQ(testing::RunPython(dir, runner), "ok\nok\nok\nok\n");
}

}  // namespace
}  // namespace velmor
