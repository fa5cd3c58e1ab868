#!/usr/bin/python3
"""Makes test and benchmark data shaped like users' data.

  make_similarity.py OUT.npy N [--features D] [--kind rbf|uniform] [--dtype float32|float64]
                     [--seed S] [--features-out F.npy] [--features-only]

rbf (default): N items with D Gaussian features (D = 20; items drawn around a
few dozen cluster centres, as real embeddings are), similarity
exp(-gamma ||xi - xj||^2) with gamma = 1 / the median squared distance of a
sample of pairs. uniform: independent uniform [0, 1) entries, the adversarial
case where every gain nearly ties. The matrix is written block by block into
a memory-mapped .npy, so N = 60000 needs no more memory than the file.
--features-only writes the N x D features to OUT.npy instead of the matrix
(rbf only), for runs that build the similarity themselves.
"""
import argparse
import numpy as np

parser = argparse.ArgumentParser()
parser.add_argument("out")
parser.add_argument("n", type=int)
parser.add_argument("--features", type=int, default=20)
parser.add_argument("--kind", choices=["rbf", "uniform"], default="rbf")
parser.add_argument("--dtype", choices=["float32", "float64"], default="float32")
parser.add_argument("--seed", type=int, default=7)
parser.add_argument("--features-out")
parser.add_argument("--features-only", action="store_true")
args = parser.parse_args()
if args.features_only and args.kind != "rbf":
    parser.error("--features-only needs --kind rbf")

rng = np.random.default_rng(args.seed)
n, dtype = args.n, np.dtype(args.dtype)
S = None
if not args.features_only:
    S = np.lib.format.open_memmap(args.out, mode="w+", dtype=dtype, shape=(n, n))
block = max(1, min(n, 2_000_000 // max(n, 1)))
if args.kind == "uniform":
    for start in range(0, n, block):
        S[start:start + block] = rng.random((min(block, n - start), n)).astype(dtype)
else:
    centres = rng.normal(0.0, 3.0, size=(max(2, n // 500), args.features))
    X = centres[rng.integers(0, len(centres), n)] + rng.normal(size=(n, args.features))
    if args.features_out:
        np.save(args.features_out, X.astype(dtype))
    if args.features_only:
        np.save(args.out, X.astype(dtype))
        raise SystemExit(0)
    sq = (X * X).sum(axis=1)
    i, j = rng.integers(0, n, 20000), rng.integers(0, n, 20000)
    gamma = 1.0 / np.median(((X[i] - X[j]) ** 2).sum(axis=1))
    for start in range(0, n, block):
        rows = X[start:start + block]
        d2 = np.maximum(sq[start:start + block, None] + sq[None, :] - 2.0 * rows @ X.T, 0.0)
        S[start:start + block] = np.exp(-gamma * d2).astype(dtype)
if S is not None:
    S.flush()
