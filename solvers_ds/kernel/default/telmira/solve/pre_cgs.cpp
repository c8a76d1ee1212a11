// pre_cgs.cpp - conjugate gradients and conjugate gradients squared with
// the stored factors as preconditioner. Every application of M is one
// solve with the factors, every product with A one product of the caller's
// matrix as the refinement forms it.
#include "pre_cgs.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

#include "residual_product.h"
#include "telmira_solve.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

namespace {

template <class T> inline double abs2(const T &v) { return static_cast<double>(v) * v; }
template <class R> inline double abs2(const std::complex<R> &v) {
  return static_cast<double>(v.real()) * v.real() + static_cast<double>(v.imag()) * v.imag();
}

// The vectors of one set of right-hand sides, column after column.
template <class T> struct columns {
  T *v;
  std::int64_t n;
  T *col(int j) const { return v + j * n; }
};

// Sum of x(i) y(i) over one column, without conjugation.
template <class T> T dot(const T *x, const T *y, std::int64_t n) {
  T s = T(0);
  for (std::int64_t i = 0; i < n; ++i) s += x[i] * y[i];
  return s;
}

template <class T> double norm2(const T *x, std::int64_t n) {
  double s = 0.0;
  for (std::int64_t i = 0; i < n; ++i) s += abs2(x[i]);
  return s;
}

// The largest relative size of a column of v against the start vector:
// sqrt of max_j |v_j|^2 / |x0_j|^2.
template <class T>
double relative_size(const T *v, const T *x0n, std::int64_t n, int nrhs) {
  double worst = 0.0;
  for (int j = 0; j < nrhs; ++j) {
    // A zero column of the start vector measures the correction as it is.
    const double d = std::real(x0n[j]);
    const double r = norm2(v + j * n, n) / (d > 0.0 ? d : 1.0);
    if (!(r <= worst)) worst = r;
  }
  return std::sqrt(worst);
}

// The rounding unit of the precision, found by halving.
template <class R> R machine_epsilon() {
  volatile R e = R(1);
  for (;;) {
    volatile R next = e / R(2);
    volatile R sum = R(2) + next;
    if (!(sum > R(2))) break;
    e = next;
  }
  return e;
}

template <class T> struct iteration {
  typedef real_of<T> R;
  const int n, nrhs;
  const cgs_operands<T> &op;
  int *comi;
  const std::int64_t N;
  int threads, trans, mtype;

  iteration(int n_, int k, const cgs_operands<T> &o, int *c)
      : n(n_), nrhs(k), op(o), comi(c), N(static_cast<std::int64_t>(n_) * k) {
    threads = COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS);
    trans = COMI(CI_TRANSPOSED) != 0 ? 1 : 0;
    mtype = COMI(CI_MTYPE);
  }
  // y := M^-1 v. Returns false when the solve failed.
  bool precondition(T *y, T *v) {
    const int kept = COMI(CI_OVER_B);
    COMI(CI_OVER_B) = 0;
    telmira_solve<R>(&nrhs, y, v, op.fi, op.comx, op.factors, op.work, op.s, op.m, comi,
                     op.ooc_l);
    COMI(CI_OVER_B) = kept;
    return COMI(CI_STATUS) == 0;
  }
  void product(const T *x, T *y, T *scratch) {
    residual_product<T>(&trans, &n, &nrhs, &mtype, &threads, op.ia, op.ja, op.a, x, y,
                        scratch);
  }
};

// Conjugate gradients. The array: rv, zv, pv (one set each), then x0n,
// rho, two scalars and the scratch of the product.
template <class T>
int run_cg(iteration<T> &c, T *b, T *x, int *it, const double tol, const double div_limit,
           const int maxit, const int chk_it) {
  typedef real_of<T> R;
  const std::int64_t n = c.n, N = c.N;
  const int K = c.nrhs;
  T *rv = c.op.cgs, *zv = rv + N, *pv = zv + N, *x0n = pv + N, *rho = x0n + K;
  T *scratch = rho + K + 2;
  const double meps = static_cast<double>(machine_epsilon<R>());
  for (int j = 0; j < K; ++j) x0n[j] = T(norm2(x + j * n, n));
  c.product(x, rv, scratch);
  for (std::int64_t q = 0; q < N; ++q) rv[q] = b[q] - rv[q];
  std::fill(pv, pv + N, T(0));
  std::fill(rho, rho + K, T(0));
  *it = 1;
  double best = 1e30;
  for (;;) {
    if (!c.precondition(zv, rv)) return -3;
    const double rel2 = [&] {
      const double r = relative_size(zv, x0n, n, K);
      return r * r;
    }();
    for (int j = 0; j < K; ++j) {
      const T rn = dot(zv + j * n, rv + j * n, n);
      const T beta = rho[j] == T(0) ? T(1) : rn / rho[j];
      rho[j] = rn;
      for (std::int64_t i = 0; i < n; ++i) pv[j * n + i] = zv[j * n + i] + beta * pv[j * n + i];
    }
    c.product(pv, zv, scratch);
    for (int j = 0; j < K; ++j) {
      const T d = dot(pv + j * n, zv + j * n, n);
      if (std::abs(rho[j]) * 100.0 * meps >= std::abs(d)) {
        // Breakdown: the next pass starts from a zero residual.
        *it = -1;
        std::fill(rho, rho + K, T(0));
        std::fill(pv, pv + N, T(0));
        std::fill(rv, rv + N, T(0));
        break;
      }
      const T alpha = rho[j] / d;
      for (std::int64_t i = 0; i < n; ++i) {
        x[j * n + i] += alpha * pv[j * n + i];
        rv[j * n + i] -= alpha * zv[j * n + i];
      }
    }
    ++*it;
    const double rel = std::sqrt(rel2);
    if (rel < tol) return 0;
    if (rel > div_limit) return -1;
    best = std::min(best, rel);
    if (*it >= chk_it && best > std::sqrt(tol)) return -2;
    if (*it >= maxit) return -3;
  }
}

// Conjugate gradients squared, with b as the shadow vector.
template <class T>
int run_cgs(iteration<T> &c, T *b, T *x, int *it, const double tol, const double div_limit,
            const int maxit, const int chk_it) {
  const std::int64_t n = c.n, N = c.N;
  const int K = c.nrhs;
  if (c.op.cgs_len != cgs_array_length(n, K, c.threads)) return -4;
  T *rz = c.op.cgs, *av = rz + N, *pv = av + N, *qv = pv + N, *tv = qv + N;
  T *sc = tv + N;  // seven scalars per right-hand side
  T *x0n = sc + 7 * K, *scratch = x0n + K;
  std::fill(c.op.cgs + N, c.op.cgs + c.op.cgs_len, T(0));
  for (int j = 0; j < K; ++j) x0n[j] = T(norm2(x + j * n, n));
  // rz := M^-1 (b - A x), the residual formed in pv.
  c.product(x, av, scratch);
  for (std::int64_t q = 0; q < N; ++q) pv[q] = b[q] - av[q];
  if (!c.precondition(rz, pv)) return -3;
  double rel = relative_size(rz, x0n, n, K);
  if (rel < tol) {
    for (std::int64_t q = 0; q < N; ++q) x[q] += rz[q];
    *it = 1;
    return 0;
  }
  std::fill(qv, qv + N, T(0));
  std::fill(pv, pv + N, T(0));
  for (int j = 0; j < K; ++j) sc[7 * j + 1] = T(1);
  *it = 0;
  double best = 1e30;
  for (;;) {
    ++*it;
    for (int j = 0; j < K; ++j) {
      T *s = sc + 7 * j;
      s[0] = dot(rz + j * n, b + j * n, n);
      if (*it == 1) {
        s[2] = s[0];
        continue;
      }
      if (std::abs(s[1]) * 1e15 < std::abs(s[0])) return 1;
      s[2] = s[0] / s[1];
      if (std::abs(s[2]) < 1e-45) return 2;
    }
    if (*it == 1) {
      std::copy(rz, rz + N, pv);
    } else {
      for (int j = 0; j < K; ++j) {
        const T beta = sc[7 * j + 2];
        T *p = pv + j * n;
        const T *r = rz + j * n, *q = qv + j * n;
#pragma omp parallel for schedule(static) num_threads(c.threads) if (c.threads > 1)
        for (std::int64_t i = 0; i < n; ++i) p[i] = r[i] + beta * (T(2) * q[i] + beta * p[i]);
      }
    }
    c.product(pv, av, scratch);
    if (!c.precondition(tv, av)) return -3;
    for (int j = 0; j < K; ++j) {
      T *s = sc + 7 * j;
      s[6] = dot(tv + j * n, b + j * n, n);
      if (*it > 1 && std::abs(s[6]) * 1e15 < std::abs(s[0])) return 3;
      s[3] = s[0] / s[6];
      if (*it > 1 && std::abs(s[3]) < 1e-10) return 4;
      s[1] = s[0];
      const T beta = s[2], alpha = s[3];
      T *t = tv + j * n, *xx = x + j * n, *q = qv + j * n;
      const T *r = rz + j * n;
#pragma omp parallel for schedule(static) num_threads(c.threads) if (c.threads > 1)
      for (std::int64_t i = 0; i < n; ++i) {
        const T u = r[i] + beta * q[i];
        const T old = t[i];
        t[i] = alpha * (T(2) * u - alpha * old);
        xx[i] += t[i];
        q[i] = u - alpha * old;
      }
      s[4] = s[2];
      s[5] = s[3];
    }
    rel = relative_size(tv, x0n, n, K);
    if (rel < tol) return 0;
    c.product(tv, av, scratch);
    if (!c.precondition(tv, av)) return -3;
    for (std::int64_t q = 0; q < N; ++q) rz[q] -= tv[q];
    if (rel > div_limit) return -1;
    best = std::min(best, rel);
    if (*it == chk_it && best > std::sqrt(tol)) return -2;
    if (*it >= maxit) return -3;
  }
}

}  // namespace

template <class T>
void pre_cgs(const int *n, const int *nrhs, const cgs_operands<T> &op, T *b, T *x, int *st,
             int *comi, const double *comr, int *it, const int *ctl6) {
  iteration<T> c(*n, *nrhs, op, comi);
  const int K = magnitude_of(COMI(CI_ITERATION));
  const double tol = comr[12], div_limit = COMI(CI_SET40);
  const int maxit = COMI(CI_MAXIT), chk_it = COMI(CI_CHECK_PASS);
  *it = 0;
  *st = K == 2 ? run_cg(c, b, x, it, tol, div_limit, maxit, chk_it)
               : run_cgs(c, b, x, it, tol, div_limit, maxit, chk_it);
  if (*st == -4) COMI(CI_STATUS) = -2;
  if (*st == 0 && COMI(CI_STATUS) == 0 && *ctl6 != 0)
    std::copy(x, x + static_cast<std::int64_t>(*n) * *nrhs, b);
  if (*st != -4 && COMI(CI_STATUS) != 0) *st = -3;
  if (*st != 0) COMI(CI_FORCE) = 1;
}

#define TELMIRA_PRE_CGS_INSTANCE(T)                                                      \
  template void pre_cgs<T>(const int *, const int *, const cgs_operands<T> &, T *, T *,   \
                           int *, int *, const double *, int *, const int *);
TELMIRA_PRE_CGS_INSTANCE(double)
TELMIRA_PRE_CGS_INSTANCE(float)
TELMIRA_PRE_CGS_INSTANCE(std::complex<double>)
TELMIRA_PRE_CGS_INSTANCE(std::complex<float>)

}  // namespace tlm
