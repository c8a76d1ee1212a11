#include "test_ldl.h"

#include <algorithm>
#include <cmath>

namespace vektest {

namespace {

typedef std::complex<double> zc;

// The block factors of all supernodes as one dense n by n matrix G, and the
// block diagonal D.
void rebuild(const analysis &s, const zvec &lnz, const ivec &pivot, int diagp, bool hermitian,
             zvec &G, zvec &D) {
  const size_t n = s.n;
  auto g = [&](int i, int j) -> zc & { return G[i + j * n]; };
  for (int J = 1; J <= s.ns; ++J) {
    const int f0 = s.xsup[J - 1] - 1, f1 = s.xsup[J] - 1, nr = s.xlnz[f0 + 1] - s.xlnz[f0];
    const int *rows = s.lindx.data() + (s.xlindx[J - 1] - 1), *piv = pivot.data();
    auto B = [&](int i, int j) { return lnz[s.xlnz[f0] - 1 + (i - f0) + size_t(j - f0) * nr]; };
    auto swap_rows = [&](int i, int j) {
      for (int c = f0; c < f1; ++c) std::swap(g(i, c), g(j, c));
    };
    std::vector<int> steps;  // first column of each step, -1 - k for a 2 by 2 step
    for (int k = f0; k < f1; ++k) {
      const bool pair = diagp == 0 && piv[k] < 0;
      D[k + k * n] = B(k, k);
      if (pair) {
        D[k + 1 + k * n] = B(k + 1, k);
        D[k + (k + 1) * n] = hermitian ? std::conj(B(k + 1, k)) : B(k + 1, k);
        D[k + 1 + (k + 1) * n] = B(k + 1, k + 1);
      }
      steps.push_back(pair ? -1 - k : k);
      k += pair;
    }
    for (int j = f0; j < f1; ++j) {
      g(j, j) = 1.0;
      for (int i = f1 - f0; i < nr; ++i) g(rows[i] - 1, j) = B(f0 + i, j);
      for (int i = j + 1; i < f1 && diagp != 0; ++i) g(i, j) = B(i, j);
    }
    if (diagp != 0)
      for (int i = f1 - 2; i >= f0; --i) swap_rows(i, f0 + piv[i] - 1);
    for (auto st = steps.rbegin(); diagp == 0 && st != steps.rend(); ++st) {
      const int k = *st < 0 ? -1 - *st : *st, w = *st < 0 ? 2 : 1;
      for (int c = f0; c < f1; ++c)  // M := Lk M
        for (int i = k + w; i < f1; ++i)
          for (int q = k; q < k + w; ++q) g(i, c) += B(i, q) * g(q, c);
      swap_rows(k + w - 1, f0 + std::abs(piv[k]) - 1);
    }
  }
}

}  // namespace

double ldl_misfit(const analysis &s, const vekio::sparse &full,
                  const std::vector<double> &scale, const zvec &lnz, const ivec &pivot,
                  int diagp, bool hermitian, double u) {
  const size_t n = s.n;
  zvec G(n * n), D(n * n), A(n * n);
  rebuild(s, lnz, pivot, diagp, hermitian, G, D);
  ivec newidx(n + 1);
  for (size_t i = 1; i <= n; ++i) newidx[s.perm[i - 1]] = int(i);
  for (size_t i = 1; i <= n; ++i)
    for (int k = full.ia[i - 1]; k < full.ia[i]; ++k) {
      const int j = full.ja[k - 1];
      const double sc = scale.empty() ? 1.0 : scale[i - 1] * scale[j - 1];
      zc v = full.cplx ? zc(full.a[2 * k - 2], full.a[2 * k - 1]) : zc(full.a[k - 1]);
      if (hermitian && size_t(j) == i) v = v.real();
      A[newidx[i] - 1 + (newidx[j] - 1) * n] = v * sc;
    }
  zvec GD(n * n);
  std::vector<double> GDa(n * n, 0.0);
  for (size_t j = 0; j < n; ++j)
    for (size_t q = (j > 0 ? j - 1 : 0); q < std::min(n, j + 2); ++q)
      for (size_t i = 0; i < n; ++i) {
        GD[i + j * n] += G[i + q * n] * D[q + j * n];
        GDa[i + j * n] += std::abs(G[i + q * n]) * std::abs(D[q + j * n]);
      }
  double worst = 0;
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i < n; ++i) {
      zc v = 0;
      double va = 0;
      for (size_t k = 0; k < n; ++k) {
        v += GD[i + k * n] * (hermitian ? std::conj(G[j + k * n]) : G[j + k * n]);
        va += GDa[i + k * n] * std::abs(G[j + k * n]);
      }
      const zc a = A[i + j * n];
      worst = std::max(worst, std::abs(v - a) / (n * u * (std::abs(a) + va) + 1e-300));
    }
  return worst;
}

}  // namespace vektest
