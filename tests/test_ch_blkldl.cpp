// The Hermitian L D L^H sweep (type -4) on structures from the library's own
// analysis: G D G^H, G holding per supernode its block factor M (exchanges
// included) over L21, against the permuted (and scaled) input within the
// rounding of |G||D||G^H|; the solves against the matrix itself; the
// Hermitian rules of the Bunch-Kaufman block routine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <vector>

#include "blkldl.h"
#include "blkldlslvs.h"
#include "test_analysis.h"
#include "test_ldl.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

using vektest::ivec;
typedef std::complex<double> zc;
typedef std::vector<zc> zvec;

// A Hermitian matrix on the pattern of a real model problem: off-diagonal
// entries of modulus 1 with varying phases, the diagonal shifted by sigma
// and given imaginary parts of size noise (which the type ignores).
vekio::sparse hermitian(const vekio::sparse &m, double sigma, double noise = 0.0) {
  vekio::sparse h = m;
  h.cplx = true;
  h.a.assign(2 * static_cast<size_t>(m.nnz()), 0.0);
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) {
      const int j = m.ja[k - 1];
      const double th = 0.7 * std::min(i, j) + 1.3 * std::max(i, j);
      zc v = i == j ? zc(m.a[k - 1] - sigma, noise * std::sin(i)) : -std::polar(1.0, th);
      if (i > j) v = std::conj(v);
      h.a[2 * (k - 1)] = v.real();
      h.a[2 * (k - 1) + 1] = v.imag();
    }
  return h;
}

zc entry(const vekio::sparse &m, int k) { return zc(m.a[2 * (k - 1)], m.a[2 * (k - 1) + 1]); }

struct problem {
  vekio::sparse full, up;
  std::vector<double> scale;  // empty: not scaled
  vektest::analysis s;
  vektest::scatter_lists L;
};

problem prepare(const vekio::sparse &full, int method, int panel, bool scaled) {
  problem p;
  p.full = full;
  p.up = vekio::storage_for_type(full, -4);
  p.s = vektest::analyse(p.up, -4, nullptr, method, 1, panel);
  p.L = vektest::make_scatter_lists(p.up, p.s, -4, nullptr, scaled ? 1 : 0);
  std::mt19937 g(5);
  std::uniform_real_distribution<double> d(0.25, 4.0);
  for (int i = 0; scaled && i < full.n; ++i) p.scale.push_back(d(g));
  return p;
}

template <class T> struct factor {
  std::vector<T> lnz;
  ivec pivot;
  int error = 99, npert = 5, npos = 5, nneg = 5;
};

template <class T> factor<T> run(const problem &p, int diagp) {
  typedef tlm::real_of<T> R;
  const vektest::analysis &s = p.s;
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], one = 1, msglvl = 0;
  const int rowflag = p.scale.empty() ? 0 : 1, tmpsize = s.comi[37 - 1];
  factor<T> f;
  f.lnz.assign(std::max(1, nnzl), T(7, 7));
  f.pivot.assign(n, 0);
  std::vector<T> a;
  for (int k = 1; k <= p.up.nnz(); ++k) a.push_back(T(entry(p.up, k)));
  const std::vector<R> sc(p.scale.begin(), p.scale.end());
  const R eps = 0;
  ivec indmap(n, 3), relind(n, 3), link(n, 5), length(std::max(1, ns), 5);
  std::vector<T> temp(std::max(1, tmpsize), T(7, 7));
  ch_blkldl<T>(a.data(), p.up.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(),
               s.xlnz.data(), f.lnz.data(), indmap.data(), relind.data(), &tmpsize, temp.data(),
               s.nmod.data(), link.data(), s.snode.data(), s.xsup.data(), length.data(),
               f.pivot.data(), p.L.xjalf.data(), p.L.jalf.data(), p.L.luperm.data(),
               s.perm.data(), &eps, &diagp, &f.npert, &f.npos, &f.nneg, sc.data(), &rowflag,
               p.L.luperm_row.data(), &msglvl, &f.error);
  EXPECT_TRUE(std::all_of(temp.begin(), temp.end(), [](T t) { return t == T(0); }));
  return f;
}

// G D G^H - A in units of the rounding (test_ldl.h), A the permuted (scaled)
// input.
template <class T> double factor_misfit(const problem &p, const factor<T> &f, int diagp) {
  const double u = std::numeric_limits<tlm::real_of<T>>::epsilon() / 2;
  return vektest::ldl_misfit(p.s, p.full, p.scale, vektest::widen(f.lnz), f.pivot, diagp,
                             true, u);
}

TEST(ChBlkldl, FactorsHermitianIndefiniteMatricesWithBothPivotings) {
  const vekio::sparse mats[] = {hermitian(vekio::lap2d(11), 3.3), hermitian(vekio::lap3d(5), 5.1)};
  int exchanges = 0, pairs = 0;
  for (const vekio::sparse &m : mats)
    for (int method : {0, 2})
      for (int panel : {4, 64}) {
        const problem p = prepare(m, method, panel, false);
        for (int diagp : {1, 0}) {
          SCOPED_TRACE(testing::Message() << "n " << m.n << " method " << method << " panel "
                                          << panel << " diagp " << diagp);
          const factor<zc> f = run<zc>(p, diagp);
          ASSERT_EQ(f.error, 0);
          EXPECT_EQ(f.npert, 0);
          EXPECT_EQ(f.npos, 5);  // no sign counts for this type
          EXPECT_EQ(f.nneg, 5);
          EXPECT_LT(factor_misfit(p, f, diagp), 1.0);
          for (int i = 0; i < m.n; ++i) {
            if (diagp == 1) exchanges += f.pivot[i] != i + 2 - p.s.xsup[p.s.snode[i] - 1];
            else pairs += f.pivot[i] < 0;
          }
        }
      }
  EXPECT_GT(exchanges, 0);
  EXPECT_GT(pairs, 0);

  // Scaled scatter (the mirrored entries conjugated after scaling) and the
  // single-precision twin; imaginary parts on the diagonal are ignored by
  // Bunch-Kaufman, which leaves a real D.
  const vekio::sparse m = hermitian(vekio::lap2d(9), 3.3);
  problem sc = prepare(m, 2, 16, true), plain = prepare(m, 2, 16, false);
  problem noisy = prepare(hermitian(vekio::lap2d(9), 3.3, 0.3), 2, 16, false);
  for (int diagp : {1, 0}) {
    const factor<zc> f = run<zc>(sc, diagp);
    EXPECT_LT(factor_misfit(sc, f, diagp), 1.0);
    EXPECT_GT(factor_misfit(plain, f, diagp), 1e6);  // not the factor of A itself
    const factor<std::complex<float>> g = run<std::complex<float>>(plain, diagp);
    EXPECT_LT(factor_misfit(plain, g, diagp), 1.0);
  }
  const factor<zc> clean = run<zc>(plain, 0), f = run<zc>(noisy, 0);
  EXPECT_EQ(f.lnz, clean.lnz);
  const vektest::analysis &s = plain.s;
  for (int c = 1; c <= m.n; ++c)
    EXPECT_EQ(f.lnz[s.xlnz[c - 1] - 1 + c - s.xsup[s.snode[c - 1] - 1]].imag(), 0.0);
}

TEST(ChBlkldlBlock, NegligibleColumnIsRepairedAndGoesThroughThePivotTests) {
  // Column 1 of magnitude 2e-10 under eps 1e-6: its entry A(2,1) grows to
  // |re| + |im| = 1e-6 and stays. A zero A(2,2) then takes the 2 by 2 path;
  // a diagonal of 1 (its imaginary part ignored) takes the interchange, which
  // leaves column 2 negligible in turn: -1e-6 by the sign of its real part.
  const double eps = 1e-6;
  for (double a22 : {0.0, 1.0}) {
    zvec a{0.0, zc(1e-10, 1e-10), 0.0, 9.0, zc(a22, 0.3), 0.0, 9.0, 9.0, 2.0};
    ivec ipiv(3, 0);
    int n = 3, npert = 0, info = 9;
    ch_blkldl_bkfact("L", &n, a.data(), &n, ipiv.data(), &npert, &eps, &info);
    EXPECT_EQ(info, 0);
    if (a22 == 0.0) {
      EXPECT_EQ(npert, 1);
      EXPECT_EQ((ivec{ipiv[0], ipiv[1]}), (ivec{-2, -2}));
      EXPECT_NEAR(std::abs(a[1] - zc(5e-7, 5e-7)), 0.0, 1e-20);
    } else {
      EXPECT_EQ(npert, 2);
      EXPECT_EQ((ivec{ipiv[0], ipiv[1]}), (ivec{2, 2}));
      EXPECT_EQ(a[0], zc(1.0, 0.0));
      EXPECT_NEAR(std::abs(a[1] - zc(5e-7, -5e-7)), 0.0, 1e-20);  // conj(A(2,1)) / 1
      EXPECT_EQ(a[4], zc(-1e-6, 0.0));
    }
  }
}

// --- the solves ---------------------------------------------------------

struct solved {
  problem p;
  factor<zc> f;
  int diagp;
};

// y := the solution of A_perm y = y for nrhs columns in the permuted order.
void solve_permuted(const solved &sv, zvec &y, int nrhs, int threads, int sub) {
  const vektest::analysis &s = sv.p.s;
  const int n = s.n, ldw = n;
  zvec w(static_cast<size_t>(n) * nrhs, zc(std::nan(""), 0));
  if (nrhs == 1)
    ch_blkldlslvs1(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                   sv.f.lnz.data(), sv.f.pivot.data(), &sv.diagp, y.data(), w.data(), &sub);
  else
    ch_blkldlslvs<zc>(&s.ns, &nrhs, &threads, &n, s.xsup.data(), s.xlindx.data(),
                      s.lindx.data(), s.xlnz.data(), sv.f.lnz.data(), sv.f.pivot.data(),
                      &sv.diagp, y.data(), w.data(), &ldw, &sub);
  if (sub == 1) {  // the forward sweep leaves w clear where it wrote
    for (const zc &v : w) ASSERT_TRUE(std::isnan(v.real()) || v == zc(0));
  }
}

// x := the solution of A x = b for nrhs columns, through the permutation.
void solve_with(const solved &sv, zvec &x, int nrhs, int threads, int sub) {
  const vektest::analysis &s = sv.p.s;
  const int n = s.n;
  zvec y(x.size());
  for (int k = 0; k < nrhs; ++k)
    for (int i = 0; i < n; ++i) y[k * n + i] = x[k * n + s.perm[i] - 1];
  solve_permuted(sv, y, nrhs, threads, sub);
  for (int k = 0; k < nrhs; ++k)
    for (int i = 0; i < n; ++i) x[k * n + s.perm[i] - 1] = y[k * n + i];
}

double diff(const zvec &x, const zvec &y) {
  double d = 0, m = 1e-300;
  for (size_t i = 0; i < x.size(); ++i) {
    d = std::max(d, std::abs(x[i] - y[i]));
    m = std::max(m, std::abs(y[i]));
  }
  return d / m;
}

TEST(ChBlkldlslvs, SolvesInvertTheFactorOnOneAndSeveralRightHandSides) {
  vekio::sparse mhd;
  ASSERT_TRUE(vektest::load("mhd1280b", mhd));
  const vekio::sparse mats[] = {mhd, hermitian(vekio::lap3d(6), 5.1)};
  for (const vekio::sparse &m : mats)
    for (int diagp : {1, 0}) {
      SCOPED_TRACE(testing::Message() << "n " << m.n << " diagp " << diagp);
      solved sv{prepare(m, 2, 32, false), {}, diagp};
      sv.f = run<zc>(sv.p, diagp);
      ASSERT_EQ(sv.f.error, 0);
      const int n = m.n, nrhs = 5;
      std::mt19937 g(3);
      std::uniform_real_distribution<double> u(-1, 1);
      zvec b(static_cast<size_t>(n) * nrhs);
      for (zc &v : b) v = zc(u(g), u(g));
      // One right-hand side: the residual, and 1, 2, 3 in turn is 0.
      zvec x1(b.begin(), b.begin() + n), y1 = x1;
      solve_with(sv, x1, 1, 1, 0);
      EXPECT_LT(vekio::relative_residual(sv.p.up, -4, reinterpret_cast<double *>(x1.data()),
                                         reinterpret_cast<const double *>(b.data()), 1),
                1e-13);
      for (int sub : {1, 2, 3}) solve_with(sv, y1, 1, 1, sub);
      EXPECT_LT(diff(y1, x1), 1e-12);
      // Five right-hand sides on 1 and 2 threads, full and by sub-steps.
      for (int threads : {1, 2}) {
        zvec x = b, y = b;
        solve_with(sv, x, nrhs, threads, 0);
        EXPECT_LT(vekio::relative_residual(sv.p.up, -4, reinterpret_cast<double *>(x.data()),
                                           reinterpret_cast<const double *>(b.data()), nrhs),
                  1e-13);
        EXPECT_LT(diff(zvec(x.begin(), x.begin() + n), x1), 1e-12);
        for (int sub : {1, 2, 3}) solve_with(sv, y, nrhs, threads, sub);
        EXPECT_LT(diff(y, x), 1e-12);
      }
    }
  // The single-precision twins against the double solves, in the permuted
  // order.
  const problem p = prepare(hermitian(vekio::lap2d(9), 3.3), 2, 16, false);
  const vektest::analysis &s = p.s;
  const factor<std::complex<float>> f = run<std::complex<float>>(p, 0);
  const solved sv{p, run<zc>(p, 0), 0};
  const int n = s.n, nrhs = 3, threads = 2, sub = 0;
  zvec x(static_cast<size_t>(n) * nrhs);
  for (int i = 0; i < n * nrhs; ++i) x[i] = zc(std::cos(i), std::sin(3 * i));
  std::vector<std::complex<float>> y(x.begin(), x.end()), y1(x.begin(), x.begin() + n), w(y);
  solve_permuted(sv, x, nrhs, 1, 0);
  sp_ch_blkldlslvs1(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                    f.lnz.data(), f.pivot.data(), &sv.diagp, y1.data(), w.data(), &sub);
  sp_ch_blkldlslvs(&s.ns, &nrhs, &threads, &n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                   s.xlnz.data(), f.lnz.data(), f.pivot.data(), &sv.diagp, y.data(), w.data(),
                   &n, &sub);
  EXPECT_LT(diff(zvec(y.begin(), y.end()), x), 1e-4);
  EXPECT_LT(diff(zvec(y1.begin(), y1.end()), zvec(x.begin(), x.begin() + n)), 1e-4);
}

}  // namespace
