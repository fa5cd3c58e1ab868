// End-to-end tests: the built quillo program run as a process, its standard
// output and error, exit status and files checked. Inputs are made and outputs
// read back with numpy/scipy through Debian's python.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct Outcome {
  int status = -1;
  std::string out, err;
  bool Has(const std::string& text) const {
    return out.find(text) != std::string::npos || err.find(text) != std::string::npos;
  }
};

std::ostream& operator<<(std::ostream& os, const Outcome& r) {
  return os << "status " << r.status << "\n--- stdout\n" << r.out << "--- stderr\n" << r.err;
}

// A scratch directory per test, removed afterwards.
class QuilloRun : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ =
        fs::path(::testing::TempDir()) /
        ("quillo_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) +
         "_" + std::to_string(getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // Runs quillo with the arguments (a shell word list) in the scratch directory.
  Outcome Quillo(const std::string& arguments) const {
    const std::string command = "cd '" + dir_.string() + "' && '" + VELMOR_TEST_QUILLO + "' " +
                                arguments + " > out.txt 2> err.txt";
    const int raw = std::system(command.c_str());
    Outcome run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = ReadFile(dir_ / "out.txt");
    run.err = ReadFile(dir_ / "err.txt");
    return run;
  }

  // Runs a python snippet in the scratch directory (numpy as np, scipy.sparse as sp).
  std::string Python(const std::string& code) const {
    const std::string script = Path("snippet.py");
    std::ofstream(script) << "import numpy as np, scipy.sparse as sp, json, sys\n" << code << "\n";
    const std::string command =
        "cd '" + dir_.string() + "' && " + VELMOR_TEST_PYTHON + " snippet.py > py.txt 2>&1";
    const int raw = std::system(command.c_str());
    const std::string output = ReadFile(dir_ / "py.txt");
    EXPECT_EQ(WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, 0) << output;
    return output;
  }

  // A random n x n similarity matrix in [0, 1) saved as sim.npy, sim.csv and sim.bin (float32).
  void MakeSimilarity(int n, int seed = 1) const {
    Python("rng = np.random.default_rng(" + std::to_string(seed) +
           ")\n"
           "S = rng.random((" +
           std::to_string(n) + ", " + std::to_string(n) +
           ")).astype(np.float32)\n"
           "np.save('sim.npy', S)\n"
           "np.savetxt('sim.csv', S, delimiter=',', fmt='%.9g')\n"
           "S.astype(np.float32).T.tofile('sim.bin')\n");
  }

  fs::path dir_;
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

TEST_F(QuilloRun, CommandLineErrorsAndHelp) {
  // No arguments at all.
  Outcome run = Quillo("");
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(
      run.Has("ERROR DETECTED: Command line argument: Need to give command line arguments. Use "
              "-help for help.\nEnd of Backtrace."))
      << run;

  // Help: usage on standard output, status 0.
  run = Quillo("-help");
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_NE(run.out.find("Usage: "), std::string::npos) << run;
  EXPECT_NE(run.out.find("**** Facility location (FL) function"), std::string::npos);

  // Ambiguous and unknown switches.
  run = Quillo("-flc 3");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.Has("Argument Error: Ambiguous switch: -flc")) << run;
  EXPECT_TRUE(run.Has("Poorly formed command line arguments. Use -help for help.")) << run;
  run = Quillo("-nosuchswitch 3");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.Has("Argument Error: Unknown switch: -nosuchswitch")) << run;

  // No function, bad summary sizes, bad responsibilities, bad log levels.
  MakeSimilarity(10);
  run = Quillo("-sumsize 3");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.Has("Need to specify at least one function on command line.")) << run;
  run = Quillo("-flfilename sim.npy -sumsize -12");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.Has("but got (|V|+1+k)=-1.")) << run;
  run = Quillo("-flfilename sim.npy");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.Has("Must give valid summary size k")) << run;
  run = Quillo("-flfilename sim.npy -sumsize 3 -flresponsibility 0");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.Has("Error: a non-positive sum of responsibilities (0) is invalid.")) << run;
  run = Quillo("-flfilename sim.npy -sumsize 3 -flresponsibility -1");
  EXPECT_TRUE(run.Has("FL weight = '-1', but must be non-negative")) << run;
  run = Quillo("-flfilename sim.npy -sumsize 3 -cloglevel loud");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.Has("Unable to set up velmor logging.")) << run;
  EXPECT_TRUE(run.Has("Unknown console level given.")) << run;
  run = Quillo("-flfilename sim.npy -sumsize 3 -flasymiterations 2");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(run.Has("asymmetric iterations (2) are not supported")) << run;
}

TEST_F(QuilloRun, ArgumentFiles) {
  MakeSimilarity(12);
  std::ofstream(Path("args.txt")) << "# summary of three\n"
                                  << "flfilename=sim.npy\n"
                                  << "  sumsize 3   # trailing comment\n"
                                  << "nosuchoption 5\n"
                                  << "ctrl-logorder\n";
  Outcome run = Quillo("-argsfilename args.txt -cloglevel info");
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.Has("Argument Warning: Skipping unknown switch in args.txt : nosuchoption,"))
      << run;
  EXPECT_TRUE(run.Has("Summary Solution: elements_in_rank_order = np.array([")) << run;

  std::ofstream(Path("recursive.txt")) << "argsfilename args.txt\n";
  run = Quillo("-argsfilename recursive.txt");
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.Has("Can not recursively parse arguments from files")) << run;
}

TEST_F(QuilloRun, FacilityLocationMatchesOracleFromEveryDenseFormat) {
  MakeSimilarity(40);
  const std::string expected = Python(std::string(kGreedyOracle) +
                                      "o, g = greedy(np.load('sim.npy'), 6)\n"
                                      "print(' '.join(map(str, o)))\n");
  for (const std::string input : {"-flfilename sim.npy", "-flfilename sim.csv",
                                  "-flfilename sim.bin -flrows 40 -flcols 40"}) {
    Outcome run = Quillo(input + " -sumsize 6 -outfilesummary order.csv -outfilegains gains.npy");
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
  Outcome run = Quillo("-flfilename sim.npy -sumsize 6 -cloglevel info");
  EXPECT_TRUE(run.Has("Summary valuation: f(Solution) = ")) << run;
  EXPECT_TRUE(run.Has("Creating a Facility Location Function with a 40x40 matrix.")) << run;
  EXPECT_TRUE(run.Has("Mixing in FL function, relative responsibility 1.")) << run;
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
    Outcome run =
        Quillo(arguments +
               " -sumsize 5 -cloglevel info -ctrl-logorder -ctrl-logdetail -outfilesummary o.npy");
    EXPECT_EQ(run.status, 0) << arguments << "\n" << run;
    EXPECT_TRUE(run.Has("Summary valuation: f(Solution) = ")) << arguments << "\n" << run;
  }
  // The order respects the set modifications: deleted and contracted elements never appear,
  // the inclusion comes first.
  Outcome run = Quillo(
      "-flfilename sim.npy -set-contraction 0,1 -set-deletion 2-5 -set-inclusion 6 -sumsize 5 "
      "-outfilesummary o.npy");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_EQ(Python("o = np.load('o.npy').astype(int).ravel().tolist()\n"
                   "print(len(o) == 4 and not set(o) & {0,1,2,3,4,5,6})"),
            "True\n");
  run = Quillo("-flfilename sim.npy -randomevaluations 20 -sumsize 5 -cloglevel info");
  EXPECT_TRUE(run.Has("Ran 20 random subsets of size 5, (minvalue <= avgvalue <= maxvalue) = ("))
      << run;
  run = Quillo("-flfilename sim.npy -partialenumeration 1 -sumsize 4 -cloglevel info");
  EXPECT_TRUE(run.Has("Partial enumeration finished, reordering final best solution of size 4."))
      << run;
}

TEST_F(QuilloRun, MatroidConstraintsFromJson) {
  MakeSimilarity(20);
  Python(
      "blocks = lambda limit: [{'block': list(range(b * 5, b * 5 + 5)), 'limit': limit} for b in "
      "range(4)]\n"
      "json.dump({'intersection-of-matroids': {'partition-matroids': [\n"
      "    {'partition-matroid': {'blocks': blocks(1)}}]}}, open('im.json', 'w'))\n");
  Outcome run = Quillo("-flfilename sim.npy -imjson im.json -outfilesummary o.npy -cloglevel info");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.Has("using a intersection of matroids constraint")) << run;
  // One element per block of five.
  EXPECT_EQ(
      Python("o = np.load('o.npy').astype(int).ravel()\nprint(sorted(o // 5) == [0, 1, 2, 3])"),
      "True\n");

  std::ofstream(Path("broken.json")) << "{\"intersection-of-matroids\": ";
  run = Quillo("-flfilename sim.npy -imjson broken.json -sumsize 3");
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.Has("Error reading through JSON file 'broken.json'.")) << run;
  std::ofstream(Path("nolist.json")) << "{\"intersection-of-matroids\": {}}";
  run = Quillo("-flfilename sim.npy -imjson nolist.json -sumsize 3");
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.Has("Can't find JSON object list named 'partition-matroids'")) << run;
}

TEST_F(QuilloRun, OutputFilesAndPlotScript) {
  MakeSimilarity(25);
  Outcome run = Quillo(
      "-flfilename sim.npy -sumsize 7 -outfilesummary o.csv -outfilegains g.csv "
      "-outasciiresultsfilename both.csv -pgpyplotfilename plot.py");
  ASSERT_EQ(run.status, 0) << run;
  EXPECT_EQ(Python("o = np.loadtxt('o.csv', delimiter=',').ravel()\n"
                   "g = np.loadtxt('g.csv', delimiter=',').ravel()\n"
                   "b = np.loadtxt('both.csv', delimiter=',')\n"
                   "print(b.shape == (2, 7) and (b[0] == o).all() and np.allclose(b[1], g) and "
                   "(np.diff(g) <= 0).all())"),
            "True\n");
  const std::string plot =
      "import matplotlib\nmatplotlib.use('Agg')\nimport matplotlib.pyplot as plt\n"
      "plt.show = lambda: plt.savefig('plot.png')\nexec(open('plot.py').read())\n";
  Python(plot);
  EXPECT_TRUE(fs::exists(dir_ / "plot.png"));
  // An output file that cannot be written is an error of the run.
  run = Quillo("-flfilename sim.npy -sumsize 3 -outfilesummary /nonexistent/dir/o.npy");
  EXPECT_EQ(run.status, 1) << run;
}

TEST_F(QuilloRun, BadFilesGiveNestedReports) {
  std::ofstream(Path("bad.csv")) << "1,2\n3\n";
  Outcome run = Quillo("-flfilename bad.csv -sumsize 1");
  EXPECT_EQ(run.status, 1) << run;
  const std::string& report = run.err;
  const auto first =
      report.find("ERROR DETECTED: Exception caught: [[@common-command-line-routines:");
  ASSERT_NE(first, std::string::npos) << run;
  EXPECT_NE(report.find(":LoadAndTransformMatrix]] Problems loading FL matrix.\n++ "),
            std::string::npos)
      << run;
  EXPECT_NE(report.find("End of Backtrace."), std::string::npos) << run;

  run = Quillo("-flfilename missing.npy -sumsize 1");
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.Has("Problems opening file 'missing.npy'.")) << run;
  run = Quillo("-flfilename data.txt -sumsize 1");
  EXPECT_TRUE(run.Has("Unknown file type 'data.txt'.")) << run;
  MakeSimilarity(5);
  run = Quillo("-flfilename sim.npy -sumsize 1 -fltransformation 'NOPE()'");
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.Has("Problems with matrix transformation string 'NOPE()' for FL function."))
      << run;
  run = Quillo("-flfilename sim.npy -sumsize 1 -set-inclusion 99");
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.Has("ERROR DETECTED: Specified input data:")) << run;
  Python("np.save('zeros.npy', np.zeros((4, 4), dtype=np.float32))");
  run = Quillo("-flfilename zeros.npy -sumsize 1");
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.Has("Problems opening an FL function.")) << run;
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
    const Outcome run =
        Quillo("-flfilename sim.npy -sumsize 8 -greedyalgorithm '" + choice +
               "' -outfilesummary order.npy -outfilegains gains.npy -cloglevel info");
    ASSERT_EQ(run.status, 0) << choice << "\n" << run;
    EXPECT_TRUE(run.Has("Greedy algorithm: ")) << run;
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
  // The same seed gives the same stochastic summary; bad texts are command-line errors.
  Quillo(
      "-flfilename sim.npy -sumsize 8 -greedyalgorithm stochastic -outfilesummary a.npy -seed 9");
  Quillo(
      "-flfilename sim.npy -sumsize 8 -greedyalgorithm stochastic -outfilesummary b.npy -seed 9");
  EXPECT_EQ(Python("print((np.load('a.npy') == np.load('b.npy')).all())"), "True\n");
  for (const std::string bad :
       {"st", "fast", "accelerated(0.1)", "threshold(1)", "stochastic:0", "threshold(x"}) {
    const Outcome run = Quillo("-flfilename sim.npy -sumsize 8 -greedyalgorithm '" + bad + "'");
    EXPECT_EQ(run.status, 1) << bad << "\n" << run;
    EXPECT_TRUE(run.Has("Invalid greedy algorithm '" + bad + "' for option -greedyalgorithm: "))
        << run;
  }
  // The option answers to a prefix too.
  EXPECT_EQ(Quillo("-flfilename sim.npy -sumsize 8 -g accelerated").status, 0);
}

TEST_F(QuilloRun, Signals) {
  // A run long enough to be interrupted: the standard greedy over 2500 elements.
  Python("np.save('big.npy', np.random.default_rng(5).random((2500, 2500)).astype(np.float32))");
  const auto start = [&](const char* redirect) {
    const pid_t pid = fork();
    if (pid == 0) {
      setpgid(0, 0);
      const std::string command = "exec '" + std::string(VELMOR_TEST_QUILLO) +
                                  "' -flfilename big.npy -sumsize 2500 " + redirect;
      if (chdir(dir_.c_str()) != 0) _exit(99);
      execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
      _exit(99);
    }
    return pid;
  };
  const auto finish = [](pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
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

  // SIGTERM to the worker: its message, and the supervisor exits with 255.
  pid_t supervisor = start("2> term.txt");
  pid_t worker = child_of(supervisor);
  ASSERT_GT(worker, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  kill(worker, SIGUSR1);  // the user signals do not end it
  kill(worker, SIGUSR2);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ASSERT_EQ(kill(worker, 0), 0) << "worker ended on SIGUSR1/SIGUSR2";
  kill(worker, SIGTERM);
  EXPECT_EQ(finish(supervisor), 255);
  EXPECT_NE(ReadFile(dir_ / "term.txt").find("Received SIGTERM signal, terminating..."),
            std::string::npos);

  // SIGINT to the group: the supervisor forwards it and exits with 255.
  supervisor = start("2> int.txt");
  ASSERT_GT(child_of(supervisor), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  kill(-supervisor, SIGINT);
  EXPECT_EQ(finish(supervisor), 255);
}

}  // namespace
