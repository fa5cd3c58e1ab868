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
  std::ofstream(Path("bad.csv")) << "1,2\n3\n";
  std::ofstream(Path("negative.csv")) << "0,1\n2,-1\n";
  std::ofstream(Path("half.csv")) << "0,1.5\n2,1\n";
  const std::string fl = "-flfilename sim.npy -sumsize 3 ";
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
      {"-sumsize 3", 1, "Need to specify at least one function on command line."},
      {"-flfilename sim.npy -sumsize -12", 1, "but got (|V|+1+k)=-1."},
      {"-flfilename sim.npy", 1, "Must give valid summary size k"},
      {fl + "-flresponsibility 0", 1,
       "Error: a non-positive sum of responsibilities (0) is invalid."},
      {fl + "-flresponsibility -1", 1, "FL weight = '-1', but must be non-negative"},
      {fl + "-cloglevel loud", 1, "Unknown console level given."},
      {fl + "-flasymiterations 2", 1, "asymmetric iterations (2) are not supported"},
      {fl + "-greedyalgorithm 'threshold(1)'", 1,
       "Invalid greedy algorithm 'threshold(1)' for option -greedyalgorithm: "},
      {fl + "-precision quad", 1,
       "Invalid precision 'quad' for option -precision: use file, single or double."},
      {fl + "-numthreads -2", 1,
       "Invalid thread count -2 for option -numthreads: use 0 (the machine's cores) or more."},
      // Centrality options that cannot take effect.
      {fl + "-flsavefinalcentralityvector c.npy", 1,
       "ERROR DETECTED: Command line argument: -flsavefinalcentralityvector needs a centrality "
       "term: give -flcentralityresponsibility above 0."},
      {fl + "-flcentralityspec 'ROWMEDIAN()'", 1, "FL centrality 'ROWMEDIAN()' is not supported"},
      {fl + "-flcentralitytransformation 'SCALE(2)'", 1,
       "-flcentralitytransformation needs a centrality term"},
      // One-hot codes must be non-negative whole numbers.
      {"-flfilename negative.csv -flohexpand -sumsize 1", 1,
       "ERROR DETECTED: Command line argument: FL one-hot expansion needs non-negative integer "
       "codes, but entry (1,1) is -1."},
      {"-fl2filename half.csv -fl2ohexpand -sumsize 1", 1,
       "FL2 one-hot expansion needs non-negative integer codes, but entry (0,1) is 1.5."},
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
      // A bad file's report nests the reader's below the loader's.
      {"-flfilename bad.csv -sumsize 1", 1,
       "ERROR DETECTED: Exception caught: [[@common-command-line-routines:"},
      {"-flfilename bad.csv -sumsize 1", 1,
       ":LoadAndTransformMatrix]] Problems loading FL matrix.\n++ "},
  };
  for (const auto& c : cases) {
    const ChildOutcome run = Quillo(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run;
    EXPECT_TRUE(Has(run, c.message)) << c.arguments << "\n" << run;
  }
  EXPECT_FALSE(fs::exists(Path("c.npy")));
}

TEST_F(QuilloRun, EveryFunctionGroupAloneAndMixed) {
  MakeSimilarity(30);
  Python(
      "S = np.load('sim.npy')\n"
      "M = np.where(S > 0.7, S, 0).astype(np.float32)\n"
      "sp.save_npz('sparse.npz', sp.csr_matrix(M), compressed=False)\n"
      "np.save('features.npy', np.random.default_rng(3).random((30, 5)))\n");
  // Each run's options, a line it must print besides the summary's value, and
  // a check of its order (o) in python.
  const struct {
    std::string arguments, line, check;
  } runs[] = {
      {"-flfilename sim.npy", "Creating a Facility Location Function with a 30x30 matrix.", ""},
      {"-flfilename sim.npy -flsoftness 0.05", "Mixing in FL function, relative responsibility 1.",
       ""},
      {"-fl2filename sim.npy", "", ""},
      {"-spflfilename sparse.npz", "", ""},
      {"-spflfilename sparse.npz -spflsoftness 0.1", "", ""},
      {"-spflfilename features.npy -spfltransformation 'RBF() | KNN(5)'", "", ""},
      {"-flfilename sim.npy -ssdfilename sim.npy -ssdresponsibility 0.2", "", ""},
      {"-flfilename sim.npy -ssd2filename sim.npy -ssd2responsibility 0.2", "", ""},
      {"-flfilename sim.npy -spssdfilename sparse.npz -spssdresponsibility 0.3", "", ""},
      {"-flfilename sim.npy -spssd2filename sparse.npz -spssd2responsibility 0.3", "", ""},
      {"-flfilename features.npy -fltransformation 'COSINE() | SHIFT(1)' "
       "-flcentralityresponsibility 0.5",
       "", ""},
      {"-flfilename sim.npy -fl-set-contraction 0-4", "", ""},
      {"-flfilename sim.npy -fl-set-attraction 0,1,2 -fl-set-neglect 3", "", ""},
      // Deleted and contracted elements never appear, the inclusion comes first.
      {"-flfilename sim.npy -set-contraction 0,1 -set-deletion 2-5 -set-inclusion 6", "",
       "len(o) == 4 and not set(o) & {0,1,2,3,4,5,6}"},
      {"-flfilename sim.npy -set-restriction 'RAND(50%)' -randomevaluations 20 "
       "-ctrl-lograndomevalsolutions",
       "Ran 20 random subsets of size 5, (minvalue <= avgvalue <= maxvalue) = (", ""},
      {"-flfilename sim.npy -partialenumeration 1",
       "Partial enumeration finished, reordering final best solution of size 5.", ""},
  };
  for (const auto& [arguments, line, check] : runs) {
    ChildOutcome run =
        Quillo(arguments +
               " -sumsize 5 -cloglevel info -ctrl-logorder -ctrl-logdetail -outfilesummary o.npy");
    EXPECT_EQ(run.status, 0) << arguments << "\n" << run;
    EXPECT_TRUE(Has(run, "Summary valuation: f(Solution) = ")) << arguments << "\n" << run;
    EXPECT_TRUE(Has(run, line)) << arguments << "\n" << run;
    if (!check.empty()) {
      EXPECT_EQ(Python("o = np.load('o.npy').astype(int).ravel().tolist()\nprint(" + check + ")"),
                "True\n")
          << arguments;
    }
  }
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
               "' -outfilesummary order.csv -outfilegains gains.npy -cloglevel info");
    ASSERT_EQ(run.status, 0) << choice << "\n" << run;
    EXPECT_TRUE(Has(run, "Greedy algorithm: ")) << run;
    const std::string got = Python(
        "o = np.loadtxt('order.csv', delimiter=',').astype(int).ravel()\n"
        "g = np.load('gains.npy').ravel()\n"
        "assert len(o) == 8 and len(g) == 8 and len(set(o)) == 8, (o, g)\n"
        "print(' '.join(map(str, o)), sum(g))\n");
    const double value = std::stod(got.substr(got.rfind(' ') + 1));
    if (choice == "accelerated") {
      EXPECT_EQ(got.substr(0, got.rfind(' ')), expected_order);
    }
    EXPECT_GE(value, 0.9 * expected_value) << choice;
  }
  // The option answers to a prefix.
  EXPECT_EQ(Quillo("-flfilename sim.npy -sumsize 8 -g accelerated").status, 0);
}

TEST_F(QuilloRun, InterruptedRunsEndWithStatus255) {
  // A run long enough to be interrupted: the plain scan over 2500 elements.
  // The handlers' messages are checked on their own; here the supervisor
  // forwards SIGINT and SIGTERM and exits with 255, and the worker lives on
  // through the user signals.
  Python("np.save('big.npy', np.random.default_rng(5).random((2500, 2500)).astype(np.float32))");
  const std::string command = std::string("exec '") + VELMOR_TEST_QUILLO +
                              "' -flfilename big.npy -sumsize 2500 -greedyalgorithm plain";
  for (const int signal_number : {SIGINT, SIGTERM}) {
    velmor::testing::ChildOptions options;
    options.own_group = true;
    options.started = [signal_number](pid_t supervisor) {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      kill(-supervisor, SIGUSR1);
      kill(-supervisor, SIGUSR2);
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      EXPECT_EQ(kill(supervisor, 0), 0) << "ended on SIGUSR1/SIGUSR2";
      kill(signal_number == SIGINT ? -supervisor : supervisor, signal_number);
    };
    const ChildOutcome run = velmor::testing::RunCommand(dir_.path(), command, options);
    EXPECT_TRUE(run.exited && run.status == 255) << signal_number << run;
  }
}

// The objective of a run on sim.npy (FL) and sim2.npy (FL2, weight 0.5), in
// numpy: with attraction A (and neglect N) the FL term is its conditional
// mutual information, and under a contraction C each weighted component c
// counts c(X u C) - c(C). check(case, ...) reads the case's order, gains and
// log and compares every report line with the objective.
const char* kReportOracle = R"PY(
import re
def fl(name):
    M = np.load(name).astype(np.float64); fV = M.max(axis=0).sum()
    return lambda X: M[sorted(X)].max(axis=0).sum() / fV if X else 0.0
def components(A, N):
    f, h = fl('sim.npy'), fl('sim2.npy')
    g = f if A is None else (lambda X: f(X | N) + (f(A | N) - f(N)) - f(X | A | N))
    return [g, lambda X: 0.5 * h(X)]
def array(line):
    return np.array([float(x) for x in re.search(r'np\.array\(\[(.*)\]\)', line).group(1).split(',')])
def close(a, b, what, rtol=2e-6):
    assert np.allclose(a, b, rtol=rtol, atol=2e-7), (what, a, b)
def check(case, A=None, N=frozenset(), C=frozenset(), n=30):
    shares = [lambda X, c=c: c(X | C) - c(C) for c in components(A, N)]
    F = lambda X: sum(s(X) for s in shares)
    order = np.load(case + '_o.npy').astype(int).ravel().tolist()
    gains = np.load(case + '_g.npy').ravel()
    log = open(case + '.log').read().splitlines()
    lines = lambda start: [l for l in log if l.startswith(start)]
    # The greedy itself.
    S, expected = set(), []
    for _ in order:
        v = max((v for v in range(n) if v not in S | C), key=lambda v: F(S | {v}) - F(S))
        expected.append(v); S.add(v)
    assert order == expected, (case, order, expected)
    close(gains, [F(set(order[:i + 1])) - F(set(order[:i])) for i in range(len(order))], 'gains')
    S = set(order)
    close(float(lines('Summary valuation: f(Solution) = ')[0].split('= ')[1]), F(S), 'value')
    # Balance: each component's share, its percentage and its gain at each step.
    for i, l in enumerate([l for l in lines('Balance: ') if 'contributes' in l]):
        value, percent = [float(x) for x in re.search(r'contributes (\S+) = (\S+)%', l).groups()]
        close(value, shares[i](S), 'share')
        close(percent, 100 * shares[i](S) / F(S), 'percent', rtol=6e-4)
    for i, l in enumerate([l for l in lines('Balance: ') if 'gains:' in l]):
        close(array(l), [shares[i](set(order[:t + 1])) - shares[i](set(order[:t])) for t in range(len(order))], 'step gains')
    # Conditional curvature of each element, its summary and the modular upper bound.
    curvature = [1 - (F(S) - F(S - {v})) / g for v, g in zip(order, gains.astype(np.float64))]
    for l in lines('Summary Conditional Curvature: '):
        close(array(l), curvature, 'curvature')
    for l in lines('Conditional curvature of the summary: '):
        summary = [float(part.split('= ')[1]) for part in l.rstrip('.').split(': ')[1].split(', ')]
        close(summary, [min(curvature), np.mean(curvature), max(curvature)], 'curvature summary')
    for l in lines('Modular Upper Bound on solution = '):
        bound, efficiency = [float(x) for x in re.search(r'= (\S+), 0 <= .* = (\S+) <= 1.0', l).groups()]
        close(bound, sum(F({v}) for v in order), 'bound'); close(efficiency, F(S) / bound, 'efficiency')
    return [len(lines(p)) for p in ('Balance: ', 'Summary Conditional Curvature: ', 'Modular Upper Bound')]
)PY";

TEST_F(QuilloRun, EveryReportAloneWithContractionAndWithConditionalMutualInformation) {
  MakeSimilarity(30);
  Python("np.save('sim2.npy', np.random.default_rng(9).random((30, 30)).astype(np.float32))");
  struct Setting {
    std::string name, options, oracle_sets;
  };
  const std::vector<Setting> settings = {
      {"plain", "", ""},
      {"contraction", "-set-contraction 0,1", "C={0,1}"},
      {"cmi", "-fl-set-attraction 3,4 -fl-set-neglect 5", "A={3,4}, N=frozenset({5})"},
      {"both", "-fl-set-attraction 3,4 -fl-set-neglect 5 -set-contraction 0,1",
       "A={3,4}, N=frozenset({5}), C={0,1}"}};
  const std::vector<std::pair<std::string, std::string>> reports = {
      {"balance1", "-ctrl-logbalancereport 1"},
      {"balance2", "-ctrl-logbalancereport 2"},
      {"detail", "-ctrl-logdetail"},
      {"curvature", "-ctrl-logccurvature"},
      {"all", "-ctrl-logbalancereport 2 -ctrl-logdetail -ctrl-logccurvature"}};
  std::string checks = kReportOracle;
  for (const Setting& setting : settings) {
    for (const auto& [report, report_options] : reports) {
      const std::string name = setting.name + "_" + report;
      const ChildOutcome run = Quillo(
          "-flfilename sim.npy -fl2filename sim2.npy -fl2responsibility 0.5 "
          "-sumsize 6 -cloglevel info " +
          setting.options + " " + report_options + " -outfilesummary " + name +
          "_o.npy -outfilegains " + name + "_g.npy");
      ASSERT_EQ(run.status, 0) << name << "\n" << run;
      std::ofstream(Path(name + ".log")) << run.out;
      checks += "print('" + name + "', check('" + name + "', " + setting.oracle_sets + "))\n";
    }
  }
  // Each report appears when asked for, and only then: two balance lines per
  // component at level 2, one at level 1.
  const std::string got = Python(checks);
  for (const Setting& setting : settings) {
    const std::string& n = setting.name;
    const std::string expected = n + "_balance1 [2, 0, 0]\n" + n + "_balance2 [4, 0, 0]\n" + n +
                                 "_detail [0, 0, 1]\n" + n + "_curvature [0, 1, 0]\n" + n +
                                 "_all [4, 1, 1]\n";
    EXPECT_NE(got.find(expected), std::string::npos) << got;
  }
}

TEST_F(QuilloRun, OneHotExpansion) {
  // Integer codes of 4 categorical features; one-hot columns then DOT() give
  // the number of features two items share.
  Python(
      "C = np.random.default_rng(2).integers(0, 3, (25, 4)); C[0, 3] = 5\n"
      "np.savetxt('codes.csv', C, fmt='%d', delimiter=',')\n");
  const ChildOutcome run = Quillo(
      "-flfilename codes.csv -flohexpand -fltransformation 'DOT()' -sumsize 5 "
      "-flsavefinaltransformedmatrix expanded.npy -outfilesummary o.npy");
  ASSERT_EQ(run.status, 0) << run;
  // DOT() of one-hot rows ties often: each chosen element must have a largest gain.
  EXPECT_EQ(Python("C = np.loadtxt('codes.csv', delimiter=',').astype(int)\n"
                   "X = np.hstack([np.eye(c.max() + 1)[c] for c in C.T])\n"
                   "assert X.shape == (25, 3 + 3 + 3 + 6), X.shape\n"
                   "S = X @ X.T\n"
                   "assert (np.load('expanded.npy') == S).all()\n"
                   "m = np.zeros(25); best = []\n"
                   "for v in np.load('o.npy').astype(int).ravel():\n"
                   "    g = np.maximum(S - m, 0).sum(axis=1); best.append(g[v] == g.max())\n"
                   "    m = np.maximum(m, S[v])\n"
                   "print(len(best) == 5 and all(best))"),
            "True\n");
}

TEST_F(QuilloRun, LoadFailuresReportOneChainWhicheverPathReadsTheFile) {
  // C-order files are mapped, Fortran-order ones read, in single and double
  // precision: the same broken contents give the same report, location
  // prefixes included.
  Python(
      "for t in ('float32', 'float64'):\n"
      "    S = np.random.default_rng(4).random((6, 6)).astype(t)\n"
      "    np.save('c.npy', S); np.save('f.npy', np.asfortranarray(S))\n"
      "    S[2, 3] = np.nan; np.save('nan_c' + t + '.npy', S)\n"
      "    np.save('nan_f' + t + '.npy', np.asfortranarray(S))\n"
      "    for name in ('c', 'f'):\n"
      "        data = open(name + '.npy', 'rb').read()\n"
      "        open('short_' + name + t + '.npy', 'wb').write(data[:-5])\n");
  for (const std::string broken : {"short_", "nan_"}) {
    for (const std::string type : {"float32", "float64"}) {
      std::string reports[2];
      for (int i = 0; i < 2; ++i) {
        fs::copy_file(Path(broken + (i ? "f" : "c") + type + ".npy"), Path("bad.npy"),
                      fs::copy_options::overwrite_existing);
        const ChildOutcome run = Quillo("-flfilename bad.npy -sumsize 2");
        EXPECT_EQ(run.status, 1) << run;
        reports[i] = run.err;
      }
      EXPECT_EQ(reports[0], reports[1]) << broken << type;
      EXPECT_NE(reports[0].find(":LoadAndTransformMatrix]] Problems loading FL matrix.\n++ [["
                                "@DenseMatrixIO:"),
                std::string::npos)
          << reports[0];
      EXPECT_NE(reports[0].find(":LoadDenseMatrixFromFileOrRamOrMakeRandom]] Problems opening "
                                "file 'bad.npy'.\n++++ "),
                std::string::npos)
          << reports[0];
    }
  }
}

TEST_F(QuilloRun, OutputFilesByExtensionAndCheckedBeforeAnyWork) {
  MakeSimilarity(20);
  // .npy (either case) for numpy with the order as int32; anything else is
  // .csv; the results file holds the order over the gains.
  ChildOutcome run = Quillo(
      "-flfilename sim.npy -sumsize 4 -outfilesummary o.NPY -outfilegains g.bin "
      "-outasciiresultsfilename both.txt -pgpyplotfilename plot.py");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_EQ(Python(std::string(kGreedyOracle) +
                   "o = np.load('o.NPY'); g = np.loadtxt('g.bin', delimiter=',')\n"
                   "eo, eg = greedy(np.load('sim.npy'), 4)\n"
                   "y = np.arange(20) * 10; b = np.loadtxt('both.txt', delimiter=',')\n"
                   "print(o.dtype, o.shape, (y[o.ravel()] == np.array(eo) * 10).all(),\n"
                   "      np.allclose(g, eg, rtol=1e-6), b.shape, (b[0] == eo).all(), "
                   "np.allclose(b[1], g))"),
            "int32 (4, 1) True True (2, 4) True True\n");
  EXPECT_TRUE(fs::exists(Path("plot.py")));
  // Unwritable outputs fail before the (missing) matrix is looked at; the
  // check leaves an existing file as it was and creates none.
  std::ofstream(Path("keep.csv")) << "keep\n";
  for (const std::string option :
       {"-outfilesummary", "-outfilegains", "-outasciiresultsfilename"}) {
    for (const std::string path : {"nowhere/o.npy", "."}) {
      run = Quillo("-flfilename missing.npy -sumsize 4 " + option + " " + path);
      EXPECT_EQ(run.status, 1) << run;
      EXPECT_TRUE(Has(run, "ERROR DETECTED: Specified input data: [[@dovetel-common:")) << run;
      EXPECT_TRUE(Has(run, "Can't open file '" + path + "' for writing to output.\n++ ")) << run;
      EXPECT_FALSE(Has(run, "missing.npy")) << run;
    }
  }
  EXPECT_EQ(
      Quillo("-flfilename missing.npy -sumsize 4 -outfilegains keep.csv -outfilesummary new.csv")
          .status,
      1);
  EXPECT_EQ(velmor::testing::ReadFile(Path("keep.csv")), "keep\n");
  EXPECT_FALSE(fs::exists(Path("new.csv")));
  // The plot script's problem is told at once, and the run goes on.
  run = Quillo(
      "-flfilename sim.npy -sumsize 4 -pgpyplotfilename nowhere/plot.py -outfilesummary o.csv");
  EXPECT_EQ(run.status, 0) << run;
  const std::size_t early =
      run.out.find("Can't open file 'nowhere/plot.py' for writing to output (");
  EXPECT_LT(early, run.out.find("Can't open file 'nowhere/plot.py' for writing to output\n"))
      << run;
  EXPECT_TRUE(fs::exists(Path("o.csv")));
}

TEST_F(QuilloRun, SeedsSizesAndNumbersAsTheOptionsSay) {
  MakeSimilarity(20);
  const auto random_line = [this](const std::string& options) {
    const ChildOutcome run =
        Quillo("-flfilename sim.npy -cloglevel info -randomevaluations 10 " + options);
    EXPECT_EQ(run.status, 0) << run;
    const std::size_t at = run.out.find("Ran 10 random subsets of size ");
    return at == std::string::npos ? run.out : run.out.substr(at, run.out.find('\n', at) - at);
  };
  // -rseed reaches the random evaluations; -seed makes them repeat.
  EXPECT_NE(random_line("-sumsize 5 -rseed"), random_line("-sumsize 5 -rseed"));
  EXPECT_EQ(random_line("-sumsize 5 -seed 3"), random_line("-sumsize 5 -seed 3"));
  // ... and the random set specifications (a restriction of 8 makes the
  // order) and the stochastic greedy's samples.
  const auto order_of = [this](const std::string& options) {
    const ChildOutcome run =
        Quillo("-flfilename sim.npy -sumsize 10 -outfilesummary o.npy " + options);
    EXPECT_EQ(run.status, 0) << run;
    return Python("print(np.load('o.npy').ravel().tolist())");
  };
  for (const std::string draw : {"-set-restriction 'RAND(8)'", "-greedyalgorithm 'sto(0.9)'"}) {
    EXPECT_NE(order_of(draw + " -rseed"), order_of(draw + " -rseed")) << draw;
    EXPECT_EQ(order_of(draw + " -seed 3"), order_of(draw + " -seed 3")) << draw;
  }
  // The size reported is the size drawn: the matroids' limit (one per block
  // of five), or all candidates when there are fewer.
  Python(
      "blocks = [{'block': list(range(b * 5, b * 5 + 5)), 'limit': 1} for b in range(4)]\n"
      "json.dump({'intersection-of-matroids': {'partition-matroids': [\n"
      "    {'partition-matroid': {'blocks': blocks}}]}}, open('im.json', 'w'))\n");
  EXPECT_EQ(random_line("-imjson im.json").substr(0, 31), "Ran 10 random subsets of size 4");
  // The matroid's summary: one element per block of five.
  ChildOutcome run =
      Quillo("-flfilename sim.npy -imjson im.json -outfilesummary o.npy -cloglevel info");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_TRUE(Has(run, "using a intersection of matroids constraint")) << run;
  EXPECT_EQ(
      Python("o = np.load('o.npy').astype(int).ravel()\nprint(sorted(o // 5) == [0, 1, 2, 3])"),
      "True\n");
  EXPECT_EQ(random_line("-sumsize 5 -set-restriction 0-2").substr(0, 31),
            "Ran 10 random subsets of size 3");

  // Numbers out of range are narrowed as C converts them: 4294967293 is -3,
  // so k = 20 + 1 - 3; -1 is the largest unsigned, the full balance report.
  run = Quillo(
      "-flfilename sim.npy -sumsize 4294967293 -ctrl-logbalancereport -1 -cloglevel info "
      "-outfilesummary o.npy");
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(Has(run, "Balance: FL function gains: ")) << run;
  EXPECT_EQ(Python("print(np.load('o.npy').size)"), "18\n");
}

TEST_F(QuilloRun, EveryMatrixFormatInItsPrecisionMatchesTheOracle) {
  // Similarities with more digits than single precision holds, as .npy, .csv,
  // .bin (float64 and float32) and a sparse .npz (no near-ties among the
  // greedy's gains); the oracle greedy runs in float64 on the float64 or the
  // float32 matrix. Gains within 6e-8 of the float64 oracle's mean a run in
  // double; a run in single is off by more, but within 1e-6.
  Python(
      "rng = np.random.default_rng(10); X = rng.random((60, 3))\n"
      "S = np.exp(-((X[:, None] - X[None]) ** 2).sum(-1)); S[S < 0.3] = 0\n"
      "np.save('sim64.npy', S); np.savetxt('sim64.csv', S, delimiter=',', fmt='%.17g')\n"
      "S.T.tofile('sim64.bin'); S.astype(np.float32).T.tofile('sim32.bin')\n"
      "sp.save_npz('sim64.npz', sp.csr_matrix(S), compressed=False)\n");
  const auto check = [this](const char* matrix) {
    return Python(std::string(kGreedyOracle) + "o, g = greedy(" + matrix +
                  ", 12); g = np.array(g)\n"
                  "error = np.abs(np.load('g.npy').ravel() - g) / g\n"
                  "print(np.load('o.npy').ravel().tolist() == o, error.max() <= 6e-8, "
                  "error.max() <= 1e-6)\n");
  };
  const std::pair<std::string, bool> runs[] = {
      {"-flfilename sim64.npy", true},
      {"-spflfilename sim64.npz", true},
      {"-flfilename sim64.csv -precision double", true},
      {"-flfilename sim64.bin -flrows 60 -flcols 60 -precision double", true},
      {"-flfilename sim64.npy -precision single", false},
      {"-flfilename sim64.csv", false},
      {"-flfilename sim32.bin -flrows 60 -flcols 60", false}};
  for (const auto& [input, in_double] : runs) {
    const ChildOutcome run = Quillo(input +
                                    " -sumsize 12 -outfilesummary o.npy -outfilegains g.npy "
                                    "-loglevels ctrl=debug -cloglevel debug");
    ASSERT_EQ(run.status, 0) << input << "\n" << run;
    EXPECT_EQ(check("np.load('sim64.npy')"), in_double ? "True True True\n" : "True False True\n")
        << input;
    // The float64 .npy is used where it lies.
    EXPECT_EQ(Has(run, "FL matrix file 'sim64.npy' mapped into memory."),
              input == "-flfilename sim64.npy")
        << run;
  }
  // The last run in single precision is close to the oracle on the matrix
  // rounded to float32.
  EXPECT_EQ(check("np.load('sim64.npy').astype(np.float32)"), "True False True\n");
}

TEST_F(QuilloRun, ThreadCountChangesNoResult) {
  // 200 items: the feature similarities span several tiles, the mapped
  // matrix's checks several parts.
  Python(
      "rng = np.random.default_rng(3)\n"
      "np.save('features.npy', rng.normal(size=(300, 6)).astype(np.float32))\n"
      "np.save('sim.npy', rng.random((300, 300)).astype(np.float32))\n");
  const std::string runs[] = {
      "-flfilename features.npy -fltransformation 'RBF()' -sumsize 12",
      "-spflfilename features.npy -spfltransformation 'COSINE() | KNN(7)' -sumsize 12",
      "-flfilename sim.npy -sumsize 12",
  };
  for (const std::string& arguments : runs) {
    SCOPED_TRACE(arguments);
    std::string first_order, first_gains;
    for (const char* threads : {"1", "3", "0"}) {
      const ChildOutcome run = Quillo(arguments + " -numthreads " + threads +
                                      " -outfilesummary order.npy -outfilegains gains.npy");
      ASSERT_EQ(run.status, 0) << run;
      // Standard error is not a terminal here: no progress line.
      EXPECT_EQ(run.err.find('\r'), std::string::npos) << run;
      const std::string order = velmor::testing::ReadFile(Path("order.npy")),
                        gains = velmor::testing::ReadFile(Path("gains.npy"));
      if (first_order.empty()) {
        first_order = order;
        first_gains = gains;
      }
      EXPECT_EQ(order, first_order) << threads << " threads";
      EXPECT_EQ(gains, first_gains) << threads << " threads";
    }
  }
  // A symmetric transformed matrix handed on without a copy answers as the
  // loaded rows do (saving the matrix keeps the rows).
  std::string outputs[2];
  for (const std::string extra : {"", " -flsavefinaltransformedmatrix saved.npy"}) {
    const ChildOutcome run =
        Quillo("-flfilename features.npy -fltransformation 'COSINE() | SHIFT(1)' -sumsize 12" +
               extra + " -outfilesummary order.npy -outfilegains gains.npy");
    ASSERT_EQ(run.status, 0) << run;
    outputs[extra.empty() ? 0 : 1] =
        velmor::testing::ReadFile(Path("order.npy")) + velmor::testing::ReadFile(Path("gains.npy"));
  }
  EXPECT_EQ(outputs[0], outputs[1]);
}

}  // namespace
