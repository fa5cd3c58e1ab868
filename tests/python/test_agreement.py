"""The module chooses what quillo chooses, with the same gains, on the same data."""

import json

import numpy as np
import pytest
import scipy.sparse

import velmor
from conftest import numpy_greedy, rbf_similarity

ALGORITHMS = [("standard", "standard"), ("accelerated", "accelerated"),
              ("stochastic", "stochastic(0.1)"), ("threshold", "threshold(0.1)")]


def same_as_quillo(result_order, result_gains, quillo_run):
    order, gains = quillo_run
    np.testing.assert_array_equal(result_order, order)
    np.testing.assert_array_equal(np.asarray(result_gains, dtype=np.float32), gains)


@pytest.mark.parametrize("dtype", [np.float32, np.float64])
@pytest.mark.parametrize("algorithm,option", ALGORITHMS)
def test_dense_every_algorithm(tmp_path, quillo, dtype, algorithm, option):
    S = rbf_similarity(150, dtype, seed=1)
    np.save(tmp_path / "s.npy", S)
    selector = velmor.FacilityLocationSelection(12, algorithm=algorithm).fit(S)
    assert selector.ranking_.dtype == np.int32 and selector.gains_.dtype == dtype
    same_as_quillo(selector.ranking_, selector.gains_,
                   quillo("-flfilename", tmp_path / "s.npy", "-sumsize", 12,
                          "-greedyalgorithm", option))


def test_numpy_oracle_and_value():
    # Order, gains and value against a plain numpy greedy (float64 throughout).
    S = rbf_similarity(80, np.float64, seed=2)
    selector = velmor.FacilityLocationSelection(9).fit(S)
    order, gains = numpy_greedy(S, 9)
    np.testing.assert_array_equal(selector.ranking_, order)
    np.testing.assert_allclose(selector.gains_, gains, rtol=1e-12)
    np.testing.assert_allclose(selector.value_, gains.sum(), rtol=1e-12)
    # transform and fit_transform give the chosen rows in order.
    np.testing.assert_array_equal(selector.transform(S), S[order])
    np.testing.assert_array_equal(
        velmor.FacilityLocationSelection(9).fit_transform(S), S[order])


def test_features_in_the_engine(quillo, tmp_path):
    # The RBF of the features, built by the engine, is quillo's RBF() transformation.
    X = np.random.default_rng(3).integers(0, 17, size=(200, 16))
    np.savetxt(tmp_path / "x.csv", X, fmt="%d", delimiter=",")
    selector = velmor.FacilityLocationSelection(10, metric="rbf").fit(X)
    same_as_quillo(selector.ranking_, selector.gains_,
                   quillo("-flfilename", tmp_path / "x.csv", "-fltransformation", "RBF()",
                          "-sumsize", 10))


def test_sparse_forms(quillo, tmp_path):
    S = rbf_similarity(200, np.float32, seed=4)
    S[S < np.quantile(S, 0.9)] = 0
    csr = scipy.sparse.csr_matrix(S)
    scipy.sparse.save_npz(tmp_path / "s.npz", csr, compressed=False)
    expected = quillo("-spflfilename", tmp_path / "s.npz", "-sumsize", 15)
    # CSR, CSC and COO (with a duplicate entry split in two) all give quillo's summary.
    coo = csr.tocoo()
    split = scipy.sparse.coo_matrix(
        (np.r_[coo.data[:1] / 2, coo.data[:1] / 2, coo.data[1:]],
         (np.r_[coo.row[:1], coo.row], np.r_[coo.col[:1], coo.col])), shape=coo.shape)
    for matrix in (csr, csr.tocsc(), split):
        selector = velmor.SparseFacilityLocationSelection(15).fit(matrix)
        same_as_quillo(selector.ranking_, selector.gains_, expected)


def test_mixture_with_dispersion(quillo, tmp_path):
    S = rbf_similarity(120, np.float32, seed=5)
    D = (1 - S).astype(np.float32)
    np.save(tmp_path / "s.npy", S)
    np.save(tmp_path / "d.npy", D)
    selector = velmor.FacilityLocationDispersionSelection(
        10, facility_weight=1.0, dispersion_weight=0.3).fit(S, dispersion=D)
    same_as_quillo(selector.ranking_, selector.gains_,
                   quillo("-flfilename", tmp_path / "s.npy", "-ssdfilename", tmp_path / "d.npy",
                          "-ssdresponsibility", 0.3, "-sumsize", 10))


def test_partition_matroid(quillo, tmp_path):
    S = rbf_similarity(100, np.float64, seed=6)
    np.save(tmp_path / "s.npy", S)
    labels = np.arange(100) % 4
    limits = [1, 2, 0, 3]
    blocks = [{"block": np.flatnonzero(labels == b).tolist(), "limit": limits[b]}
              for b in range(4)]
    (tmp_path / "im.json").write_text(json.dumps(
        {"intersection-of-matroids": {"partition-matroids": [
            {"partition-matroid": {"blocks": blocks}}]}}))
    expected = quillo("-flfilename", tmp_path / "s.npy", "-imjson", tmp_path / "im.json")
    f = velmor.FacilityLocation(S)
    for constraint in (velmor.PartitionMatroid(labels, limits),
                       velmor.IntersectionOfMatroids([velmor.PartitionMatroid(labels, limits)])):
        result = velmor.maximize(f, constraint)
        same_as_quillo(result.order, result.gains, expected)
        assert np.bincount(labels[result.order], minlength=4).tolist() == limits


def test_engine_objects():
    S = rbf_similarity(60, np.float64, seed=7)
    f = velmor.FacilityLocation(S, normalize=False)
    # Values against the formula.
    for A in ([0], [3, 9, 27], list(range(60))):
        assert f.evaluate(A) == pytest.approx(S[A].max(axis=0).sum(), rel=1e-12)
    assert f.gain(5, [3, 9]) == pytest.approx(f.evaluate([3, 9, 5]) - f.evaluate([3, 9]))
    # Mixtures weigh their parts; modular functions sum their weights.
    w = np.linspace(0, 1, 60)
    mixture = velmor.Mixture([f, velmor.Modular(w)], [2.0, 0.5])
    assert mixture.evaluate([1, 4]) == pytest.approx(2 * f.evaluate([1, 4]) + 0.5 * (w[1] + w[4]))
    # Contraction: f(X u C) - f(C).
    contracted = velmor.Contraction(f, [2, 8])
    assert contracted.evaluate([4]) == pytest.approx(f.evaluate([2, 8, 4]) - f.evaluate([2, 8]))
    # CMI with an attraction set A: f(X) + f(A) - f(X u A).
    cmi = velmor.ConditionalMutualInformation(f, [10, 11])
    assert cmi.evaluate([4, 30]) == pytest.approx(
        f.evaluate([4, 30]) + f.evaluate([10, 11]) - f.evaluate([4, 30, 10, 11]))
    # Inclusion starts the solution; restriction limits the candidates.
    result = velmor.maximize(f, k=5, inclusion=[0], restriction=range(20, 40))
    assert len(result.order) == 4 and set(result.order) <= set(range(20, 40))
    assert result.value == pytest.approx(f.evaluate([0, *result.order]))
    assert result.evaluations > 0 and set(result.timings) == {"objective", "maximize"}
