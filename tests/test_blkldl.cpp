// The supernodal LDL^T sweep on structures from the library's own analysis:
// G D G^T, G holding per supernode its block factor M (exchanges included)
// over L21, against the permuted (and scaled) input within the rounding of
// |G||D||G^T|; the pivot signs against the inertia from a dense eigenvalue
// solver. The dense block routines are checked on their pivot rules; the
// application of a Bunch-Kaufman factor is checked through L21.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "blkldl.h"
#include "test_analysis.h"
#include "test_ldl.h"
#include "test_matrices.h"
#include "vekio.h"

extern "C" void dsyev_(const char *, const char *, const int *, double *, const int *,
                       double *, double *, const int *, int *, std::size_t, std::size_t);

namespace {

using vektest::ivec;
typedef std::vector<double> dvec;

// Eigenvalues, ascending, of a symmetric matrix in full storage.
dvec eigenvalues(const vekio::sparse &m) {
  const int n = m.n, lwork = 4 * n;
  dvec a(static_cast<size_t>(n) * n, 0.0), w(n), work(lwork);
  for (int i = 1; i <= n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) a[(i - 1) + (m.ja[k - 1] - 1) * size_t(n)] = m.a[k - 1];
  int info = 0;
  dsyev_("N", "L", &n, a.data(), &n, w.data(), work.data(), &lwork, &info, 1, 1);
  EXPECT_EQ(info, 0);
  return w;
}

// m - sigma I, sigma halfway across the widest gap of the middle third of
// the spectrum: indefinite and far from singular.
vekio::sparse shift_into_gap(vekio::sparse m) {
  const dvec w = eigenvalues(m);
  int best = m.n / 3;
  for (int k = m.n / 3; k < 2 * m.n / 3; ++k)
    if (w[k + 1] - w[k] > w[best + 1] - w[best]) best = k;
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k)
      if (m.ja[k - 1] == i) m.a[k - 1] -= 0.5 * (w[best] + w[best + 1]);
  return m;
}

struct problem {
  vekio::sparse full, up;  // the matrix, and the upper triangle that type -2 takes
  dvec scale;              // empty: not scaled
  vektest::analysis s;
  vektest::scatter_lists L;
};

problem prepare(const vekio::sparse &full, int method, int panel, bool scaled) {
  problem p;
  p.full = full;
  p.up = vekio::storage_for_type(full, -2);
  p.s = vektest::analyse(p.up, -2, nullptr, method, 1, panel);
  p.L = vektest::make_scatter_lists(p.up, p.s, -2, nullptr, scaled ? 1 : 0);
  std::mt19937 g(11);
  std::uniform_real_distribution<double> d(0.25, 4.0);
  if (scaled)
    for (int i = 0; i < full.n; ++i) p.scale.push_back(d(g));
  return p;
}

template <class T> struct factor {
  std::vector<T> lnz;
  ivec pivot;
  int error = 99, npert = 5, npos = 5, nneg = 5;
};

// The sweep on arrays filled with garbage; tmpsize -1: the analysis' size.
template <class T> factor<T> run(const problem &p, int diagp, double eps = 0.0, int tmpsize = -1) {
  typedef tlm::real_of<T> R;
  const vektest::analysis &s = p.s;
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], one = 1, msglvl = 0;
  const int rowflag = p.scale.empty() ? 0 : 1;
  if (tmpsize < 0) tmpsize = s.comi[37 - 1];
  factor<T> f;
  f.lnz.assign(std::max(1, nnzl), T(7));
  f.pivot.assign(n, 0);
  const std::vector<T> a(p.up.a.begin(), p.up.a.end());
  const std::vector<R> sc(p.scale.begin(), p.scale.end());
  const R e = static_cast<R>(eps);
  ivec indmap(n, 3), relind(n, 3), link(n, 5), length(std::max(1, ns), 5);
  std::vector<T> temp(std::max(1, tmpsize), T(7));
  blkldl<T>(a.data(), p.up.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(),
            s.xlnz.data(), f.lnz.data(), indmap.data(), relind.data(), &tmpsize, temp.data(),
            s.nmod.data(), link.data(), s.snode.data(), s.xsup.data(), length.data(),
            f.pivot.data(), p.L.xjalf.data(), p.L.jalf.data(), p.L.luperm.data(),
            s.perm.data(), &e, &diagp, &f.npert, &f.npos, &f.nneg, sc.data(), &rowflag,
            p.L.luperm_row.data(), &msglvl, &f.error);
  if (f.error == 0) {
    EXPECT_TRUE(std::all_of(temp.begin(), temp.end(), [](T t) { return t == T(0); }));
  }
  return f;
}

// G D G^T - A in units of the rounding (test_ldl.h), A the permuted (scaled)
// input.
template <class T> double factor_misfit(const problem &p, const factor<T> &f, int diagp) {
  const double u = std::numeric_limits<tlm::real_of<T>>::epsilon() / 2;
  return vektest::ldl_misfit(p.s, p.full, p.scale, vektest::widen(f.lnz), f.pivot, diagp,
                             false, u);
}

// How each update reaches its target, from the structure alone, in the
// order of the update's tests; and the least temp the sweep needs by diagp:
// W, or the product and W in two halves for scattered rows; with
// Bunch-Kaufman also L21 transposed.
struct path_census {
  int same = 0, single = 0, contiguous = 0, scattered = 0;
  long need[2] = {0, 0};
};

// The counts add up over calls; need is that of the last structure.
void count_paths(const vektest::analysis &s, path_census &pc) {
  pc.need[0] = pc.need[1] = 0;
  for (int K = 1; K <= s.ns; ++K) {
    const int kn = s.xsup[K] - s.xsup[K - 1], last = s.xlindx[K];
    pc.need[0] = std::max(pc.need[0], long(kn) * (last - s.xlindx[K - 1] - kn));
    for (int p = s.xlindx[K - 1] + kn; p < last;) {
      const int T = s.snode[s.lindx[p - 1] - 1], rem = last - p;
      int nd = 0, first = -1, lastpos = -1;
      while (nd < rem && s.lindx[p - 1 + nd] < s.xsup[T]) ++nd;
      for (int q = s.xlindx[T - 1]; q < s.xlindx[T]; ++q) {
        if (s.lindx[q - 1] == s.lindx[p - 1]) first = q;
        if (s.lindx[q - 1] == s.lindx[last - 2]) lastpos = q;
      }
      long need = long(kn) * nd;
      if (rem == s.xlindx[T] - s.xlindx[T - 1]) ++pc.same;
      else if (kn == 1) ++pc.single, need = 0;
      else if (lastpos - first < rem) ++pc.contiguous;
      else ++pc.scattered, need = 2 * std::max(need, long(rem) * nd);
      for (long &x : pc.need) x = std::max(x, need);
      p += nd;
    }
  }
}

TEST(Blkldl, FactorsIndefiniteMatricesWithBothPivotingsScaledAndInSinglePrecision) {
  vekio::sparse bcs;
  ASSERT_TRUE(vektest::load("bcsstk01", bcs));
  const vekio::sparse mats[] = {shift_into_gap(bcs), shift_into_gap(vekio::lap2d(11)),
                                shift_into_gap(vekio::lap3d(5))};
  path_census pc;
  int exchanges = 0, pairs = 0;
  for (const vekio::sparse &m : mats) {
    const dvec w = eigenvalues(m);
    const int negative = int(std::count_if(w.begin(), w.end(), [](double x) { return x < 0; }));
    for (double x : w) ASSERT_GT(std::fabs(x), 1e-3 * std::max(-w[0], w[m.n - 1]));
    ASSERT_GT(negative, 0);
    for (int method : {0, 2})
      for (int panel : {4, 64}) {
        const bool scaled = panel == 64;  // scaled while scattered
        problem p = prepare(m, method, panel, scaled);
        count_paths(p.s, pc);
        for (int diagp : {1, 0}) {
          SCOPED_TRACE(testing::Message() << "n " << m.n << " method " << method << " panel "
                                          << panel << " diagp " << diagp);
          // temp of exactly the size needed suffices; one entry less is refused
          const int need = int(pc.need[diagp]);
          ASSERT_LE(need, p.s.comi[37 - 1]);
          EXPECT_EQ(run<double>(p, diagp, 0.0, need - 1).error, -2);
          factor<double> f = run<double>(p, diagp, 0.0, need);
          ASSERT_EQ(f.error, 0);
          EXPECT_EQ(f.npert, 0);
          EXPECT_EQ(f.npos + f.nneg, m.n);
          EXPECT_EQ(f.nneg, negative);
          EXPECT_LT(factor_misfit(p, f, diagp), 1.0);
          for (int i = 0; i < m.n; ++i) {
            if (diagp == 1) exchanges += f.pivot[i] != i + 2 - p.s.xsup[p.s.snode[i] - 1];
            else pairs += f.pivot[i] < 0;
          }
          if (method == 2 && panel == 4) {
            const factor<float> g = run<float>(p, diagp);
            ASSERT_EQ(g.error, 0);
            EXPECT_LT(factor_misfit(p, g, diagp), 1.0);
          }
          if (!scaled) continue;
          problem plain = p;
          plain.scale.clear();
          EXPECT_GT(factor_misfit(plain, f, diagp), 1e6);  // not the factor of A itself
        }
      }
  }
  EXPECT_TRUE(exchanges && pairs) << exchanges << " " << pairs;
  EXPECT_TRUE(pc.same && pc.single && pc.contiguous && pc.scattered)  // every update path
      << pc.same << " " << pc.single << " " << pc.contiguous << " " << pc.scattered;
}

// --- the dense block routines --------------------------------------------

struct counts {
  int npert = 0, npos = 0, nneg = 0;
};

int block(bool bunch, dvec &a, int n, int lda, ivec &ipiv, counts &c, double eps = 0.0) {
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

TEST(BlkldlBlock, PivotChoiceTiesReplacementAndCounts) {
  ivec ipiv;
  counts c;
  dvec a{0, 1, 1, 0};  // zero diagonal: one 2 by 2 pivot, one sign of each
  EXPECT_EQ(block(true, a, 2, 2, ipiv, c), 0);
  EXPECT_EQ(ipiv, (ivec{-2, -2}));
  EXPECT_EQ((ivec{c.npert, c.npos, c.nneg}), (ivec{0, 1, 1}));
  a = {1, 0, 0, 0, 5, 0, 0, 0, 3};  // diagonal: 5 first
  block(false, a, 3, 3, ipiv, c);
  EXPECT_EQ(ipiv, (ivec{2, 3, 3}));
  a = {3, 0, 0, 0, 1, 0, 0, 0, -3};  // equal magnitudes: the last
  block(false, a, 3, 3, ipiv, c);
  EXPECT_EQ(ipiv[0], 3);
  EXPECT_EQ(a[0], -3.0);
  // Bunch-Kaufman's column search takes the first of equal magnitudes; its
  // diagonal, above alpha times the largest of its row, a 1 by 1 pivot.
  a = {0, 2, -2, 2, 1.5, 0, -2, 0, 5};
  block(true, a, 3, 3, ipiv, c);
  EXPECT_EQ(ipiv[0], 2);
  for (bool bunch : {true, false}) {  // a zero block: every pivot +1e-8, counted on
    dvec z(12, 0.0);
    counts cz;
    cz.npert = 2;
    EXPECT_EQ(block(bunch, z, 3, 4, ipiv, cz), 0);
    EXPECT_EQ((ivec{cz.npert, cz.npos, cz.nneg}), (ivec{5, 3, 0}));
    EXPECT_EQ((dvec{z[0], z[5], z[10], z[3]}), (dvec{1e-8, 1e-8, 1e-8, 0.0}));
  }
  counts cs;
  a = {-1e-7};  // below eps: replaced by its sign; a NaN stays
  block(false, a, 1, 1, ipiv, cs, 1e-6);
  EXPECT_EQ(a[0], -1e-6);
  a[0] = std::numeric_limits<double>::quiet_NaN();
  block(true, a, 1, 1, ipiv, cs, 1e-6);
  block(false, a, 1, 1, ipiv, cs, 1e-6);
  EXPECT_TRUE(std::isnan(a[0]));
  EXPECT_EQ(cs.npert, 1);
  EXPECT_EQ(block(true, a, 2, 1, ipiv, cs), -4);  // lda below n
}

}  // namespace
