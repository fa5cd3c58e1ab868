"""velmor: submodular summarization of data sets, in Python.

Two layers over one engine:

* selectors in the style data people know, ``FacilityLocationSelection``,
  ``SparseFacilityLocationSelection``, ``SoftFacilityLocationSelection`` and
  ``FacilityLocationDispersionSelection``: ``fit(X)``, then ``ranking_``,
  ``gains_`` and ``value_``;
* the engine's own objects: set functions (``FacilityLocation``,
  ``SparseFacilityLocation``, ``Dispersion``, ``Modular``, ``Mixture``,
  ``ConditionalMutualInformation``, ``Contraction``), constraints
  (``Cardinality``, ``PartitionMatroid``, ``IntersectionOfMatroids``) and
  ``maximize``.

C-contiguous float32 and float64 arrays (np.memmap of a .npy file included)
are read in place, never copied; anything else is copied once, with a
UserWarning. Long runs release the GIL and stop on Ctrl-C.
"""

from ._velmor import (
    Cardinality,
    ConditionalMutualInformation,
    Constraint,
    Contraction,
    Dispersion,
    Error,
    FacilityLocation,
    FacilityLocationFromFeatures,
    Function,
    InputAndOrParameterDataError,
    InputDataError,
    IntersectionOfMatroids,
    Mixture,
    Modular,
    PartitionMatroid,
    Result,
    SparseFacilityLocationFromFeatures,
    maximize as _maximize,
)
from ._sparse import SparseDispersion, SparseFacilityLocation
from ._progress import progress_reporter
from .selectors import (
    FacilityLocationDispersionSelection,
    FacilityLocationSelection,
    SoftFacilityLocationSelection,
    SparseFacilityLocationSelection,
)


def maximize(function, constraint=None, *, k=None, algorithm="standard", epsilon=0.1,
             threads=0, random_state=12345, inclusion=None, restriction=None, verbose=False):
    """Greedy maximization of `function` under `constraint` (or at most k elements).

    algorithm: "standard" (runs to the limit whatever the gains), "accelerated",
    "stochastic" (epsilon: the sampling epsilon, in [0, 1)) or "threshold"
    (epsilon: the rate of fall, in (0, 1)); these three stop at the first
    negative gain. threads > 0 runs the algorithm on that many blocks of the
    candidates (the multi-threaded greedy, which may choose differently).
    random_state seeds the random draws. inclusion: elements every solution
    starts with (not in the order); restriction: the only candidates.
    verbose: a progress bar (tqdm when installed, a plain line otherwise).

    Returns a Result: order (int32), gains (the function's dtype), value,
    evaluations, algorithm and timings. The GIL is released while it runs;
    Ctrl-C stops it with KeyboardInterrupt.
    """
    if k is not None and constraint is None:
        total = k
    elif constraint is not None and k is None:
        total = constraint.size_limit
    else:
        total = None
    with progress_reporter(verbose, total) as progress:
        result = _maximize(function, constraint, k=k, algorithm=algorithm, epsilon=epsilon,
                           threads=threads, random_state=random_state, inclusion=inclusion,
                           restriction=restriction, progress=progress)
        if progress is not None:
            progress(len(result.order))
        return result


__all__ = [
    "Cardinality", "ConditionalMutualInformation", "Constraint", "Contraction", "Dispersion",
    "Error", "FacilityLocation", "FacilityLocationDispersionSelection",
    "FacilityLocationFromFeatures", "FacilityLocationSelection", "Function",
    "InputAndOrParameterDataError", "InputDataError", "IntersectionOfMatroids", "Mixture",
    "Modular", "PartitionMatroid", "Result", "SoftFacilityLocationSelection",
    "SparseDispersion", "SparseFacilityLocation", "SparseFacilityLocationFromFeatures",
    "SparseFacilityLocationSelection", "maximize",
]
