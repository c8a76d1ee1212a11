"""The command-line solver vek-solve: version, right-hand sides and
solutions in files, the summary, the exit codes and the progress line."""
import os
import pty
import re
import subprocess

import numpy as np
import pytest
import scipy.io

import vekutils
from conftest import matrix_path, read_matrix


def run(vek_solve, *args):
    return subprocess.run([vek_solve, *args], capture_output=True, text=True, timeout=300)


def field(out, name):
    m = re.search(r"^%s\s*: (.*)$" % re.escape(name), out, re.M)
    assert m, "no line '%s' in:\n%s" % (name, out)
    return m.group(1)


def test_version_is_the_librarys(vek_solve):
    out = run(vek_solve, "--version")
    assert out.returncode == 0
    assert out.stdout == "vek-solve (libvekutils) %s\n" % vekutils.library_version()


def test_help_tells_the_exit_codes(vek_solve):
    out = run(vek_solve, "--help")
    assert out.returncode == 0
    for words in ("--rhs FILE", "--out FILE", "--threads T", "--version", "1e-8",
                  "3 solved, but the relative residual"):
        assert words in out.stdout, words


def test_rhs_and_out_files_round_trip(vek_solve, tmp_path):
    A = read_matrix("west0479.mtx")
    n = A.shape[0]
    X = np.random.default_rng(3).standard_normal((n, 2))
    B = A @ X
    rhs = tmp_path / "b.mtx"
    sol = tmp_path / "x.mtx"
    scipy.io.mmwrite(str(rhs), B)
    out = run(vek_solve, matrix_path("west0479.mtx"), "--rhs", str(rhs), "--out", str(sol))
    assert out.returncode == 0, out.stdout + out.stderr
    assert field(out.stdout, "rhs") == "2"
    x = scipy.io.mmread(str(sol))
    assert x.shape == (n, 2)
    assert vekutils.backward_error(A, x, B) < 1e-14
    assert np.allclose(x, vekutils.solve(A, B), rtol=0, atol=1e-9 * np.abs(X).max())


def test_complex_right_hand_sides(vek_solve, tmp_path):
    A = read_matrix("young1c.mtx")
    n = A.shape[0]
    b = A @ (np.arange(n) + 1j)
    rhs = tmp_path / "b.mtx"
    sol = tmp_path / "x.mtx"
    scipy.io.mmwrite(str(rhs), b.reshape(n, 1))
    out = run(vek_solve, matrix_path("young1c.mtx"), "--rhs", str(rhs), "--out", str(sol))
    assert out.returncode == 0, out.stdout + out.stderr
    x = scipy.io.mmread(str(sol))[:, 0]
    assert vekutils.backward_error(A, x, b) < 1e-14


def test_summary_of_an_indefinite_matrix(vek_solve):
    out = run(vek_solve, matrix_path("GD97_b.mtx"))
    assert out.returncode == 0, out.stdout
    with vekutils.Solver(read_matrix("GD97_b.mtx")) as s:
        s.factorize()
        pos, neg = s.inertia
        pivots = s.iparam["perturbed_pivots"]
    assert field(out.stdout, "inertia") == "%d positive, %d negative eigenvalues" % (pos, neg)
    assert re.match(r"\d+ entries in L and U, %d perturbed pivots$" % pivots,
                    field(out.stdout, "factor"))
    assert re.match(r"\d+ steps$", field(out.stdout, "refine"))
    assert re.match(r"read [0-9.]+ s, analysis [0-9.]+ s, factorization [0-9.]+ s, solve [0-9.]+ s$",
                    field(out.stdout, "times"))
    assert re.match(r"solver peak \d+ kB .*process peak \d+ kB$", field(out.stdout, "memory"))
    assert field(out.stdout, "error") == "0 (success)"


def test_residual_above_the_limit_warns_and_fails(vek_solve):
    out = run(vek_solve, "--gen", "lap2d:20", "--max-residual", "1e-30")
    assert out.returncode == 3
    assert re.search(r"^warning : the relative residual \S+ is above 1\.0e-30", out.stdout, re.M)
    ok = run(vek_solve, "--gen", "lap2d:20")
    assert ok.returncode == 0 and "warning" not in ok.stdout


def test_solver_errors_in_words(vek_solve):
    out = run(vek_solve, matrix_path("west0067.mtx"), "--mtype", "1")
    assert out.returncode == 1
    assert field(out.stdout, "error") == "-3 (%s)" % vekutils.error_words(-3)
    assert field(out.stdout, "status").startswith("iparam(30) = -31, " + vekutils.status_words(-3, -31)[:20])


def test_bad_rhs_files_are_refused(vek_solve, tmp_path):
    rhs = tmp_path / "b.mtx"
    scipy.io.mmwrite(str(rhs), np.ones((5, 1)))
    out = run(vek_solve, "--gen", "lap2d:3", "--rhs", str(rhs))
    assert out.returncode == 2
    assert "has 5 rows, the matrix 9" in out.stderr
    out = run(vek_solve, "--gen", "lap2d:3", "--rhs", str(tmp_path / "missing.mtx"))
    assert out.returncode == 2 and "cannot open" in out.stderr


def test_threads_option(vek_solve):
    out = run(vek_solve, "--gen", "lap3d:12", "--threads", "1")
    assert out.returncode == 0
    assert field(out.stdout, "threads") == "1"
    assert run(vek_solve, "--threads", "0").returncode == 2


def test_progress_is_quiet_off_a_terminal(vek_solve):
    out = run(vek_solve, "--gen", "lap3d:16")
    assert out.returncode == 0
    assert out.stderr == ""
    assert "\r" not in out.stdout


def test_progress_rewrites_one_line_on_a_terminal(vek_solve):
    master, slave = pty.openpty()
    try:
        proc = subprocess.run([vek_solve, "--gen", "lap3d:16"], stdout=subprocess.PIPE,
                              stderr=slave, timeout=300)
    finally:
        os.close(slave)
    seen = b""
    while True:
        try:
            chunk = os.read(master, 65536)
        except OSError:
            break
        if not chunk:
            break
        seen += chunk
    os.close(master)
    assert proc.returncode == 0
    text = seen.decode()
    # Each update goes back to the start of the line and clears it; no line
    # feed: the display stays on one line, and is cleared at the end.
    assert "\n" not in text
    assert "vek-solve: analysis" in text and "vek-solve: solve" in text
    assert text.count("\r\x1b[K") >= 3
    assert text.endswith("\r\x1b[K")
    assert b"\r" not in proc.stdout
