// test_kernels.h - one driver for the supernodal factorization sweeps of
// every matrix type on structures from the library's own analysis: the
// problem (values that suit the type, ordering, panel width, scaling), the
// sweep on work arrays full of NaN, and the distance of its factor from the
// matrix that it stands for.
#ifndef VEK_TEST_KERNELS_H
#define VEK_TEST_KERNELS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "blkl.h"
#include "blkldl.h"
#include "blklu.h"
#include "test_analysis.h"
#include "test_ldl.h"
#include "test_matrices.h"
#include "vekio.h"

namespace vektest {

typedef std::complex<double> zc;

inline bool complex_type(int t) { return t == 3 || t == 4 || t == 6 || t == 13 || t == -4; }
inline bool hermitian_type(int t) { return t == 4 || t == -4; }
inline bool cholesky_type(int t) { return t == 2 || t == 4; }
inline bool ldl_type(int t) { return t == -2 || t == 6 || t == -4; }
inline bool lu_type(int t) { return !vekio::symmetric_type(t); }
inline bool scalable_type(int t) { return ldl_type(t) || t == 11 || t == 13; }

// Random values on the pattern p (full storage) that suit type t:
// symmetric or Hermitian as the type says. Dominant: every diagonal entry
// outweighs its row, negative in every third row for the indefinite types,
// so that the inertia is the diagonal's. Otherwise the diagonal is weak
// (every third entry a hundredth of the others) and pivoting has work.
inline vekio::sparse with_values(const vekio::sparse &p, int t, bool dominant, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  const bool cx = complex_type(t), herm = hermitian_type(t), sym = vekio::symmetric_type(t);
  auto draw = [&] { return zc(d(g), cx ? d(g) : 0.0); };
  std::map<std::pair<int, int>, zc> upper;
  vekio::sparse m = p;
  m.cplx = cx;
  m.a.clear();
  for (int i = 1; i <= m.n; ++i) {
    std::vector<zc> row;
    double sum = 0;
    int diag = -1;
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) {
      const int j = m.ja[k - 1];
      zc v = 0;
      if (j == i) diag = int(row.size());
      else if (!sym) v = draw();
      else {
        auto it = upper.find({std::min(i, j), std::max(i, j)});
        if (it == upper.end()) it = upper.insert({{std::min(i, j), std::max(i, j)}, draw()}).first;
        v = herm && i > j ? std::conj(it->second) : it->second;
      }
      sum += std::abs(v);
      row.push_back(v);
    }
    if (diag >= 0) {
      const double sign = cholesky_type(t) || i % 3 != 0 ? 1.0 : -1.0;
      zc v = dominant ? zc(sign * (1.0 + sum)) : (i % 3 == 0 ? 0.01 : 0.5) * draw();
      row[diag] = herm ? zc(v.real()) : v;
    }
    for (const zc &v : row) {
      m.a.push_back(v.real());
      if (cx) m.a.push_back(v.imag());
    }
  }
  return m;
}

// "lap2d:N" or "lap3d:N" with values for type t (a trailing "+": dominant),
// or a matrix of the collection as it is.
inline vekio::sparse test_matrix(const std::string &name, int t, unsigned seed = 3) {
  vekio::sparse m;
  if (name.compare(0, 3, "lap") == 0) {
    const int N = std::stoi(name.substr(6));
    m = with_values(name[3] == '2' ? vekio::lap2d(N) : vekio::lap3d(N), t,
                    cholesky_type(t) || name.back() == '+', seed);
  } else {
    EXPECT_TRUE(load(name, m)) << name;
  }
  return m;
}

// A row order that puts a nonzero on every diagonal entry: augmenting
// paths, the larger entries of a column tried first.
inline ivec diagonal_matching(const vekio::sparse &a) {
  std::vector<std::vector<std::pair<double, int>>> col(a.n);
  for (int i = 1; i <= a.n; ++i)
    for (int k = a.ia[i - 1]; k < a.ia[i]; ++k)
      if (a.a[k - 1] != 0.0) col[a.ja[k - 1] - 1].push_back({-std::fabs(a.a[k - 1]), i});
  for (auto &c : col) std::sort(c.begin(), c.end());
  ivec row_of_col(a.n, 0), col_of_row(a.n + 1, 0), seen(a.n + 1, 0);
  std::function<bool(int, int)> augment = [&](int c, int stamp) {
    for (auto &e : col[c - 1]) {
      const int r = e.second;
      if (seen[r] == stamp) continue;
      seen[r] = stamp;
      if (col_of_row[r] == 0 || augment(col_of_row[r], stamp)) {
        col_of_row[r] = c;
        row_of_col[c - 1] = r;
        return true;
      }
    }
    return false;
  };
  for (int c = 1; c <= a.n; ++c) EXPECT_TRUE(augment(c, c)) << "structurally singular at " << c;
  return row_of_col;
}

// The matrix in full storage and in the storage of its type, with the
// analysis (one part) and the scatter lists. roworder (types
// 11 and 13) is the row order of a matching; scale holds n factors for the
// symmetric types, n column and then n row factors for the others.
struct problem {
  vekio::sparse full, st;
  int mtype = 0;
  ivec roworder;
  std::vector<double> scale;
  analysis s;
  scatter_lists L;
};

inline problem prepare(const vekio::sparse &full, int mtype, int method, int panel,
                       bool scaled, const ivec &roworder = ivec()) {
  problem p;
  p.full = full;
  p.mtype = mtype;
  p.roworder = roworder;
  p.st = vekio::storage_for_type(full, mtype);
  ivec *ro = p.roworder.empty() ? nullptr : &p.roworder;
  p.s = analyse(p.st, mtype, ro, method, 1, panel);
  p.L = make_scatter_lists(p.st, p.s, mtype, ro, scaled ? 1 : 0);
  std::mt19937 g(17);
  std::uniform_real_distribution<double> d(0.25, 4.0);
  for (int k = 0; scaled && k < (lu_type(mtype) ? 2 : 1) * full.n; ++k) p.scale.push_back(d(g));
  return p;
}

template <class T> T value_of(const vekio::sparse &m, int k) {
  typedef tlm::real_of<T> R;
  if constexpr (tlm::value_traits<T>::is_complex)
    if (m.cplx) return T(R(m.a[2 * k]), R(m.a[2 * k + 1]));
  return T(R(m.a[m.cplx ? 2 * k : k]));
}

template <class T> struct factor {
  std::vector<T> lnz, unz;
  ivec pivot, cpivot;
  int error = 99, npert = 5, npos = 5, nneg = 5;
  bool temp_clear = false;
};

// The sweep of p's type on arrays filled with NaN, which it has to
// overwrite before it reads them. tmpsize -1: the analysis' size.
template <class T>
factor<T> run(const problem &p, int diagp = 1, double eps = 0.0, int tmpsize = -1,
              int msglvl = 0) {
  typedef tlm::real_of<T> R;
  const analysis &s = p.s;
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], one = 1, t = p.mtype;
  const int rowflag = p.scale.empty() ? 0 : 1;
  if (tmpsize < 0) tmpsize = s.comi[37 - 1];
  const T nan = T(std::numeric_limits<R>::quiet_NaN());
  factor<T> f;
  f.lnz.assign(std::max(1, nnzl), nan);
  f.unz.assign(std::max(1, s.comi[35 - 1]), nan);
  f.pivot.assign(n, 0);
  f.cpivot.assign(n, 0);
  std::vector<T> a(p.st.nnz()), temp(std::max(1, tmpsize), nan);
  for (size_t k = 0; k < a.size(); ++k) a[k] = value_of<T>(p.st, int(k));
  const std::vector<R> sc(p.scale.begin(), p.scale.end());
  const R e = R(eps);
  ivec indmap(n, 3), relind(n, 3), link(n, 5), length(std::max(1, ns), 5);
  auto ldl = [&](auto sweep) {
    sweep(a.data(), p.st.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(),
          s.xlnz.data(), f.lnz.data(), indmap.data(), relind.data(), &tmpsize, temp.data(),
          s.nmod.data(), link.data(), s.snode.data(), s.xsup.data(), length.data(),
          f.pivot.data(), p.L.xjalf.data(), p.L.jalf.data(), p.L.luperm.data(), s.perm.data(),
          &e, &diagp, &f.npert, &f.npos, &f.nneg, sc.data(), &rowflag, p.L.luperm_row.data(),
          &msglvl, &f.error);
  };
  if (cholesky_type(t)) {
    blkl<T>(a.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
            f.lnz.data(), indmap.data(), relind.data(), &tmpsize, temp.data(), s.nmod.data(),
            link.data(), s.snode.data(), s.xsup.data(), length.data(), p.L.xjalf.data(),
            p.L.jalf.data(), p.L.luperm.data(), s.perm.data(), &msglvl, &f.error);
  } else if (t == -4) {
    if constexpr (tlm::value_traits<T>::is_complex) ldl(blkldl<T, true>);
  } else if (ldl_type(t)) {
    ldl(blkldl<T, false>);
  } else if (t == 1 || t == 3) {
    blklu<T>(a.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
             f.lnz.data(), s.xunz.data(), f.unz.data(), indmap.data(), relind.data(), &tmpsize,
             temp.data(), s.nmod.data(), link.data(), s.snode.data(), s.xsup.data(),
             length.data(), f.pivot.data(), p.L.xjalf.data(), p.L.jalf.data(),
             p.L.xjauf.data(), p.L.jauf.data(), p.L.luperm.data(), s.perm.data(), &msglvl,
             &f.error);
  } else {
    blklu_unsym<T>(a.data(), p.st.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(),
                   s.lindx.data(), s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(),
                   indmap.data(), relind.data(), &tmpsize, temp.data(), s.nmod.data(),
                   link.data(), s.snode.data(), s.xsup.data(), length.data(), f.pivot.data(),
                   f.cpivot.data(), p.L.xjalf.data(), p.L.jalf.data(), p.L.xjauf.data(),
                   p.L.jauf.data(), p.L.luperm.data(), s.perm.data(), &e, &f.npert,
                   rowflag ? sc.data() : nullptr, &rowflag, p.L.luperm_row.data(), &msglvl,
                   &f.error);
  }
  f.temp_clear = std::all_of(temp.begin(), temp.begin() + std::max(1, tmpsize),
                             [](const T &v) { return v == T(0); });
  return f;
}

// y := F x, F the matrix of an LU factor in the permuted numbering: the
// steps of a solve (per supernode row exchanges, L11 and L21 forward; U12
// and U11 backward, column exchanges) undone in reverse order. absolute:
// |F| from |re| + |im| of the entries, the scale of the rounding.
template <class T>
std::vector<zc> apply_lu(const problem &p, const factor<T> &f, const std::vector<zc> &x,
                         bool absolute) {
  const analysis &s = p.s;
  auto v = [absolute](const T &e) {
    const zc z(e);
    return absolute ? zc(std::fabs(z.real()) + std::fabs(z.imag())) : z;
  };
  std::vector<zc> y(s.n), z;
  for (int J = 1; J <= s.ns; ++J) {  // U11 Q^T x_J + U12 x_below
    const int f0 = s.xsup[J - 1], nc = s.xsup[J] - f0, nr = s.xlnz[f0] - s.xlnz[f0 - 1];
    const T *blk = f.lnz.data() + (s.xlnz[f0 - 1] - 1);
    const int *rows = s.lindx.data() + (s.xlindx[J - 1] - 1);
    z.assign(x.begin() + (f0 - 1), x.begin() + (f0 - 1 + nc));
    if (p.mtype == 11 || p.mtype == 13)
      for (int i = 0; i < nc; ++i) std::swap(z[i], z[f.cpivot[f0 - 1 + i] - 1]);
    for (int j = 0; j < nc; ++j) {
      zc w = 0;
      for (int i = j; i < nc; ++i) w += v(blk[j + size_t(i) * nr]) * z[i];
      const T *u = f.unz.data() + (s.xunz[f0 - 1 + j] - 1);
      for (int k = nc; k < nr; ++k) w += v(u[k - nc]) * x[rows[k] - 1];
      y[f0 - 1 + j] = w;
    }
  }
  for (int J = s.ns; J >= 1; --J) {  // L21 adds below, then P^T L11
    const int f0 = s.xsup[J - 1], nc = s.xsup[J] - f0, nr = s.xlnz[f0] - s.xlnz[f0 - 1];
    const T *blk = f.lnz.data() + (s.xlnz[f0 - 1] - 1);
    const int *rows = s.lindx.data() + (s.xlindx[J - 1] - 1);
    zc *w = y.data() + (f0 - 1);
    for (int k = nc; k < nr; ++k)
      for (int j = 0; j < nc; ++j) y[rows[k] - 1] += v(blk[k + size_t(j) * nr]) * w[j];
    for (int i = nc - 1; i >= 0; --i)
      for (int j = 0; j < i; ++j) w[i] += v(blk[i + size_t(j) * nr]) * w[j];
    for (int i = nc - 1; i >= 0; --i) std::swap(w[i], w[f.pivot[f0 - 1 + i] - 1]);
  }
  return y;
}

// The distance of the factor from the permuted (and scaled) input, entry by
// entry in units of the rounding of the entry's terms: n u (|A| + |G||D||G^T|)
// for the symmetric types (a Cholesky factor taken as G = L diag(L)^-1,
// D = diag(L)^2), 2 n u |L||U| for LU. LU: the largest npert entries are
// left out, as each replaced pivot may change one entry.
template <class T> double misfit(const problem &p, const factor<T> &f, int diagp) {
  const analysis &s = p.s;
  const int n = s.n;
  const double u = std::numeric_limits<tlm::real_of<T>>::epsilon() / 2;
  if (!lu_type(p.mtype)) {
    zvec lnz = widen(f.lnz);
    ivec pivot = f.pivot;
    if (cholesky_type(p.mtype)) {
      diagp = 1;
      for (int J = 1; J <= s.ns; ++J)
        for (int c = s.xsup[J - 1]; c < s.xsup[J]; ++c) {
          const int d = s.xlnz[c - 1] - 1 + (c - s.xsup[J - 1]);
          const zc l = lnz[d];
          for (int k = d + 1; k < s.xlnz[c] - 1; ++k) lnz[k] /= l;
          lnz[d] = l * std::conj(l);
          pivot[c - 1] = c - s.xsup[J - 1] + 1;
        }
    }
    return ldl_misfit(s, p.full, p.scale, lnz, pivot, diagp, hermitian_type(p.mtype), u);
  }
  ivec newcol(n + 1);
  for (int j = 1; j <= n; ++j) newcol[s.perm[j - 1]] = j;
  std::vector<std::vector<std::pair<int, zc>>> col(n + 1);
  for (int i = 1; i <= n; ++i) {
    const int q = s.perm[i - 1], row = p.roworder.empty() ? q : p.roworder[q - 1];
    for (int k = p.full.ia[row - 1]; k < p.full.ia[row]; ++k) {
      const int c = p.full.ja[k - 1];
      const double sc = p.scale.empty() ? 1.0 : p.scale[c - 1] * p.scale[n + row - 1];
      col[newcol[c]].push_back({i, value_of<zc>(p.full, k - 1) * sc});
    }
  }
  std::vector<double> ratio;
  std::vector<zc> e(n), want(n);
  for (int j = 1; j <= n; ++j) {
    e[j - 1] = 1.0;
    const std::vector<zc> y = apply_lu(p, f, e, false), bound = apply_lu(p, f, e, true);
    e[j - 1] = 0.0;
    std::fill(want.begin(), want.end(), zc(0));
    for (auto &rv : col[j]) want[rv.first - 1] = rv.second;
    for (int i = 0; i < n; ++i) {
      const double r = std::abs(y[i] - want[i]) / (2 * u * n * bound[i].real() + 1e-300);
      ratio.push_back(std::isnan(r) ? 1e300 : r);
    }
  }
  const size_t keep = ratio.size() - std::min<size_t>(ratio.size() - 1, std::max(0, f.npert));
  std::nth_element(ratio.begin(), ratio.begin() + (keep - 1), ratio.end());
  return ratio[keep - 1];
}

// How each update of a sweep reaches its target, from the structure alone,
// in the order of the sweep's tests; the counts add up over calls.
struct path_census {
  int same = 0, single = 0, contiguous = 0, scattered = 0;
};

// The temp that the sweep needs: the largest update that goes through it
// (the scattered ones; for LDL every update, scattered ones twice, and with
// Bunch-Kaufman also L21 transposed).
inline long temp_need(const analysis &s, int mtype, int diagp, path_census *pc = nullptr) {
  long need = 0;
  for (int K = 1; K <= s.ns; ++K) {
    const int kn = s.xsup[K] - s.xsup[K - 1], last = s.xlindx[K];
    if (ldl_type(mtype) && diagp == 0)
      need = std::max(need, long(kn) * (last - s.xlindx[K - 1] - kn));
    for (int q = s.xlindx[K - 1] + kn; q < last;) {
      const int T = s.snode[s.lindx[q - 1] - 1], rem = last - q;
      int nd = 0, first = -1, lastpos = -1;
      while (nd < rem && s.lindx[q - 1 + nd] < s.xsup[T]) ++nd;
      for (int t = s.xlindx[T - 1]; t < s.xlindx[T]; ++t) {
        if (s.lindx[t - 1] == s.lindx[q - 1]) first = t;
        if (s.lindx[t - 1] == s.lindx[last - 2]) lastpos = t;
      }
      const bool same = rem == s.xlindx[T] - s.xlindx[T - 1], single = !same && kn == 1;
      const bool scattered = !same && !single && lastpos - first >= rem;
      if (pc) ++(same ? pc->same : single ? pc->single : scattered ? pc->scattered : pc->contiguous);
      if (!ldl_type(mtype)) need = std::max(need, scattered ? long(rem) * nd : 0L);
      else if (!single) need = std::max(need, (scattered ? 2L : 1L) * std::max(kn, scattered ? rem : 0) * nd);
      q += nd;
    }
  }
  return need;
}

// Row exchanges inside the blocks, or 2 by 2 pivots with Bunch-Kaufman.
template <class T> int exchanges(const analysis &s, const factor<T> &f, int diagp) {
  int count = 0;
  for (int i = 0; i < s.n; ++i)
    count += diagp == 0 ? f.pivot[i] < 0 : f.pivot[i] != i + 2 - s.xsup[s.snode[i] - 1];
  return count;
}

}  // namespace vektest

#endif
