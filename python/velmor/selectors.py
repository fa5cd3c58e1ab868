"""Selectors: fit(X) chooses n_samples representative rows of X.

Each selector builds one set function from X (a precomputed similarity, or
features whose similarity the engine builds), maximizes it greedily and keeps

* ranking_: the chosen rows in the order of choice (int32),
* gains_: each row's gain when chosen (the similarity's dtype),
* value_: the function's value on the chosen set,
* result_: the engine's Result (evaluations, timings).
"""

import numpy as np

from . import _velmor
from ._sparse import SparseFacilityLocation

_METRICS = ("precomputed", "euclidean", "cosine", "rbf", "dot")


class _Selection:
    """What every selector shares: the parameters, fit's run and transform."""

    def __init__(self, n_samples, metric="precomputed", algorithm="standard", epsilon=0.1,
                 threads=0, random_state=12345, verbose=False, gamma=None):
        self.n_samples = n_samples
        self.metric = metric
        self.algorithm = algorithm
        self.epsilon = epsilon
        self.threads = threads
        self.random_state = random_state
        self.verbose = verbose
        self.gamma = gamma

    def _check(self):
        if self.metric not in _METRICS:
            raise ValueError(f"metric must be one of {', '.join(_METRICS)}, not {self.metric!r}")
        if isinstance(self.n_samples, bool) or not isinstance(self.n_samples, (int, np.integer)):
            raise ValueError(f"n_samples must be an integer, not {self.n_samples!r}")
        if self.n_samples < 0:
            raise ValueError(f"n_samples must be >= 0, not {self.n_samples}")
        if isinstance(self.threads, bool) or not isinstance(self.threads, (int, np.integer)) \
                or self.threads < 0:
            raise ValueError(f"threads must be an integer >= 0, not {self.threads!r}")

    def _function(self, X):
        raise NotImplementedError

    def fit(self, X, y=None):
        """Chooses n_samples rows of X; returns self."""
        from . import maximize

        self._check()
        function = self._function(X)
        result = maximize(function, k=self.n_samples, algorithm=self.algorithm,
                          epsilon=self.epsilon, random_state=self.random_state,
                          verbose=self.verbose)
        self.function_ = function
        self.result_ = result
        self.ranking_ = result.order
        self.gains_ = result.gains
        self.value_ = result.value
        return self

    def transform(self, X):
        """The chosen rows of X, in the order of choice."""
        if not hasattr(self, "ranking_"):
            raise ValueError("this selector is not fitted yet: call fit first")
        return X[self.ranking_]

    def fit_transform(self, X, y=None):
        """fit(X), then transform(X)."""
        return self.fit(X, y).transform(X)


class FacilityLocationSelection(_Selection):
    """Facility location: representatives that together are similar to every row.

    FacilityLocationSelection(n_samples, metric="precomputed"|"euclidean"|"cosine"|"rbf"|"dot",
    algorithm="standard"|"accelerated"|"stochastic"|"threshold", epsilon=0.1, threads=0,
    random_state=12345, verbose=False, gamma=None)

    metric="precomputed": X is an n x k similarity (row v: item v's similarity to k
    landmarks), read in place when C-contiguous float32/float64. Otherwise X holds
    features and the engine builds the n x n similarity on `threads` threads (0: all
    cores); gamma is the RBF's (None: 1 / the median squared distance).
    """

    def _function(self, X):
        if self.metric == "precomputed":
            return _velmor.FacilityLocation(X)
        return _velmor.FacilityLocationFromFeatures(X, self.metric, self.gamma, self.threads)


class SoftFacilityLocationSelection(_Selection):
    """Soft facility location (a smooth maximum of similarities, softness > 0); otherwise
    as FacilityLocationSelection."""

    def __init__(self, n_samples, softness=1.0, **parameters):
        super().__init__(n_samples, **parameters)
        self.softness = softness

    def _function(self, X):
        if not self.softness > 0:
            raise ValueError(f"softness must be > 0, not {self.softness!r}")
        if self.metric == "precomputed":
            return _velmor.FacilityLocation(X, softness=self.softness)
        return _velmor.FacilityLocationFromFeatures(X, self.metric, self.gamma, self.threads,
                                                    softness=self.softness)


class SparseFacilityLocationSelection(_Selection):
    """Facility location over a sparse similarity.

    X is a scipy.sparse matrix (CSR, CSC, COO, ...) of similarities, rows the items;
    or, with n_neighbors, features whose n_neighbors nearest similarities per row the
    engine computes (metric as in FacilityLocationSelection; the n x n matrix is
    never held).
    """

    def __init__(self, n_samples, n_neighbors=None, metric="rbf", **parameters):
        super().__init__(n_samples, metric=metric, **parameters)
        self.n_neighbors = n_neighbors

    def _function(self, X):
        import scipy.sparse

        if scipy.sparse.issparse(X):
            return SparseFacilityLocation(X)
        if self.n_neighbors is None:
            raise ValueError("X is not a scipy.sparse matrix: give n_neighbors to build one "
                             "from features")
        if self.metric == "precomputed":
            raise ValueError("n_neighbors builds the similarity from features: choose a metric "
                             "other than \"precomputed\"")
        return _velmor.SparseFacilityLocationFromFeatures(X, self.n_neighbors, self.metric,
                                                          self.gamma, self.threads)


class FacilityLocationDispersionSelection(_Selection):
    """facility_weight * facility location + dispersion_weight * sum-sum dispersion.

    Both parts are normalized (f(V) = 1) and read the same similarity matrix (given, or
    built from features as in FacilityLocationSelection), unless fit gets a separate
    non-negative square `dispersion` matrix.
    """

    def __init__(self, n_samples, facility_weight=1.0, dispersion_weight=0.1, **parameters):
        super().__init__(n_samples, **parameters)
        self.facility_weight = facility_weight
        self.dispersion_weight = dispersion_weight

    def fit(self, X, y=None, dispersion=None):
        self._dispersion = dispersion
        try:
            return super().fit(X, y)
        finally:
            self._dispersion = None

    def _function(self, X):
        if self.metric == "precomputed":
            similarity = X
            facility = _velmor.FacilityLocation(X)
        else:
            similarity = None
            facility = _velmor.FacilityLocationFromFeatures(X, self.metric, self.gamma,
                                                            self.threads)
        matrix = self._dispersion if self._dispersion is not None else similarity
        if matrix is None:
            raise ValueError("with features, give the dispersion matrix to fit(X, "
                             "dispersion=...)")
        return _velmor.Mixture([facility, _velmor.Dispersion(matrix)],
                               [self.facility_weight, self.dispersion_weight])
