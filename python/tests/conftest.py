"""Shared pieces of the Python tests: where the shared matrices and the
command-line solver are (set by the test runner; see tests/CMakeLists.txt)."""
import os

import pytest
import scipy.io

MATRICES = os.environ.get(
    "VEK_SHARED_MATRICES",
    os.path.join(os.path.dirname(__file__), "..", "..", "..", "shared", "matrices"))
VEK_SOLVE = os.environ.get("VEK_SOLVE", "")


def matrix_path(name):
    path = os.path.join(MATRICES, name)
    if not os.path.exists(path):
        pytest.skip("shared matrix %s not found in %s" % (name, MATRICES))
    return path


def read_matrix(name):
    return scipy.io.mmread(matrix_path(name)).tocsr()


@pytest.fixture
def vek_solve():
    if not VEK_SOLVE or not os.path.exists(VEK_SOLVE):
        pytest.skip("VEK_SOLVE does not name the vek-solve program")
    return VEK_SOLVE
