"""scipy.sparse matrices handed to the engine in canonical CSR form."""

from ._velmor import _sparse_facility_location


def _canonical_csr(matrix):
    """The matrix as CSR with sorted, unique indices, without touching the caller's object."""
    try:
        import scipy.sparse
    except ImportError as error:  # pragma: no cover - scipy is a dependency of sparse input
        raise ValueError("sparse input needs scipy") from error
    if not scipy.sparse.issparse(matrix):
        raise ValueError(f"expected a scipy.sparse matrix, not {type(matrix).__name__}")
    csr = matrix.tocsr()
    if not csr.has_canonical_format:
        csr = csr.copy() if csr is matrix else csr
        csr.sum_duplicates()
    return csr


def SparseFacilityLocation(matrix, softness=0.0, normalize=True):
    """Sparse facility location over a scipy.sparse matrix (CSR, CSC, COO, ...) whose row v
    holds item v's similarities; missing entries are 0. The matrix is copied once into the
    engine's form. softness > 0 gives the soft form; normalize scales f so that f(V) = 1."""
    csr = _canonical_csr(matrix)
    return _sparse_facility_location(csr.data, csr.indices, csr.indptr, csr.shape[0],
                                     csr.shape[1], softness, normalize, False)


def SparseDispersion(matrix, normalize=True):
    """Sum-sum dispersion of a square non-negative scipy.sparse matrix (supermodular)."""
    csr = _canonical_csr(matrix)
    return _sparse_facility_location(csr.data, csr.indices, csr.indptr, csr.shape[0],
                                     csr.shape[1], 0.0, normalize, True)
