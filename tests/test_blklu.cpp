// The supernodal LU sweeps on structures from the library's own analysis.
// The matrix that a factor represents is formed column by column and
// compared with the permuted (and scaled) input within the rounding of
// |L||U|. The dense block factorization is checked on its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "blklu.h"
#include "service/vek_serv_threads.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

using vektest::ivec;

// roworder empty: rows as they are; scale empty: no scaling, else n column
// factors, then n row factors.
struct problem {
  vekio::sparse a;
  int mtype = 11;
  ivec roworder;
  std::vector<double> scale;
  vektest::analysis s;
  vektest::scatter_lists L;
};

problem prepare(const vekio::sparse &a, int mtype, const ivec &roworder, int method,
                int panel, bool scaled) {
  problem p;
  p.a = a;
  p.mtype = mtype;
  p.roworder = roworder;
  ivec *ro = p.roworder.empty() ? nullptr : &p.roworder;
  p.s = vektest::analyse(p.a, mtype, ro, method, 1, panel);
  p.L = vektest::make_scatter_lists(p.a, p.s, mtype, ro, scaled ? 1 : 0);
  std::mt19937 g(17);
  std::uniform_real_distribution<double> d(0.25, 4.0);
  for (int k = 0; scaled && k < 2 * a.n; ++k) p.scale.push_back(d(g));
  return p;
}

template <class T> struct factor {
  std::vector<T> lnz, unz;
  ivec pivot, cpivot;
  int error = 99, npert = 5;  // garbage: blklu_unsym clears it
};

// Runs blklu (type 1) or blklu_unsym (type 11) on fresh arrays filled with
// garbage, which the sweep has to overwrite. tmpsize -1: the analysis' size.
template <class T>
factor<T> run(const problem &p, double eps = 1e-13, int tmpsize = -1, int msglvl = 0,
              T garbage = T(7)) {
  const vektest::analysis &s = p.s;
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], one = 1;
  if (tmpsize < 0) tmpsize = s.comi[37 - 1];
  factor<T> f;
  f.lnz.assign(std::max(1, nnzl), garbage);
  f.unz.assign(std::max(1, s.comi[35 - 1]), garbage);
  f.pivot.assign(n, 0);
  f.cpivot.assign(n, 0);
  const std::vector<T> a(p.a.a.begin(), p.a.a.end());
  ivec indmap(n, 3), relind(n, 3), link(n, 5), length(std::max(1, ns), 5);
  std::vector<T> temp(std::max(1, tmpsize), garbage);
  if (p.mtype == 1) {
    f.npert = 0;  // type 1 replaces no pivot
    blklu<T>(a.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
             f.lnz.data(), s.xunz.data(), f.unz.data(), indmap.data(), relind.data(), &tmpsize,
             temp.data(), s.nmod.data(), link.data(), s.snode.data(), s.xsup.data(),
             length.data(), f.pivot.data(), p.L.xjalf.data(), p.L.jalf.data(),
             p.L.xjauf.data(), p.L.jauf.data(), p.L.luperm.data(), s.perm.data(), &msglvl,
             &f.error);
  } else {
    const std::vector<tlm::real_of<T>> sc(p.scale.begin(), p.scale.end());
    const tlm::real_of<T> e = static_cast<tlm::real_of<T>>(eps);
    const int rowflag = p.scale.empty() ? 0 : 1;
    blklu_unsym<T>(a.data(), p.a.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(),
                   s.lindx.data(), s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(),
                   indmap.data(), relind.data(), &tmpsize, temp.data(), s.nmod.data(),
                   link.data(), s.snode.data(), s.xsup.data(), length.data(), f.pivot.data(),
                   f.cpivot.data(), p.L.xjalf.data(), p.L.jalf.data(), p.L.xjauf.data(),
                   p.L.jauf.data(), p.L.luperm.data(), s.perm.data(), &e, &f.npert,
                   rowflag ? sc.data() : nullptr, &rowflag, p.L.luperm_row.data(), &msglvl,
                   &f.error);
  }
  for (const T &t : temp) EXPECT_EQ(t, T(0)) << "temp not left clear";
  return f;
}

// y := F x, F the matrix that the factor represents, in the permuted
// numbering. A solve runs per supernode, J ascending: row exchanges P_J,
// L11 and L21 forward; then J descending: U12 and U11 backward, column
// exchanges Q_J. Here these steps are undone in reverse order. With absolute
// values F is |P^T| |L| |U| |Q^T|, the scale of the rounding of each entry.
template <class T>
void apply_factor(const problem &p, const factor<T> &f, const std::vector<double> &x,
                  std::vector<double> &y, bool absolute) {
  const vektest::analysis &s = p.s;
  auto v = [absolute](T e) { return absolute ? std::fabs(double(e)) : double(e); };
  y.assign(s.n, 0.0);
  std::vector<double> z;
  for (int J = 1; J <= s.ns; ++J) {  // U11 Q^T x_J + U12 x_below
    const int f0 = s.xsup[J - 1], nc = s.xsup[J] - f0, nr = s.xlnz[f0] - s.xlnz[f0 - 1];
    const T *blk = f.lnz.data() + (s.xlnz[f0 - 1] - 1);
    const int *rows = s.lindx.data() + (s.xlindx[J - 1] - 1);
    z.assign(x.begin() + (f0 - 1), x.begin() + (f0 - 1 + nc));
    if (p.mtype == 11)
      for (int i = 0; i < nc; ++i) std::swap(z[i], z[f.cpivot[f0 - 1 + i] - 1]);
    for (int j = 0; j < nc; ++j) {
      double w = 0;
      for (int i = j; i < nc; ++i) w += v(blk[j + static_cast<size_t>(i) * nr]) * z[i];
      const T *u = f.unz.data() + (s.xunz[f0 - 1 + j] - 1);
      for (int k = nc; k < nr; ++k) w += v(u[k - nc]) * x[rows[k] - 1];
      y[f0 - 1 + j] = w;
    }
  }
  for (int J = s.ns; J >= 1; --J) {  // L21 adds below, then P^T L11
    const int f0 = s.xsup[J - 1], nc = s.xsup[J] - f0, nr = s.xlnz[f0] - s.xlnz[f0 - 1];
    const T *blk = f.lnz.data() + (s.xlnz[f0 - 1] - 1);
    const int *rows = s.lindx.data() + (s.xlindx[J - 1] - 1);
    double *w = y.data() + (f0 - 1);
    for (int k = nc; k < nr; ++k)
      for (int j = 0; j < nc; ++j) y[rows[k] - 1] += v(blk[k + static_cast<size_t>(j) * nr]) * w[j];
    for (int i = nc - 1; i >= 0; --i)
      for (int j = 0; j < i; ++j) w[i] += v(blk[i + static_cast<size_t>(j) * nr]) * w[j];
    for (int i = nc - 1; i >= 0; --i) std::swap(w[i], w[f.pivot[f0 - 1 + i] - 1]);
  }
}

// The number of entries of the factor's matrix, column by column, that
// differ from the permuted (and scaled) input by more than the rounding of
// their terms, u n (|L||U|)(i, j): a replaced pivot may account for one
// each. The first few go to what.
template <class T> int factor_mismatches(const problem &p, const factor<T> &f,
                                         std::string *what) {
  const vektest::analysis &s = p.s;
  const int n = s.n;
  ivec newcol(n + 1);
  for (int j = 1; j <= n; ++j) newcol[s.perm[j - 1]] = j;
  std::vector<std::vector<std::pair<int, double>>> col(n + 1);  // by permuted column
  for (int i = 1; i <= n; ++i) {
    const int q = s.perm[i - 1], row = p.roworder.empty() ? q : p.roworder[q - 1];
    for (int k = p.a.ia[row - 1]; k < p.a.ia[row]; ++k) {
      const int c = p.a.ja[k - 1];
      const double sc = p.scale.empty() ? 1.0 : p.scale[c - 1] * p.scale[n + row - 1];
      col[newcol[c]].push_back({i, p.a.a[k - 1] * sc});
    }
  }
  const double u = std::numeric_limits<T>::epsilon() / 2;
  int bad = 0;
  std::vector<double> e(n, 0.0), y, bound, want(n);
  for (int j = 1; j <= n; ++j) {
    e[j - 1] = 1.0;
    apply_factor(p, f, e, y, false);
    apply_factor(p, f, e, bound, true);
    e[j - 1] = 0.0;
    std::fill(want.begin(), want.end(), 0.0);
    for (auto &rv : col[j]) want[rv.first - 1] = rv.second;
    for (int i = 0; i < n; ++i)
      if (!(std::fabs(y[i] - want[i]) <= u * n * bound[i] + 1e-300) && ++bad <= 5)
        *what += " (" + std::to_string(i + 1) + ", " + std::to_string(j) +
                 "): " + std::to_string(y[i]) + " for " + std::to_string(want[i]);
  }
  return bad;
}

// Which way each update of the sweep reaches its target, found from the
// structure alone, in the order of the tests of the update; the counts add
// up over calls.
struct path_census {
  int same = 0, single = 0, contiguous = 0, scattered = 0;
  int contiguous_below = 0;  // contiguous with rows below the target's diagonal block
  int tight = 0;             // sweeps with one entry of temp too few
};

// Returns rem times ndone of the largest update through temp: all the temp
// that the sweep on s needs.
long count_paths(const vektest::analysis &s, path_census &pc) {
  long largest = 0;
  for (int K = 1; K <= s.ns; ++K) {
    const int kn = s.xsup[K] - s.xsup[K - 1], last = s.xlindx[K];
    for (int p = s.xlindx[K - 1] + kn; p < last;) {
      const int T = s.snode[s.lindx[p - 1] - 1], rem = last - p;
      int nd = 0, first = -1, lastpos = -1;
      while (nd < rem && s.lindx[p - 1 + nd] < s.xsup[T]) ++nd;
      for (int q = s.xlindx[T - 1]; q < s.xlindx[T]; ++q) {
        if (s.lindx[q - 1] == s.lindx[p - 1]) first = q;
        if (s.lindx[q - 1] == s.lindx[last - 2]) lastpos = q;
      }
      if (rem == s.xlindx[T] - s.xlindx[T - 1]) ++pc.same;
      else if (kn == 1) ++pc.single;
      else if (lastpos - first < rem) ++pc.contiguous, pc.contiguous_below += nd < rem;
      else ++pc.scattered, largest = std::max(largest, static_cast<long>(rem) * nd);
      p += nd;
    }
  }
  return largest;
}

void expect_every_path(const path_census &pc) {
  EXPECT_TRUE(pc.same && pc.single && pc.contiguous && pc.contiguous_below && pc.scattered &&
              pc.tight)
      << pc.same << " " << pc.single << " " << pc.contiguous << " " << pc.contiguous_below
      << " " << pc.scattered << " " << pc.tight;
}

// Factors p with temp of exactly the size of its largest scattered update,
// one entry less being refused, and compares the factor with the matrix.
factor<double> factor_and_check(const problem &p, path_census &pc) {
  const long need = count_paths(p.s, pc);
  if (need > 1) {
    ++pc.tight;
    EXPECT_EQ(run<double>(p, 1e-13, int(need) - 1).error, -2);
  }
  factor<double> f = run<double>(p, 1e-13, int(std::max(1L, need)));
  EXPECT_EQ(f.error, 0);
  std::string what;
  EXPECT_LE(factor_mismatches(p, f, &what), f.npert) << what;
  return f;
}

// A row order that puts a nonzero on every diagonal entry: augmenting paths,
// the larger entries of a column tried first.
ivec diagonal_matching(const vekio::sparse &a) {
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

// The pattern of a with values of a non-symmetric matrix: random entries, the
// diagonal weak in every third row so that pivoting has work to do.
vekio::sparse unsymmetric_values(vekio::sparse a, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  for (int i = 1; i <= a.n; ++i)
    for (int k = a.ia[i - 1]; k < a.ia[i]; ++k)
      a.a[k - 1] = a.ja[k - 1] == i ? (i % 3 == 0 ? 0.01 : 2.0) * d(g) : d(g);
  return a;
}

TEST(BlkluUnsym, FactorsUnsymmetricMatricesUnderSeveralOrdersPanelsAndScalings) {
  // A nonzero diagonal does not keep every pivot of the static order away
  // from zero; a replaced pivot changes one entry of the factorized matrix.
  path_census pc;
  int exact = 0, scaled_exact = 0;
  for (const char *name : {"west0067", "west0479", "gent113", "impcol_a", "fs_183_1"}) {
    vekio::sparse m;
    ASSERT_TRUE(vektest::load(name, m));
    const ivec match = diagonal_matching(m);
    for (int method : {0, 2})
      for (int panel : {4, 16, 128}) {
        SCOPED_TRACE(testing::Message() << name << " method " << method << " panel " << panel);
        const bool scaled = panel == 16;  // scaled while scattered
        problem p = prepare(m, 11, match, method, panel, scaled);
        const factor<double> f = factor_and_check(p, pc);
        exact += f.npert == 0;
        if (scaled && method == 0) {  // NaN in every work array and in the factor
          const factor<double> g = run<double>(p, 1e-13, -1, 0, std::nan(""));
          EXPECT_TRUE(f.lnz == g.lnz && f.unz == g.unz && f.pivot == g.pivot &&
                      f.cpivot == g.cpivot);
        }
        if (!scaled || f.npert > 0) continue;
        ++scaled_exact;
        p.scale.clear();  // the factor is that of the scaled matrix, not of A
        std::string what;
        EXPECT_GT(factor_mismatches(p, f, &what), m.nnz() / 2);
      }
  }
  expect_every_path(pc);
  EXPECT_GE(exact, 15) << scaled_exact;  // of 30 without a replaced pivot
  EXPECT_GE(scaled_exact, 3);
}

TEST(Blklu, FactorsStructurallySymmetricMatricesWithRowExchanges) {
  vekio::sparse cage;
  ASSERT_TRUE(vektest::load("cage5", cage));
  const vekio::sparse mats[] = {cage, unsymmetric_values(vekio::lap2d(14), 3),
                                unsymmetric_values(vekio::lap3d(6), 4)};
  path_census pc;
  int exchanges = 0;
  for (const vekio::sparse &m : mats)
    for (int panel : {1, 8, 100}) {
      SCOPED_TRACE(testing::Message() << m.n << " panel " << panel);
      const problem p = prepare(m, 1, ivec(), 2, panel, false);
      const factor<double> f = factor_and_check(p, pc);
      for (int i = 0; i < m.n; ++i) exchanges += f.pivot[i] != i + 2 - p.s.xsup[p.s.snode[i] - 1];
    }
  EXPECT_GT(exchanges, 0);
  expect_every_path(pc);
}

TEST(Blklu, SinglePrecision) {
  const vekio::sparse l2 = unsymmetric_values(vekio::lap2d(10), 8);
  for (int mtype : {1, 11}) {
    problem p = prepare(l2, mtype, ivec(), 2, 16, mtype == 11);
    factor<float> f = run<float>(p, 1e-6);
    ASSERT_EQ(f.error, 0);
    std::string what;
    EXPECT_EQ(factor_mismatches(p, f, &what), 0) << mtype << what;
  }
}

TEST(Blklu, ZeroColumnStopsPartialPivotingButCompletePivotingReplacesThePivot) {
  vekio::sparse m = unsymmetric_values(vekio::lap2d(5), 6);
  for (int k = 0; k < m.nnz(); ++k)
    if (m.ja[k] == 7) m.a[k] = 0.0;  // singular, the pattern kept
  EXPECT_EQ(run<double>(prepare(m, 1, ivec(), 2, 8, false)).error, -1);

  const problem p = prepare(m, 11, ivec(), 2, 8, false);
  for (double eps : {0.0, 1e-8}) {
    factor<double> f = run<double>(p, eps);
    ASSERT_EQ(f.error, 0);
    EXPECT_EQ(f.npert, 1);
    std::string what;
    EXPECT_LE(factor_mismatches(p, f, &what), 1) << what;
    // One diagonal entry of U holds +rep; the other pivots are far from it.
    int found = 0;
    for (int J = 1; J <= p.s.ns; ++J) {
      const int f0 = p.s.xsup[J - 1], nr = p.s.xlnz[f0] - p.s.xlnz[f0 - 1];
      for (int j = 0; j < p.s.xsup[J] - f0; ++j) {
        const double d = f.lnz[p.s.xlnz[f0 - 1] - 1 + j + static_cast<size_t>(j) * nr];
        if (d == (eps == 0.0 ? 1e-13 : eps)) ++found;
        else EXPECT_GT(std::fabs(d), 1e-6);
      }
    }
    EXPECT_EQ(found, 1) << eps;
  }
}

// --- the dense block factorization --------------------------------------

struct block {
  int n, lda;
  std::vector<double> a;
  double &operator()(int i, int j) { return a[(i - 1) + static_cast<size_t>(j - 1) * lda]; }
};

int blockfact(block &b, ivec &ipiv, ivec &jpiv, double eps, int *npert) {
  ipiv.assign(b.n, 0);
  jpiv.assign(b.n, 0);
  int info = 99;
  blklu_blockfact<double>(&b.n, b.a.data(), &b.lda, ipiv.data(), jpiv.data(), npert, &eps,
                          &info);
  return info;
}

TEST(BlkluBlockfact, ProductOfTheFactorsIsTheExchangedBlock) {
  const int n = 7, lda = 9;
  block a{n, lda, std::vector<double>(lda * n)};
  std::mt19937 g(21);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  for (double &x : a.a) x = d(g);
  block b = a;
  ivec ipiv, jpiv;
  int npert = 0;
  EXPECT_EQ(blockfact(b, ipiv, jpiv, 1e-13, &npert), 0);
  EXPECT_EQ(npert, 0);
  EXPECT_EQ(ipiv[n - 1], n);
  EXPECT_EQ(jpiv[n - 1], n);
  for (int i = n + 1; i <= lda; ++i)
    for (int j = 1; j <= n; ++j) EXPECT_EQ(b(i, j), a(i, j)) << "padding row " << i;
  // P A Q from the exchanges, in the order of the steps.
  block e = a;
  for (int j = 1; j <= n; ++j) {
    for (int k = 1; k <= n; ++k) std::swap(e(j, k), e(ipiv[j - 1], k));
    for (int i = 1; i <= n; ++i) std::swap(e(i, j), e(i, jpiv[j - 1]));
  }
  double worst = 0, lmax = 0;
  for (int i = 1; i <= n; ++i)
    for (int j = 1; j <= n; ++j) {
      double v = 0;
      for (int k = 1; k <= std::min(i, j); ++k) v += (k == i ? 1.0 : b(i, k)) * b(k, j);
      worst = std::max(worst, std::fabs(v - e(i, j)));
      if (i > j) lmax = std::max(lmax, std::fabs(b(i, j)));
    }
  EXPECT_LT(worst, 1e-14);
  EXPECT_LE(lmax, 1.0);  // complete pivoting bounds the multipliers
  // Each pivot was the largest of its trailing square, its row of U included.
  for (int j = 1; j <= n; ++j)
    for (int k = j + 1; k <= n; ++k) EXPECT_LE(std::fabs(b(j, k)), std::fabs(b(j, j)));
}

TEST(BlkluBlockfact, TiesGoToTheLaterEntryOfTheRowWiseSearch) {
  // 3 at (1,2) and at (2,1): the search reaches row 2 last.
  block b{2, 2, {1.0, 3.0, 3.0, 1.0}};
  ivec ipiv, jpiv;
  int npert = 0;
  blockfact(b, ipiv, jpiv, 1e-13, &npert);
  EXPECT_EQ(ipiv, (ivec{2, 2}));
  EXPECT_EQ(jpiv, (ivec{1, 2}));
  // In one row the later column wins: row 2 holds -5 and 5.
  block c{2, 2, {1.0, -5.0, 2.0, 5.0}};
  blockfact(c, ipiv, jpiv, 1e-13, &npert);
  EXPECT_EQ(ipiv[0], 2);
  EXPECT_EQ(jpiv[0], 2);
  EXPECT_EQ(c(1, 1), 5.0);
  // The multipliers are quotients: 49 / 49 is 1, 49 (1/49) is not.
  block d{2, 2, {49.0, 49.0, 1.0, 2.0}};
  blockfact(d, ipiv, jpiv, 1e-13, &npert);
  EXPECT_EQ(ipiv[0], 2);
  EXPECT_EQ(d(2, 1), 1.0);
}

TEST(BlkluBlockfact, SmallPivotsAreReplacedBySignAndCounted) {
  ivec ipiv, jpiv;
  // A zero block: every pivot replaced by +rep, the last entry chosen first.
  for (double eps : {0.0, 1e-8}) {
    block z{3, 4, std::vector<double>(12, 0.0)};
    z(2, 2) = -0.0;
    int npert = 5;  // counts on from its value
    EXPECT_EQ(blockfact(z, ipiv, jpiv, eps, &npert), 0);
    EXPECT_EQ(npert, 8);
    EXPECT_EQ(ipiv, (ivec{3, 3, 3}));
    EXPECT_EQ(jpiv, (ivec{3, 3, 3}));
    for (int j = 1; j <= 3; ++j) EXPECT_EQ(z(j, j), eps == 0.0 ? 1e-13 : eps);
  }
  // eps 0: a tiny pivot stays; eps 1e-8 replaces it and keeps its sign.
  for (double tiny : {1e-20, -1e-20}) {
    block t{1, 1, {tiny}};
    int npert = 0;
    blockfact(t, ipiv, jpiv, 0.0, &npert);
    EXPECT_EQ(t.a[0], tiny);
    EXPECT_EQ(npert, 0);
    blockfact(t, ipiv, jpiv, 1e-8, &npert);
    EXPECT_EQ(t.a[0], tiny > 0 ? 1e-8 : -1e-8);
    EXPECT_EQ(npert, 1);
  }
  // A NaN pivot is left alone and not counted.
  block q{1, 1, {std::numeric_limits<double>::quiet_NaN()}};
  int npert = 0;
  blockfact(q, ipiv, jpiv, 1e-8, &npert);
  EXPECT_TRUE(std::isnan(q.a[0]));
  EXPECT_EQ(npert, 0);
  float ef = 0.0f;
  std::vector<float> fz(4, 0.0f);
  ivec ip(2), jp(2);
  int nf = 0, info = 9, two = 2;
  sp_blklu_blockfact(&two, fz.data(), &two, ip.data(), jp.data(), &nf, &ef, &info);
  EXPECT_EQ(fz[0], 1e-13f);
  EXPECT_EQ(nf, 2);
  EXPECT_EQ(info, 0);
}

// --- progress ----------------------------------------------------------

std::vector<int> steps_seen;
int stop_at = 1000;

int recording_hook(int *thread, int *step, const char *stage, int len) {
  EXPECT_EQ(*thread, 1);
  EXPECT_EQ(std::string(stage, len), "Telmira: factorization phase");
  steps_seen.push_back(*step);
  return *step >= stop_at ? 1 : 0;
}

TEST(Blklu, ProgressRisesFromZeroToHundredAndTheHookCanStop) {
  const vekio::sparse m = unsymmetric_values(vekio::lap2d(12), 10);
  vek_serv_set_progress(recording_hook);
  for (int mtype : {1, 11}) {
    SCOPED_TRACE(mtype);
    const problem p = prepare(m, mtype, ivec(), 2, 8, false);
    steps_seen.clear();
    stop_at = 1000;
    testing::internal::CaptureStdout();
    EXPECT_EQ(run<double>(p, 1e-13, -1, 1).error, 0);
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

}  // namespace
