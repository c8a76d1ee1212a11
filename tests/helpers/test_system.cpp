// test_system.cpp - one solver handle around a matrix for the tests.
#include "test_system.h"

#include <gtest/gtest.h>

#include "service/vek_serv_threads.h"

namespace vektest {

system::system(const vekio::sparse &full, int type, int nrhs, bool single_precision)
    : mtype(type), nb(nrhs), single(single_precision) {
  A = vekio::storage_for_type(full, type);
  n = A.n;
  perm.assign(n, 0);
  iparam[27] = single ? 1 : 0;
  if (single) af.assign(A.a.begin(), A.a.end());
  set_rhs(nrhs);
}

void system::set_rhs(int nrhs) {
  nb = nrhs;
  const std::size_t words = A.cplx ? 2 : 1, side = words * static_cast<std::size_t>(n);
  xref.assign(side * nb, 0.0);
  b.assign(xref.size(), 0.0);
  x.assign(xref.size(), 0.0);
  for (std::size_t q = 0; q < xref.size(); ++q)
    xref[q] = 1.0 + 0.001 * static_cast<double>(q % side) + static_cast<double>(q / side);
  for (int k = 0; k < nb; ++k) vekio::multiply(A, mtype, &xref[k * side], &b[k * side]);
}

int system::call(int ido) {
  if (!single) {
    telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &n, A.a.data(), A.ia.data(),
            A.ja.data(), perm.data(), &nb, iparam, &msglvl, b.data(), x.data(), &error);
    return error;
  }
  bf.assign(b.begin(), b.end());
  xf.assign(x.begin(), x.end());
  telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &n, af.data(), A.ia.data(),
          A.ja.data(), perm.data(), &nb, iparam, &msglvl, bf.data(), xf.data(), &error);
  x.assign(xf.begin(), xf.end());
  return error;
}

std::string system::call_printing(int ido) {
  const int keep = msglvl;
  msglvl = 1;
  testing::internal::CaptureStdout();
  call(ido);
  msglvl = keep;
  return testing::internal::GetCapturedStdout();
}

system &system::type_defaults() {
  const bool matched = mtype == 11 || mtype == 13 || mtype == -2 || mtype == -4 || mtype == 6;
  iparam[0] = 1;
  iparam[1] = 2;
  iparam[9] = mtype == 2 || mtype == 4 ? 0 : (mtype == 1 || mtype == 3 || mtype > 10 ? 13 : 8);
  iparam[10] = matched ? 1 : 0;
  iparam[12] = matched ? 1 : 0;
  iparam[20] = mtype == -2 || mtype == -4 || mtype == 6 ? 1 : 0;
  return *this;
}

void system::release() {
  const int keep = msglvl;
  msglvl = 0;
  call(-1);
  msglvl = keep;
}

vekio::sparse complexify(const vekio::sparse &m, double im, std::complex<double> shift) {
  vekio::sparse c = m;
  c.cplx = true;
  c.a.assign(2 * static_cast<std::size_t>(m.nnz()), 0.0);
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) {
      std::complex<double> v(m.a[k - 1], m.ja[k - 1] == i ? 0.0 : im * m.a[k - 1]);
      if (m.ja[k - 1] == i) v += shift;
      c.a[2 * (k - 1)] = v.real();
      c.a[2 * (k - 1) + 1] = v.imag();
    }
  return c;
}

double substeps_error(system &s, std::initializer_list<int> steps, std::vector<double> full) {
  const std::vector<double> rhs = s.b;
  for (int step : steps) {
    EXPECT_EQ(s.call(step), 0) << step;
    s.b = s.x;
  }
  s.b = rhs;
  return rel_diff(s.x, full);
}

void use_threads(int t) {
  vek_serv_set_dynamic(0);
  vek_serv_set_num_threads(t);
}

std::vector<typed_matrix> every_type(int lap_n) {
  const vekio::sparse cd = vekio::convdiff3d(10, 1.0, 0.6, 0.3);
  const vekio::sparse cdz = complexify(cd, 0.3, {0.0, 0.2});
  return {
      {"lap3d (2)", vekio::lap3d(lap_n), 2},
      {"indef3d (-2)", vekio::shifted_laplacian3d(10, vekio::shift_near_one(10), 0.0), -2},
      {"herm3d (-4)", vekio::shifted_laplacian3d(9, vekio::shift_near_one(9), 0.3), -4},
      {"helm3d (6)", vekio::shifted_laplacian3d(9, {vekio::shift_near_one(9), -0.1}, 0.0), 6},
      {"lap3d Hermitian (4)", complexify(vekio::lap3d(9), 0.2, {0.5, 0.0}), 4},
      {"cd3d (1)", cd, 1},
      {"cd3d complex (3)", cdz, 3},
      {"cd3d (11)", cd, 11},
      {"cd3d complex (13)", cdz, 13},
  };
}

}  // namespace vektest
