// The complex symmetric LDL^T sweep (type 6) on structures from the
// library's own analysis: G D G^T against the permuted (and scaled) input,
// transposes only, within the rounding of |G||D||G^T|; the solves with the
// factor against the matrix, one and several right-hand sides on one and
// two threads, and their sub-steps. The block routines on their measures,
// replacements and arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <type_traits>
#include <vector>

#include "blkldl.h"
#include "blkldlslvs.h"
#include "test_analysis.h"
#include "test_ldl.h"
#include "vekio.h"

namespace {

using vektest::ivec;
typedef std::complex<double> zc;
typedef std::vector<zc> zvec;

// The 5-point Laplacian with complex values, symmetric, not Hermitian: the
// off-diagonals -1 + i y(i,j), the diagonal small against them, so that
// Bunch-Kaufman meets 2 by 2 pivots and exchanges.
vekio::sparse complex_laplacian(int N) {
  vekio::sparse m = vekio::lap2d(N);
  m.cplx = true;
  std::vector<double> v;
  for (int i = 1; i <= m.n; ++i)
    for (int k = m.ia[i - 1]; k < m.ia[i]; ++k) {
      const int j = m.ja[k - 1];
      if (i == j) {
        v.push_back(0.4 + 0.5 * std::sin(1.0 * i));
        v.push_back(0.3 * std::cos(3.0 * i));
      } else {
        v.push_back(-1.0);
        v.push_back(0.4 * std::sin(1.0 * i * j + i + j));
      }
    }
  m.a = v;
  return m;
}

struct problem {
  vekio::sparse full, up;
  std::vector<double> scale;  // empty: not scaled
  vektest::analysis s;
  vektest::scatter_lists L;
};

problem prepare(const vekio::sparse &full, int method, int panel, bool scaled) {
  problem p;
  p.full = full;
  p.up = vekio::storage_for_type(full, 6);
  p.s = vektest::analyse(p.up, 6, nullptr, method, 1, panel);
  p.L = vektest::make_scatter_lists(p.up, p.s, 6, nullptr, scaled ? 1 : 0);
  for (int i = 0; scaled && i < full.n; ++i) p.scale.push_back(0.5 + 0.25 * (i % 7));
  return p;
}

template <class T> struct factor {
  std::vector<T> lnz;
  ivec pivot;
  int error = 99, npert = 5, npos = 5, nneg = 5;
};

// The sweep through the named twins, on arrays filled with garbage.
template <class T> factor<T> run(const problem &p, int diagp) {
  typedef tlm::real_of<T> R;
  const vektest::analysis &s = p.s;
  const int n = s.n, ns = s.ns, nnzl = s.comi[34 - 1], tmpsize = s.comi[37 - 1], one = 1,
            msglvl = 0, rowflag = p.scale.empty() ? 0 : 1;
  factor<T> f;
  f.lnz.assign(std::max(1, nnzl), T(7, 7));
  f.pivot.assign(n, 0);
  std::vector<T> a;
  for (size_t k = 0; k < p.up.a.size(); k += 2) a.push_back(T(R(p.up.a[k]), R(p.up.a[k + 1])));
  const std::vector<R> sc(p.scale.begin(), p.scale.end());
  const R eps = 0;
  ivec indmap(n, 3), relind(n, 3), link(n, 5), length(std::max(1, ns), 5);
  std::vector<T> temp(std::max(1, tmpsize), T(7, 7));
  auto sweep = [&](auto fn) {
    fn(a.data(), p.up.ja.data(), &ns, &one, &n, &nnzl, s.xlindx.data(), s.lindx.data(),
       s.xlnz.data(), f.lnz.data(), indmap.data(), relind.data(), &tmpsize, temp.data(),
       s.nmod.data(), link.data(), s.snode.data(), s.xsup.data(), length.data(),
       f.pivot.data(), p.L.xjalf.data(), p.L.jalf.data(), p.L.luperm.data(), s.perm.data(),
       &eps, &diagp, &f.npert, &f.npos, &f.nneg, sc.data(), &rowflag, p.L.luperm_row.data(),
       &msglvl, &f.error);
  };
  if constexpr (std::is_same<R, double>::value) sweep(c_blkl);
  else sweep(sp_c_blkl);
  EXPECT_TRUE(std::all_of(temp.begin(), temp.end(), [](T t) { return t == T(0); }));
  return f;
}

// G D G^T - A in units of the rounding (test_ldl.h), A the permuted (scaled)
// input.
template <class T> double factor_misfit(const problem &p, const factor<T> &f, int diagp) {
  const double u = std::numeric_limits<tlm::real_of<T>>::epsilon() / 2;
  return vektest::ldl_misfit(p.s, p.full, p.scale, vektest::widen(f.lnz), f.pivot, diagp,
                             false, u);
}

// Solves with the factor of an unscaled problem, through the named twins:
// the residual against the input, one right-hand side at a time and three
// at once on one and two threads; the sub-steps 1, 2, 3 in turn give the
// full solve.
void check_solves(const problem &p, const factor<zc> &f, int diagp) {
  const vektest::analysis &s = p.s;
  const int n = s.n, nrhs = 3, full = 0;
  zvec b(size_t(n) * nrhs), y(b.size()), x(b.size()), w(b.size());
  for (size_t i = 0; i < b.size(); ++i) b[i] = zc(std::cos(0.7 * i), std::sin(1.3 * i) - 0.2);
  for (size_t i = 0; i < b.size(); ++i) y[i] = b[s.perm[i % n] - 1 + i / n * n];  // gather
  auto residual = [&](const zvec &z) {
    for (size_t i = 0; i < z.size(); ++i) x[s.perm[i % n] - 1 + i / n * n] = z[i];
    return vekio::relative_residual(p.up, 6, reinterpret_cast<const double *>(x.data()),
                                    reinterpret_cast<const double *>(b.data()), nrhs);
  };
  zvec z1 = y;
  for (int k = 0; k < nrhs; ++k)
    c_blkslvs1(&s.ns, s.xsup.data(), s.xlindx.data(), s.lindx.data(), s.xlnz.data(),
               f.lnz.data(), f.pivot.data(), &diagp, z1.data() + size_t(k) * n, &full);
  EXPECT_LT(residual(z1), 1e-13);
  for (int threads : {1, 2}) {
    zvec z = y, zs = y;
    c_blkslvs(&s.ns, &nrhs, &threads, &n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
              s.xlnz.data(), f.lnz.data(), f.pivot.data(), &diagp, z.data(), w.data(), &n,
              &full);
    EXPECT_LT(residual(z), 1e-13) << threads << " threads";
    for (int sub : {1, 2, 3})
      c_blkslvs(&s.ns, &nrhs, &threads, &n, s.xsup.data(), s.xlindx.data(), s.lindx.data(),
                s.xlnz.data(), f.lnz.data(), f.pivot.data(), &diagp, zs.data(), w.data(), &n,
                &sub);
    EXPECT_EQ(zs, z) << threads << " threads";
  }
}

TEST(CBlkl, FactorsComplexSymmetricMatricesAndSolvesWithTheFactor) {
  const vekio::sparse m = complex_laplacian(10);
  int exchanges = 0, pairs = 0;
  for (int method : {0, 2}) {
    const problem p = prepare(m, method, method == 0 ? 4 : 64, false);
    for (int diagp : {1, 0}) {
      SCOPED_TRACE(testing::Message() << "method " << method << " diagp " << diagp);
      const factor<zc> f = run<zc>(p, diagp);
      ASSERT_EQ(f.error, 0);
      EXPECT_EQ((ivec{f.npert, f.npos, f.nneg}), (ivec{0, 5, 5}));  // no sign counters
      EXPECT_LT(factor_misfit(p, f, diagp), 1.0);
      for (int i = 0; i < m.n; ++i) {
        if (diagp == 1) exchanges += f.pivot[i] != i + 2 - p.s.xsup[p.s.snode[i] - 1];
        else pairs += f.pivot[i] < 0;
      }
      check_solves(p, f, diagp);
    }
  }
  EXPECT_GT(exchanges, 0);
  EXPECT_GT(pairs, 0);
  // Scaled while scattered, and single precision.
  const problem q = prepare(m, 2, 16, true);
  problem plain = q;
  plain.scale.clear();
  for (int diagp : {1, 0}) {
    const factor<zc> f = run<zc>(q, diagp);
    ASSERT_EQ(f.error, 0);
    EXPECT_LT(factor_misfit(q, f, diagp), 1.0);
    EXPECT_GT(factor_misfit(plain, f, diagp), 1e6);
    const factor<std::complex<float>> g = run<std::complex<float>>(plain, diagp);
    ASSERT_EQ(g.error, 0);
    EXPECT_LT(factor_misfit(plain, g, diagp), 1.0);
  }
}

TEST(CBlklBlock, MeasuresReplacementsAndArguments) {
  ivec ipiv(3);
  int npert = 0, info = 99;
  const double eps0 = 0.0, eps6 = 1e-6;
  // Bunch-Kaufman measures by |re| + |im|: 2+2i (4) beats 3 (3) in the
  // column search, though its modulus is smaller; its diagonal then takes
  // the pivot by exchange.
  const int three = 3;
  zvec a{0, 3, zc(2, 2), 0, 10, 0, 0, 0, 10};
  c_blkldl_bkfact("L", &three, a.data(), &three, ipiv.data(), &npert, &eps0, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(ipiv[0], 3);
  // Diagonal pivoting measures by the modulus: 3 beats 2+2i.
  a = {3, 0, 0, 0, zc(2, 2), 0, 0, 0, 1};
  c_blkldl_diagfact(&three, &three, a.data(), &three, ipiv.data(), &npert, &eps0, &info);
  EXPECT_EQ(ipiv[0], 1);
  EXPECT_EQ(npert, 0);
  // A zero block with eps 0: every pivot 1e-8 + 0i; a small pivot with a
  // negative real part becomes -eps + 0i.
  for (bool bunch : {true, false}) {
    zvec z(12, 0.0);
    npert = 2;
    const int four = 4;
    if (bunch) c_blkldl_bkfact("L", &three, z.data(), &four, ipiv.data(), &npert, &eps0, &info);
    else c_blkldl_diagfact(&three, &three, z.data(), &four, ipiv.data(), &npert, &eps0, &info);
    EXPECT_EQ(npert, 5);
    EXPECT_EQ((zvec{z[0], z[5], z[10], z[3]}), (zvec{1e-8, 1e-8, 1e-8, 0.0}));
    EXPECT_EQ(ipiv, bunch ? (ivec{1, 2, 3}) : (ivec{3, 3, 3}));  // ties: the first, the last
    zvec d{zc(-4e-7, 5e-7)};
    const int one = 1;
    if (bunch) c_blkldl_bkfact("L", &one, d.data(), &one, ipiv.data(), &npert, &eps6, &info);
    else c_blkldl_diagfact(&one, &one, d.data(), &one, ipiv.data(), &npert, &eps6, &info);
    EXPECT_EQ(d[0], zc(-1e-6, 0));
    EXPECT_EQ(npert, 6);
  }
  const int two = 2, one = 1;
  c_blkldl_bkfact("L", &two, a.data(), &one, ipiv.data(), &npert, &eps0, &info);
  EXPECT_EQ(info, -4);
}

}  // namespace
