"""Bad input raises a Python exception with the engine's message; it never crashes."""

import numpy as np
import pytest
import scipy.sparse

import velmor
from conftest import rbf_similarity

S = rbf_similarity(30, np.float32, seed=8)


def test_bad_matrices():
    # Wrong shapes and types: ValueError.
    for bad in (np.zeros(5, np.float32), np.zeros((0, 4), np.float32),
                np.zeros((2, 2, 2), np.float32), "text", np.array([["a", "b"]])):
        with pytest.raises(ValueError):
            velmor.FacilityLocationSelection(2).fit(bad)
    # Bad data: InputDataError, the engine's causes nested in the text.
    nan = S.copy()
    nan[3, 4] = np.nan
    with pytest.raises(velmor.InputDataError, match="Invalid facility location matrix"):
        velmor.FacilityLocationSelection(2).fit(nan)
    with pytest.raises(velmor.InputDataError,
                       match=r"Problems opening an FL function\.\n.*all zero or negative"):
        velmor.FacilityLocationSelection(2).fit(np.zeros((4, 4), np.float32))
    with pytest.raises(velmor.InputDataError, match="must be square"):
        velmor.maximize(velmor.Dispersion(np.ones((3, 4), np.float32)), k=1)
    with pytest.raises(ValueError, match="cannot be read|1-d|integers"):
        velmor.FacilityLocation(S).evaluate(["x"])
    # Sparse input that is not sparse, and features for a metric that are not features.
    with pytest.raises(ValueError, match="scipy.sparse"):
        velmor.SparseFacilityLocation(S)
    with pytest.raises(ValueError):
        velmor.FacilityLocationSelection(2, metric="rbf").fit(np.zeros(3))
    with pytest.raises(ValueError, match="finite features"):
        velmor.FacilityLocationSelection(2, metric="rbf").fit(np.full((3, 2), np.inf))


def test_bad_arguments():
    fit = lambda **p: velmor.FacilityLocationSelection(**{"n_samples": 3, **p}).fit(S)
    for parameters in ({"n_samples": -1}, {"n_samples": 31}, {"n_samples": 2.5},
                       {"metric": "manhattan"}, {"algorithm": "lazy"},
                       {"algorithm": "stochastic", "epsilon": 1.0},
                       {"algorithm": "threshold", "epsilon": 0.0}, {"threads": -2},
                       {"metric": "cosine", "gamma": 1.0}):
        with pytest.raises(ValueError):
            fit(**parameters)
    f = velmor.FacilityLocation(S)
    with pytest.raises(ValueError, match="outside the ground set"):
        velmor.maximize(f, k=2, inclusion=[30])
    with pytest.raises(ValueError, match="either k or a constraint"):
        velmor.maximize(f)
    with pytest.raises(ValueError, match="outside"):
        f.gain(-1, [])
    with pytest.raises(ValueError, match="not fitted"):
        velmor.FacilityLocationSelection(2).transform(S)
    # Constraints: labels outside [0, len(limits)), negative limits, other ground sets.
    with pytest.raises(ValueError):
        velmor.PartitionMatroid(np.arange(30) % 3, [1, 1])
    with pytest.raises(ValueError):
        velmor.PartitionMatroid(np.arange(30) % 2, [1, -1])
    with pytest.raises(ValueError, match="ground set sizes must match"):
        velmor.maximize(f, velmor.PartitionMatroid(np.arange(20) % 2, [1, 1]))
    with pytest.raises(ValueError, match="matroids"):
        velmor.IntersectionOfMatroids([velmor.IntersectionOfMatroids([velmor.Cardinality(30, 2)])])
    # Mixtures and conditioning.
    with pytest.raises(ValueError, match="ground set size"):
        velmor.Mixture([f, velmor.FacilityLocation(S[:10, :10])])
    with pytest.raises(ValueError, match="weight"):
        velmor.Mixture([f], [-1.0])
    with pytest.raises(ValueError, match="single facility-location"):
        velmor.Contraction(velmor.Modular(np.ones(30)), [1])


def test_bad_sparse_parts():
    good = scipy.sparse.csr_matrix(S)
    parts = dict(data=good.data, indices=good.indices, indptr=good.indptr, rows=30, cols=30,
                 softness=0.0, normalize=True, dispersion=False)
    for change in ({"indices": np.r_[good.indices[:-1], 30]}, {"indptr": good.indptr[:-1]},
                   {"indptr": np.r_[good.indptr[:-1], good.indptr[-1] + 1]},
                   {"indices": good.indices[::-1].copy()}, {"data": good.data[:-1]},
                   {"rows": 0}):
        with pytest.raises(ValueError):
            velmor._velmor._sparse_facility_location(**{**parts, **change})
