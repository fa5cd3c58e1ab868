#!/usr/bin/python3
"""quillo-mpi under mpirun against single-process quillo on the same data.

  quillo_mpi_test.py QUILLO_MPI QUILLO SOURCE_DIR

Ranks run on this machine over TCP on loopback (oversubscribed).
"""
import os
import subprocess
import sys
import tempfile
import unittest

import numpy as np
import scipy.sparse as sp

QUILLO_MPI, QUILLO, SOURCE_DIR = sys.argv[1:4]
MPIRUN = ["mpirun", "--oversubscribe", "--mca", "btl", "self,tcp", "--mca", "btl_tcp_if_include",
          "lo", "--mca", "oob_tcp_if_include", "lo"]
EPS32 = float(np.finfo(np.float32).eps)
if os.geteuid() == 0:
    MPIRUN.append("--allow-run-as-root")


def make_similarity(path, n, dtype="float32", seed=7):
    subprocess.run([sys.executable, os.path.join(SOURCE_DIR, "tools", "make_similarity.py"), path,
                    str(n), "--dtype", dtype, "--seed", str(seed)], check=True)


class QuilloMpiTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.TemporaryDirectory()
        d = cls.dir.name
        cls.fl = os.path.join(d, "fl.npy")
        make_similarity(cls.fl, 203)  # k mod 4 = 3: ragged lanes and blocks
        cls.fl64 = os.path.join(d, "fl64.npy")
        make_similarity(cls.fl64, 150, "float64", seed=3)
        cls.fl2 = os.path.join(d, "fl2.npy")
        make_similarity(cls.fl2, 203, seed=11)
        # A sparse similarity: each row's 15 largest entries of another RBF matrix.
        dense = os.path.join(d, "for_sparse.npy")
        make_similarity(dense, 203, seed=5)
        S = np.load(dense)
        keep = np.argsort(-S, axis=1)[:, :15]
        mask = np.zeros_like(S, dtype=bool)
        np.put_along_axis(mask, keep, True, axis=1)
        cls.spfl = os.path.join(d, "spfl.npz")
        sp.save_npz(cls.spfl, sp.csr_matrix(np.where(mask, S, 0).astype(np.float32)),
                    compressed=False)

    @classmethod
    def tearDownClass(cls):
        cls.dir.cleanup()

    def run_program(self, command, expect_status=0):
        done = subprocess.run(command, capture_output=True, text=True, timeout=300)
        self.assertEqual(done.returncode, expect_status,
                         f"{' '.join(command)}\n{done.stdout}\n{done.stderr}")
        return done.stdout + done.stderr

    def summarize(self, args, ranks=None):
        """Order and gains of quillo (ranks None) or of quillo-mpi on `ranks` ranks."""
        tag = "single" if ranks is None else f"mpi{ranks}"
        order = os.path.join(self.dir.name, f"{tag}_order.npy")
        gains = os.path.join(self.dir.name, f"{tag}_gains.npy")
        program = [QUILLO] if ranks is None else MPIRUN + ["-np", str(ranks), QUILLO_MPI]
        self.run_program(program + args + ["-outfilesummary", order, "-outfilegains", gains])
        with open(gains, "rb") as f:
            gain_bytes = f.read()
        return np.load(order), np.load(gains), gain_bytes

    def check_same_as_single(self, args, rank_counts):
        order, gains, gain_bytes = self.summarize(args)
        self.assertGreater(len(order), 0)
        for ranks in rank_counts:
            with self.subTest(ranks=ranks):
                mpi_order, mpi_gains, mpi_gain_bytes = self.summarize(args, ranks)
                np.testing.assert_array_equal(mpi_order, order)
                if ranks == 1:
                    self.assertEqual(mpi_gain_bytes, gain_bytes)
                else:
                    # Gains sum k positive terms and are stored narrowed to float: any two
                    # summation orders agree to within 2 (k - 1) float roundings.
                    np.testing.assert_allclose(mpi_gains, gains, rtol=2 * 203 * EPS32, atol=0)

    def test_exact_scheme_equals_single_process_greedy(self):
        # Dense single precision: one to four ranks, bit for bit on one.
        self.check_same_as_single(["-flfilename", self.fl, "-sumsize", "25"], [1, 2, 3, 4])
        # A float64 file runs in double.
        self.check_same_as_single(["-flfilename", self.fl64, "-sumsize", "30"], [1, 3])
        # A mixture of dense and sparse facility location with set modifications.
        self.check_same_as_single(
            ["-flfilename", self.fl, "-flresponsibility", "0.5", "-fl2filename", self.fl2,
             "-spflfilename", self.spfl, "-spflresponsibility", "2", "-set-restriction", "0-149",
             "-set-deletion", "3,7", "-set-inclusion", "10,20", "-sumsize", "12"], [1, 2, 4])

    def test_partitioned_scheme_equals_threaded_blocks_and_merge(self):
        # One rank per block of the threaded scheme: same seed, blocks and merge.
        for algorithm, rank_counts in (("standard", [1, 2, 3, 4]), ("accelerated", [3])):
            for ranks in rank_counts:
                with self.subTest(algorithm=algorithm, ranks=ranks):
                    args = ["-flfilename", self.fl, "-sumsize", "15", "-seed", "5",
                            "-greedyalgorithm", f"{algorithm}:{ranks}"]
                    single = self.summarize(args)
                    mpi = self.summarize(args + ["-mpischeme", "partitioned"], ranks)
                    np.testing.assert_array_equal(mpi[0], single[0])
                    self.assertEqual(mpi[2], single[2])

    def test_failures_are_reported_once_with_status_1(self):
        def check_one_report(output, words):
            self.assertEqual(output.count("ERROR DETECTED"), 1, output)
            self.assertIn(words, output)

        # A file that only rank 1 cannot read.
        missing = os.path.join(self.dir.name, "missing.npy")
        mpmd = MPIRUN + ["-np", "1", QUILLO_MPI, "-flfilename", self.fl, "-sumsize", "5", ":",
                         "-np", "1", QUILLO_MPI, "-flfilename", missing, "-sumsize", "5"]
        check_one_report(self.run_program(mpmd, 1), "missing.npy")
        # A function the split cannot run, on every rank.
        check_one_report(
            self.run_program(MPIRUN + ["-np", "3", QUILLO_MPI, "-flfilename", self.fl,
                                       "-ssdfilename", self.fl, "-sumsize", "5"], 1), "does not support")
        # More ranks than landmarks.
        tiny = os.path.join(self.dir.name, "tiny.npy")
        np.save(tiny, np.eye(2, dtype=np.float32))
        check_one_report(
            self.run_program(MPIRUN + ["-np", "3", QUILLO_MPI, "-flfilename", tiny, "-sumsize", "1"], 1),
            "fewer than the 3 ranks")
        # An arity that does not fit the ranks.
        check_one_report(
            self.run_program(MPIRUN + ["-np", "3", QUILLO_MPI, "-flfilename", self.fl,
                                       "-mpischeme", "partitioned", "-mpiary", "2", "-sumsize", "5"], 1),
            "must be a power of the arity")
        # A NaN in the columns of the last of three ranks.
        nan_file = os.path.join(self.dir.name, "nan.npy")
        S = np.load(self.fl)
        S[5, 200] = np.nan
        np.save(nan_file, S)
        check_one_report(
            self.run_program(MPIRUN + ["-np", "3", QUILLO_MPI, "-flfilename", nan_file,
                                       "-sumsize", "5"], 1), "NaN at row,col 5,200")
        # A bad option.
        output = self.run_program(MPIRUN + ["-np", "2", QUILLO_MPI, "-nosuchoption", "1"], 1)
        self.assertEqual(output.count("Poorly formed command line arguments"), 1, output)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
