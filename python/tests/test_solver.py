"""vekutils.Solver: the phases, the control array by name, the defaults,
errors as exceptions, new values over one analysis, and the host's BLAS
thread setting."""
import ctypes
import ctypes.util

import numpy as np
import pytest
import scipy.sparse as sp

import vekutils
from vekutils import _core
from conftest import read_matrix


def laplacian(n, shift=0.0):
    T = sp.diags([-1.0, 2.0 - shift, -1.0], [-1, 0, 1], shape=(n, n))
    I = sp.identity(n)
    return (sp.kron(T, I) + sp.kron(I, T)).tocsr()


def test_phases_and_their_figures():
    A = read_matrix("GD97_b.mtx")
    n = A.shape[0]
    s = vekutils.Solver(A)
    assert s.mtype == -2
    assert s.inertia is None
    s.analyze()
    assert s.iparam["factor_entries"] > 0
    assert s.iparam["peak_analysis_kb"] > 0
    s.factorize()
    pos, neg = s.inertia
    assert pos + neg == n
    # The inertia of the factor is the matrix's when no pivot was perturbed;
    # this matrix has three eigenvalues near zero, so compare the definite
    # ones only.
    ev = np.linalg.eigvalsh(A.toarray())
    assert pos >= np.sum(ev > 1e-8) and neg >= np.sum(ev < -1e-8)
    b = A @ np.ones(n)
    x = s.solve(b)
    assert vekutils.backward_error(A, x, b) < 1e-14
    assert s.iparam["perturbed_pivots"] == s.iparam[14]
    assert s.iparam["version"] == 110
    s.release()
    s.release()  # a second release has nothing to do


def test_iparam_by_name_and_number():
    A = laplacian(12)
    s = vekutils.Solver(A)
    assert s.iparam["ordering"] == 2 == s.iparam[2]
    s.iparam["ordering"] = 0           # minimum degree
    assert s.iparam[2] == 0
    s.iparam[8] = 3                    # three refinement steps wanted
    assert s.iparam["refinement_steps"] == 3
    b = A @ np.ones(A.shape[0])
    x = s.solve(b)
    # The values set stand at the analysis: iparam(1) = 1 keeps them.
    assert s.iparam["ordering"] == 0
    assert 1 <= s.iparam["refinement_steps_done"] <= 3
    assert np.allclose(x, 1.0)
    with pytest.raises(KeyError):
        s.iparam["no such entry"]
    with pytest.raises(KeyError):
        s.iparam[65]
    with pytest.raises(KeyError):
        s.iparam["perturbed_pivots"] = 1   # written by the solver
    with pytest.raises(KeyError):
        s.iparam["solution_over_b"] = 1    # managed by the Solver
    names = dict(s.iparam.items())
    assert set(names) == set(vekutils.IPARAM)


@pytest.mark.parametrize("mtype", [1, 2, -2, 3, 4, -4, 6, 11, 13])
def test_defaults_are_those_of_the_solver(mtype):
    # An analysis with iparam(1) = 0 writes the solver's defaults of the type;
    # the module's table must give the same values.
    A = laplacian(5) + (0.1 * sp.eye(25, k=1) if mtype in (1, 3, 11, 13) else 0)
    A = A + A.T if mtype in (1, 3) else A
    cplx = mtype not in (1, 2, -2, 11)
    triangle = mtype in (2, -2, 4, -4, 6)
    M = sp.triu(A, format="csr") if triangle else sp.csr_matrix(A)
    M.sort_indices()
    dtype = np.complex128 if cplx else np.float64
    ia = (M.indptr + 1).astype(np.int32)
    ja = (M.indices + 1).astype(np.int32)
    a = M.data.astype(dtype)
    ip = np.full(64, -99, dtype=np.int32)
    ip[0] = 0
    ip[26] = 0
    ip[27] = 0
    h = _core.Handle()
    z = np.zeros(25, dtype=dtype)
    perm = np.zeros(25, dtype=np.int32)
    assert h.call(1, 1, mtype, 11, 25, a, ia, ja, perm, 1, ip, 0, z, z.copy()) == 0
    h.release()
    ours = vekutils.defaults(mtype)
    for name, (k, direction) in vekutils.IPARAM.items():
        if k in (2, 4, 5, 6, 8, 9, 10, 11, 12, 13, 21, 60):
            assert ip[k - 1] == ours[k - 1], (name, ip[k - 1], ours[k - 1])


def test_errors_carry_number_words_and_status():
    # Not positive definite, given as type 2: error -4, the status names a column.
    A = laplacian(6, shift=1.5)
    with pytest.raises(vekutils.SolverError) as info:
        vekutils.solve(A, np.ones(36), positive_definite=True)
    e = info.value
    assert e.error == -4 and e.ido == 22
    assert e.words == vekutils.error_words(-4)
    assert 1 <= e.status <= 36
    assert "not positive definite" in str(e)
    # A matching mode that real types do not know: -6.
    G = (laplacian(4) + 0.5 * sp.eye(16, k=1)).tocsr()
    s = vekutils.Solver(G)
    s.iparam["matching"] = 2
    with pytest.raises(vekutils.SolverError) as info:
        s.analyze()
    assert info.value.error == -6 and info.value.ido == 11
    assert "matching" in str(info.value)
    # Type 1 on an unsymmetric pattern: -3 with status -31.
    U = sp.csr_matrix(np.array([[4.0, 1.0, 0.0], [0.0, 4.0, 1.0], [1.0, 0.0, 4.0]]))
    with pytest.raises(vekutils.SolverError) as info:
        vekutils.Solver(U, mtype=1).analyze()
    assert (info.value.error, info.value.status) == (-3, -31)
    # NaN in the values: -4 with status -120.
    N = laplacian(4).tolil()
    N[2, 2] = np.nan
    with pytest.raises(vekutils.SolverError) as info:
        vekutils.solve(N.tocsr(), np.ones(16))
    assert (info.value.error, info.value.status) == (-4, -120)
    assert isinstance(info.value, RuntimeError)


def test_untouched_controls_get_the_second_tries():
    # nnc1374 fails with the defaults' first factorization; a Solver whose
    # controls nobody set runs under iparam(1) = 0 and tries again.
    A = read_matrix("nnc1374.mtx")
    b = A @ np.ones(A.shape[0])
    s = vekutils.Solver(A)
    s.analyze()
    s.factorize()
    x = s.solve(b)
    assert vekutils.backward_error(A, x, b) <= 1e-14
    assert s.iparam["control"] == 0 and s.iparam["matching"] == 0
    # A control set to another value: the array as it stands, the first result.
    s = vekutils.Solver(A)
    s.iparam["refinement_steps"] = 2
    with pytest.raises(vekutils.SolverError) as info:
        s.analyze().factorize().solve(b)
    assert (info.value.error, info.value.status) == (-4, -122)
    assert s.iparam["control"] == 1


def test_new_values_over_one_analysis():
    A = laplacian(10)
    b = np.ones(A.shape[0])
    with vekutils.Solver(A, positive_definite=True) as s:
        s.analyze()
        x1 = s.solve(b)
        s.factorize(2 * A)
        x2 = s.solve(b)
        assert np.allclose(x2, x1 / 2, rtol=1e-12)
        with pytest.raises(ValueError):
            s.factorize(A + sp.eye(100, k=3))


def test_matrix_check_on_request():
    A = laplacian(5)
    with vekutils.Solver(A, check_matrix=True) as s:
        assert s.iparam["check_matrix"] == 1
        s.analyze()
        assert s.iparam["check_matrix"] == 0   # a passed check clears it


def test_buffer_calls():
    bytes_held, blocks = vekutils.buffer_stat()
    assert blocks == -1 or bytes_held >= 0
    vekutils.free_buffers()
    assert vekutils.buffer_stat()[0] == 0


def test_version():
    assert vekutils.__version__ == vekutils.library_version()
    assert vekutils.__version__.count(".") == 2


def openblas():
    for name in ("libopenblas.so.0", ctypes.util.find_library("openblas")):
        if name:
            try:
                lib = ctypes.CDLL(name)
                lib.openblas_get_num_threads
                return lib
            except (OSError, AttributeError):
                pass
    pytest.skip("no OpenBLAS with a thread control")


def test_blas_thread_setting_survives_a_solve():
    lib = openblas()
    A = read_matrix("bcsstk13.mtx")
    b = A @ np.ones(A.shape[0])
    for threads in (3, 1, 2):
        lib.openblas_set_num_threads(threads)
        x = vekutils.solve(A, b)
        assert lib.openblas_get_num_threads() == threads
    assert vekutils.backward_error(A, x, b) < 1e-14
