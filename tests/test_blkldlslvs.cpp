// Sweeps with a supernodal LDL^T factor on the structure of the library's
// analysis of symmetric matrices (type -2), with random values and pivot
// records. The operator of the factor is built here from dense pieces:
//   A = G_1 ... G_N D G_N^T ... G_1^T,
// G_J the identity but for the columns of supernode J: M_J in the block's
// rows, L21 below. M_J = P_1 ... P_{m-1} L11 with diagonal pivoting,
// P(1) L(1) P(2) L(2) ... with Bunch-Kaufman records. A solve returns z from
// A z.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "blkldlslvs.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

typedef std::vector<double> dvec;
using vektest::analysis;

const double not_a_number = std::numeric_limits<double>::quiet_NaN();

// A random factor; the strict upper triangle of each block is NaN, as no
// solve may read it. L is scaled by the block height; 1 by 1 pivots are 1
// to 2 in size; 2 by 2 pivots have a small diagonal and a large d21.
template <class T> struct factor {
  const analysis *s = nullptr;
  int diagp = 1, maxbelow = 0, twobytwo = 0;
  std::vector<T> lnz;
  std::vector<int> pivot;
  std::vector<dvec> M;  // M_J, column-major ncols by ncols
  int fst(int J) const { return s->xsup[J - 1]; }
  int ncols(int J) const { return s->xsup[J] - s->xsup[J - 1]; }
  int nrows(int J) const { return s->xlindx[J] - s->xlindx[J - 1]; }
  int row(int J, int r) const { return s->lindx[s->xlindx[J - 1] + r - 2]; }  // global
  int piv(int J, int k) const { return pivot[fst(J) + k - 2]; }
  double L(int J, int r, int c) const { return lnz[s->xlnz[fst(J) + c - 2] + r - 2]; }
};

template <class T> factor<T> random_factor(const analysis &s, int diagp, unsigned seed) {
  factor<T> f;
  f.s = &s;
  f.diagp = diagp;
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  auto big = [&] { return (u(gen) < 0 ? -1 : 1) * (1.5 + 0.5 * u(gen)); };
  f.lnz.assign(std::max(1, s.xlnz[s.n] - 1), T(not_a_number));
  f.pivot.assign(s.n, 0);
  f.M.resize(s.ns + 1);
  for (int J = 1; J <= s.ns; ++J) {
    const int m = f.ncols(J), nr = f.nrows(J);
    f.maxbelow = std::max(f.maxbelow, nr - m);
    auto cell = [&](int r, int c) -> T & { return f.lnz[s.xlnz[f.fst(J) + c - 2] + r - 2]; };
    int *piv = &f.pivot[f.fst(J) - 1];
    for (int c = 1; c <= m; ++c)
      for (int r = c + 1; r <= nr; ++r) cell(r, c) = T(u(gen) / nr);
    for (int k = 1; k <= m;) {
      const bool two = diagp == 0 && k < m && u(gen) < 0;
      const int kp = std::uniform_int_distribution<int>(k + two, m)(gen);
      if (two) {
        piv[k - 1] = piv[k] = -kp;
        cell(k, k) = T(0.3 * u(gen));
        cell(k + 1, k + 1) = T(0.3 * u(gen));
        cell(k + 1, k) = T(big());
        ++f.twobytwo;
      } else {
        piv[k - 1] = kp;
        cell(k, k) = T(big());
      }
      k += two ? 2 : 1;
    }
    dvec &M = f.M[J];
    M.assign(static_cast<size_t>(m) * m, 0.0);
    auto Mx = [&](int r, int c) -> double & { return M[(c - 1) * m + (r - 1)]; };
    for (int c = 1; c <= m; ++c) Mx(c, c) = 1.0;
    // M := M L(k), the multipliers of column c from row `from` on.
    auto times_column = [&](int c, int from) {
      for (int r = 1; r <= m; ++r)
        for (int o = from; o <= m; ++o) Mx(r, c) += Mx(r, o) * f.L(J, o, c);
    };
    if (diagp) {
      for (int c = 1; c <= m; ++c)
        for (int r = c + 1; r <= m; ++r) Mx(r, c) = f.L(J, r, c);
      for (int i = m; i >= 1; --i)
        for (int c = 1; c <= m; ++c) std::swap(Mx(i, c), Mx(piv[i - 1], c));
    } else {
      for (int k = 1; k <= m;) {
        const int p = piv[k - 1], a = p > 0 ? k : k + 1;
        for (int r = 1; r <= m; ++r) std::swap(Mx(r, a), Mx(r, std::abs(p)));
        for (int c = k; c <= a; ++c) times_column(c, a + 1);
        k = a + 1;
      }
    }
  }
  return f;
}

// v := G_J v, or G_J^T v.
template <class T> void apply_g(const factor<T> &f, int J, bool trans, dvec &v) {
  const int m = f.ncols(J), o = f.fst(J) - 1;
  const dvec &M = f.M[J];
  const dvec v1(v.begin() + o, v.begin() + o + m);
  for (int i = 1; i <= m; ++i) {
    double t = 0;
    for (int j = 1; j <= m; ++j) t += (trans ? M[(i - 1) * m + j - 1] : M[(j - 1) * m + i - 1]) * v1[j - 1];
    for (int r = m + 1; trans && r <= f.nrows(J); ++r) t += f.L(J, r, i) * v[f.row(J, r) - 1];
    v[o + i - 1] = t;
  }
  for (int r = m + 1; !trans && r <= f.nrows(J); ++r)
    for (int j = 1; j <= m; ++j) v[f.row(J, r) - 1] += f.L(J, r, j) * v1[j - 1];
}

// v := D v (exchanges false), or v := Pi v, the exchanges of all blocks in
// the order of the factorization (exchanges true).
template <class T> void apply_blocks(const factor<T> &f, bool exchanges, dvec &v) {
  for (int J = 1; J <= f.s->ns; ++J) {
    double *v1 = v.data() + f.fst(J) - 1;
    for (int k = 1; k <= f.ncols(J);) {
      const int p = f.piv(J, k), a = p > 0 ? k : k + 1;
      if (exchanges) {
        std::swap(v1[a - 1], v1[std::abs(p) - 1]);
      } else if (p > 0) {
        v1[k - 1] *= f.L(J, k, k);
      } else {
        const double d21 = f.L(J, k + 1, k), x = v1[k - 1], y = v1[k];
        v1[k - 1] = f.L(J, k, k) * x + d21 * y;
        v1[k] = d21 * x + f.L(J, k + 1, k + 1) * y;
      }
      k = a + 1;
    }
  }
}

template <class T> void apply_lower(const factor<T> &f, dvec &v) {
  for (int J = f.s->ns; J >= 1; --J) apply_g(f, J, false, v);
}

// nrhs random solutions z and their right-hand sides b = A z.
template <class T> void make_problem(const factor<T> &f, int nrhs, dvec &z, dvec &b) {
  std::mt19937 gen(nrhs);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (int k = 0; k < nrhs; ++k) {
    dvec v(f.s->n);
    for (double &e : v) e = T(u(gen));
    z.insert(z.end(), v.begin(), v.end());
    for (int J = 1; J <= f.s->ns; ++J) apply_g(f, J, true, v);
    apply_blocks(f, false, v);
    apply_lower(f, v);
    for (double &e : v) b.push_back(T(e));
  }
}

template <class T> double rel_diff(const std::vector<T> &x, const dvec &ref) {
  double d = 0, m = 1e-300;
  for (size_t i = 0; i < ref.size(); ++i) {
    d = std::max(d, std::fabs(double(x[i]) - ref[i]));
    m = std::max(m, std::fabs(ref[i]));
  }
  return d / m;
}

template <class T> void solve1(const factor<T> &f, std::vector<T> &x, int sub) {
  const analysis &s = *f.s;
  blkldlslvs1<T>(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                 f.lnz.data(), f.pivot.data(), &f.diagp, x.data(), &sub);
}

template <class T>
void solve(const factor<T> &f, std::vector<T> &x, std::vector<T> &w, int ldw, int nrhs,
           int threads, int sub) {
  const analysis &s = *f.s;
  blkldlslvs<T>(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                s.xlnz.data(), f.lnz.data(), f.pivot.data(), &f.diagp, x.data(), w.data(), &ldw,
                &sub);
}

analysis analyse(const vekio::sparse &full, int method, int nparts, int panel) {
  vekio::sparse up = vekio::storage_for_type(full, -2);
  return vektest::analyse(up, -2, nullptr, method, nparts, panel);
}

TEST(Blkldlslvs, OneAndSeveralRightHandSidesAcrossThreadsAndSubSteps) {
  const std::pair<const char *, analysis> shapes[] = {
      {"lap2d:10 panel 4", analyse(vekio::lap2d(10), 0, 1, 4)},
      {"lap3d:5 dissected", analyse(vekio::lap3d(5), 2, 4, 16)}};
  for (const auto &sh : shapes) {
    const int n = sh.second.n;
    for (int diagp : {1, 0}) {
      SCOPED_TRACE(std::string(sh.first) + (diagp ? ", diagonal pivoting" : ", Bunch-Kaufman"));
      const factor<double> f = random_factor<double>(sh.second, diagp, 3 + diagp);
      EXPECT_TRUE(diagp || f.twobytwo > 2);
      dvec z, b;
      make_problem(f, 5, z, b);
      // One side: the solve, then its sub-steps.
      dvec x1(b.begin(), b.begin() + n), y1 = x1, t;
      solve1(f, x1, 0);
      EXPECT_LT(rel_diff(x1, dvec(z.begin(), z.begin() + n)), 1e-12);
      // Forward: in pivot order, the lower factor takes it back to b.
      solve1(f, y1, 1);
      apply_blocks(f, true, t = y1);
      apply_lower(f, t);
      EXPECT_LT(rel_diff(t, dvec(b.begin(), b.begin() + n)), 1e-13);
      // Diagonal: in pivot order, D times the result is what it received.
      apply_blocks(f, true, t = y1);
      solve1(f, y1, 2);
      dvec d = y1;
      apply_blocks(f, true, d);
      apply_blocks(f, false, d);
      EXPECT_LT(rel_diff(d, t), 1e-14);
      // Backward completes the full solve.
      solve1(f, y1, 3);
      EXPECT_EQ(y1, x1);

      const int ldw = f.maxbelow + 1;  // a spare row per column stays untouched
      for (int nrhs : {1, 3, 5})
        for (int threads : {1, 2}) {  // 5 on 2: 3 + 2
          SCOPED_TRACE(testing::Message() << nrhs << " sides on " << threads << " threads");
          const dvec bk(b.begin(), b.begin() + n * nrhs);
          dvec w(static_cast<size_t>(ldw) * nrhs, not_a_number), x = bk;
          solve(f, x, w, ldw, nrhs, threads, 0);
          EXPECT_LT(rel_diff(x, dvec(z.begin(), z.begin() + n * nrhs)), 1e-12);
          // Each sub-step agrees with the single form column by column; the
          // forward step leaves w clear; 1, 2, 3 in turn is the full solve.
          dvec y = bk;
          for (int sub : {1, 2, 3}) {
            dvec ref = y;
            solve(f, y, w, ldw, nrhs, threads, sub);
            for (int k = 0; k < nrhs; ++k) {
              dvec rk(ref.begin() + k * n, ref.begin() + (k + 1) * n);
              solve1(f, rk, sub);
              std::copy(rk.begin(), rk.end(), ref.begin() + k * n);
            }
            EXPECT_LT(rel_diff(y, ref), 1e-13) << "sub-step " << sub;
            for (size_t i = 0; i < w.size(); ++i)
              ASSERT_TRUE(i % ldw == size_t(ldw - 1) ? std::isnan(w[i]) : (sub == 3 || w[i] == 0.0)) << i;
          }
          EXPECT_EQ(y, x);
        }
    }
  }
}

TEST(Blkldlslvs, SinglePrecisionTwinsAndEmptyCalls) {
  analysis s = analyse(vekio::lap2d(9), 2, 1, 8);
  for (int diagp : {1, 0}) {
    const factor<float> f = random_factor<float>(s, diagp, 17);
    dvec z, b;
    make_problem(f, 3, z, b);
    const int nrhs = 3, threads = 2, ldw = std::max(1, f.maxbelow), sub = 0;
    std::vector<float> w(static_cast<size_t>(ldw) * nrhs), x1(b.begin(), b.begin() + s.n),
        x3(b.begin(), b.end());
    sp_blkldlslvs1(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                   f.lnz.data(), f.pivot.data(), &diagp, x1.data(), &sub);
    sp_blkldlslvs(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                  s.xlnz.data(), f.lnz.data(), f.pivot.data(), &diagp, x3.data(), w.data(), &ldw,
                  &sub);
    EXPECT_LT(rel_diff(x1, dvec(z.begin(), z.begin() + s.n)), 1e-5) << diagp;
    EXPECT_LT(rel_diff(x3, z), 1e-5) << diagp;
  }
  // No right-hand sides, or no supernodes: x stays as it was.
  factor<double> f = random_factor<double>(s, 0, 1);
  dvec x(s.n, 2.5), w(std::max(1, f.maxbelow), 0.0);
  for (int sub : {0, 1, 2, 3}) solve(f, x, w, std::max(1, f.maxbelow), 0, 2, sub);
  s.ns = 0;
  for (int sub : {0, 1, 2, 3}) {
    solve1(f, x, sub);
    solve(f, x, w, 1, 1, 1, sub);
  }
  EXPECT_EQ(x, dvec(s.n, 2.5));
}

}  // namespace
