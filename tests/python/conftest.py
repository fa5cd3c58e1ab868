"""Shared oracles and helpers of the Python module's tests.

quillo (the command-line program of the same build, VELMOR_QUILLO) is the
differential oracle for orders and gains; numpy formulas are the oracle for
values on small problems.
"""

import os
import subprocess
import sys

import numpy as np
import pytest

QUILLO = os.environ.get("VELMOR_QUILLO")
# The package under test: the build tree's, put first on the path by ctest.
PYTHONPATH = os.environ.get("PYTHONPATH", "")


def rbf_similarity(n, dtype, seed=0, d=4):
    """A clustered-points RBF similarity, n x n, computed by numpy."""
    rng = np.random.default_rng(seed)
    centres = rng.normal(scale=4.0, size=(5, d))
    X = centres[rng.integers(0, 5, n)] + rng.normal(size=(n, d))
    D = ((X[:, None, :] - X[None, :, :]) ** 2).sum(-1)
    return np.exp(-D / np.median(D)).astype(dtype)


def numpy_greedy(S, k):
    """The standard greedy on facility location sum_i max_a S[a, i], normalized: order and gains."""
    total = S.max(axis=0).clip(min=0).sum(dtype=np.float64)
    best = np.zeros(S.shape[1], dtype=np.float64)
    order, gains = [], []
    for _ in range(k):
        g = np.maximum(S.astype(np.float64) - best, 0).sum(axis=1)
        g[order] = -1
        v = int(np.argmax(g))
        order.append(v)
        gains.append(g[v] / total)
        best = np.maximum(best, S[v])
    return np.array(order), np.array(gains)


@pytest.fixture
def quillo(tmp_path):
    """Runs quillo with the given options; returns (order, gains) as written to .npy files."""
    if not QUILLO:
        pytest.skip("VELMOR_QUILLO is not set")

    def run(*options):
        order_file, gains_file = tmp_path / "order.npy", tmp_path / "gains.npy"
        done = subprocess.run([QUILLO, *map(str, options), "-outfilesummary", order_file,
                               "-outfilegains", gains_file], capture_output=True, text=True)
        assert done.returncode == 0, done.stdout + done.stderr
        return (np.load(order_file).ravel().astype(np.int64),
                np.load(gains_file).ravel().astype(np.float32))

    return run


def run_child(code, timeout=120):
    """Runs `code` in a fresh interpreter that imports the package under test."""
    env = dict(os.environ, PYTHONPATH=PYTHONPATH)
    return subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, env=env)
