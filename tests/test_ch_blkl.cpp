// The Hermitian Cholesky sweep and its solves on structures from the
// library's own analysis: L L^H against the permuted input on random
// probes; a pivot that is not positive reports its input column; the solves
// against the system.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "blkl.h"
#include "blkslvs.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

using vektest::ivec;
typedef std::complex<double> zc;

// A real symmetric model problem made Hermitian: each coupling keeps 0.9 of
// its modulus and gets a phase, conjugate across the diagonal; diagonally
// dominant, so positive definite.
vekio::sparse hermitian_from(const vekio::sparse &r) {
  vekio::sparse m = r;
  m.cplx = true;
  m.a.clear();
  for (int i = 1; i <= m.n; ++i)
    for (int k = r.ia[i - 1]; k < r.ia[i]; ++k) {
      const int j = r.ja[k - 1];
      const double th = 0.37 * std::min(i, j) + 1.1 * std::max(i, j);
      const zc v = i == j ? zc(r.a[k - 1], 0.0) : 0.9 * r.a[k - 1] * std::polar(1.0, i < j ? th : -th);
      m.a.push_back(v.real());
      m.a.push_back(v.imag());
    }
  return m;
}

struct problem {
  vekio::sparse up;  // the upper triangle that type 4 takes
  vektest::analysis s;
  vektest::scatter_lists L;
  long scattered = 0;  // temp that the updates through temp need
};

problem prepare(const vekio::sparse &full, int method, int panel) {
  problem p;
  p.up = vekio::storage_for_type(full, 4);
  p.s = vektest::analyse(p.up, 4, nullptr, method, 1, panel);
  p.L = vektest::make_scatter_lists(p.up, p.s, 4, nullptr, 0);
  const vektest::analysis &s = p.s;
  for (int K = 1; K <= s.ns; ++K) {  // the update paths, in the order of their tests
    const int kn = s.xsup[K] - s.xsup[K - 1], last = s.xlindx[K];
    for (int q = s.xlindx[K - 1] + kn; q < last;) {
      const int T = s.snode[s.lindx[q - 1] - 1], rem = last - q;
      int nd = 0, first = -1, lastpos = -1;
      while (nd < rem && s.lindx[q - 1 + nd] < s.xsup[T]) ++nd;
      for (int t = s.xlindx[T - 1]; t < s.xlindx[T]; ++t) {
        if (s.lindx[t - 1] == s.lindx[q - 1]) first = t;
        if (s.lindx[t - 1] == s.lindx[last - 2]) lastpos = t;
      }
      if (rem != s.xlindx[T] - s.xlindx[T - 1] && kn > 1 && lastpos - first >= rem)
        p.scattered = std::max(p.scattered, long(rem) * nd);
      q += nd;
    }
  }
  return p;
}

template <class T> std::vector<T> values(const std::vector<double> &pairs) {
  std::vector<T> v(pairs.size() / 2);
  for (size_t k = 0; k < v.size(); ++k) v[k] = T(pairs[2 * k], pairs[2 * k + 1]);
  return v;
}

// The sweep on arrays filled with garbage; tmpsize -1: the analysis' size.
template <class T> int factor(const problem &p, std::vector<T> &lnz, int tmpsize = -1) {
  const vektest::analysis &s = p.s;
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], one = 1, msglvl = 0;
  if (tmpsize < 0) tmpsize = s.comi[37 - 1];
  lnz.assign(std::max(1, nnzl), T(7, -7));
  const std::vector<T> a = values<T>(p.up.a);
  ivec indmap(n, 3), relind(n, 3), link(n, 5), length(std::max(1, ns), 5);
  std::vector<T> temp(std::max(1, tmpsize), T(7, 7));
  int error = 99;
  ch_blkl<T>(a.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
             lnz.data(), indmap.data(), relind.data(), &tmpsize, temp.data(), s.nmod.data(),
             link.data(), s.snode.data(), s.xsup.data(), length.data(), p.L.xjalf.data(),
             p.L.jalf.data(), p.L.luperm.data(), s.perm.data(), &msglvl, &error);
  if (error == 0) {
    EXPECT_TRUE(std::all_of(temp.begin(), temp.begin() + tmpsize, [](T t) { return t == T(0); }));
  }
  return error;
}

// max |L L^H v - P A P^T v| / (|A| |v|) over two random complex v.
template <class T> double factor_misfit(const problem &p, const std::vector<T> &lnz) {
  const vektest::analysis &s = p.s;
  const int n = s.n;
  std::mt19937 g(5);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  double worst = 0;
  for (int probe = 0; probe < 2; ++probe) {
    std::vector<zc> v(n), y(n, 0.0), z(n, 0.0), w(n), aw(n);
    for (zc &x : v) x = zc(d(g), d(g));
    for (int pass = 0; pass < 2; ++pass)  // y := L^H v, then z := L y
      for (int J = 1; J <= s.ns; ++J)
        for (int c = s.xsup[J - 1]; c < s.xsup[J]; ++c)
          for (int k = c - s.xsup[J - 1]; k < s.xlnz[c] - s.xlnz[c - 1]; ++k) {
            const int r = s.lindx[s.xlindx[J - 1] - 1 + k] - 1;
            const zc l = zc(lnz[s.xlnz[c - 1] - 1 + k]);
            if (pass == 0) y[c - 1] += std::conj(l) * v[r];
            else z[r] += l * y[c - 1];
          }
    for (int i = 0; i < n; ++i) w[s.perm[i] - 1] = v[i];  // row i of P A P^T: perm(i) of A
    vekio::multiply(p.up, 4, reinterpret_cast<const double *>(w.data()),
                    reinterpret_cast<double *>(aw.data()));
    for (int i = 0; i < n; ++i) worst = std::max(worst, std::abs(z[i] - aw[s.perm[i] - 1]));
  }
  return worst / vekio::norm_inf(p.up, 4);
}

TEST(ChBlkl, FactorsHermitianMatricesAndReportsTheInputColumnOfABadPivot) {
  vekio::sparse mhd;
  ASSERT_TRUE(vektest::load("mhd1280b", mhd));
  const vekio::sparse mats[] = {hermitian_from(vekio::lap2d(10)),
                                hermitian_from(vekio::lap3d(5)), mhd};
  long scattered = 0;
  for (const vekio::sparse &m : mats)
    for (int method : {0, 2})
      for (int panel : {4, 64}) {
        SCOPED_TRACE(testing::Message() << "n " << m.n << " method " << method << " panel "
                                        << panel);
        problem p = prepare(m, method, panel);
        std::vector<zc> lnz;
        ASSERT_EQ(factor(p, lnz), 0);
        EXPECT_LT(factor_misfit(p, lnz), 1e-14);
        if (p.scattered > 0) {  // temp of exactly the size needed; one entry less refused
          scattered = std::max(scattered, p.scattered);
          EXPECT_EQ(factor(p, lnz, int(p.scattered)), 0);
          EXPECT_EQ(factor(p, lnz, int(p.scattered) - 1), -2);
        }
      }
  EXPECT_GT(scattered, 0);
  problem p = prepare(mats[1], 2, 16);
  std::vector<std::complex<float>> lnzf;
  ASSERT_EQ(factor(p, lnzf), 0);
  EXPECT_LT(factor_misfit(p, lnzf), 1e-6);

  // A diagonal entry made negative: its input column is reported whatever
  // the order, for column 7 and for the last column of the last supernode,
  // which stands inside a supernode of several columns.
  const vekio::sparse good = hermitian_from(vekio::lap2d(6));
  int inside = 0;
  for (int method : {0, 2})
    for (int panel : {1, 64}) {
      const problem q = prepare(good, method, panel);
      const int last = q.s.perm[q.s.n - 1];
      inside += q.s.xsup[q.s.ns - 1] < q.s.n;
      for (int col : {7, last}) {
        problem bad = q;
        std::vector<zc> lnz;
        for (int k = bad.up.ia[col - 1]; k < bad.up.ia[col]; ++k)
          if (bad.up.ja[k - 1] == col) bad.up.a[2 * (k - 1)] = -4.0;
        EXPECT_EQ(factor(bad, lnz), col) << "method " << method << " panel " << panel;
      }
    }
  EXPECT_GT(inside, 0);
}

// Solves through the factor of a permuted matrix: x(i) = b(perm(i)), then
// back. Returns the worst relative residual over the right-hand sides.
template <class T>
double solve_residual(const problem &p, const std::vector<T> &lnz, int nrhs, int threads,
                      bool split) {
  const vektest::analysis &s = p.s;
  const int n = s.n;
  const int ldw = std::max(1, s.comi[23 - 1]);  // the driver's: the tallest supernode
  const size_t len = size_t(n) * nrhs;
  std::vector<zc> b(len), sol(len);
  std::vector<T> x(len), w(size_t(ldw) * nrhs, T(NAN));  // w needs no initial value
  for (size_t k = 0; k < len; ++k) b[k] = zc(std::cos(0.7 * k), 0.1 * (k % 7));
  for (int r = 0; r < nrhs; ++r)
    for (int i = 0; i < n; ++i) x[i + size_t(r) * n] = T(b[s.perm[i] - 1 + size_t(r) * n]);
  for (int sub : split ? ivec{1, 2, 3} : ivec{0}) {
    if (nrhs == 1)
      ch_blkslvs1<T>(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                     lnz.data(), x.data(), w.data(), &ldw, &sub);
    else
      ch_blkslvs<T>(&s.ns, &nrhs, &threads, &n, s.xsup.data(), s.xlindx.data(),
                    s.lindx.data(), s.xlnz.data(), lnz.data(), x.data(), w.data(), &ldw,
                    &sub);
  }
  for (int r = 0; r < nrhs; ++r)
    for (int i = 0; i < n; ++i) sol[s.perm[i] - 1 + size_t(r) * n] = zc(x[i + size_t(r) * n]);
  return vekio::relative_residual(p.up, 4, reinterpret_cast<const double *>(sol.data()),
                                  reinterpret_cast<const double *>(b.data()), nrhs);
}

TEST(ChBlkslvs, OneAndSeveralRightHandSidesInvertTheFactor) {
  vekio::sparse mhd;
  ASSERT_TRUE(vektest::load("mhd1280b", mhd));
  for (const vekio::sparse &m : {hermitian_from(vekio::lap3d(6)), mhd})
    for (int panel : {1, 16}) {
      SCOPED_TRACE(testing::Message() << "n " << m.n << " panel " << panel);
      problem p = prepare(m, 2, panel);
      std::vector<zc> lnz;
      ASSERT_EQ(factor(p, lnz), 0);
      EXPECT_LT(solve_residual(p, lnz, 1, 1, false), 1e-15);
      EXPECT_LT(solve_residual(p, lnz, 5, 2, false), 1e-15);  // 3 + 2 columns
      EXPECT_LT(solve_residual(p, lnz, 2, 4, false), 1e-15);  // fewer columns than threads
      EXPECT_LT(solve_residual(p, lnz, 1, 1, true), 1e-15);   // forward, diagonal, backward
      EXPECT_LT(solve_residual(p, lnz, 3, 1, true), 1e-15);
      std::vector<std::complex<float>> lnzf;
      ASSERT_EQ(factor(p, lnzf), 0);
      EXPECT_LT(solve_residual(p, lnzf, 1, 1, false), 1e-6);
      EXPECT_LT(solve_residual(p, lnzf, 3, 2, false), 1e-6);
    }
}

}  // namespace
