// mlSingularValueDecomposition.cpp - libmaths: A = U S V^T through dgesvd
// (thin factors), and the minimum-norm least-squares solve.
#include <cfloat>
#include <vector>

#include "ml_lapack.h"
#include "mlMatrix.h"

namespace {
const char kFile[] = "host/maths/mlSingularValueDecomposition.cpp";
}

mlSingularValueDecomposition::mlSingularValueDecomposition(const mlMatrix &a)
    : m_rows(a.rows()), m_cols(a.cols()), m_info(-1) {
  int m = m_rows, n = m_cols;
  int k = m < n ? m : n;
  mlMatrix work_a(a);
  if (work_a.size() != m * n) {
    ut_report_assert_failure(kFile, __LINE__,
                             "argument out of range | mlSingularValueDecomposition");
    return;
  }
  m_u = mlMatrix(m, k);
  m_vt = mlMatrix(k, n);
  m_s.expand(k);
  if (k == 0) {
    m_info = 0;
    return;
  }
  int ldu = m, ldvt = k, lwork = -1, info = 0;
  double query = 0.0;
  dgesvd_("S", "S", &m, &n, work_a.data(), &m, m_s.data(), m_u.data(), &ldu,
          m_vt.data(), &ldvt, &query, &lwork, &info, 1, 1);
  if (info != 0) {
    m_info = info;
    return;
  }
  lwork = static_cast<int>(query);
  std::vector<double> work(static_cast<std::size_t>(lwork > 1 ? lwork : 1));
  dgesvd_("S", "S", &m, &n, work_a.data(), &m, m_s.data(), m_u.data(), &ldu,
          m_vt.data(), &ldvt, work.data(), &lwork, &info, 1, 1);
  m_info = info;
}

mlSingularValueDecomposition::~mlSingularValueDecomposition() {}

double mlSingularValueDecomposition::singular_value(int k) const {
  m_valid.check_ok(this, kFile, __LINE__);
  if (k < 0 || k >= m_s.size()) {
    ut_report_assert_failure(
        kFile, __LINE__,
        "argument out of range | mlSingularValueDecomposition::singular_value");
    return 0.0;
  }
  return m_s.data()[k];
}

int mlSingularValueDecomposition::is_singular(double tol) const {
  m_valid.check_ok(this, kFile, __LINE__);
  if (m_info != 0 || m_rows < m_cols) return 1;
  int k = m_s.size();
  if (k == 0) return 0;
  const double *s = m_s.data();  // descending
  return !(s[k - 1] > tol * s[0]) ? 1 : 0;
}

void mlSingularValueDecomposition::solve(const mlMatrix &b, mlMatrix &x) const {
  m_valid.check_ok(this, kFile, __LINE__);
  if (m_info != 0) {
    ut_report_assert_failure(kFile, __LINE__,
                             "object in incorrect state for operation | "
                             "mlSingularValueDecomposition::solve");
    return;
  }
  int m = m_rows, n = m_cols, k = m_s.size(), nrhs = b.cols();
  if (b.rows() != m) {
    ut_report_assert_failure(
        kFile, __LINE__, "argument out of range | mlSingularValueDecomposition::solve");
    return;
  }
  mlMatrix result(mlMatrixZero, n, nrhs);
  const double *s = m_s.data(), *u = m_u.data(), *vt = m_vt.data();
  const double *bb = b.data();
  double *xx = result.data();
  double cut = (k > 0 ? s[0] : 0.0) * (m > n ? m : n) * DBL_EPSILON;
  std::vector<double> c(static_cast<std::size_t>(k));
  for (int j = 0; j < nrhs; ++j) {
    const double *bj = bb + static_cast<long long>(j) * m;
    double *xj = xx + static_cast<long long>(j) * n;
    // c = S^+ U^T b_j
    for (int l = 0; l < k; ++l) {
      double t = 0.0;
      if (s[l] > cut) {
        const double *ul = u + static_cast<long long>(l) * m;
        for (int i = 0; i < m; ++i) t += ul[i] * bj[i];
        t /= s[l];
      }
      c[l] = t;
    }
    // x_j = V c, V(i, l) = VT(l, i)
    for (int i = 0; i < n; ++i) {
      double t = 0.0;
      for (int l = 0; l < k; ++l) t += vt[static_cast<long long>(i) * k + l] * c[l];
      xj[i] = t;
    }
  }
  x = result;
}
