"""vekutils.solve against scipy.sparse.linalg.spsolve and against the C
entry (vek-solve), on the shared matrices and on small made-up ones."""
import re
import subprocess

import numpy as np
import pytest
import scipy.sparse as sp
import scipy.sparse.linalg as sla

import vekutils
from conftest import matrix_path, read_matrix

# A matrix or two of every kind the module chooses (the C suite solves the
# whole collection): (file, type it must choose, bound on the backward
# error). The solver aims at 64 units of rounding
# (7e-15) and refines towards it; mhd1280b as a Hermitian indefinite matrix
# gets perturbed pivots, and its refinement stops near 4e-14 (solved as
# positive definite it reaches 1e-16, below).
SHARED = [
    ("bcsstk01.mtx", -2, 1e-14),     # real symmetric positive definite
    ("hangGlider_2.mtx", -2, 1e-14),   # real symmetric indefinite
    ("west0479.mtx", 11, 1e-14),     # real unsymmetric, zero diagonals
    ("impcol_a.mtx", 11, 1e-14),
    ("young1c.mtx", 13, 1e-14),      # complex unsymmetric
    ("mhd1280b.mtx", -4, 1e-13),     # complex Hermitian
]

# The limit of the solver's own accuracy check: sqrt of the rounding unit.
SQRT_EPS = np.sqrt(np.finfo(float).eps / 2)


def relative_difference(x, y):
    return np.abs(x - y).max() / np.abs(y).max()


@pytest.mark.parametrize("name,mtype,bound", SHARED)
def test_agrees_with_scipy_on_shared_matrices(name, mtype, bound):
    A = read_matrix(name)
    assert vekutils.matrix_type(A) == mtype
    n = A.shape[0]
    rng = np.random.default_rng(7)
    xref = rng.standard_normal(n)
    if mtype in (13, -4):
        xref = xref + 1j * rng.standard_normal(n)
    b = A @ xref
    x = vekutils.solve(A, b)
    y = sla.spsolve(A.tocsc(), b)
    ours = vekutils.backward_error(A, x, b)
    theirs = vekutils.backward_error(A, y, b)
    assert ours <= max(10 * theirs, bound), (ours, theirs)
    # The two solutions agree as far as the matrix's condition lets them:
    # each is the exact solution of a system perturbed by its backward error.
    cond = np.linalg.cond(A.toarray())
    assert relative_difference(x, y) <= 10 * cond * (ours + theirs) + 1e-14


def test_hermitian_positive_definite_on_request():
    A = read_matrix("mhd1280b.mtx")
    n = A.shape[0]
    b = A @ (np.ones(n) + 1j * np.arange(n) / n)
    with vekutils.Solver(A, positive_definite=True) as s:
        x = s.solve(b)
        assert s.mtype == 4
        assert s.iparam["perturbed_pivots"] == 0
    assert vekutils.backward_error(A, x, b) < 1e-15
    y = sla.spsolve(A.tocsc(), b)
    assert relative_difference(x, y) < 1e-9


@pytest.mark.parametrize("name", ["bcsstk01.mtx", "GD97_b.mtx", "west0479.mtx",
                                  "young1c.mtx", "mhd1280b.mtx", "bcsstk13.mtx"])
def test_same_backward_error_as_the_c_entry(name, vek_solve):
    # vek-solve solves A x = A * ones through telmira with the type from the
    # file's header, which is the module's choice for these files.
    out = subprocess.run([vek_solve, matrix_path(name)], capture_output=True, text=True)
    assert out.returncode == 0, out.stdout + out.stderr
    c_residual = float(re.search(r"^residual: (\S+)", out.stdout, re.M).group(1))
    A = read_matrix(name)
    b = A @ np.ones(A.shape[0])
    x = vekutils.solve(A, b)
    py_residual = vekutils.backward_error(A, x, b)
    floor = 1e-16
    assert py_residual <= 4 * max(c_residual, floor), (py_residual, c_residual)
    assert c_residual <= 4 * max(py_residual, floor), (py_residual, c_residual)


def test_many_right_hand_sides_real_and_complex():
    A = read_matrix("west0479.mtx")
    n = A.shape[0]
    rng = np.random.default_rng(1)
    X = rng.standard_normal((n, 3))
    B = A @ X
    x = vekutils.solve(A, B)
    assert x.shape == (n, 3)
    assert vekutils.backward_error(A, x, B) < 1e-14
    # Complex sides for a real matrix: real and imaginary parts together.
    Z = X + 1j * rng.standard_normal((n, 3))
    z = vekutils.solve(A, A @ Z)
    assert np.iscomplexobj(z)
    assert vekutils.backward_error(A, z, A @ Z) < 1e-14
    # One column of a block and a 1-D vector give the same solution.
    x1 = vekutils.solve(A, B[:, 1])
    assert x1.shape == (n,)
    # (the matrix's condition is about 3e11: the two solutions agree to the
    # digits it leaves)
    assert relative_difference(x1, x[:, 1]) < 1e-9


def test_real_sides_for_a_complex_matrix():
    A = read_matrix("w156.mtx")
    b = np.arange(A.shape[0], dtype=float)
    x = vekutils.solve(A, b)
    assert x.dtype == np.complex128
    assert vekutils.backward_error(A, x, b) < 1e-13


def test_complex_symmetric_and_positive_definite_choices():
    n = 30
    T = sp.diags([-1.0, 4.0, -1.0], [-1, 0, 1], shape=(n, n), format="csr")
    assert vekutils.matrix_type(T) == -2
    assert vekutils.matrix_type(T, positive_definite=True) == 2
    C = (T + 0.5j * sp.identity(n)).tocsr()        # complex symmetric, not Hermitian
    assert vekutils.matrix_type(C) == 6
    H = (T + 1j * (sp.eye(n, k=1) - sp.eye(n, k=-1))).tocsr()  # Hermitian
    assert vekutils.matrix_type(H) == -4
    assert vekutils.matrix_type(H, positive_definite=True) == 4
    G = (T + sp.eye(n, k=2)).tocsr()
    assert vekutils.matrix_type(G) == 11
    with pytest.raises(ValueError):
        vekutils.matrix_type(G, positive_definite=True)
    b = np.ones(n)
    for M, pd in ((T, True), (C, False), (H, True), (H, False), (G, False)):
        x = vekutils.solve(M, b, positive_definite=pd)
        assert np.allclose(M @ x, b, atol=1e-13), (vekutils.matrix_type(M, pd))
        assert np.allclose(x, sla.spsolve(M.tocsc(), b.astype(M.dtype)), atol=1e-12)


def test_only_one_triangle_reaches_the_solver():
    # The lower triangle of a symmetric matrix does not count: a matrix that
    # is symmetric in its values but stored as one triangle is not symmetric
    # to scipy; the module sees the full matrix and chooses the general type.
    n = 20
    T = sp.diags([-1.0, 3.0, -1.0], [-1, 0, 1], shape=(n, n), format="csr")
    U = sp.triu(T, format="csr")
    assert vekutils.matrix_type(U) == 11
    x = vekutils.solve(T, np.ones(n))
    assert np.allclose(T @ x, np.ones(n), atol=1e-13)


def test_matrices_with_as_many_entries_as_rows():
    n = 6
    # A diagonal matrix goes the diagonal shortcut.
    D = sp.diags(np.arange(1.0, n + 1), format="csr")
    with vekutils.Solver(D) as s:
        x = s.solve(np.ones(n))
        assert s.diagonal
        assert s.iparam["transposed"] == -1
    assert np.allclose(x, 1.0 / np.arange(1.0, n + 1), rtol=1e-15)
    # A permutation matrix has as many entries as rows too; it must not be
    # taken for a diagonal one.
    P = sp.csr_matrix((np.arange(1.0, n + 1), (np.arange(n), (np.arange(n) + 1) % n)), shape=(n, n))
    with vekutils.Solver(P) as s:
        b = np.arange(n, dtype=float) + 1
        x = s.solve(b)
        assert not s.diagonal
    assert np.allclose(P @ x, b, atol=1e-14)


def test_single_precision():
    A = read_matrix("494_bus.mtx")
    b = A @ np.ones(A.shape[0])
    with vekutils.Solver(A, single=True) as s:
        x = s.solve(b)
        assert x.dtype == np.float32
        assert s.iparam["single_precision"] == 1
    assert vekutils.backward_error(A, x.astype(float), b) < 1e-5


def test_empty_sides_and_wrong_shapes():
    A = sp.identity(4, format="csr") * 2 + sp.eye(4, k=1)
    assert vekutils.solve(A, np.zeros((4, 0))).shape == (4, 0)
    with pytest.raises(ValueError):
        vekutils.solve(A, np.ones(5))
    with pytest.raises(ValueError):
        vekutils.Solver(sp.csr_matrix(np.ones((3, 4))))
    with pytest.raises(ValueError):
        vekutils.Solver(A, mtype=5)
    with pytest.raises(ValueError):
        vekutils.Solver(A * 1j, mtype=11)
