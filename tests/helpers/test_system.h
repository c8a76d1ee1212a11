// test_system.h - one solver handle around a matrix, for the tests that
// go through the public entry: the storage of the type, right-hand sides
// with a known solution, the calls, and the relative residual.
#ifndef VEK_TEST_SYSTEM_H
#define VEK_TEST_SYSTEM_H

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "telmira.h"
#include "telmira_storage.h"
#include "vekio.h"

namespace vektest {

// A handle and its control array around a matrix in the storage of its
// type; right-hand sides b = A * xref, xref = (1, 1.001, ...) shifted by
// one per side. With `single` set the handle runs in single precision
// (iparam(28) = 1) on float copies of the values; x is then read back into
// the double vector after each call.
struct system {
  intptr_t handle[64] = {0};
  int iparam[64] = {0};
  int max_fac_store = 1, matrix_number = 1, mtype = 2, n = 0, nb = 1, msglvl = 0, error = 0;
  bool single = false;
  vekio::sparse A;
  std::vector<int> perm;
  std::vector<double> b, x, xref;
  std::vector<float> af, bf, xf;

  system(const vekio::sparse &full, int type = 2, int nrhs = 1, bool single_precision = false);
  ~system() { release(); }
  void set_rhs(int nrhs);
  int call(int ido);
  // The call at message level 1; returns what it printed.
  std::string call_printing(int ido);
  // iparam(k) = v for each one-based pair, and iparam(1) = 1 so that they
  // are read.
  system &control(std::initializer_list<std::pair<int, int>> kv) {
    iparam[0] = 1;
    for (const auto &p : kv) iparam[p.first - 1] = p.second;
    return *this;
  }
  // iparam(1) = 1 with the defaults of the type: nested dissection, the
  // pivot perturbation, and for the types that take them the matching with
  // its scaling and Bunch-Kaufman pivoting.
  system &type_defaults();
  void release();
  double residual(const std::vector<double> &sol) const {
    return vekio::relative_residual(A, mtype, sol.data(), b.data(), nb);
  }
  const int *comi() const { return tlm::state_of(handle).comi; }
};

// A real matrix made complex: imaginary parts im times the real part off
// the diagonal, and the diagonal shifted by `shift`.
vekio::sparse complexify(const vekio::sparse &m, double im, std::complex<double> shift);

// A generated matrix of each matrix type, small enough for the suite; the
// positive definite Laplacian of type 2 on a lap_n^3 grid.
struct typed_matrix {
  std::string name;
  vekio::sparse m;
  int mtype;
};
std::vector<typed_matrix> every_type(int lap_n = 10);

// The sub-steps (ido 331, 332, 333) on s's factors, each on the result of
// the one before, against the full solve full (a copy: the steps overwrite
// s.x): rel_diff. b is left as it was.
double substeps_error(system &s, std::initializer_list<int> steps, std::vector<double> full);

// Dynamic adjustment off and t threads for the calls that follow.
void use_threads(int t);

// The largest difference of x from ref, relative to the largest entry of ref.
template <class T> double rel_diff(const std::vector<T> &x, const std::vector<T> &ref) {
  double d = 0, m = 1e-300;
  for (std::size_t i = 0; i < ref.size(); ++i) {
    d = std::max(d, double(std::abs(x[i] - ref[i])));
    m = std::max(m, double(std::abs(ref[i])));
  }
  return d / m;
}

}  // namespace vektest

#endif
