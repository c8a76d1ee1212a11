// Sweeps with a supernodal LU factor. The structure comes from the library's
// ordering and symbolic factorization; the factor values and the pivot
// records are random. The operator M the factor stands for is applied here
// by multiplications only, supernode by supernode in dense form:
//   M = P_1^-1 L_1 ... P_N^-1 L_N  U_N Q_N^-1 ... U_1 Q_1^-1,
// P_J the row exchanges, L_J the unit lower columns, U_J the rows of U and
// Q_J the undoing of the column exchanges of supernode J. A solve of M z = b
// has to return z.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "blkslv.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

typedef std::vector<int> ivec;
typedef std::vector<double> dvec;
using vektest::analysis;

// A random factor on the structure s. Off-diagonal entries are scaled by the
// block height so that M stays well conditioned; the diagonal of U11 is
// 1 to 2 in size, of either sign. Pivot records name local indices from i
// to ncols; the last one names its own column.
template <class T> struct factor {
  const analysis *s = nullptr;
  std::vector<T> lnz, unz;
  ivec pivot, cpivot;
  int maxbelow = 0;
};

template <class T> factor<T> random_factor(const analysis &s, unsigned seed, bool colpiv) {
  factor<T> f;
  f.s = &s;
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  f.lnz.assign(std::max(1, s.xlnz[s.n] - 1), T(0));
  f.unz.assign(std::max(1, s.xunz[s.n] - 1), T(0));
  f.pivot.assign(s.n, 0);
  if (colpiv) f.cpivot.assign(s.n, 0);
  for (int J = 1; J <= s.ns; ++J) {
    const int fst = s.xsup[J - 1], ncols = s.xsup[J] - fst;
    const int nrows = s.xlindx[J] - s.xlindx[J - 1], below = nrows - ncols;
    f.maxbelow = std::max(f.maxbelow, below);
    for (int j = 0; j < ncols; ++j) {
      T *col = f.lnz.data() + s.xlnz[fst - 1 + j] - 1;
      for (int o = 0; o < nrows; ++o)
        col[o] = o == j ? T((u(gen) < 0 ? -1 : 1) * (1.5 + 0.5 * u(gen))) : T(u(gen) / nrows);
      T *ucol = f.unz.data() + s.xunz[fst - 1 + j] - 1;
      for (int r = 0; r < below; ++r) ucol[r] = T(u(gen) / nrows);
      std::uniform_int_distribution<int> pick(j + 1, ncols);
      f.pivot[fst - 1 + j] = pick(gen);
      if (colpiv) f.cpivot[fst - 1 + j] = pick(gen);
    }
  }
  return f;
}

// v := P_1^-1 L_1 ... P_N^-1 L_N v (lower), the inverse of the forward
// sweep, or v := U_N Q_N^-1 ... U_1 Q_1^-1 v, that of the backward sweep.
template <class T> void apply(const factor<T> &f, bool lower, dvec &v) {
  const analysis &s = *f.s;
  for (int K = 1; K <= s.ns; ++K) {
    const int J = lower ? s.ns + 1 - K : K, fst = s.xsup[J - 1], ncols = s.xsup[J] - fst;
    const int nrows = s.xlindx[J] - s.xlindx[J - 1];
    const int *rows = s.lindx.data() + s.xlindx[J - 1] - 1;
    auto L = [&](int r, int c) { return double(f.lnz[s.xlnz[fst - 1 + c] - 1 + r]); };
    auto exchange = [&](const ivec &rec, int i) {
      std::swap(v[fst + i - 2], v[fst + rec[fst + i - 2] - 2]);
    };
    if (!lower && !f.cpivot.empty())
      for (int i = 1; i <= ncols - 1; ++i) exchange(f.cpivot, i);
    const dvec old = v;
    for (int j = 0; j < ncols; ++j) {
      if (lower) {
        for (int o = j + 1; o < nrows; ++o) v[rows[o] - 1] += L(o, j) * old[fst - 1 + j];
        continue;
      }
      double t = 0;
      for (int k = j; k < ncols; ++k) t += L(j, k) * old[fst - 1 + k];
      const T *ucol = f.unz.data() + s.xunz[fst - 1 + j] - 1;
      for (int r = 0; r < nrows - ncols; ++r) t += double(ucol[r]) * old[rows[ncols + r] - 1];
      v[fst - 1 + j] = t;
    }
    for (int i = ncols - 1; lower && i >= 1; --i) exchange(f.pivot, i);
  }
}

// nrhs random solutions z and their right-hand sides b = M z, both rounded
// to T.
template <class T> void make_problem(const factor<T> &f, int nrhs, dvec &z, dvec &b) {
  std::mt19937 gen(nrhs);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (int k = 0; k < nrhs; ++k) {
    dvec v(f.s->n);
    for (double &e : v) e = T(u(gen));
    z.insert(z.end(), v.begin(), v.end());
    apply(f, false, v);
    apply(f, true, v);
    for (double &e : v) b.push_back(T(e));
  }
}

// Largest difference relative to the largest entry of ref.
template <class T> double rel_diff(const std::vector<T> &x, const dvec &ref) {
  double d = 0, m = 1e-300;
  for (size_t i = 0; i < ref.size(); ++i) {
    d = std::max(d, std::fabs(double(x[i]) - ref[i]));
    m = std::max(m, std::fabs(ref[i]));
  }
  return d / m;
}

// The solves through the named entries: the _unsym forms for a factor with
// column exchanges, sp_ for single precision.
void solve1(const factor<double> &f, dvec &x, int sub) {
  const analysis &s = *f.s;
  if (f.cpivot.empty())
    blkslv1<double>(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                    f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), nullptr,
                    x.data(), &sub);
  else
    blkslv1_unsym(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                  f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), f.cpivot.data(),
                  x.data(), &sub);
}

void solve(const factor<double> &f, dvec &x, dvec &w, int ldw, int nrhs, int threads,
           int sub) {
  const analysis &s = *f.s;
  if (f.cpivot.empty())
    blkslv<double>(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(),
                   s.lindx.data(), s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(),
                   f.pivot.data(), nullptr, x.data(), w.data(), &ldw, &sub);
  else
    blkslv_unsym(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                 s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
                 f.cpivot.data(), x.data(), w.data(), &ldw, &sub);
}

TEST(Blkslv, OneAndSeveralRightHandSidesAcrossThreadsAndSubSteps) {
  struct shape {
    const char *name;
    vekio::sparse m;
    int mtype, method, nparts, panel;
  } shapes[] = {{"lap2d:10 panel 4", vekio::lap2d(10), 1, 0, 1, 4},
                {"lap3d:5 dissected", vekio::lap3d(5), 11, 2, 4, 16},
                {"lap2d:6 panel 1", vekio::lap2d(6), 1, 0, 1, 1},
                {"west0479", vekio::sparse(), 11, 2, 1, 16}};
  ASSERT_TRUE(vektest::load("west0479", shapes[3].m));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (shape &sh : shapes) {
    const analysis s = vektest::analyse(sh.m, sh.mtype, nullptr, sh.method, sh.nparts, sh.panel);
    const int n = s.n;
    for (bool colpiv : {false, true}) {
      SCOPED_TRACE(std::string(sh.name) + (colpiv ? " with column pivots" : " row pivots only"));
      const factor<double> f = random_factor<double>(s, 11 + colpiv, colpiv);
      dvec z, b;
      make_problem(f, 5, z, b);
      // One side: the solve, then its sub-steps. Forward only, what it
      // leaves is taken back to b by the lower half; nothing on the
      // diagonal; the backward step completes the solve.
      dvec x1(b.begin(), b.begin() + n), y1 = x1;
      solve1(f, x1, 0);
      EXPECT_LT(rel_diff(x1, dvec(z.begin(), z.begin() + n)), 1e-12);
      solve1(f, y1, 1);
      dvec back = y1;
      apply(f, true, back);
      EXPECT_LT(rel_diff(back, dvec(b.begin(), b.begin() + n)), 1e-13);
      back = y1;
      solve1(f, y1, 2);
      EXPECT_EQ(y1, back);
      solve1(f, y1, 3);
      EXPECT_EQ(y1, x1);

      for (int nrhs : {1, 3, 5})
        for (int threads : {1, 2, 8}) {  // 5 on 2: 3 + 2; 8: fewer sides than threads
          SCOPED_TRACE(testing::Message() << nrhs << " sides on " << threads << " threads");
          const dvec bk(b.begin(), b.begin() + n * nrhs);
          // w starts as garbage; a spare row per column must stay untouched.
          const int ldw = f.maxbelow + 1;
          dvec w(static_cast<size_t>(ldw) * nrhs, nan), x = bk;
          solve(f, x, w, ldw, nrhs, threads, 0);
          EXPECT_LT(rel_diff(x, dvec(z.begin(), z.begin() + n * nrhs)), 1e-12);
          // Each sub-step agrees with the single form column by column; the
          // forward step leaves w clear; 1, 2, 3 in turn is the full solve.
          dvec y = bk;
          for (int sub : {0, 1, 2, 3}) {
            dvec ref = sub ? y : bk;
            for (int k = 0; k < nrhs; ++k) {
              dvec rk(ref.begin() + k * n, ref.begin() + (k + 1) * n);
              solve1(f, rk, sub);
              std::copy(rk.begin(), rk.end(), ref.begin() + k * n);
            }
            if (sub == 1) std::fill(w.begin(), w.end(), nan);
            if (sub) solve(f, y, w, ldw, nrhs, threads, sub);
            EXPECT_LT(rel_diff(sub ? y : x, ref), 1e-13) << "sub-step " << sub;
            for (size_t i = 0; i < w.size(); ++i)
              ASSERT_TRUE(i % ldw == size_t(ldw - 1) ? std::isnan(w[i]) : sub != 1 || w[i] == 0)
                  << i;
          }
          EXPECT_EQ(y, x);
        }
    }
  }
}

TEST(Blkslv, SinglePrecisionTwins) {
  vekio::sparse m = vekio::lap2d(9);
  const analysis s = vektest::analyse(m, 11, nullptr, 2, 1, 8);
  for (bool colpiv : {false, true}) {
    const factor<float> f = random_factor<float>(s, 17, colpiv);
    dvec z, b;
    make_problem(f, 3, z, b);
    const int nrhs = 3, threads = 2, ldw = std::max(1, f.maxbelow), sub = 0;
    std::vector<float> w(static_cast<size_t>(ldw) * nrhs), x1(b.begin(), b.begin() + s.n),
        x3(b.begin(), b.end());
    if (colpiv) {
      sp_blkslv1_unsym(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                       f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
                       f.cpivot.data(), x1.data(), &sub);
      sp_blkslv_unsym(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(),
                      s.lindx.data(), s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(),
                      f.pivot.data(), f.cpivot.data(), x3.data(), w.data(), &ldw, &sub);
    } else {
      sp_blkslv1(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                 f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), nullptr, x1.data(),
                 &sub);
      sp_blkslv(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
                nullptr, x3.data(), w.data(), &ldw, &sub);
    }
    EXPECT_LT(rel_diff(x1, dvec(z.begin(), z.begin() + s.n)), 1e-5) << colpiv;
    EXPECT_LT(rel_diff(x3, z), 1e-5) << colpiv;
  }
}

TEST(Blkslv, NoSidesOrNoSupernodesLeaveXAlone) {
  vekio::sparse m = vekio::lap2d(4);
  analysis s = vektest::analyse(m, 1, nullptr, 0, 1, 4);
  const factor<double> f = random_factor<double>(s, 1, false);
  const int ldw = std::max(1, f.maxbelow);
  dvec x(s.n, 2.5), w(ldw, 0.0);
  solve(f, x, w, ldw, 0, 2, 0);
  s.ns = 0;
  solve1(f, x, 0);
  solve(f, x, w, ldw, 1, 1, 0);
  EXPECT_EQ(x, dvec(s.n, 2.5));
}

}  // namespace
