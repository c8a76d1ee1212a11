// Sweeps with a supernodal LDL^T factor. The structure comes from the
// library's analysis of a symmetric matrix (type -2, upper triangle stored);
// the factor values and pivot records are random. The operator the factor
// stands for is built here from dense pieces:
//   A = G_1 ... G_N D G_N^T ... G_1^T,
// G_J the identity but for the columns of supernode J, which hold M_J in the
// block's own rows and L21 in the rows below; D block diagonal. M_J is
//   P_1 P_2 ... P_{m-1} L11             (diagonal pivoting, diagp 1),
//   P(1) L(1) P(2) L(2) ...             (Bunch-Kaufman, diagp 0),
// P the row exchanges of the records, L(k) the unit lower factor of one
// pivot's columns. A solve of A x = b has to return x.
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

typedef std::vector<int> ivec;
typedef std::vector<double> dvec;

using vektest::analysis;

const double not_a_number = std::numeric_limits<double>::quiet_NaN();

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

// A random factor on the structure s, with M_J formed densely (column-major,
// ncols by ncols). Off-diagonal entries of L are scaled by the block height;
// 1 by 1 pivots are 1 to 2 in size, of either sign; 2 by 2 pivots have a
// small diagonal and a large off-diagonal entry, so that Bunch-Kaufman would
// have chosen them. The strict upper triangle of each block is NaN.
template <class T>
struct factor {
  const analysis *s = nullptr;
  int diagp = 1, maxbelow = 0, twobytwo = 0;
  std::vector<T> lnz;
  ivec pivot;
  std::vector<dvec> M;

  double L(const block &b, int r, int c) const {  // local, one-based
    return double(lnz[s->xlnz[b.fst + c - 2] - 1 + (r - 1)]);
  }
};

template <class T>
factor<T> random_factor(const analysis &s, int diagp, unsigned seed) {
  factor<T> f;
  f.s = &s;
  f.diagp = diagp;
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  f.lnz.assign(std::max(1, s.xlnz[s.n] - 1), T(not_a_number));
  f.pivot.assign(s.n, 0);
  f.M.resize(s.ns + 1);
  for (int J = 1; J <= s.ns; ++J) {
    const block b = block_of(s, J);
    f.maxbelow = std::max(f.maxbelow, b.below);
    auto cell = [&](int r, int c) -> T & { return f.lnz[s.xlnz[b.fst + c - 2] - 1 + (r - 1)]; };
    auto big = [&] { return (u(gen) < 0 ? -1 : 1) * (1.5 + 0.5 * u(gen)); };
    for (int c = 1; c <= b.ncols; ++c)
      for (int r = c + 1; r <= b.nrows; ++r) cell(r, c) = T(u(gen) / b.nrows);
    int *piv = f.pivot.data() + b.fst - 1;
    for (int k = 1; k <= b.ncols;) {
      if (diagp == 0 && k < b.ncols && u(gen) < 0) {
        const int kp = std::uniform_int_distribution<int>(k + 1, b.ncols)(gen);
        piv[k - 1] = piv[k] = -kp;
        cell(k, k) = T(0.3 * u(gen));
        cell(k + 1, k + 1) = T(0.3 * u(gen));
        cell(k + 1, k) = T(big());
        ++f.twobytwo;
        k += 2;
      } else {
        piv[k - 1] = std::uniform_int_distribution<int>(k, b.ncols)(gen);
        cell(k, k) = T(big());
        k += 1;
      }
    }
    // M_J in dense form.
    const int m = b.ncols;
    dvec &M = f.M[J];
    M.assign(static_cast<size_t>(m) * m, 0.0);
    auto Mx = [&](int r, int c) -> double & { return M[(c - 1) * m + (r - 1)]; };
    auto swap_rows = [&](int i, int j) {
      for (int c = 1; c <= m; ++c) std::swap(Mx(i, c), Mx(j, c));
    };
    auto swap_cols = [&](int i, int j) {
      for (int r = 1; r <= m; ++r) std::swap(Mx(r, i), Mx(r, j));
    };
    // M := M L(k) for column c of the multipliers from row `from` on.
    auto times_column = [&](int c, int from) {
      for (int r = 1; r <= m; ++r) {
        double t = 0;
        for (int o = from; o <= m; ++o) t += Mx(r, o) * f.L(b, o, c);
        Mx(r, c) += t;
      }
    };
    if (diagp) {
      for (int c = 1; c <= m; ++c) {
        Mx(c, c) = 1.0;
        for (int r = c + 1; r <= m; ++r) Mx(r, c) = f.L(b, r, c);
      }
      for (int i = m; i >= 1; --i) swap_rows(i, piv[i - 1]);
    } else {
      for (int c = 1; c <= m; ++c) Mx(c, c) = 1.0;
      for (int k = 1; k <= m;) {
        if (piv[k - 1] > 0) {
          swap_cols(k, piv[k - 1]);
          times_column(k, k + 1);
          k += 1;
        } else {
          swap_cols(k + 1, -piv[k - 1]);
          times_column(k, k + 2);
          times_column(k + 1, k + 2);
          k += 2;
        }
      }
    }
  }
  return f;
}

// v := G_J v or v := G_J^T v.
template <class T>
void apply_g(const factor<T> &f, int J, bool transposed, dvec &v) {
  const block b = block_of(*f.s, J);
  const int m = b.ncols;
  const dvec &M = f.M[J];
  const dvec v1(v.begin() + b.fst - 1, v.begin() + b.fst - 1 + m);
  for (int i = 1; i <= m; ++i) {
    double t = 0;
    for (int j = 1; j <= m; ++j) t += (transposed ? M[(i - 1) * m + j - 1] : M[(j - 1) * m + i - 1]) * v1[j - 1];
    if (transposed)
      for (int r = m + 1; r <= b.nrows; ++r) t += f.L(b, r, i) * v[b.rows[r - 1] - 1];
    v[b.fst + i - 2] = t;
  }
  if (!transposed)
    for (int r = m + 1; r <= b.nrows; ++r)
      for (int j = 1; j <= m; ++j) v[b.rows[r - 1] - 1] += f.L(b, r, j) * v1[j - 1];
}

// v := D v, block by block.
template <class T>
void apply_d(const factor<T> &f, dvec &v) {
  for (int J = 1; J <= f.s->ns; ++J) {
    const block b = block_of(*f.s, J);
    double *v1 = v.data() + b.fst - 1;
    for (int k = 1; k <= b.ncols;) {
      if (f.pivot[b.fst + k - 2] > 0) {
        v1[k - 1] *= f.L(b, k, k);
        k += 1;
      } else {
        const double d11 = f.L(b, k, k), d21 = f.L(b, k + 1, k), d22 = f.L(b, k + 1, k + 1);
        const double a = v1[k - 1], c = v1[k];
        v1[k - 1] = d11 * a + d21 * c;
        v1[k] = d21 * a + d22 * c;
        k += 2;
      }
    }
  }
}

// v := G_1 ... G_N v.
template <class T>
void apply_lower(const factor<T> &f, dvec &v) {
  for (int J = f.s->ns; J >= 1; --J) apply_g(f, J, false, v);
}

template <class T>
void apply_a(const factor<T> &f, dvec &v) {
  for (int J = 1; J <= f.s->ns; ++J) apply_g(f, J, true, v);
  apply_d(f, v);
  apply_lower(f, v);
}

// The pivot order: every block's exchanges, in the order of the factorization.
template <class T>
void apply_exchanges(const factor<T> &f, dvec &v) {
  for (int J = 1; J <= f.s->ns; ++J) {
    const block b = block_of(*f.s, J);
    double *v1 = v.data() + b.fst - 1;
    for (int k = 1; k <= b.ncols;) {
      const int p = f.pivot[b.fst + k - 2];
      if (p > 0) std::swap(v1[k - 1], v1[p - 1]);
      else std::swap(v1[k], v1[-p - 1]);
      k += p > 0 ? 1 : 2;
    }
  }
}

// nrhs random solutions z and their right-hand sides b = A z.
struct problem {
  dvec z, b;
};

template <class T>
problem make_problem(const factor<T> &f, int nrhs, unsigned seed) {
  problem p;
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (int k = 0; k < nrhs; ++k) {
    dvec v(f.s->n);
    for (double &e : v) e = T(u(gen));
    p.z.insert(p.z.end(), v.begin(), v.end());
    apply_a(f, v);
    for (double &e : v) e = T(e);
    p.b.insert(p.b.end(), v.begin(), v.end());
  }
  return p;
}

template <class T>
double rel_diff(const std::vector<T> &x, const dvec &ref) {
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
  blkldlslvs1<T>(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                 f.lnz.data(), f.pivot.data(), &f.diagp, x.data(), &substep);
}

template <class T>
void solve(const factor<T> &f, std::vector<T> &x, std::vector<T> &w, int ldw, int nrhs,
           int threads, int substep) {
  const analysis &s = *f.s;
  blkldlslvs<T>(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                s.xlnz.data(), f.lnz.data(), f.pivot.data(), &f.diagp, x.data(), w.data(), &ldw,
                &substep);
}

dvec column(const dvec &v, int n, int k) {
  return dvec(v.begin() + static_cast<size_t>(k) * n, v.begin() + static_cast<size_t>(k + 1) * n);
}

struct shape {
  std::string name;
  analysis s;
};

std::vector<shape> shapes() {
  struct spec {
    std::string name;
    vekio::sparse full;
    int method, nparts, panel;
  };
  std::vector<spec> in = {{"lap2d:10 panel 4", vekio::lap2d(10), 0, 1, 4},
                          {"lap3d:5 dissected", vekio::lap3d(5), 2, 4, 16}};
  vekio::sparse m;
  if (vektest::load("bcsstk01", m)) in.push_back({"bcsstk01", m, 2, 1, 16});
  std::vector<shape> out;
  for (spec &sp : in) {
    vekio::sparse up = vekio::storage_for_type(sp.full, -2);
    out.push_back({sp.name, vektest::analyse(up, -2, nullptr, sp.method, sp.nparts, sp.panel)});
  }
  return out;
}

TEST(Blkldlslvs, OneRightHandSideAndItsSubSteps) {
  for (const shape &sh : shapes()) {
    for (int diagp : {1, 0}) {
      SCOPED_TRACE(sh.name + (diagp ? ", diagonal pivoting" : ", Bunch-Kaufman"));
      const factor<double> f = random_factor<double>(sh.s, diagp, 3 + diagp);
      if (!diagp) {
        EXPECT_GT(f.twobytwo, 2);
      }
      const problem p = make_problem(f, 1, 5);
      dvec x = p.b;
      solve1(f, x, 0);
      EXPECT_LT(rel_diff(x, p.z), 1e-12);

      // Forward: in pivot order, the lower factor takes it back to b.
      dvec y = p.b;
      solve1(f, y, 1);
      dvec t = y;
      apply_exchanges(f, t);
      apply_lower(f, t);
      EXPECT_LT(rel_diff(t, p.b), 1e-13);
      // Diagonal: in pivot order, D times the result is what it received.
      dvec y2 = y;
      solve1(f, y2, 2);
      dvec d = y2, before = y;
      apply_exchanges(f, d);
      apply_d(f, d);
      apply_exchanges(f, before);
      EXPECT_LT(rel_diff(d, before), 1e-14);
      // Backward completes the full solve.
      solve1(f, y2, 3);
      EXPECT_EQ(y2, x);
    }
  }
}

TEST(Blkldlslvs, SeveralRightHandSidesAcrossThreads) {
  for (const shape &sh : shapes()) {
    const int n = sh.s.n;
    for (int diagp : {1, 0}) {
      const factor<double> f = random_factor<double>(sh.s, diagp, 7 + diagp);
      const problem p = make_problem(f, 5, 9);
      // w starts as garbage; a spare row per column must stay untouched.
      const int ldw = f.maxbelow + 1;
      for (int nrhs : {1, 3, 5}) {
        const dvec b(p.b.begin(), p.b.begin() + static_cast<size_t>(n) * nrhs);
        const dvec z(p.z.begin(), p.z.begin() + static_cast<size_t>(n) * nrhs);
        for (int threads : {1, 2}) {  // 5 on 2: 3 + 2
          SCOPED_TRACE(sh.name + (diagp ? ", diagonal pivoting, " : ", Bunch-Kaufman, ") +
                       std::to_string(nrhs) + " sides on " + std::to_string(threads) +
                       " threads");
          dvec w(static_cast<size_t>(ldw) * nrhs, not_a_number);
          dvec x = b;
          solve(f, x, w, ldw, nrhs, threads, 0);
          EXPECT_LT(rel_diff(x, z), 1e-12);
          for (int k = 0; k < nrhs; ++k)
            EXPECT_TRUE(std::isnan(w[static_cast<size_t>(k) * ldw + ldw - 1]));

          // Each sub-step agrees with the single form, column by column; the
          // forward step leaves w clear; 1, 2, 3 in turn is the full solve.
          std::fill(w.begin(), w.end(), not_a_number);
          dvec y = b;
          for (int sub : {1, 2, 3}) {
            const dvec in = y;
            solve(f, y, w, ldw, nrhs, threads, sub);
            for (int k = 0; k < nrhs; ++k) {
              dvec ref = column(in, n, k);
              solve1(f, ref, sub);
              EXPECT_LT(rel_diff(column(y, n, k), ref), 1e-13) << "sub-step " << sub;
            }
            if (sub == 1) {
              for (int k = 0; k < nrhs; ++k)
                for (int i = 0; i < f.maxbelow; ++i)
                  ASSERT_EQ(w[static_cast<size_t>(k) * ldw + i], 0.0);
            }
          }
          EXPECT_EQ(y, x);
        }
      }
    }
  }
}

TEST(Blkldlslvs, SinglePrecisionTwinsAndEmptyCalls) {
  vekio::sparse full = vekio::lap2d(9);
  vekio::sparse up = vekio::storage_for_type(full, -2);
  const analysis s = vektest::analyse(up, -2, nullptr, 2, 1, 8);
  for (int diagp : {1, 0}) {
    SCOPED_TRACE(diagp ? "diagonal pivoting" : "Bunch-Kaufman");
    const factor<float> f = random_factor<float>(s, diagp, 17);
    const problem p = make_problem(f, 3, 2);
    const int nrhs = 3, threads = 2, ldw = std::max(1, f.maxbelow), sub = 0;
    std::vector<float> w(static_cast<size_t>(ldw) * nrhs);
    std::vector<float> x1(p.b.begin(), p.b.begin() + s.n), x3(p.b.begin(), p.b.end());
    sp_blkldlslvs1(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                   f.lnz.data(), f.pivot.data(), &diagp, x1.data(), &sub);
    sp_blkldlslvs(&s.ns, &nrhs, &threads, &s.n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                  s.xlnz.data(), f.lnz.data(), f.pivot.data(), &diagp, x3.data(), w.data(), &ldw,
                  &sub);
    EXPECT_LT(rel_diff(x1, column(p.z, s.n, 0)), 1e-5);
    EXPECT_LT(rel_diff(x3, p.z), 1e-5);
  }
  // No right-hand sides, or no supernodes: x stays as it was.
  const factor<double> f = random_factor<double>(s, 0, 1);
  analysis empty = s;
  empty.ns = 0;
  factor<double> g = f;
  g.s = &empty;
  dvec x(s.n, 2.5), w(std::max(1, f.maxbelow), 0.0);
  for (int sub : {0, 1, 2, 3}) {
    solve(f, x, w, std::max(1, f.maxbelow), 0, 2, sub);
    solve1(g, x, sub);
    solve(g, x, w, std::max(1, f.maxbelow), 1, 1, sub);
  }
  EXPECT_EQ(x, dvec(s.n, 2.5));
}

}  // namespace
