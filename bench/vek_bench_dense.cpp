// vek-bench-dense: the library's level-3 routines against the installed
// BLAS, measured in the same run, interleaved, on square problems.
//
//   vek-bench-dense [--threads LIST] [--sizes LIST] [ROUTINE...]
//
// ROUTINE is dgemm, sgemm, zgemm, cgemm, dtrsm, ztrsm, dsyrk, ssyrk, or the
// factorizations dgetrf, zgetrf, sgetrf, dpotrf, spotrf (by default dgemm
// dtrsm dsyrk zgemm sgemm dgetrf dpotrf zgetrf); LIST is comma separated
// (defaults 1,2 and 256,1000,2000,4000). One line per routine, size and thread count:
//   dense ROUTINE n=N threads=T ours=G1 blas=G2 ratio=G1/G2
// with the rates in GFlop/s, each the best of a few runs.
#include <omp.h>

#include <chrono>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "dense/vek_dense.h"
#include "dense/vek_dense_lapack.h"
#include "dense/vek_dense_level3.h"

typedef std::complex<double> zc;
typedef std::complex<float> cc;

extern "C" {
void dgemm_(const char *, const char *, const int *, const int *, const int *, const double *,
            const double *, const int *, const double *, const int *, const double *, double *,
            const int *, std::size_t, std::size_t);
void sgemm_(const char *, const char *, const int *, const int *, const int *, const float *,
            const float *, const int *, const float *, const int *, const float *, float *,
            const int *, std::size_t, std::size_t);
void zgemm_(const char *, const char *, const int *, const int *, const int *, const zc *,
            const zc *, const int *, const zc *, const int *, const zc *, zc *, const int *,
            std::size_t, std::size_t);
void cgemm_(const char *, const char *, const int *, const int *, const int *, const cc *,
            const cc *, const int *, const cc *, const int *, const cc *, cc *, const int *,
            std::size_t, std::size_t);
void dtrsm_(const char *, const char *, const char *, const char *, const int *, const int *,
            const double *, const double *, const int *, double *, const int *, std::size_t,
            std::size_t, std::size_t, std::size_t);
void ztrsm_(const char *, const char *, const char *, const char *, const int *, const int *,
            const zc *, const zc *, const int *, zc *, const int *, std::size_t, std::size_t,
            std::size_t, std::size_t);
void dsyrk_(const char *, const char *, const int *, const int *, const double *,
            const double *, const int *, const double *, double *, const int *, std::size_t,
            std::size_t);
void ssyrk_(const char *, const char *, const int *, const int *, const float *, const float *,
            const int *, const float *, float *, const int *, std::size_t, std::size_t);
void dgetrf_(const int *, const int *, double *, const int *, int *, int *);
void sgetrf_(const int *, const int *, float *, const int *, int *, int *);
void zgetrf_(const int *, const int *, zc *, const int *, int *, int *);
void dpotrf_(const char *, const int *, double *, const int *, int *, std::size_t);
void spotrf_(const char *, const int *, float *, const int *, int *, std::size_t);
}

namespace {

template <class T>
void fill(std::vector<T> &v, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (auto &x : v) {
    if constexpr (sizeof(T) == 2 * sizeof(typename T::value_type))
      x = T(u(g), u(g));
  }
}
template <>
void fill<double>(std::vector<double> &v, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (auto &x : v) x = u(g);
}
template <>
void fill<float>(std::vector<float> &v, unsigned seed) {
  std::mt19937 g(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (auto &x : v) x = u(g);
}

double seconds(const std::function<void()> &f) {
  auto t0 = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Best time of each of two routines, run in turns, at least reps turns and
// at least three turns and about two seconds in all.
void race(const std::function<void()> &ours, const std::function<void()> &theirs,
          const std::function<void()> &reset, double &best_ours, double &best_theirs) {
  best_ours = best_theirs = 1e30;
  double spent = 0;
  for (int turn = 0; turn < 3 || (spent < 2.0 && turn < 50); ++turn) {
    reset();
    double t = seconds(ours);
    best_ours = std::min(best_ours, t);
    reset();
    double u = seconds(theirs);
    best_theirs = std::min(best_theirs, u);
    spent += t + u;
  }
}

template <class T>
struct dense_case {
  int n;
  std::vector<T> a, b, c, c0;
  explicit dense_case(int order) : n(order) {
    const std::size_t nn = std::size_t(n) * n;
    a.resize(nn);
    b.resize(nn);
    c0.resize(nn);
    fill(a, 1);
    fill(b, 2);
    fill(c0, 3);
    c = c0;
  }
};

// A well-conditioned lower triangle: unit-sized diagonal.
template <class T>
void make_triangular(std::vector<T> &a, int n) {
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < j; ++i) a[i + std::size_t(j) * n] = T(0);
    a[j + std::size_t(j) * n] = T(n);
  }
}

void report(const char *routine, int n, int threads, double flops, double ours,
            double theirs) {
  const double g1 = flops / ours * 1e-9, g2 = flops / theirs * 1e-9;
  std::printf("dense %s n=%d threads=%d ours=%.1f blas=%.1f ratio=%.2f\n", routine, n, threads,
              g1, g2, g1 / g2);
  std::fflush(stdout);
}

template <class T, class Ours, class Theirs>
void bench_gemm(const char *name, double flop_factor, int n, int threads, Ours ours,
                Theirs theirs) {
  dense_case<T> d(n);
  const T alpha(1), beta(1);
  double t1, t2;
  race([&] { ours("N", "N", &n, &n, &n, &alpha, d.a.data(), &n, d.b.data(), &n, &beta,
                  d.c.data(), &n, 1, 1); },
       [&] { theirs("N", "N", &n, &n, &n, &alpha, d.a.data(), &n, d.b.data(), &n, &beta,
                    d.c.data(), &n, 1, 1); },
       [&] { d.c = d.c0; }, t1, t2);
  report(name, n, threads, flop_factor * double(n) * n * n, t1, t2);
}

template <class T, class Ours, class Theirs>
void bench_trsm(const char *name, double flop_factor, int n, int threads, Ours ours,
                Theirs theirs) {
  dense_case<T> d(n);
  make_triangular(d.a, n);
  const T alpha(1);
  double t1, t2;
  race([&] { ours("L", "L", "N", "N", &n, &n, &alpha, d.a.data(), &n, d.c.data(), &n, 1, 1,
                  1, 1); },
       [&] { theirs("L", "L", "N", "N", &n, &n, &alpha, d.a.data(), &n, d.c.data(), &n, 1,
                    1, 1, 1); },
       [&] { d.c = d.c0; }, t1, t2);
  report(name, n, threads, flop_factor * double(n) * n * n, t1, t2);
}

template <class T, class Ours, class Theirs>
void bench_syrk(const char *name, int n, int threads, Ours ours, Theirs theirs) {
  dense_case<T> d(n);
  const T alpha(-1), beta(1);
  double t1, t2;
  race([&] { ours("L", "N", &n, &n, &alpha, d.a.data(), &n, &beta, d.c.data(), &n, 1, 1); },
       [&] { theirs("L", "N", &n, &n, &alpha, d.a.data(), &n, &beta, d.c.data(), &n, 1, 1); },
       [&] { d.c = d.c0; }, t1, t2);
  report(name, n, threads, double(n) * (n + 1) * n, t1, t2);
}

// LU of a random matrix; both libraries must agree on info.
template <class T, class Ours, class Theirs>
void bench_getrf(const char *name, double flop_factor, int n, int threads, Ours ours,
                 Theirs theirs) {
  dense_case<T> d(n);
  std::vector<int> ipiv(n);
  int info1 = 0, info2 = 0;
  double t1, t2;
  race([&] { ours(&n, &n, d.c.data(), &n, ipiv.data(), &info1); },
       [&] { theirs(&n, &n, d.c.data(), &n, ipiv.data(), &info2); },
       [&] { d.c = d.c0; }, t1, t2);
  if (info1 != info2) std::printf("# %s n=%d: info %d against %d\n", name, n, info1, info2);
  report(name, n, threads, flop_factor * double(n) * n * n, t1, t2);
}

// Cholesky (lower) of a symmetric matrix made positive definite by its
// diagonal.
template <class T, class Ours, class Theirs>
void bench_potrf(const char *name, int n, int threads, Ours ours, Theirs theirs) {
  dense_case<T> d(n);
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < j; ++i) d.c0[j + std::size_t(i) * n] = d.c0[i + std::size_t(j) * n];
    d.c0[j + std::size_t(j) * n] = T(2 * n);
  }
  int info1 = 0, info2 = 0;
  double t1, t2;
  race([&] { ours("L", &n, d.c.data(), &n, &info1, 1); },
       [&] { theirs("L", &n, d.c.data(), &n, &info2, 1); }, [&] { d.c = d.c0; }, t1, t2);
  if (info1 != 0 || info2 != 0)
    std::printf("# %s n=%d: info %d and %d\n", name, n, info1, info2);
  report(name, n, threads, double(n) * n * n / 3.0, t1, t2);
}

std::vector<int> parse_list(const char *text) {
  std::vector<int> out;
  for (const char *p = text; *p;) {
    out.push_back(std::atoi(p));
    const char *comma = std::strchr(p, ',');
    if (!comma) break;
    p = comma + 1;
  }
  return out;
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<int> threads = {1, 2}, sizes = {256, 1000, 2000, 4000};
  std::vector<std::string> routines;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--threads") && i + 1 < argc) {
      threads = parse_list(argv[++i]);
    } else if (!std::strcmp(argv[i], "--sizes") && i + 1 < argc) {
      sizes = parse_list(argv[++i]);
    } else if (argv[i][0] == '-') {
      std::fprintf(stderr, "usage: %s [--threads LIST] [--sizes LIST] [ROUTINE...]\n",
                   argv[0]);
      return 2;
    } else {
      routines.push_back(argv[i]);
    }
  }
  if (routines.empty())
    routines = {"dgemm", "dtrsm", "dsyrk", "zgemm", "sgemm", "dgetrf", "dpotrf", "zgetrf"};
  for (const std::string &r : routines) {
    for (int n : sizes) {
      for (int t : threads) {
        // One count for both libraries: the installed one's own setter and
        // the limit of the library's frames.
        vekd::blas_threads(t);
        if (r == "dgemm") bench_gemm<double>("dgemm", 2, n, t, vekd::dgemm, dgemm_);
        else if (r == "sgemm") bench_gemm<float>("sgemm", 2, n, t, vekd::sgemm, sgemm_);
        else if (r == "zgemm") bench_gemm<zc>("zgemm", 8, n, t, vekd::zgemm, zgemm_);
        else if (r == "cgemm") bench_gemm<cc>("cgemm", 8, n, t, vekd::cgemm, cgemm_);
        else if (r == "dtrsm") bench_trsm<double>("dtrsm", 1, n, t, vekd::dtrsm, dtrsm_);
        else if (r == "ztrsm") bench_trsm<zc>("ztrsm", 4, n, t, vekd::ztrsm, ztrsm_);
        else if (r == "dsyrk") bench_syrk<double>("dsyrk", n, t, vekd::dsyrk, dsyrk_);
        else if (r == "ssyrk") bench_syrk<float>("ssyrk", n, t, vekd::ssyrk, ssyrk_);
        else if (r == "dgetrf") bench_getrf<double>("dgetrf", 2.0 / 3, n, t, vekd::dgetrf, dgetrf_);
        else if (r == "sgetrf") bench_getrf<float>("sgetrf", 2.0 / 3, n, t, vekd::sgetrf, sgetrf_);
        else if (r == "zgetrf") bench_getrf<zc>("zgetrf", 8.0 / 3, n, t, vekd::zgetrf, zgetrf_);
        else if (r == "dpotrf") bench_potrf<double>("dpotrf", n, t, vekd::dpotrf, dpotrf_);
        else if (r == "spotrf") bench_potrf<float>("spotrf", n, t, vekd::spotrf, spotrf_);
        else {
          std::fprintf(stderr, "unknown routine %s\n", r.c_str());
          return 2;
        }
      }
    }
  }
  return 0;
}
