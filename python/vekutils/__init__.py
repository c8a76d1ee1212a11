"""vekutils: the libvekutils sparse direct solver for SciPy matrices.

    import vekutils
    x = vekutils.solve(A, b)            # A: scipy.sparse, b: (n,) or (n, k)

    s = vekutils.Solver(A)              # the matrix type is chosen from A
    s.iparam["refinement_steps"] = 2    # control entries by name
    s.analyze(); s.factorize()
    x = s.solve(b)
    print(s.iparam["perturbed_pivots"], s.inertia)

The matrix type follows from A: real symmetric -2, or 2 with
positive_definite=True; complex Hermitian -4, or 4 with
positive_definite=True; complex symmetric 6; otherwise 11 (real) or 13
(complex). Give mtype= to choose another. Failures raise SolverError, which
carries the error number, its words and the status of iparam(30).
"""

import os
import sys

import numpy as np
import scipy.sparse as sp


def _load_core():
    # The library finds the thread control of the installed BLAS by name
    # among the process's global symbols, as in a C program. Python loads
    # extensions with local symbols, which would hide it: the extension and
    # the libraries it brings in are loaded with global symbols instead.
    flags = sys.getdlopenflags()
    try:
        sys.setdlopenflags(flags | getattr(os, "RTLD_GLOBAL", 0))
        from . import _core as core
    finally:
        sys.setdlopenflags(flags)
    return core


_core = _load_core()

__all__ = [
    "solve", "Solver", "SolverError", "matrix_type", "backward_error",
    "IPARAM", "defaults", "error_words", "status_words", "free_buffers",
    "buffer_stat", "__version__", "library_version",
]

__version__ = _core.HEADER_VERSION
library_version = _core.library_version
error_words = _core.error_words
status_words = _core.status_words
free_buffers = _core.free_buffers
buffer_stat = _core.buffer_stat

# The control array: name -> (entry, numbered from 1; direction). "in" entries
# are read by the solver and may be set; "out" entries are written by it.
IPARAM = {
    "control": (1, "in"),
    "ordering": (2, "in"),
    "threads": (3, "out"),
    "iteration": (4, "in"),
    "permutation": (5, "in"),
    "solution_over_b": (6, "in"),
    "refinement_steps_done": (7, "out"),
    "refinement_steps": (8, "in"),
    "memory_sum": (9, "in"),
    "perturbation": (10, "in"),
    "scaling": (11, "in"),
    "transposed": (12, "in"),
    "matching": (13, "in"),
    "perturbed_pivots": (14, "out"),
    "peak_analysis_kb": (15, "out"),
    "permanent_kb": (16, "out"),
    "numeric_kb": (17, "out"),
    "factor_entries": (18, "out"),
    "mflop": (19, "out"),
    "iteration_status": (20, "out"),
    "pivoting": (21, "in"),
    "positive_eigenvalues": (22, "out"),
    "negative_eigenvalues": (23, "out"),
    "no_refinement": (26, "in"),
    "check_matrix": (27, "in"),
    "single_precision": (28, "in"),
    "status": (30, "out"),
    "check_place_1": (31, "out"),
    "check_place_2": (32, "out"),
    "check_place_3": (33, "out"),
    "phase_status": (50, "out"),
    "ooc_algorithm": (57, "out"),
    "out_of_core": (60, "in"),
    "forecast_total_mb": (61, "out"),
    "forecast_integer_mb": (62, "out"),
    "forecast_factor_mb": (63, "out"),
    "version": (64, "out"),
}

# Entries that the Solver manages itself: its arrays depend on them.
_MANAGED = {
    "control": "the Solver chooses iparam(1) itself: 0 while the controls are the "
               "type's defaults (with the solver's second tries), 1 otherwise",
    "permutation": "a Solver computes its own order; read it from Solver.perm",
    "solution_over_b": "a Solver always returns the solution as a new array",
    "single_precision": "choose the precision with Solver(A, single=True)",
}

_REAL_TYPES = (1, 2, -2, 11)
_TRIANGLE_TYPES = (2, -2, 4, -4, 6)
_ALL_TYPES = (1, 2, -2, 3, 4, -4, 6, 11, 13)


def defaults(mtype):
    """The control array that iparam(1) = 0 gives at an analysis of type mtype,
    with iparam(1) = 1 so that the solver takes it as it stands."""
    ip = np.zeros(_core.IPARAM_WORDS, dtype=np.int32)
    ip[0] = 1
    ip[1] = 2       # nested dissection
    ip[17] = -1     # factor entries: computed
    ip[18] = -1     # operation count: computed
    if mtype in (1, 3):
        ip[9] = 13
    elif mtype in (11, 13):
        ip[9], ip[10], ip[12] = 13, 1, 1
    elif mtype in (-4, -2, 6):
        ip[9], ip[20] = 8, 1
    return ip


class SolverError(RuntimeError):
    """A call of the solver failed.

    error   the solver's error number (negative)
    words   its words
    status  iparam(30) after errors -3 and -4 (0 otherwise)
    ido     the phase of the failed call
    """

    def __init__(self, error, status=0, ido=None):
        self.error = int(error)
        self.status = int(status)
        self.ido = ido
        self.words = _core.error_words(self.error)
        message = "error %d (%s)" % (self.error, self.words)
        if ido is not None:
            message = "ido %d: " % ido + message
        if self.error in (-3, -4):
            detail = _core.status_words(self.error, self.status)
            message += "; iparam(30) = %d" % self.status
            if detail:
                message += " (%s)" % detail
        super().__init__(message)


def _is_complex(A):
    return np.iscomplexobj(A.data) if sp.issparse(A) else np.iscomplexobj(A)


def _same(A, B):
    """A and B hold the same values (exactly), as sparse matrices."""
    D = (A - B).tocsr()
    D.eliminate_zeros()
    return D.nnz == 0


def matrix_type(A, positive_definite=False):
    """The solver's matrix type for the square sparse matrix A: -2 (2 when
    positive_definite) for a real symmetric one, -4 (4) for a complex
    Hermitian one, 6 for a complex symmetric one, 11 or 13 otherwise."""
    A = sp.csr_matrix(A)
    if _is_complex(A):
        if _same(A, A.conj().T):
            return 4 if positive_definite else -4
        if positive_definite:
            raise ValueError("positive_definite needs a Hermitian matrix")
        return 6 if _same(A, A.T) else 13
    if _same(A, A.T):
        return 2 if positive_definite else -2
    if positive_definite:
        raise ValueError("positive_definite needs a symmetric matrix")
    return 11


def backward_error(A, x, b):
    """The normwise backward error ||b - A x|| / (||A|| ||x|| + ||b||) in
    infinity norms, the largest over the columns of x and b."""
    A = sp.csr_matrix(A)
    x = np.asarray(x)
    b = np.asarray(b)
    if x.ndim == 1:
        x = x[:, None]
        b = b[:, None]
    norm_a = abs(A).sum(axis=1).max() if A.nnz else 0.0
    worst = 0.0
    for j in range(x.shape[1]):
        r = b[:, j] - A @ x[:, j]
        den = norm_a * np.abs(x[:, j]).max(initial=0.0) + np.abs(b[:, j]).max(initial=0.0)
        value = np.abs(r).max(initial=0.0) / den if den > 0 else 0.0
        worst = max(worst, float(value))
    return worst


def _storage(A, mtype, dtype):
    """The arrays (ia, ja, a) that telmira takes for A as type mtype: one-based
    compressed rows, columns rising in a row; the upper triangle for the
    types that store one, each row beginning with its diagonal entry (an
    explicit zero where A has none)."""
    A = sp.csr_matrix(A, copy=True)
    A.sum_duplicates()
    A.sort_indices()
    n = A.shape[0]
    coo = A.tocoo()
    r, c, v = coo.row.astype(np.int64), coo.col.astype(np.int64), coo.data
    if mtype in _TRIANGLE_TYPES:
        keep = c >= r
        r, c, v = r[keep], c[keep], v[keep]
        add = np.setdiff1d(np.arange(n), r[r == c])
    else:
        add = np.empty(0, dtype=np.int64)
        if r.size == n and not np.array_equal(r, c):
            # As many entries as rows: the solver would take the matrix for a
            # diagonal one. Explicit zeros on the diagonal keep it whole.
            add = np.setdiff1d(np.arange(n), r[r == c])
    if add.size:
        r = np.concatenate([r, add])
        c = np.concatenate([c, add])
        v = np.concatenate([v, np.zeros(add.size, dtype=v.dtype)])
    order = np.lexsort((c, r))
    r, c, v = r[order], c[order], v[order]
    ia = np.ones(n + 1, dtype=np.int64)
    ia[1:] += np.cumsum(np.bincount(r, minlength=n))
    return (ia.astype(np.int32), (c + 1).astype(np.int32),
            np.ascontiguousarray(v, dtype=dtype))


class _IParam:
    """The control array of a Solver, by name (see vekutils.IPARAM) or by
    entry number from 1: s.iparam["refinement_steps"], s.iparam[8]."""

    def __init__(self, solver):
        self._solver = solver

    def _entry(self, key):
        if isinstance(key, str):
            if key not in IPARAM:
                raise KeyError("no iparam entry named %r" % key)
            return IPARAM[key][0], key
        k = int(key)
        if not 1 <= k <= _core.IPARAM_WORDS:
            raise KeyError("iparam entries are numbered 1 to %d" % _core.IPARAM_WORDS)
        name = next((n for n, (e, _) in IPARAM.items() if e == k), None)
        return k, name

    def __getitem__(self, key):
        k, _ = self._entry(key)
        return int(self._solver._iparam[k - 1])

    def __setitem__(self, key, value):
        k, name = self._entry(key)
        if name in _MANAGED:
            raise KeyError("iparam(%d) (%s): %s" % (k, name, _MANAGED[name]))
        if name is not None and IPARAM[name][1] == "out":
            raise KeyError("iparam(%d) (%s) is written by the solver" % (k, name))
        self._solver._iparam[k - 1] = int(value)
        # A control set by the caller: the solver takes the array as it stands.
        self._solver._iparam[0] = 1

    def __iter__(self):
        return iter(IPARAM)

    def __len__(self):
        return len(IPARAM)

    def items(self):
        return [(n, self[n]) for n in IPARAM]

    def __repr__(self):
        return "{" + ", ".join("%r: %d" % kv for kv in self.items()) + "}"


class Solver:
    """One matrix and its factors.

    Solver(A, positive_definite=False, mtype=None, single=False, msglvl=0,
           check_matrix=False)

    A                  square scipy.sparse matrix (or anything csr_matrix takes)
    positive_definite  choose type 2 (real symmetric) or 4 (Hermitian)
    mtype              a matrix type of the solver, in place of the choice
    single             single precision (float32, complex64)
    msglvl             1 prints the solver's report of each call
    check_matrix       run the solver's matrix check at the analysis

    analyze(), factorize(A=None) and solve(b) run the phases; factorize
    takes new values with the same pattern. release() frees the factors;
    a with-block does so at its end.
    """

    def __init__(self, A, positive_definite=False, mtype=None, single=False, msglvl=0,
                 check_matrix=False):
        A = sp.csr_matrix(A)
        if A.ndim != 2 or A.shape[0] != A.shape[1]:
            raise ValueError("A must be square, not %s" % (A.shape,))
        if A.shape[0] < 1:
            raise ValueError("A must have at least one row")
        self.mtype = matrix_type(A, positive_definite) if mtype is None else int(mtype)
        if self.mtype not in _ALL_TYPES:
            raise ValueError("mtype must be one of %s" % (_ALL_TYPES,))
        self.n = A.shape[0]
        self.single = bool(single)
        self.msglvl = int(msglvl)
        real = self.mtype in _REAL_TYPES
        if real and _is_complex(A):
            raise ValueError("matrix type %d is real; A is complex" % self.mtype)
        if real:
            self.dtype = np.dtype(np.float32 if self.single else np.float64)
        else:
            self.dtype = np.dtype(np.complex64 if self.single else np.complex128)
        self._ia, self._ja, self._a = _storage(A, self.mtype, self.dtype)
        self._iparam = defaults(self.mtype)
        self._iparam[27] = 1 if self.single else 0
        self._iparam[26] = 1 if check_matrix else 0
        self.perm = np.zeros(self.n, dtype=np.int32)
        self._handle = _core.Handle()
        self._analyzed = False
        self._factorized = False
        self.iparam = _IParam(self)

    # -- phases -----------------------------------------------------------

    def _call(self, ido, b=None, x=None, nb=1):
        if b is None:
            b = np.zeros(self.n, dtype=self.dtype)
            x = np.zeros(self.n, dtype=self.dtype)
        error = self._handle.call(1, 1, self.mtype, ido, self.n, self._a, self._ia, self._ja,
                                  self.perm, nb, self._iparam, self.msglvl, b, x)
        if error != 0:
            status = self._iparam[29] if error in (-3, -4) else 0
            raise SolverError(error, status, ido)

    def analyze(self):
        """Ordering and symbolic factorization (ido 11)."""
        if self._iparam[11] == -1:
            self._iparam[11] = 0
        # Controls that nobody set are the type's defaults: passed as
        # iparam(1) = 0 they stay the same values, and a call whose solution
        # the solver cannot vouch for may try again with other settings.
        if self._iparam[0] == 1 and np.array_equal(self._iparam[1:26], defaults(self.mtype)[1:26]) \
                and self._iparam[49] == defaults(self.mtype)[49] \
                and self._iparam[59] == defaults(self.mtype)[59]:
            self._iparam[0] = 0
        self._call(11)
        self._analyzed = True
        self._factorized = False
        return self

    def factorize(self, A=None):
        """Numerical factorization (ido 22), after an analysis (run here when
        none has run). A gives new values with the same pattern."""
        if A is not None:
            ia, ja, a = _storage(A, self.mtype, self.dtype)
            if not (np.array_equal(ia, self._ia) and np.array_equal(ja, self._ja)):
                raise ValueError("the new matrix has another pattern; make a new Solver")
            self._a = a
        if not self._analyzed:
            self.analyze()
        self._factorized = False
        self._call(22)
        self._factorized = True
        return self

    def solve(self, b):
        """Solution of A x = b (ido 33) for b of shape (n,) or (n, k), real or
        complex; the factors come first when there are none. Refinement
        and the accuracy check run as the control array says."""
        b = np.asarray(b)
        if b.ndim not in (1, 2) or b.shape[0] != self.n:
            raise ValueError("b must have shape (%d,) or (%d, k), not %s"
                             % (self.n, self.n, b.shape))
        if not self._factorized:
            self.factorize()
        one = b.ndim == 1
        B = b[:, None] if one else b
        if B.shape[1] == 0:
            return np.zeros(b.shape, dtype=self.dtype)
        real_matrix = self.dtype.kind == "f"
        if real_matrix and np.iscomplexobj(B):
            # A real matrix: the real and imaginary parts are two sides each.
            k = B.shape[1]
            X = self._solve_sides(np.concatenate([B.real, B.imag], axis=1))
            X = X[:, :k] + 1j * X[:, k:]
        else:
            X = self._solve_sides(B)
        return X[:, 0] if one else X

    def _solve_sides(self, B):
        nb = B.shape[1]
        # Side after side: the transpose of an (n, nb) array, C-contiguous.
        bt = np.ascontiguousarray(B.T, dtype=self.dtype)
        xt = np.zeros_like(bt)
        self._call(33, bt, xt, nb)
        return xt.T.copy()

    def release(self):
        """Frees all the solver holds for this matrix."""
        error = self._handle.release()
        self._analyzed = self._factorized = False
        if error != 0:
            raise SolverError(error, 0, -1)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.release()
        return False

    # -- results ----------------------------------------------------------

    @property
    def inertia(self):
        """(positive, negative) eigenvalue counts of a real symmetric
        indefinite factorization (type -2), else None."""
        if self.mtype != -2 or not self._factorized:
            return None
        return (self.iparam["positive_eigenvalues"], self.iparam["negative_eigenvalues"])

    @property
    def diagonal(self):
        """True when the matrix went the diagonal shortcut (iparam(12) = -1)."""
        return int(self._iparam[11]) == -1


def solve(A, b, positive_definite=False, **options):
    """Solves A x = b for a square scipy.sparse A and b of shape (n,) or
    (n, k), real or complex; other keywords go to Solver."""
    with Solver(A, positive_definite=positive_definite, **options) as s:
        return s.solve(b)
