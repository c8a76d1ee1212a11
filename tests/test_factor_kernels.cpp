// The supernodal factorization sweeps of every matrix type, on structures
// from the library's own analysis under both orderings and several panel
// widths: the factor against the permuted (and scaled) input on its pattern
// and fill, within the rounding of its terms; temp of exactly the largest
// update; pivot counts and inertia; the failing-pivot paths. Then the dense
// block routines where they differ: Bunch-Kaufman and diagonal pivoting with
// perturbation, complete pivoting in LU.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "service/vek_serv_threads.h"
#include "test_kernels.h"

namespace {

using namespace vektest;
typedef std::complex<float> cc;
typedef std::vector<double> dvec;
typedef std::vector<zc> zvec;

struct family_row {
  const char *matrix;  // see test_matrix
  int mtype;
  bool matched;  // rows in the order of a matching
};

// Every type on generated and collected matrices; the weak diagonals make
// the pivoting kernels exchange and take 2 by 2 pivots.
const family_row families[] = {
    {"bcsstk01", 2, false},  {"lap3d:4", 2, false},   {"lap2d:10", 4, false},
    {"lap3d:5", 4, false},   {"lap2d:11+", -2, false}, {"lap3d:5", -2, false},
    {"lap2d:10", 6, false},  {"lap2d:11", -4, false}, {"lap3d:5", -4, false},
    {"cage5", 1, false},     {"lap2d:14", 1, false},  {"lap3d:6", 1, false},
    {"lap2d:12", 3, false},  {"west0067", 11, true},  {"west0479", 11, true},
    {"fs_183_1", 11, true},  {"impcol_a", 11, true},  {"lap2d:12", 13, false},
    {"qc324", 13, false},
};

// The single precision twin of p's type, in units of its rounding.
double single_precision_misfit(const problem &p, int diagp) {
  const double eps = lu_type(p.mtype) ? 1e-6 : 0.0;
  if (complex_type(p.mtype)) {
    const factor<cc> f = run<cc>(p, diagp, eps);
    EXPECT_EQ(f.error, 0);
    return misfit(p, f, diagp);
  }
  const factor<float> f = run<float>(p, diagp, eps);
  EXPECT_EQ(f.error, 0);
  return misfit(p, f, diagp);
}

struct outcome {
  int moved, npert, npos, nneg;
  double unscaled_misfit;
};

// The sweep with temp of exactly the largest update (one entry less is
// refused), its factor against the matrix, and against the unscaled one.
template <class T> outcome checked_run(const problem &p, int diagp, path_census &pc) {
  const double eps = lu_type(p.mtype) ? 1e-13 : 0.0;
  const long need = temp_need(p.s, p.mtype, diagp, &pc);
  EXPECT_LE(need, p.s.comi[37 - 1]);
  if (need > 1) {
    EXPECT_EQ(run<T>(p, diagp, eps, int(need) - 1).error, -2);
  }
  const factor<T> f = run<T>(p, diagp, eps, int(std::max(1L, need)));
  EXPECT_EQ(f.error, 0);
  EXPECT_TRUE(f.temp_clear);
  EXPECT_LT(misfit(p, f, diagp), 4.0);
  outcome o{exchanges(p.s, f, diagp), f.npert, f.npos, f.nneg, 0.0};
  problem plain = p;
  plain.scale.clear();
  if (!p.scale.empty()) o.unscaled_misfit = misfit(plain, f, diagp);
  return o;
}

TEST(FactorKernels, EveryTypeReproducesItsMatrixUnderOrdersPanelsAndScaling) {
  path_census pc;
  std::map<std::pair<int, int>, int> moved;
  std::map<int, int> exact;
  for (const family_row &row : families) {
    const int t = row.mtype;
    const vekio::sparse m = test_matrix(row.matrix, t);
    const ivec match = row.matched ? diagonal_matching(m) : ivec();
    int negative = 0;  // the inertia of a dominant matrix is its diagonal's
    for (int i = 1; i <= m.n; ++i)
      for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) negative += m.ja[k - 1] == i && m.a[k - 1] < 0;
    for (int method : {0, 2})
      for (int panel : {4, 16, 128}) {
        const bool scaled = panel == 16 && scalable_type(t);
        const problem p = prepare(m, t, method, panel, scaled, match);
        for (int diagp : ldl_type(t) ? ivec{1, 0} : ivec{1}) {
          SCOPED_TRACE(testing::Message() << row.matrix << " type " << t << " method " << method
                                          << " panel " << panel << " diagp " << diagp);
          const outcome o = complex_type(t) ? checked_run<zc>(p, diagp, pc)
                                            : checked_run<double>(p, diagp, pc);
          moved[{t, diagp}] += o.moved;
          EXPECT_TRUE(!ldl_type(t) || o.npert == 0) << o.npert;
          if (t == -2) {  // only the real type counts signs
            EXPECT_EQ(o.npos + o.nneg, m.n);
            if (std::string(row.matrix).back() == '+') {
              EXPECT_EQ(o.nneg, negative);
            }
          } else if (ldl_type(t)) {
            EXPECT_EQ((ivec{o.npos, o.nneg}), (ivec{5, 5}));
          }
          exact[t] += o.npert == 0;
          if (method == 2 && panel == 16) {
            EXPECT_LT(single_precision_misfit(p, diagp), 4.0);
          }
          EXPECT_TRUE(!scaled || o.unscaled_misfit > 1e6);  // not the factor of A itself
        }
      }
  }
  for (int t : {-2, 6, -4, 1, 3, 11, 13})
    for (int diagp : ldl_type(t) ? ivec{1, 0} : ivec{1})
      EXPECT_GT((moved[{t, diagp}]), 0) << "no exchanges or 2 by 2 pivots for type " << t << " diagp " << diagp;
  EXPECT_GE(exact[11], 8) << "of 24 runs without a replaced pivot";
  EXPECT_GE(exact[13], 6);
  EXPECT_TRUE(pc.same && pc.single && pc.contiguous && pc.scattered)  // every update path
      << pc.same << " " << pc.single << " " << pc.contiguous << " " << pc.scattered;
}

// --- pivots that fail ----------------------------------------------------

// lap2d:5 for type t with column 7 zero (LU) or the diagonal entry of
// column col negative (Cholesky).
vekio::sparse broken(int t, int col) {
  vekio::sparse m = test_matrix("lap2d:5", t, 6);
  const int w = m.cplx ? 2 : 1;
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) {
      if (m.ja[k - 1] != col || (cholesky_type(t) && i != col)) continue;
      m.a[w * (k - 1)] = cholesky_type(t) ? -4.0 : 0.0;
      if (m.cplx) m.a[w * (k - 1) + 1] = 0.0;
    }
  return m;
}

TEST(FactorKernels, CholeskyReportsTheInputColumnOfANegativePivot) {
  for (int t : {2, 4})
    for (int method : {0, 2})
      for (int panel : {1, 8, 64}) {
        const problem q = prepare(broken(t, 1), t, method, panel, false);
        // column 7, and the last one of the order, inside the last supernode
        for (int col : {7, q.s.perm[q.s.n - 1]}) {
          const problem p = prepare(broken(t, col), t, method, panel, false);
          const int error = complex_type(t) ? run<zc>(p).error : run<double>(p).error;
          EXPECT_EQ(error, col) << t << " " << method << " " << panel;
        }
      }
}

TEST(FactorKernels, ZeroColumnStopsPartialPivotingAndCompletePivotingReplacesItsPivot) {
  EXPECT_EQ(run<double>(prepare(broken(1, 7), 1, 2, 8, false)).error, -1);
  EXPECT_EQ(run<zc>(prepare(broken(3, 7), 3, 2, 8, false)).error, -1);
  // The zero column ends up last in its block; its pivot is replaced by eps
  // (by 1e-13 for eps 0 in real arithmetic; left 0 in complex).
  struct item {
    int mtype;
    double eps, pivot;
    int npert;
  };
  for (const item &c : {item{11, 0.0, 1e-13, 1}, item{11, 1e-8, 1e-8, 1},
                        item{13, 0.0, 0.0, 0}, item{13, 1e-8, 1e-8, 1}}) {
    SCOPED_TRACE(testing::Message() << c.mtype << " eps " << c.eps);
    const problem p = prepare(broken(c.mtype, 7), c.mtype, 2, 8, false);
    const int J = p.s.snode[p.s.invp[7 - 1] - 1], fst = p.s.xsup[J - 1], lst = p.s.xsup[J] - 1;
    const size_t d = p.s.xlnz[lst - 1] - 1 + (lst - fst);
    if (c.mtype == 11) {
      const factor<double> f = run<double>(p, 1, c.eps);
      ASSERT_EQ(f.error, 0);
      EXPECT_EQ(f.npert, c.npert);
      EXPECT_EQ(f.lnz[d], c.pivot);
      EXPECT_LT(misfit(p, f, 1), 1.0);
    } else {
      const factor<zc> f = run<zc>(p, 1, c.eps);
      ASSERT_EQ(f.error, 0);
      EXPECT_EQ(f.npert, c.npert);
      EXPECT_EQ(f.lnz[d], zc(c.pivot));
    }
  }
}

std::vector<int> steps_seen;
int stop_at = 1000;

int recording_hook(int *thread, int *step, const char *stage, int len) {
  EXPECT_EQ(*thread, 1);
  EXPECT_EQ(std::string(stage, len), "Telmira: factorization phase");
  steps_seen.push_back(*step);
  return *step >= stop_at ? 1 : 0;
}

TEST(FactorKernels, ProgressRisesFromZeroToHundredAndTheHookCanStop) {
  vek_serv_set_progress(recording_hook);
  for (int t : {1, 11}) {
    SCOPED_TRACE(t);
    const problem p = prepare(test_matrix("lap2d:12", t, 10), t, 2, 8, false);
    steps_seen.clear();
    stop_at = 1000;
    testing::internal::CaptureStdout();
    EXPECT_EQ(run<double>(p, 1, 1e-13, -1, 1).error, 0);
    const std::string out = testing::internal::GetCapturedStdout();
    // 0 before the sweep and again after the first supernode, then rising.
    ASSERT_GE(steps_seen.size(), 4u);
    EXPECT_EQ(steps_seen[0], 0);
    EXPECT_EQ(steps_seen[1], 0);
    EXPECT_EQ(steps_seen.back(), 100);
    for (size_t k = 2; k < steps_seen.size(); ++k) EXPECT_GT(steps_seen[k], steps_seen[k - 1]);
    EXPECT_NE(out.find(" 100 % \n"), std::string::npos) << out;
    steps_seen.clear();
    stop_at = 30;
    EXPECT_EQ(run<double>(p).error, -1);
    EXPECT_GE(steps_seen.back(), 30);
    EXPECT_LT(steps_seen.back(), 100);
  }
  vek_serv_set_progress(nullptr);
}

// --- the dense block routines --------------------------------------------

struct counts {
  int npert = 0, npos = 0, nneg = 0;
};

int ldl_block(bool bunch, dvec &a, int n, int lda, ivec &ipiv, counts &c, double eps = 0.0) {
  ipiv.assign(n, 0);
  int info = 99;
  if (bunch)
    blkldl_bkfact<double>("L", &n, a.data(), &lda, ipiv.data(), &c.npert, &c.npos, &c.nneg,
                          &eps, &info);
  else
    blkldl_diagfact<double>(&n, &n, a.data(), &lda, ipiv.data(), &c.npert, &c.npos, &c.nneg,
                            &eps, &info);
  return info;
}

TEST(LdlBlock, PivotChoicePerturbationAndCounts) {
  ivec ipiv;
  counts c;
  dvec a{0, 1, 1, 0};  // zero diagonal: one 2 by 2 pivot, one sign of each
  EXPECT_EQ(ldl_block(true, a, 2, 2, ipiv, c), 0);
  EXPECT_EQ(ipiv, (ivec{-2, -2}));
  EXPECT_EQ((ivec{c.npert, c.npos, c.nneg}), (ivec{0, 1, 1}));
  a = {1, 0, 0, 0, 5, 0, 0, 0, 3};  // diagonal pivoting: 5 first
  ldl_block(false, a, 3, 3, ipiv, c);
  EXPECT_EQ(ipiv, (ivec{2, 3, 3}));
  for (bool bunch : {true, false}) {  // a zero block: every pivot +1e-8, counted on
    dvec z(12, 0.0);
    counts cz;
    cz.npert = 2;
    EXPECT_EQ(ldl_block(bunch, z, 3, 4, ipiv, cz), 0);
    EXPECT_EQ((ivec{cz.npert, cz.npos, cz.nneg}), (ivec{5, 3, 0}));
    EXPECT_EQ((dvec{z[0], z[5], z[10], z[3]}), (dvec{1e-8, 1e-8, 1e-8, 0.0}));
  }
  counts cs;
  a = {-1e-7};  // below eps: replaced by its sign; a NaN stays
  ldl_block(false, a, 1, 1, ipiv, cs, 1e-6);
  EXPECT_EQ(a[0], -1e-6);
  a[0] = std::numeric_limits<double>::quiet_NaN();
  ldl_block(true, a, 1, 1, ipiv, cs, 1e-6);
  EXPECT_TRUE(std::isnan(a[0]));
  EXPECT_EQ(cs.npert, 1);
  EXPECT_EQ(ldl_block(true, a, 2, 1, ipiv, cs), -4);  // lda below n
}

TEST(LdlBlock, ComplexSmallPivotsAndTheHermitianNegligibleColumn) {
  ivec ipiv(3);
  int npert = 0, info = 99;
  const int three = 3;
  const double eps6 = 1e-6;
  // A small pivot with a negative real part becomes -eps + 0i.
  zvec d{zc(-4e-7, 5e-7)};
  const int one = 1;
  c_blkldl_bkfact("L", &one, d.data(), &one, ipiv.data(), &npert, &eps6, &info);
  EXPECT_EQ(d[0], zc(-1e-6, 0));
  // Hermitian: column 1 of magnitude 2e-10 under eps 1e-6 grows to
  // |re| + |im| = 1e-6. A zero A(2,2) then takes a 2 by 2 pivot; a diagonal
  // of 1 (its imaginary part ignored) the interchange, which leaves column 2
  // negligible in turn: -1e-6 by the sign of its real part.
  for (double a22 : {0.0, 1.0}) {
    zvec h{0.0, zc(1e-10, 1e-10), 0.0, 9.0, zc(a22, 0.3), 0.0, 9.0, 9.0, 2.0};
    npert = 0;
    ch_blkldl_bkfact("L", &three, h.data(), &three, ipiv.data(), &npert, &eps6, &info);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(npert, a22 == 0.0 ? 1 : 2);
    EXPECT_EQ((ivec{ipiv[0], ipiv[1]}), a22 == 0.0 ? (ivec{-2, -2}) : (ivec{2, 2}));
    if (a22 == 0.0) {
      EXPECT_NEAR(std::abs(h[1] - zc(5e-7, 5e-7)), 0.0, 1e-20);
    } else {
      EXPECT_EQ(h[0], zc(1.0, 0.0));
      EXPECT_NEAR(std::abs(h[1] - zc(5e-7, -5e-7)), 0.0, 1e-20);  // conj(A(2,1)) / 1
      EXPECT_EQ(h[4], zc(-1e-6, 0.0));
    }
  }
}

template <class T> int lu_block(std::vector<T> &a, int n, int lda, ivec &ipiv, ivec &jpiv,
                                double eps, int *npert) {
  ipiv.assign(n, 0);
  jpiv.assign(n, 0);
  int info = 99;
  const tlm::real_of<T> e = tlm::real_of<T>(eps);
  blklu_blockfact<T>(&n, a.data(), &lda, ipiv.data(), jpiv.data(), npert, &e, &info);
  return info;
}

TEST(LuBlock, CompletePivotingGivesTheExchangedBlockWithBoundedMultipliers) {
  const int n = 7, lda = 9;
  dvec a(lda * n);
  std::mt19937 g(21);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  for (double &x : a) x = d(g);
  dvec b = a;
  ivec ipiv, jpiv;
  int npert = 0;
  EXPECT_EQ(lu_block(b, n, lda, ipiv, jpiv, 1e-13, &npert), 0);
  EXPECT_EQ(npert, 0);
  auto at = [lda](dvec &m, int i, int j) -> double & { return m[(i - 1) + size_t(j - 1) * lda]; };
  for (int i = n + 1; i <= lda; ++i)
    for (int j = 1; j <= n; ++j) EXPECT_EQ(at(b, i, j), at(a, i, j)) << "padding row " << i;
  dvec e = a;  // P A Q from the exchanges, in the order of the steps
  for (int j = 1; j <= n; ++j) {
    for (int k = 1; k <= n; ++k) std::swap(at(e, j, k), at(e, ipiv[j - 1], k));
    for (int i = 1; i <= n; ++i) std::swap(at(e, i, j), at(e, i, jpiv[j - 1]));
  }
  double worst = 0;
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= n; ++j) {
      double v = 0;
      for (int k = 1; k <= std::min(i, j); ++k) v += (k == i ? 1.0 : at(b, i, k)) * at(b, k, j);
      worst = std::max(worst, std::fabs(v - at(e, i, j)));
      // complete pivoting bounds the multipliers and each row of U by its pivot
      EXPECT_LE(std::fabs(at(b, i, j)), i > j ? 1.0 : std::fabs(at(b, i, i)));
    }
  EXPECT_LT(worst, 1e-14);
}

TEST(LuBlock, SmallPivotsAreReplacedBySignAndCounted) {
  ivec ipiv, jpiv;
  // A zero block: real pivots all become +rep (1e-13 for eps 0); complex
  // ones all but the last, which stays 0 for eps 0. The count goes on.
  for (double eps : {0.0, 1e-8}) {
    dvec z(12, 0.0);
    zvec zz(9);
    int npert = 5, npz = 5;
    EXPECT_EQ(lu_block(z, 3, 4, ipiv, jpiv, eps, &npert), 0);
    EXPECT_EQ(ipiv, (ivec{3, 3, 3}));
    EXPECT_EQ(jpiv, (ivec{3, 3, 3}));
    EXPECT_EQ(lu_block(zz, 3, 3, ipiv, jpiv, eps, &npz), 0);
    const double rep = eps == 0.0 ? 1e-13 : eps;
    EXPECT_EQ((dvec{z[0], z[5], z[10]}), dvec(3, rep));
    EXPECT_EQ((zvec{zz[0], zz[4], zz[8]}), (zvec{rep, rep, eps}));
    EXPECT_EQ(npert, 8);
    EXPECT_EQ(npz, eps == 0.0 ? 7 : 8);
  }
  // eps 0 keeps a tiny pivot; eps 1e-8 replaces it with its sign (of the
  // real part); a NaN stays and is not counted.
  for (double tiny : {1e-20, -1e-20}) {
    dvec t{tiny};
    zvec tz{zc(tiny * 1e11, -tiny * 1e11)};
    int npert = 0;
    lu_block(t, 1, 1, ipiv, jpiv, 0.0, &npert);
    EXPECT_EQ(t[0], tiny);
    lu_block(t, 1, 1, ipiv, jpiv, 1e-8, &npert);
    EXPECT_EQ(t[0], tiny > 0 ? 1e-8 : -1e-8);
    EXPECT_EQ(npert, 1);
    lu_block(tz, 1, 1, ipiv, jpiv, 1e-8, &npert);
    EXPECT_EQ(tz[0], zc(tiny > 0 ? 1e-8 : -1e-8));
  }
  dvec q{std::numeric_limits<double>::quiet_NaN()};
  int npert = 0;
  lu_block(q, 1, 1, ipiv, jpiv, 1e-8, &npert);
  EXPECT_TRUE(std::isnan(q[0]));
  EXPECT_EQ(npert, 0);
  std::vector<float> fz(4, 0.0f);
  lu_block(fz, 2, 2, ipiv, jpiv, 0.0, &npert);
  EXPECT_EQ(fz[0], 1e-13f);
}

}  // namespace
