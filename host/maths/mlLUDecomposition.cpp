// mlLUDecomposition.cpp - libmaths: P A = L U through dgetrf, solves
// through dgetrs.
#include <cfloat>
#include <cmath>

#include "ml_lapack.h"
#include "mlMatrix.h"

namespace {
const char kFile[] = "host/maths/mlLUDecomposition.cpp";
}

mlLUDecomposition::mlLUDecomposition(const mlMatrix &a)
    : m_factor(a), m_singular(1) {
  int n = m_factor.rows();
  if (n != m_factor.cols() || n * n != m_factor.size() || !m_pivots.expand(n)) {
    ut_report_assert_failure(kFile, __LINE__,
                             "argument out of range | mlLUDecomposition");
    return;
  }
  int info = 0;
  if (n > 0) dgetrf_(&n, &n, m_factor.data(), &n, m_pivots.data(), &info);
  if (info != 0) return;  // info > 0: U(info, info) is exactly zero
  const double *u = m_factor.data();
  double dmin = 0.0, dmax = 0.0;
  for (int k = 0; k < n; ++k) {
    double d = std::fabs(u[static_cast<long long>(k) * n + k]);
    if (k == 0 || d < dmin) dmin = d;
    if (k == 0 || d > dmax) dmax = d;
  }
  m_singular = (n > 0 && !(dmin > n * DBL_EPSILON * dmax)) ? 1 : 0;
}

mlLUDecomposition::~mlLUDecomposition() {}

int mlLUDecomposition::is_singular() const {
  m_valid.check_ok(this, kFile, __LINE__);
  return m_singular;
}

void mlLUDecomposition::solve(const mlMatrix &b, mlMatrix &x) const {
  m_valid.check_ok(this, kFile, __LINE__);
  int n = m_factor.rows();
  if (m_singular) {
    ut_report_assert_failure(
        kFile, __LINE__,
        "object in incorrect state for operation | mlLUDecomposition::solve");
    return;
  }
  if (b.rows() != n) {
    ut_report_assert_failure(kFile, __LINE__,
                             "argument out of range | mlLUDecomposition::solve");
    return;
  }
  x = b;
  int nrhs = b.cols();
  if (n == 0 || nrhs == 0) return;
  int info = 0;
  dgetrs_("N", &n, &nrhs, m_factor.data(), &n, m_pivots.data(), x.data(), &n,
          &info, 1);
}
