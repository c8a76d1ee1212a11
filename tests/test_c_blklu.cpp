// Complex LU sweeps (types 3 and 13) and their solves, on structures from
// the library's own analysis. The matrix a factor represents is formed
// column by column and compared with the permuted (and scaled) input within
// the rounding of |L||U|; the solves have to invert that matrix.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "blklu.h"
#include "blkslv.h"
#include "test_analysis.h"
#include "test_matrices.h"
#include "vekio.h"

namespace {

using vektest::ivec;
typedef std::complex<double> zc;
typedef std::complex<float> cc;
typedef std::vector<zc> zvec;

template <class T> struct twins;
template <> struct twins<zc> {
  static constexpr auto lu = c_blklu;
  static constexpr auto unsym = c_blklu_unsym;
};
template <> struct twins<cc> {
  static constexpr auto lu = sp_c_blklu;
  static constexpr auto unsym = sp_c_blklu_unsym;
};

struct problem {
  vekio::sparse a;  // complex, full storage
  int mtype;
  std::vector<double> scale;  // empty, or n column and n row factors
  vektest::analysis s;
  vektest::scatter_lists L;
  zc at(int k) const { return zc(a.a[2 * k], a.a[2 * k + 1]); }
};

problem prepare(const vekio::sparse &a, int mtype, int panel, bool scaled) {
  problem p{a, mtype, {}, {}, {}};
  p.s = vektest::analyse(p.a, mtype, nullptr, 2, 1, panel);
  p.L = vektest::make_scatter_lists(p.a, p.s, mtype, nullptr, scaled);
  std::mt19937 g(5);
  std::uniform_real_distribution<double> d(0.25, 4.0);
  if (scaled) p.scale.resize(2 * static_cast<size_t>(a.n));
  for (double &x : p.scale) x = d(g);
  return p;
}

// Complex values on a real pattern; every third diagonal entry is weak so
// that the block factorizations have to exchange.
vekio::sparse complex_values(vekio::sparse m, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  m.cplx = true;
  m.a.resize(2 * static_cast<size_t>(m.nnz()));
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1] - 1; k < m.ia[i] - 1; ++k) {
      const double w = m.ja[k] != i ? 1.0 : i % 3 == 0 ? 0.01 : 3.0;
      m.a[2 * k] = w * d(g);
      m.a[2 * k + 1] = w * d(g);
    }
  return m;
}

template <class T> struct factor {
  std::vector<T> lnz, unz;
  ivec pivot, cpivot;
  int error = 99, npert = -1;
};

template <class T> factor<T> run(const problem &p, double eps) {
  typedef tlm::real_of<T> R;
  const vektest::analysis &s = p.s;
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], tmpsize = s.comi[37 - 1], one = 1;
  const int msglvl = 0, rowflag = p.scale.empty() ? 0 : 1;
  factor<T> f;
  f.lnz.assign(std::max(1, nnzl), T(7));
  f.unz.assign(std::max(1, s.comi[35 - 1]), T(7));
  f.pivot.assign(n, 0);
  f.cpivot.assign(n, 0);
  std::vector<T> a(p.a.nnz()), temp(std::max(1, tmpsize), T(7));
  for (size_t k = 0; k < a.size(); ++k) a[k] = T(p.at(k));
  const std::vector<R> sc(p.scale.begin(), p.scale.end());
  const R e = R(eps);
  ivec indmap(n), relind(n), link(n), length(std::max(1, ns));
  if (p.mtype == 3)
    twins<T>::lu(a.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(),
                 s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(), indmap.data(),
                 relind.data(), &tmpsize, temp.data(), s.nmod.data(), link.data(),
                 s.snode.data(), s.xsup.data(), length.data(), f.pivot.data(),
                 p.L.xjalf.data(), p.L.jalf.data(), p.L.xjauf.data(), p.L.jauf.data(),
                 p.L.luperm.data(), s.perm.data(), &msglvl, &f.error);
  else
    twins<T>::unsym(a.data(), p.a.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(),
                    s.lindx.data(), s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(),
                    indmap.data(), relind.data(), &tmpsize, temp.data(), s.nmod.data(),
                    link.data(), s.snode.data(), s.xsup.data(), length.data(), f.pivot.data(),
                    f.cpivot.data(), p.L.xjalf.data(), p.L.jalf.data(), p.L.xjauf.data(),
                    p.L.jauf.data(), p.L.luperm.data(), s.perm.data(), &e, &f.npert,
                    sc.data(), &rowflag, p.L.luperm_row.data(), &msglvl, &f.error);
  return f;
}

// y := F x, F the matrix of the factor in the permuted numbering: the steps
// of a solve undone in reverse order. With absolute values, |F| built from
// |re| + |im| of L and U, the scale of the rounding.
template <class T>
zvec apply_factor(const problem &p, const factor<T> &f, const zvec &x, bool absolute) {
  const vektest::analysis &s = p.s;
  auto v = [absolute](T e) {
    return absolute ? zc(std::fabs(e.real()) + std::fabs(e.imag())) : zc(e);
  };
  zvec y(s.n), z;
  for (int J = 1; J <= s.ns; ++J) {  // U11 Q^T x_J + U12 x_below
    const int f0 = s.xsup[J - 1], nc = s.xsup[J] - f0, nr = s.xlnz[f0] - s.xlnz[f0 - 1];
    const T *blk = f.lnz.data() + (s.xlnz[f0 - 1] - 1);
    const int *rows = s.lindx.data() + (s.xlindx[J - 1] - 1);
    z.assign(x.begin() + (f0 - 1), x.begin() + (f0 - 1 + nc));
    if (p.mtype == 13)
      for (int i = 0; i < nc; ++i) std::swap(z[i], z[f.cpivot[f0 - 1 + i] - 1]);
    for (int j = 0; j < nc; ++j) {
      zc w = 0;
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
    zc *w = y.data() + (f0 - 1);
    for (int k = nc; k < nr; ++k)
      for (int j = 0; j < nc; ++j) y[rows[k] - 1] += v(blk[k + static_cast<size_t>(j) * nr]) * w[j];
    for (int i = nc - 1; i >= 0; --i)
      for (int j = 0; j < i; ++j) w[i] += v(blk[i + static_cast<size_t>(j) * nr]) * w[j];
    for (int i = nc - 1; i >= 0; --i) std::swap(w[i], w[f.pivot[f0 - 1 + i] - 1]);
  }
  return y;
}

// Entries of F that differ from the permuted (scaled) input by more than
// the rounding 2 u n (|L||U|)(i, j); a replaced pivot may account for one.
template <class T> int factor_mismatches(const problem &p, const factor<T> &f) {
  const vektest::analysis &s = p.s;
  const int n = s.n;
  ivec newcol(n + 1);
  for (int j = 1; j <= n; ++j) newcol[s.perm[j - 1]] = j;
  std::vector<std::vector<std::pair<int, zc>>> col(n + 1);
  for (int i = 1; i <= n; ++i) {
    const int row = s.perm[i - 1];
    for (int k = p.a.ia[row - 1] - 1; k < p.a.ia[row] - 1; ++k) {
      const int c = p.a.ja[k];
      const double sc = p.scale.empty() ? 1.0 : p.scale[c - 1] * p.scale[n + row - 1];
      col[newcol[c]].push_back({i, p.at(k) * sc});
    }
  }
  const double u = std::numeric_limits<tlm::real_of<T>>::epsilon() / 2;
  int bad = 0;
  zvec e(n), want(n);
  for (int j = 1; j <= n; ++j) {
    e[j - 1] = 1.0;
    const zvec y = apply_factor(p, f, e, false), bound = apply_factor(p, f, e, true);
    e[j - 1] = 0.0;
    std::fill(want.begin(), want.end(), zc(0));
    for (auto &rv : col[j]) want[rv.first - 1] = rv.second;
    for (int i = 0; i < n; ++i)
      bad += !(std::abs(y[i] - want[i]) <= 2 * u * n * bound[i].real() + 1e-300);
  }
  return bad;
}

// b = F z for three random sides z; the solves have to give z back, one
// side alone and all three on one and two threads.
void check_solves(const problem &p, const factor<zc> &f) {
  const vektest::analysis &s = p.s;
  const int n = s.n, nrhs = 3, sub = 0;
  std::mt19937 g(9);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  zvec z(static_cast<size_t>(n) * nrhs), b;
  for (zc &v : z) v = zc(d(g), d(g));
  for (int k = 0; k < nrhs; ++k) {
    const zvec bk = apply_factor(p, f, zvec(z.begin() + k * n, z.begin() + (k + 1) * n), false);
    b.insert(b.end(), bk.begin(), bk.end());
  }
  int ldw = 1;
  for (int J = 1; J <= s.ns; ++J)
    ldw = std::max(ldw, s.xlindx[J] - s.xlindx[J - 1] - (s.xsup[J] - s.xsup[J - 1]));
  auto rel_diff = [&z](const zvec &x) {
    double d = 0, m = 0;
    for (size_t i = 0; i < x.size(); ++i) {
      d = std::max(d, std::abs(x[i] - z[i]));
      m = std::max(m, std::abs(z[i]));
    }
    return d / m;
  };
  zvec x(b.begin(), b.begin() + n);
  if (p.mtype == 3)
    c_blkslv1(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
              f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(), nullptr, x.data(),
              &sub);
  else
    c_blkslv1_unsym(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
                    f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
                    f.cpivot.data(), x.data(), &sub);
  EXPECT_LT(rel_diff(x), 1e-11);
  for (int threads : {1, 2}) {
    zvec xs = b, w(static_cast<size_t>(ldw) * nrhs);
    if (p.mtype == 3)
      c_blkslv(&s.ns, &nrhs, &threads, &n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
               s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(), f.pivot.data(),
               nullptr, xs.data(), w.data(), &ldw, &sub);
    else
      c_blkslv_unsym(&s.ns, &nrhs, &threads, &n, s.xsup.data(), s.xlindx.data(),
                     s.lindx.data(), s.xlnz.data(), f.lnz.data(), s.xunz.data(), f.unz.data(),
                     f.pivot.data(), f.cpivot.data(), xs.data(), w.data(), &ldw, &sub);
    EXPECT_LT(rel_diff(xs), 1e-11) << threads << " threads";
  }
}

TEST(CBlklu, FactorsReproduceTheMatrixAndTheSolvesInvertThem) {
  const vekio::sparse l2 = complex_values(vekio::lap2d(12), 3);
  for (int mtype : {3, 13})
    for (int panel : {4, 16}) {
      SCOPED_TRACE("lap2d type " + std::to_string(mtype) + " panel " + std::to_string(panel));
      const problem p = prepare(l2, mtype, panel, mtype == 13 && panel == 16);
      const factor<zc> f = run<zc>(p, 1e-13);
      ASSERT_EQ(f.error, 0);
      EXPECT_EQ(factor_mismatches(p, f), 0);
      check_solves(p, f);
      EXPECT_EQ(f.npert, mtype == 13 ? 0 : -1);
      int moved = 0;  // rows exchanged inside the blocks
      for (int i = 0; i < p.s.n; ++i) moved += f.pivot[i] != i + 2 - p.s.xsup[p.s.snode[i] - 1];
      EXPECT_GT(moved, 0);
    }
  vekio::sparse qc;
  ASSERT_TRUE(vektest::load("qc324", qc));
  const problem pq = prepare(qc, 13, 16, false);
  const factor<zc> fq = run<zc>(pq, 1e-10);
  ASSERT_EQ(fq.error, 0);
  EXPECT_LE(factor_mismatches(pq, fq), fq.npert) << "qc324";
  const problem ps = prepare(l2, 13, 8, true);
  const factor<cc> fs = run<cc>(ps, 1e-6);
  ASSERT_EQ(fs.error, 0);
  EXPECT_EQ(factor_mismatches(ps, fs), 0) << "single precision";

  // A zero column: partial pivoting stops; complete pivoting leaves it for
  // the last column of its block, whose pivot is replaced only when strictly
  // below eps.
  vekio::sparse z = complex_values(vekio::lap2d(5), 6);
  for (int k = 0; k < z.nnz(); ++k)
    if (z.ja[k] == 7) z.a[2 * k] = z.a[2 * k + 1] = 0.0;
  EXPECT_EQ(run<zc>(prepare(z, 3, 8, false), 1e-13).error, -1);
  const problem pz = prepare(z, 13, 8, false);
  const int J = pz.s.snode[pz.s.invp[7 - 1] - 1], fst = pz.s.xsup[J - 1], lst = pz.s.xsup[J] - 1;
  for (double eps : {0.0, 1e-8}) {
    const factor<zc> f = run<zc>(pz, eps);
    ASSERT_EQ(f.error, 0);
    EXPECT_EQ(f.npert, eps > 0 ? 1 : 0);
    EXPECT_EQ(f.lnz[pz.s.xlnz[lst - 1] - 1 + (lst - fst)], zc(eps));
  }
}

// The dense block factorization on its own, on a square block.
int blockfact(zvec &a, ivec &ipiv, ivec &jpiv, double eps, int *npert) {
  int n = static_cast<int>(std::sqrt(a.size())), info = 99;
  ipiv.assign(n, 0);
  jpiv.assign(n, 0);
  c_blklu_blockfact(&n, a.data(), &n, ipiv.data(), jpiv.data(), npert, &eps, &info);
  return info;
}

TEST(CBlkluBlockfact, TiesReplacementsAndTheLastColumn) {
  ivec ipiv, jpiv;
  int npert = 0;
  // |3+4i| = |5|: the later row wins the tie.
  zvec t{1.0, 5.0, zc(3, 4), 1.0};
  blockfact(t, ipiv, jpiv, 1e-13, &npert);
  EXPECT_EQ(ipiv, (ivec{2, 2}));
  EXPECT_EQ(jpiv, (ivec{1, 2}));

  // A zero block with eps 0: the pivots before the last become 1e-13, the
  // last one stays 0; the count goes on from its value.
  zvec z(9);
  npert = 5;
  EXPECT_EQ(blockfact(z, ipiv, jpiv, 0.0, &npert), 0);
  EXPECT_EQ(npert, 7);
  EXPECT_EQ(ipiv, (ivec{3, 3, 3}));
  EXPECT_EQ(jpiv, (ivec{3, 3, 3}));
  EXPECT_EQ(z[0], zc(1e-13));
  EXPECT_EQ(z[4], zc(1e-13));
  EXPECT_EQ(z[8], zc(0));

  // eps 1e-8: a pivot of that size is replaced before the last column and
  // kept in it; a small one goes by the sign of its real part.
  zvec s{zc(-1e-8), 0.0, 0.0, zc(1e-8)};
  npert = 0;
  blockfact(s, ipiv, jpiv, 1e-8, &npert);
  EXPECT_EQ(npert, 1);
  EXPECT_EQ(s[0], zc(1e-8));
  EXPECT_EQ(s[3], zc(-1e-8));
  zvec r{zc(-1e-9, 5e-10), 0.0, 0.0, 0.0};
  npert = 0;
  blockfact(r, ipiv, jpiv, 1e-8, &npert);
  EXPECT_EQ(npert, 2);
  EXPECT_EQ(r[0], zc(-1e-8));
  EXPECT_EQ(r[3], zc(1e-8));

  std::vector<cc> fz(4, cc(0));
  ivec ip(2), jp(2);
  int nf = 0, two = 2, info = 9;
  float ef = 0.0f;
  sp_c_blklu_blockfact(&two, fz.data(), &two, ip.data(), jp.data(), &nf, &ef, &info);
  EXPECT_EQ(nf, 1);
  EXPECT_EQ(fz[0], cc(1e-13f));
  EXPECT_EQ(info, 0);
}

}  // namespace
