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
#include "ordering.h"
#include "symbolic.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

typedef std::vector<int> ivec;

using vektest::analysis;

analysis analyse(vekio::sparse &a, int mtype, int method, int nparts, int panel) {
  return vektest::analyse(a, mtype, nullptr, method, nparts, panel);
}

// A random factor on the structure s. Off-diagonal entries are scaled by the
// block height so that M stays well conditioned; the diagonal of U11 is
// 1 to 2 in size, of either sign. Pivot records name local indices from i
// to ncols; the last one names its own column.
template <class T>
struct factor {
  const analysis *s = nullptr;
  std::vector<T> lnz, unz;
  ivec pivot, cpivot;
  int maxbelow = 0;
  const int *cp() const { return cpivot.empty() ? nullptr : cpivot.data(); }
};

template <class T>
factor<T> random_factor(const analysis &s, unsigned seed, bool colpiv) {
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
    EXPECT_EQ(s.xlnz[fst] - s.xlnz[fst - 1], nrows);
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

// The blocks of supernode J as the dense reference reads them.
struct block {
  int fst, ncols, nrows, below;
  const int *rows;  // nrows global rows, the block's own columns first
};

block block_of(const analysis &s, int J) {
  block b;
  b.fst = s.xsup[J - 1];
  b.ncols = s.xsup[J] - b.fst;
  b.nrows = s.xlindx[J] - s.xlindx[J - 1];
  b.below = b.nrows - b.ncols;
  b.rows = s.lindx.data() + s.xlindx[J - 1] - 1;
  return b;
}

void swap_local(const block &b, const ivec &rec, int i, std::vector<double> &v) {
  std::swap(v[b.fst + i - 2], v[b.fst + rec[b.fst + i - 2] - 2]);
}

// v := P_1^-1 L_1 ... P_N^-1 L_N v (the inverse of the forward sweep).
template <class T>
void apply_lower(const factor<T> &f, std::vector<double> &v) {
  const analysis &s = *f.s;
  for (int J = s.ns; J >= 1; --J) {
    const block b = block_of(s, J);
    const std::vector<double> old = v;
    for (int j = 0; j < b.ncols; ++j) {
      const T *col = f.lnz.data() + s.xlnz[b.fst - 1 + j] - 1;
      for (int o = j + 1; o < b.nrows; ++o) v[b.rows[o] - 1] += double(col[o]) * old[b.fst - 1 + j];
    }
    for (int i = b.ncols - 1; i >= 1; --i) swap_local(b, f.pivot, i, v);
  }
}

// v := U_N Q_N^-1 ... U_1 Q_1^-1 v (the inverse of the backward sweep).
template <class T>
void apply_upper(const factor<T> &f, std::vector<double> &v) {
  const analysis &s = *f.s;
  for (int J = 1; J <= s.ns; ++J) {
    const block b = block_of(s, J);
    if (!f.cpivot.empty())
      for (int i = 1; i <= b.ncols - 1; ++i) swap_local(b, f.cpivot, i, v);
    const std::vector<double> old = v;
    for (int j = 0; j < b.ncols; ++j) {
      double t = 0;
      for (int k = j; k < b.ncols; ++k)
        t += double(f.lnz[s.xlnz[b.fst - 1 + k] - 1 + j]) * old[b.fst - 1 + k];
      const T *ucol = f.unz.data() + s.xunz[b.fst - 1 + j] - 1;
      for (int r = 0; r < b.below; ++r) t += double(ucol[r]) * old[b.rows[b.ncols + r] - 1];
      v[b.fst - 1 + j] = t;
    }
  }
}

// nrhs random solutions z and their right-hand sides b = M z.
struct problem {
  std::vector<double> z, b;
};

template <class T>
problem make_problem(const factor<T> &f, int nrhs, unsigned seed) {
  const int n = f.s->n;
  problem p;
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (int k = 0; k < nrhs; ++k) {
    std::vector<double> v(n);
    for (double &e : v) e = T(u(gen));
    p.z.insert(p.z.end(), v.begin(), v.end());
    apply_upper(f, v);
    apply_lower(f, v);
    for (double &e : v) e = T(e);
    p.b.insert(p.b.end(), v.begin(), v.end());
  }
  return p;
}

// Largest difference relative to the largest entry of ref.
template <class T>
double rel_diff(const std::vector<T> &x, const std::vector<double> &ref) {
  double d = 0, m = 0;
  for (size_t i = 0; i < ref.size(); ++i) {
    d = std::max(d, std::fabs(double(x[i]) - ref[i]));
    m = std::max(m, std::fabs(ref[i]));
  }
  return d / std::max(m, 1e-300);
}

template <class T>
void solve1(const factor<T> &f, std::vector<T> &x, int substep) {
  const analysis &s = *f.s;
  blkslv1<T>(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
             f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), f.cp(), x.data(),
             &substep);
}

template <class T>
void solve(const factor<T> &f, std::vector<T> &x, std::vector<T> &w, int ldw, int nrhs,
           int threads, int substep) {
  const analysis &s = *f.s;
  blkslv<T>(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
            s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), f.cp(),
            x.data(), w.data(), &ldw, &substep);
}

struct shape {
  std::string name;
  vekio::sparse m;
  int mtype, method, nparts, panel;
};

std::vector<shape> shapes() {
  std::vector<shape> out;
  out.push_back({"lap2d:10 panel 4", vekio::lap2d(10), 1, 0, 1, 4});
  out.push_back({"lap3d:5 dissected", vekio::lap3d(5), 11, 2, 4, 16});
  out.push_back({"lap2d:6 panel 1", vekio::lap2d(6), 1, 0, 1, 1});
  for (const char *name : {"west0479", "bcsstk01"}) {
    vekio::sparse m;
    EXPECT_TRUE(vektest::load(name, m));
    out.push_back({name, m, std::string(name) == "west0479" ? 11 : 1, 2, 1, 16});
  }
  return out;
}

template <class T>
std::vector<T> cast(const std::vector<double> &v) {
  return std::vector<T>(v.begin(), v.end());
}

TEST(Blkslv, OneRightHandSideSolvesTheFactorsOperator) {
  for (shape &sh : shapes()) {
    analysis s = analyse(sh.m, sh.mtype, sh.method, sh.nparts, sh.panel);
    for (bool colpiv : {false, true}) {
      SCOPED_TRACE(sh.name + (colpiv ? " with column pivots" : " row pivots only"));
      const factor<double> f = random_factor<double>(s, 11 + colpiv, colpiv);
      const problem p = make_problem(f, 1, 5);
      std::vector<double> x = p.b;
      solve1(f, x, 0);
      EXPECT_LT(rel_diff(x, p.z), 1e-12);

      // Forward only: what it leaves is taken back to b by the lower half.
      std::vector<double> y = p.b;
      solve1(f, y, 1);
      std::vector<double> back = y;
      apply_lower(f, back);
      EXPECT_LT(rel_diff(back, p.b), 1e-13);
      // Nothing on the diagonal; the backward step completes the solve.
      std::vector<double> y2 = y;
      solve1(f, y2, 2);
      EXPECT_EQ(y2, y);
      solve1(f, y2, 3);
      EXPECT_EQ(y2, x);
    }
  }
}

TEST(Blkslv, SeveralRightHandSidesAcrossThreads) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (shape &sh : shapes()) {
    analysis s = analyse(sh.m, sh.mtype, sh.method, sh.nparts, sh.panel);
    const bool colpiv = sh.mtype == 11;
    const factor<double> f = random_factor<double>(s, 23, colpiv);
    const problem p = make_problem(f, 5, 9);
    const int n = s.n;
    for (int nrhs : {1, 3, 5}) {
      const std::vector<double> b(p.b.begin(), p.b.begin() + static_cast<size_t>(n) * nrhs);
      const std::vector<double> z(p.z.begin(), p.z.begin() + static_cast<size_t>(n) * nrhs);
      // The single form, column by column, as the comparison.
      std::vector<double> one(b.size());
      for (int k = 0; k < nrhs; ++k) {
        std::vector<double> xk(b.begin() + static_cast<size_t>(k) * n,
                               b.begin() + static_cast<size_t>(k + 1) * n);
        solve1(f, xk, 0);
        std::copy(xk.begin(), xk.end(), one.begin() + static_cast<size_t>(k) * n);
      }
      for (int threads : {1, 2, 8}) {  // 5 on 2: 3 + 2; 8: fewer sides than threads
        SCOPED_TRACE(sh.name + ", " + std::to_string(nrhs) + " sides on " +
                     std::to_string(threads) + " threads");
        // w starts as garbage; a spare row per column must stay untouched.
        const int ldw = f.maxbelow + 1;
        std::vector<double> w(static_cast<size_t>(ldw) * nrhs, nan);
        std::vector<double> x = b;
        solve(f, x, w, ldw, nrhs, threads, 0);
        EXPECT_LT(rel_diff(x, z), 1e-12);
        EXPECT_LT(rel_diff(x, one), 1e-13);
        for (int k = 0; k < nrhs; ++k) EXPECT_TRUE(std::isnan(w[static_cast<size_t>(k) * ldw + ldw - 1]));

        // Sub-steps: the forward step leaves w clear; 332 does nothing;
        // 331 then 333 is the full solve.
        std::fill(w.begin(), w.end(), nan);
        std::vector<double> y = b;
        solve(f, y, w, ldw, nrhs, threads, 1);
        for (int k = 0; k < nrhs; ++k)
          for (int i = 0; i < f.maxbelow; ++i) ASSERT_EQ(w[static_cast<size_t>(k) * ldw + i], 0.0);
        for (int k = 0; k < nrhs; ++k) {
          std::vector<double> yk(y.begin() + static_cast<size_t>(k) * n,
                                 y.begin() + static_cast<size_t>(k + 1) * n);
          apply_lower(f, yk);
          EXPECT_LT(rel_diff(yk, std::vector<double>(b.begin() + static_cast<size_t>(k) * n,
                                                     b.begin() + static_cast<size_t>(k + 1) * n)),
                    1e-13);
        }
        const std::vector<double> y0 = y;
        solve(f, y, w, ldw, nrhs, threads, 2);
        EXPECT_EQ(y, y0);
        solve(f, y, w, ldw, nrhs, threads, 3);
        EXPECT_EQ(y, x);
      }
    }
  }
}

TEST(Blkslv, ColumnPivotsMatterAndIdentityRecordsEqualNone) {
  vekio::sparse m = vekio::lap3d(4);
  analysis s = analyse(m, 11, 0, 1, 16);
  factor<double> f = random_factor<double>(s, 7, true);
  const problem p = make_problem(f, 1, 8);
  std::vector<double> with = p.b;
  int sub = 0;
  blkslv1_unsym(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), f.cpivot.data(),
                with.data(), &sub);
  EXPECT_LT(rel_diff(with, p.z), 1e-12);
  // The same factor without its column exchanges gives another result.
  std::vector<double> without = p.b;
  blkslv1_d(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
            f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), without.data(), &sub);
  EXPECT_GT(rel_diff(without, p.z), 1e-3);
  // Exchanges of each column with itself are no exchanges.
  for (int J = 1; J <= s.ns; ++J)
    for (int c = s.xsup[J - 1]; c < s.xsup[J]; ++c) f.cpivot[c - 1] = c - s.xsup[J - 1] + 1;
  std::vector<double> ident = p.b, none = p.b;
  const int nrhs = 1, threads = 1, ldw = std::max(1, f.maxbelow);
  std::vector<double> w(ldw);
  blkslv_unsym(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
               s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
               f.cpivot.data(), ident.data(), w.data(), &ldw, &sub);
  blkslv_d(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
           s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
           none.data(), w.data(), &ldw, &sub);
  EXPECT_EQ(ident, none);
}

TEST(Blkslv, SinglePrecisionTwins) {
  vekio::sparse m = vekio::lap2d(9);
  analysis s = analyse(m, 11, 2, 1, 8);
  for (bool colpiv : {false, true}) {
    SCOPED_TRACE(colpiv ? "with column pivots" : "row pivots only");
    const factor<float> f = random_factor<float>(s, 17, colpiv);
    const problem p = make_problem(f, 3, 2);
    const int nrhs = 3, threads = 2, ldw = std::max(1, f.maxbelow), sub = 0;
    std::vector<float> w(static_cast<size_t>(ldw) * nrhs);
    std::vector<float> x1 = cast<float>(std::vector<double>(p.b.begin(), p.b.begin() + s.n));
    std::vector<float> x3 = cast<float>(p.b);
    if (colpiv) {
      sp_blkslv1_unsym(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                       f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
                       f.cpivot.data(), x1.data(), &sub);
      sp_blkslv_unsym(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(),
                      s.lindx.data(), s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(),
                      f.pivot.data(), f.cpivot.data(), x3.data(), w.data(), &ldw, &sub);
    } else {
      sp_blkslv1(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                 f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), x1.data(), &sub);
      sp_blkslv(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
                x3.data(), w.data(), &ldw, &sub);
    }
    EXPECT_LT(rel_diff(x1, std::vector<double>(p.z.begin(), p.z.begin() + s.n)), 1e-5);
    EXPECT_LT(rel_diff(x3, p.z), 1e-5);
  }
}

TEST(Blkslv, NoSidesOrNoSupernodesLeaveXAlone) {
  vekio::sparse m = vekio::lap2d(4);
  analysis s = analyse(m, 1, 0, 1, 4);
  const factor<double> f = random_factor<double>(s, 1, false);
  std::vector<double> x(s.n, 2.5), w(std::max(1, f.maxbelow), 0.0);
  solve(f, x, w, std::max(1, f.maxbelow), 0, 2, 0);
  EXPECT_EQ(x, std::vector<double>(s.n, 2.5));
  analysis empty = s;
  empty.ns = 0;
  factor<double> g = f;
  g.s = &empty;
  solve1(g, x, 0);
  solve(g, x, w, std::max(1, f.maxbelow), 1, 1, 0);
  EXPECT_EQ(x, std::vector<double>(s.n, 2.5));
}

}  // namespace
