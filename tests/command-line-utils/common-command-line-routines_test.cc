#include "command-line-utils/common-command-line-routines.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "command-line-utils/child_process.h"

namespace velmor {
namespace {

using testing_support::ReadWholeFile;

class GainsPlotScript : public ::testing::Test {
 protected:
  void SetUp() override { dir_ = testing_support::MakeTemporaryDirectory(); }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

  std::string Write(bool unnormalized, bool log_scale, const std::vector<int32_t>& order,
                    const std::vector<float>& gains, const std::vector<double>& curvature,
                    const std::string& name = "plot.py") {
    const std::string path = dir_ + "/" + name;
    WriteGainsPlotScript(path.c_str(), unnormalized, log_scale, order, gains, curvature);
    return path;
  }

  std::string dir_;
};

constexpr const char* kStyle = "linestyle='--', linewidth=1, marker='.', markersize=2";

std::string Styled(const std::string& before, const std::string& after) {
  return before + kStyle + after;
}

TEST_F(GainsPlotScript, FixedLines) {
  // Normalized gains, curvature on a linear scale: the whole script.
  const std::string path =
      Write(false, false, {4, 0, 2}, {1.5f, 0.25f, 0.125f}, {0.0, 0.5, 0.0625});
  const std::string expected =
      "import matplotlib.pyplot as plt\nimport numpy as np\nimport sys\n"
      "gains = np.array([1.5,0.25,0.125,])\n"
      "elements_in_order = np.array([4,0,2,])\n"
      "conditional_curvature = np.array([0,0.5,0.0625,])\n"
      "fig, axes = plt.subplots(5, 1, sharex='col')\n"
      "axes[0].set_title(sys.argv[0])\n" +
      Styled("axes[0].semilogy(gains/np.sum(gains),", ", color='b')\n") +
      "axes[0].set_ylabel('normalized gains (log)',fontsize=6)\n"
      "dgains = -np.diff(gains)\n" +
      Styled("axes[1].semilogy(np.insert(dgains/np.sum(dgains),0,np.nan),", ",color='m')\n") +
      "axes[1].set_ylabel('normalized diff gains (log)',fontsize=6)\n" +
      Styled("axes[2].plot(gains/np.sum(gains),", ",color='r')\n") +
      "axes[2].set_ylabel('normalized gains',fontsize=6)\n"
      "cgains = np.cumsum(gains)\n" +
      Styled("axes[3].plot(cgains/np.max(cgains),", ", color='g')\n") +
      "axes[3].set_ylabel('normalized cumulative gains',fontsize=6)\n" +
      Styled("axes[4].plot(conditional_curvature,", ",color='k')\n") +
      "axes[4].set_ylabel('conditional curvature',fontsize=6)\n"
      "plt.xlabel('rank order')\n"
      "plt.show()\n";
  EXPECT_EQ(ReadWholeFile(path), expected);

  // Unnormalized gains and a logarithmic curvature panel.
  const std::string raw = ReadWholeFile(Write(true, true, {1}, {2.0f}, {0.75}, "raw.py"));
  const std::string raw_body =
      "axes[0].set_title(sys.argv[0])\n" + Styled("axes[0].semilogy(gains,", ", color='b')\n") +
      "axes[0].set_ylabel('gains (log)',fontsize=6)\n"
      "dgains = -np.diff(gains,prepend=[np.nan])\n" +
      Styled("axes[1].semilogy(dgains,", ",color='m')\n") +
      "axes[1].set_ylabel('diff gains (log)',fontsize=6)\n" +
      Styled("axes[2].plot(gains,", ",color='r')\n") + "axes[2].set_ylabel('gains',fontsize=6)\n" +
      "cgains = np.cumsum(gains)\n" + Styled("axes[3].plot(cgains,", ", color='g')\n") +
      "axes[3].set_ylabel('cumulative gains',fontsize=6)\n" +
      Styled("axes[4].semilogy(conditional_curvature,", ",color='k')\n") +
      "axes[4].set_ylabel('conditional curvature (log)',fontsize=6)\n"
      "plt.xlabel('rank order')\nplt.show()\n";
  ASSERT_GE(raw.size(), raw_body.size());
  EXPECT_EQ(raw.substr(raw.size() - raw_body.size()), raw_body);
}

TEST_F(GainsPlotScript, PanelsFollowTheCurvatureLength) {
  // A curvature one entry short is left out: four panels.
  const std::string short_curvature =
      ReadWholeFile(Write(false, true, {3, 1}, {1.0f, 0.5f}, {0.1}));
  EXPECT_EQ(short_curvature.find("conditional_curvature"), std::string::npos);
  EXPECT_NE(short_curvature.find("fig, axes = plt.subplots(4, 1, sharex='col')\n"),
            std::string::npos);
  EXPECT_EQ(short_curvature.find("axes[4]"), std::string::npos);
  // Empty summary: empty arrays; with an empty curvature too, five panels.
  const std::string empty = ReadWholeFile(Write(false, false, {}, {}, {}));
  EXPECT_NE(empty.find("gains = np.array([])\nelements_in_order = np.array([])\n"
                       "conditional_curvature = np.array([])\n"
                       "fig, axes = plt.subplots(5, 1, sharex='col')\n"),
            std::string::npos);
  const std::string empty_four = ReadWholeFile(Write(false, false, {}, {}, {0.5}));
  EXPECT_NE(empty_four.find("elements_in_order = np.array([])\nfig, axes = plt.subplots(4, 1"),
            std::string::npos);
  // Non-finite values print as the C library prints them.
  const std::string odd =
      ReadWholeFile(Write(true, false, {0, 1}, {INFINITY, NAN}, {-INFINITY, 0.0}));
  EXPECT_NE(odd.find("gains = np.array([inf,nan,])\n"), std::string::npos);
  EXPECT_NE(odd.find("conditional_curvature = np.array([-inf,0,])\n"), std::string::npos);
}

TEST_F(GainsPlotScript, UnwritablePathsAreNotErrors) {
  ::testing::internal::CaptureStdout();
  WriteGainsPlotScript(nullptr, false, false, {1}, {1.0f}, {});
  const std::string missing_dir = dir_ + "/no/such/dir/plot.py";
  WriteGainsPlotScript(missing_dir.c_str(), false, false, {1}, {1.0f}, {});
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Can't open file '" + missing_dir + "' for writing to output\n");
  // An existing file is replaced, not appended to.
  const std::string path = Write(false, false, {1, 2}, {1.0f, 0.5f}, {});
  Write(false, false, {7}, {3.0f}, {}, "plot.py");
  const std::string text = ReadWholeFile(path);
  EXPECT_EQ(text.find("import matplotlib"), text.rfind("import matplotlib"));
  EXPECT_NE(text.find("elements_in_order = np.array([7,])"), std::string::npos);
}

// The scripts run under the Debian Python with matplotlib (no display): a
// runner replaces plt.show by saving the figure, and prints what numpy read.
TEST_F(GainsPlotScript, RunsUnderPython) {
  // One interpreter runs every script: for each (script, image) pair the
  // runner prints the panel count and the arrays numpy read.
  const std::string runner = dir_ + "/runner.py";
  std::ofstream(runner) << "import sys, runpy\n"
                           "import matplotlib\n"
                           "matplotlib.use('Agg')\n"
                           "import matplotlib.pyplot as plt\n"
                           "pairs = sys.argv[1:]\n"
                           "for script, image in zip(pairs[0::2], pairs[1::2]):\n"
                           "    plt.show = lambda *a, **k: plt.savefig(image)\n"
                           "    sys.argv = [script]\n"
                           "    g = runpy.run_path(script, run_name='__main__')\n"
                           "    plt.close('all')\n"
                           "    print(len(g['axes']))\n"
                           "    print(' '.join(repr(float(x)) for x in g['gains']))\n"
                           "    print(' '.join(str(int(x)) for x in g['elements_in_order']))\n"
                           "    print(' '.join(repr(float(x)) for x in "
                           "g.get('conditional_curvature', [])))\n";

  // Gains decrease as a greedy's do; values that need all digits.
  const std::vector<int32_t> order = {9, 3, 0, 7, 12, 5};
  const std::vector<float> gains = {0.9f, 0.31f, 0.1234567f, 3.0e-5f, 1.0e-7f, 7.0e-8f};
  const std::vector<double> curvature = {0.0, 0.1, 1.0 / 3.0, 0.5, 2.0 / 3.0, 0.999999999999};
  const int variants = 4;  // bit 0: unnormalized gains, bit 1: log scale; 3 without curvature
  std::string command = "MPLBACKEND=Agg " + std::string(VELMOR_TEST_PYTHON) + " '" + runner + "'";
  for (int variant = 0; variant < variants; ++variant) {
    const std::string name = dir_ + "/plot" + std::to_string(variant);
    Write((variant & 1) != 0, (variant & 2) != 0, order, gains,
          variant != 3 ? curvature : std::vector<double>{},
          "plot" + std::to_string(variant) + ".py");
    command += " '" + name + ".py' '" + name + ".png'";
  }
  const std::string output = dir_ + "/output.txt";
  const std::string errors = dir_ + "/errors.txt";
  command += " > '" + output + "' 2> '" + errors + "'";
  const int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0) << ReadWholeFile(errors);

  std::istringstream lines(ReadWholeFile(output));
  for (int variant = 0; variant < variants; ++variant) {
    SCOPED_TRACE(variant);
    const bool with_curvature = variant != 3;
    EXPECT_GT(ReadWholeFile(dir_ + "/plot" + std::to_string(variant) + ".png").size(), 1000u);
    std::string panels, gains_line, order_line, curvature_line;
    std::getline(lines, panels);
    std::getline(lines, gains_line);
    std::getline(lines, order_line);
    std::getline(lines, curvature_line);
    EXPECT_EQ(panels, with_curvature ? "5" : "4");
    std::istringstream read_gains(gains_line), read_order(order_line),
        read_curvature(curvature_line);
    for (float g : gains) {
      double value = 0.0;
      ASSERT_TRUE(read_gains >> value);
      EXPECT_EQ(static_cast<float>(value), g);
    }
    for (int32_t e : order) {
      int32_t value = -1;
      ASSERT_TRUE(read_order >> value);
      EXPECT_EQ(value, e);
    }
    double value = 0.0;
    if (with_curvature) {
      for (double c : curvature) {
        ASSERT_TRUE(read_curvature >> value);
        EXPECT_NEAR(value, c, 1e-15);
      }
    }
    EXPECT_FALSE(read_curvature >> value);
  }
}

}  // namespace
}  // namespace velmor
