// End-to-end tests: the built quillo program run as a process, its standard
// output and error, exit status and files checked. Inputs are made and outputs
// read back with numpy/scipy through Debian's python.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/temp_files.h"

namespace {

namespace fs = std::filesystem;
using velmor::testing::ChildOutcome;

bool Has(const ChildOutcome& run, const std::string& text) {
  return run.out.find(text) != std::string::npos || run.err.find(text) != std::string::npos;
}

// A scratch directory per test.
class QuilloRun : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return dir_.File(name); }

  // Runs quillo with the arguments (a shell word list) in the scratch directory.
  ChildOutcome Quillo(const std::string& arguments) const {
    return velmor::testing::RunCommand(dir_.path(),
                                       std::string("'") + VELMOR_TEST_QUILLO + "' " + arguments);
  }

  // Runs a python snippet in the scratch directory (numpy as np, scipy.sparse as sp).
  std::string Python(const std::string& code) const {
    return velmor::testing::RunPython(dir_, code);
  }

  // A random n x n similarity matrix in [0, 1) saved as sim.npy, sim.csv and sim.bin (float32).
  void MakeSimilarity(int n, int seed = 1) const {
    Python("S = np.random.default_rng(" + std::to_string(seed) + ").random((" + std::to_string(n) +
           ", " + std::to_string(n) +
           ")).astype(np.float32)\n"
           "np.save('sim.npy', S)\n"
           "np.savetxt('sim.csv', S, delimiter=',', fmt='%.9g')\n"
           "S.T.tofile('sim.bin')\n");
  }

  velmor::testing::TempDir dir_;
};

// Facility-location greedy in numpy: the oracle for the summaries below.
const char* kGreedyOracle =
    "def greedy(S, k):\n"
    "    S = S.astype(np.float64)\n"
    "    fV = S.max(axis=0).sum()\n"
    "    m = np.zeros(S.shape[1]); order = []; gains = []\n"
    "    for _ in range(k):\n"
    "        g = np.maximum(S - m, 0).sum(axis=1) / fV\n"
    "        g[order] = -1\n"
    "        v = int(np.argmax(g)); order.append(v); gains.append(g[v]); m = np.maximum(m, S[v])\n"
    "    return order, gains\n";

TEST_F(QuilloRun, CommandLineAndInputErrors) {
  MakeSimilarity(10);
  Python("np.save('zeros.npy', np.zeros((4, 4), dtype=np.float32))");
  std::ofstream(Path("broken.json")) << "{\"intersection-of-matroids\": ";
  std::ofstream(Path("nolist.json")) << "{\"intersection-of-matroids\": {}}";
  const struct {
    std::string arguments;
    int status;
    std::string message;
  } cases[] = {
      {"", 1,
       "ERROR DETECTED: Command line argument: Need to give command line arguments. Use -help for "
       "help.\nEnd of Backtrace."},
      {"-help", 0, "**** Facility location (FL) function"},
      {"-flc 3", 1, "Argument Error: Ambiguous switch: -flc"},
      {"-flc 3", 1, "Poorly formed command line arguments. Use -help for help."},
      {"-nosuchswitch 3", 1, "Argument Error: Unknown switch: -nosuchswitch"},
      {"-sumsize 3", 1, "Need to specify at least one function on command line."},
      {"-flfilename sim.npy -sumsize -12", 1, "but got (|V|+1+k)=-1."},
      {"-flfilename sim.npy", 1, "Must give valid summary size k"},
      {"-flfilename sim.npy -sumsize 3 -flresponsibility 0", 1,
       "Error: a non-positive sum of responsibilities (0) is invalid."},
      {"-flfilename sim.npy -sumsize 3 -flresponsibility -1", 1,
       "FL weight = '-1', but must be non-negative"},
      {"-flfilename sim.npy -sumsize 3 -cloglevel loud", 1, "Unknown console level given."},
      {"-flfilename sim.npy -sumsize 3 -flasymiterations 2", 1,
       "asymmetric iterations (2) are not supported"},
      {"-flfilename missing.npy -sumsize 1", 1, "Problems opening file 'missing.npy'."},
      {"-flfilename data.txt -sumsize 1", 1, "Unknown file type 'data.txt'."},
      {"-flfilename sim.npy -sumsize 1 -fltransformation 'NOPE()'", 1,
       "Problems with matrix transformation string 'NOPE()' for FL function."},
      {"-flfilename sim.npy -sumsize 1 -set-inclusion 99", 1,
       "ERROR DETECTED: Specified input data:"},
      {"-flfilename zeros.npy -sumsize 1", 1, "Problems opening an FL function."},
      {"-flfilename sim.npy -imjson broken.json -sumsize 3", 1,
       "Error reading through JSON file 'broken.json'."},
      {"-flfilename sim.npy -imjson nolist.json -sumsize 3", 1,
       "Can't find JSON object list named 'partition-matroids'"},
      {"-flfilename sim.npy -sumsize 3 -outfilesummary /nonexistent/dir/o.npy", 1,
       "Can't open file '/nonexistent/dir/o.npy' for writing to output."},
  };
  for (const auto& c : cases) {
    const ChildOutcome run = Quillo(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run;
    EXPECT_TRUE(Has(run, c.message)) << c.arguments << "\n" << run;
  }
}

TEST_F(QuilloRun, FacilityLocationMatchesOracleFromEveryDenseFormat) {
  MakeSimilarity(40);
  const std::string expected = Python(std::string(kGreedyOracle) +
                                      "o, g = greedy(np.load('sim.npy'), 6)\n"
                                      "print(' '.join(map(str, o)))\n");
  for (const std::string input : {"-flfilename sim.npy", "-flfilename sim.csv",
                                  "-flfilename sim.bin -flrows 40 -flcols 40"}) {
    ChildOutcome run =
        Quillo(input + " -sumsize 6 -outfilesummary order.csv -outfilegains gains.npy");
    ASSERT_EQ(run.status, 0) << input << "\n" << run;
    const std::string got = Python(
        "o = np.loadtxt('order.csv', delimiter=',').astype(int).ravel()\n"
        "g = np.load('gains.npy').ravel()\n" +
        std::string(kGreedyOracle) +
        "eo, eg = greedy(np.load('sim.npy'), 6)\n"
        "assert np.allclose(g, eg, rtol=1e-5), (g, eg)\n"
        "print(' '.join(map(str, o)))\n");
    EXPECT_EQ(got, expected) << input;
  }
  // The summary value line, on the console at info level.
  ChildOutcome run = Quillo("-flfilename sim.npy -sumsize 6 -cloglevel info");
  EXPECT_TRUE(Has(run, "Summary valuation: f(Solution) = ")) << run;
  EXPECT_TRUE(Has(run, "Creating a Facility Location Function with a 40x40 matrix.")) << run;
  EXPECT_TRUE(Has(run, "Mixing in FL function, relative responsibility 1.")) << run;
  // sumsize -1 on |V| = 40 takes every element.
  run = Quillo("-flfilename sim.npy -sumsize -1 -outfilesummary all.npy");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_EQ(
      Python("print(sorted(np.load('all.npy').astype(int).ravel().tolist()) == list(range(40)))"),
      "True\n");
}

TEST_F(QuilloRun, EveryFunctionGroupAloneAndMixed) {
  MakeSimilarity(30);
  Python(
      "S = np.load('sim.npy')\n"
      "M = np.where(S > 0.7, S, 0).astype(np.float32)\n"
      "sp.save_npz('sparse.npz', sp.csr_matrix(M), compressed=False)\n"
      "np.save('features.npy', np.random.default_rng(3).random((30, 5)))\n");
  const std::vector<std::string> runs = {
      "-flfilename sim.npy",
      "-flfilename sim.npy -flsoftness 0.05",
      "-fl2filename sim.npy",
      "-spflfilename sparse.npz",
      "-spflfilename sparse.npz -spflsoftness 0.1",
      "-spflfilename features.npy -spfltransformation 'RBF() | KNN(5)'",
      "-flfilename sim.npy -ssdfilename sim.npy -ssdresponsibility 0.2",
      "-flfilename sim.npy -ssd2filename sim.npy -ssd2responsibility 0.2",
      "-flfilename sim.npy -spssdfilename sparse.npz -spssdresponsibility 0.3",
      "-flfilename sim.npy -spssd2filename sparse.npz -spssd2responsibility 0.3",
      "-flfilename features.npy -fltransformation 'COSINE() | SHIFT(1)' "
      "-flcentralityresponsibility 0.5",
      "-flfilename sim.npy -fl-set-contraction 0-4",
      "-flfilename sim.npy -fl-set-attraction 0,1,2 -fl-set-neglect 3",
      "-flfilename sim.npy -set-contraction 0,1 -set-deletion 2-5 -set-inclusion 6",
      "-flfilename sim.npy -set-restriction 'RAND(50%)' -randomevaluations 20 "
      "-ctrl-lograndomevalsolutions",
      "-flfilename sim.npy -partialenumeration 1",
  };
  for (const std::string& arguments : runs) {
    ChildOutcome run =
        Quillo(arguments +
               " -sumsize 5 -cloglevel info -ctrl-logorder -ctrl-logdetail -outfilesummary o.npy");
    EXPECT_EQ(run.status, 0) << arguments << "\n" << run;
    EXPECT_TRUE(Has(run, "Summary valuation: f(Solution) = ")) << arguments << "\n" << run;
  }
  // The order respects the set modifications: deleted and contracted elements never appear,
  // the inclusion comes first.
  ChildOutcome run = Quillo(
      "-flfilename sim.npy -set-contraction 0,1 -set-deletion 2-5 -set-inclusion 6 -sumsize 5 "
      "-outfilesummary o.npy");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_EQ(Python("o = np.load('o.npy').astype(int).ravel().tolist()\n"
                   "print(len(o) == 4 and not set(o) & {0,1,2,3,4,5,6})"),
            "True\n");
  run = Quillo("-flfilename sim.npy -randomevaluations 20 -sumsize 5 -cloglevel info");
  EXPECT_TRUE(Has(run, "Ran 20 random subsets of size 5, (minvalue <= avgvalue <= maxvalue) = ("))
      << run;
  run = Quillo("-flfilename sim.npy -partialenumeration 1 -sumsize 4 -cloglevel info");
  EXPECT_TRUE(Has(run, "Partial enumeration finished, reordering final best solution of size 4."))
      << run;
}

// Every report alone and all together, on a mixture of two groups, under a
// global contraction and with a group's CMI sets. (The balance report under a
// global contraction is left out: the program loses the mixture it reports on
// once the objective is wrapped.)
TEST_F(QuilloRun, Reports) {
  MakeSimilarity(20);
  const char* curvature = "Conditional curvature of the summary: min = ";
  const char* bound = "Modular Upper Bound on solution = ";
  const char* vector = "Summary Conditional Curvature: ";
  const char* balance = "Balance: SSD function (responsibility 0.2) contributes ";
  const struct {
    std::string options;
    std::vector<const char*> lines;
  } reports[] = {
      {" -ctrl-logdetail", {curvature, bound}},
      {" -ctrl-logccurvature", {vector}},
      {" -ctrl-logdetail -ctrl-logccurvature", {curvature, bound, vector}},
      {" -ctrl-logbalancereport 1",
       {balance, "Balance: FL function (responsibility 1) contributes "}},
      {" -ctrl-logdetail -ctrl-logccurvature -ctrl-logbalancereport 2",
       {curvature, bound, vector, balance, "Balance: SSD function gains: "}},
  };
  for (const std::string modification :
       {"", " -set-contraction 0,1", " -fl-set-attraction 2,3 -fl-set-neglect 4"}) {
    for (const auto& r : reports) {
      if (r.options.find("balance") != std::string::npos &&
          modification.find("-set-contraction") != std::string::npos) {
        continue;
      }
      const ChildOutcome run = Quillo(
          "-flfilename sim.npy -ssdfilename sim.npy -ssdresponsibility 0.2 -sumsize 5 "
          "-cloglevel info" +
          r.options + modification);
      EXPECT_EQ(run.status, 0) << r.options << modification << "\n" << run;
      for (const char* line : r.lines)
        EXPECT_TRUE(Has(run, line)) << r.options << modification << "\n" << run;
      // The bound holds, 0 <= f(S) / bound <= 1; the components' shares add up to f(S).
      const auto number_after = [&run](const std::string& marker, std::size_t from = 0) {
        const std::size_t at = run.out.find(marker, from);
        return at == std::string::npos ? -1.0 : std::stod(run.out.substr(at + marker.size()));
      };
      const double efficiency = number_after("Approximate Efficiency = f(Sol)/UBound = ");
      if (efficiency != -1.0) {
        EXPECT_TRUE(efficiency >= 0 && efficiency <= 1) << run;
      }
      const double shares = number_after(" contributes ") +
                            number_after(" contributes ", run.out.find(" contributes ") + 1);
      if (shares > 0) {
        EXPECT_NEAR(shares, number_after("f(Solution) = "), 1e-7) << run;
      }
    }
  }
}

// Integer codes expanded to one-hot columns give the run of the matrix numpy expands.
TEST_F(QuilloRun, OneHotExpansion) {
  Python(
      "codes = np.random.default_rng(6).integers(0, 4, size=(25, 3))\n"
      "np.save('codes.npy', codes.astype(np.float32))\n"
      "np.save('onehot.npy', np.hstack([np.eye(c.max() + 1)[c] for c in codes.T]).astype("
      "np.float32))\n");
  std::string outputs[2];
  for (const std::string input : {"codes.npy -flohexpand", "onehot.npy"}) {
    const ChildOutcome run = Quillo("-flfilename " + input +
                                    " -fltransformation 'DOT()' -sumsize 6 -outfilesummary o.npy "
                                    "-outfilegains g.npy");
    ASSERT_EQ(run.status, 0) << input << "\n" << run;
    outputs[input == "onehot.npy"] =
        velmor::testing::ReadFile(Path("o.npy")) + velmor::testing::ReadFile(Path("g.npy"));
  }
  EXPECT_EQ(outputs[0], outputs[1]);
  Python("np.save('bad.npy', np.array([[0.5, 1]], dtype=np.float32))");
  EXPECT_TRUE(Has(Quillo("-flfilename bad.npy -flohexpand -sumsize 1"),
                  "one-hot expansion needs non-negative integer codes"));
}

TEST_F(QuilloRun, MatroidConstraintsFromJson) {
  MakeSimilarity(20);
  Python(
      "blocks = lambda limit: [{'block': list(range(b * 5, b * 5 + 5)), 'limit': limit} for b in "
      "range(4)]\n"
      "json.dump({'intersection-of-matroids': {'partition-matroids': [\n"
      "    {'partition-matroid': {'blocks': blocks(1)}}]}}, open('im.json', 'w'))\n");
  ChildOutcome run =
      Quillo("-flfilename sim.npy -imjson im.json -outfilesummary o.npy -cloglevel info");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_TRUE(Has(run, "using a intersection of matroids constraint")) << run;
  // One element per block of five.
  EXPECT_EQ(
      Python("o = np.load('o.npy').astype(int).ravel()\nprint(sorted(o // 5) == [0, 1, 2, 3])"),
      "True\n");

}

TEST_F(QuilloRun, OutputFilesAndPlotScript) {
  MakeSimilarity(25);
  ChildOutcome run = Quillo(
      "-flfilename sim.npy -sumsize 7 -outfilesummary o.csv -outfilegains g.csv "
      "-outasciiresultsfilename both.csv -pgpyplotfilename plot.py");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_EQ(Python("o = np.loadtxt('o.csv', delimiter=',').ravel()\n"
                   "g = np.loadtxt('g.csv', delimiter=',').ravel()\n"
                   "b = np.loadtxt('both.csv', delimiter=',')\n"
                   "print(b.shape == (2, 7) and (b[0] == o).all() and np.allclose(b[1], g) and "
                   "(np.diff(g) <= 0).all())"),
            "True\n");
  EXPECT_TRUE(fs::exists(Path("plot.py")));
}

TEST_F(QuilloRun, BadFilesGiveNestedReports) {
  std::ofstream(Path("bad.csv")) << "1,2\n3\n";
  ChildOutcome run = Quillo("-flfilename bad.csv -sumsize 1");
  EXPECT_EQ(run.status, 1) << run;
  for (const char* part : {"ERROR DETECTED: Exception caught: [[@common-command-line-routines:",
                           ":LoadAndTransformMatrix]] Problems loading FL matrix.\n++ ",
                           "End of Backtrace."})
    EXPECT_NE(run.err.find(part), std::string::npos) << run;
}

TEST_F(QuilloRun, GreedyAlgorithmChoices) {
  MakeSimilarity(60, 4);
  const std::string oracle = Python(std::string(kGreedyOracle) +
                                    "o, g = greedy(np.load('sim.npy'), 8)\n"
                                    "print(' '.join(map(str, o)), sum(g))\n");
  const std::string expected_order = oracle.substr(0, oracle.rfind(' '));
  const double expected_value = std::stod(oracle.substr(oracle.rfind(' ') + 1));
  // The accelerated greedy finds the standard greedy's order; the others come
  // close in value (or beat it); every one writes order and gains of the same length.
  for (const std::string choice : {"accelerated", "acc:2", "stochastic", "sto(0.3):2",
                                   "threshold(0.05)", "threshold:3", "standard:2"}) {
    const ChildOutcome run =
        Quillo("-flfilename sim.npy -sumsize 8 -greedyalgorithm '" + choice +
               "' -outfilesummary order.npy -outfilegains gains.npy -cloglevel info");
    ASSERT_EQ(run.status, 0) << choice << "\n" << run;
    EXPECT_TRUE(Has(run, "Greedy algorithm: ")) << run;
    const std::string got = Python(
        "o = np.load('order.npy').astype(int).ravel(); g = np.load('gains.npy').ravel()\n"
        "assert len(o) == 8 and len(g) == 8 and len(set(o)) == 8, (o, g)\n"
        "print(' '.join(map(str, o)), sum(g))\n");
    const double value = std::stod(got.substr(got.rfind(' ') + 1));
    if (choice == "accelerated") {
      EXPECT_EQ(got.substr(0, got.rfind(' ')), expected_order);
    }
    EXPECT_GE(value, 0.9 * expected_value) << choice;
  }
  // The same seed gives the same stochastic summary; a bad text is a
  // command-line error; the option answers to a prefix.
  for (const char* file : {"a.npy", "b.npy"}) {
    Quillo("-flfilename sim.npy -sumsize 8 -greedyalgorithm stochastic -seed 9 -outfilesummary " +
           std::string(file));
  }
  EXPECT_EQ(velmor::testing::ReadFile(Path("a.npy")), velmor::testing::ReadFile(Path("b.npy")));
  EXPECT_TRUE(Has(Quillo("-flfilename sim.npy -sumsize 8 -greedyalgorithm 'threshold(1)'"),
                  "Invalid greedy algorithm 'threshold(1)' for option -greedyalgorithm: "));
  EXPECT_EQ(Quillo("-flfilename sim.npy -sumsize 8 -g accelerated").status, 0);
}

TEST_F(QuilloRun, Signals) {
  // A run long enough to be interrupted: the standard greedy over 2500 elements.
  Python("np.save('big.npy', np.random.default_rng(5).random((2500, 2500)).astype(np.float32))");
  const std::string command =
      std::string("exec '") + VELMOR_TEST_QUILLO + "' -flfilename big.npy -sumsize 2500";
  const auto child_of = [](pid_t parent) -> pid_t {
    for (int attempt = 0; attempt < 200; ++attempt) {
      std::ifstream children("/proc/" + std::to_string(parent) + "/task/" + std::to_string(parent) +
                             "/children");
      pid_t child = 0;
      if (children >> child) return child;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 0;
  };
  // SIGTERM to the worker (after the user signals, which do not end it): its
  // message, and the supervisor exits with 255.
  velmor::testing::ChildOptions options;
  options.own_group = true;
  options.started = [&](pid_t supervisor) {
    const pid_t worker = child_of(supervisor);
    ASSERT_GT(worker, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(worker, SIGUSR1);
    kill(worker, SIGUSR2);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(kill(worker, 0), 0) << "worker ended on SIGUSR1/SIGUSR2";
    kill(worker, SIGTERM);
  };
  ChildOutcome run = velmor::testing::RunCommand(dir_.path(), command, options);
  EXPECT_TRUE(run.exited && run.status == 255) << run;
  EXPECT_TRUE(Has(run, "Received SIGTERM signal, terminating...")) << run;

  // SIGINT to the group: the supervisor forwards it and exits with 255.
  options.started = [&](pid_t supervisor) {
    ASSERT_GT(child_of(supervisor), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(-supervisor, SIGINT);
  };
  run = velmor::testing::RunCommand(dir_.path(), command, options);
  EXPECT_TRUE(run.exited && run.status == 255) << run;
}

}  // namespace
