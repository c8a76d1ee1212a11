// telmira_factorize.cpp - the factorization driver: the timer, the kernel
// choice by matrix type, thread count and storage mode, the pivot
// perturbation, and the carve-up of the kernels' integer work area.
#include "telmira_factorize.h"
#include "telmira_slots.h"

#include <cmath>
#include <complex>
#include <cstdlib>
#include <type_traits>

#include "blkl.h"
#include "blkldl.h"
#include "blklu.h"
#include "kernels_omp.h"
#include "telmira_factorize_ooc.h"
#include "dense/vek_dense.h"
#include "platform/vek_platform.h"
#include "service/vek_serv_clock.h"
#include "service/vek_serv_message.h"
#include "telmira_layout.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

namespace {

// The kernel families that this version has not built. Their place in the
// choice table answers error cell -1, with one line at message level 1.
constexpr int row_missing_kernel = 1001;
// The line at message level 1 when the address space holds fewer threads.
constexpr int row_fewer_threads = 1005;
// The line at message level 1 when the dense routines become the own ones.
constexpr int row_own_dense = 1008;

void missing_kernel(const int *comi, int *error) {
  *error = -1;
  if (COMI(CI_MSGLVL) > 0) {
    const std::intptr_t words[1] = {COMI(CI_MTYPE)};
    vek_serv_print_message_words(row_missing_kernel, 1, words);
  }
}

// The kernel's error cell into comi(50), and comi(48) -1 for a failure,
// unless the out-of-core record reports a file error.
void kernel_result(int error, int *comi, const int *ooc_l) {
  if (ooc_l == nullptr || OOCL(OL_STATUS) == 0) {
    if (error != 0) COMI(CI_FACTOR_FAILED) = -1;
    COMI(CI_STATUS) = error;
  }
}


// The lists of the parallel sweep, or null when the sequential sweep runs:
// one thread (comi(20) 1) or no lists.
bool parallel_sweep(const int *comi, const void *up_uplen) {
  return COMI(CI_ONE_THREAD) == 0 && up_uplen != nullptr;
}

parallel_lists lists_of(void *fi, const int *comx, const int *comi, void *up_uplen,
                        const kernel_arrays &k) {
  int *up = sub(up_uplen, comx, CX_INLIST);
  // Type 11 ordered into several parts has the special form of the lists
  // and runs by parts and pool.
  const bool pool = COMI(CI_POOL) != 0 && COMI(CI_NPARTS) > 1;
  return parallel_lists{k.pnlsch,
                        sub(fi, comx, CX_XNMOD),
                        sub(up_uplen, comx, CX_XSLINDX),
                        sub(up_uplen, comx, CX_SLINDX),
                        sub(up_uplen, comx, CX_SLENGTH),
                        up,
                        up + COMI(CI_INLIST_END),
                        pool,
                        COMI(CI_NPARTS),
                        k.parts,
                        k.length};
}

template <class R>
double largest_off_diagonal(int n, const int *ia, const R *a, int words) {
  double amax = 0.0;
  for (int i = 1; i <= n; ++i)
    for (int k = ia[i - 1] + 1; k < ia[i]; ++k) {
      // complex values: the word at the entry's own index
      const double v = std::fabs(static_cast<double>(a[k - 1]));
      if (v > amax) amax = v;
    }
  (void)words;
  return amax;
}

template <class T> inline bool finite_value(const T &v) { return std::isfinite(v); }
template <class R> inline bool finite_value(const std::complex<R> &v) {
  return std::isfinite(v.real()) && std::isfinite(v.imag());
}

// The first column of the factor whose diagonal entry (the pivot, or the
// diagonal of the block pivot) is NaN or infinite; 0 when all are finite.
// One look at each column: the cost is that of reading n values.
template <class T>
int nonfinite_pivot(int nsuper, const int *xsup, const int *xlnz, const T *lnz) {
  for (int J = 1; J <= nsuper; ++J) {
    const int f = xsup[J - 1], l = xsup[J] - 1;
    for (int c = f; c <= l; ++c)
      if (!finite_value(lnz[std::abs(xlnz[c - 1]) + (c - f) - 1])) return c;
  }
  return 0;
}

}  // namespace

kernel_arrays arrays_of(void *fi, const int *comx, const int *comi, void *factors,
                        std::size_t value_bytes) {
  kernel_arrays k{};
  k.perm = sub(fi, comx, CX_PERM);
  k.xsup = sub(fi, comx, CX_XSUP);
  k.snode = sub(fi, comx, CX_SNODE);
  k.xlindx = sub(fi, comx, CX_XLINDX);
  k.lindx = sub(fi, comx, CX_LINDX);
  k.xlnz = sub(fi, comx, CX_XLNZ);
  k.xunz = sub(fi, comx, CX_XUNZ);
  k.nmod = sub(fi, comx, CX_NMOD);
  k.pnlsch = sub(fi, comx, CX_PNLSCH);
  k.parts = sub(fi, comx, CX_PARTS);
  k.xjalf = sub(fi, comx, CX_XJALF);
  k.jalf = sub(fi, comx, CX_JALF);
  k.luperm = sub(fi, comx, CX_LUPERM);
  k.pivot = factor_pivots(factors, comi, value_bytes);
  if (COMI(CI_TRIANGLE) != 1) {
    k.xjauf = sub(fi, comx, CX_XJAUF);
    k.jauf = sub(fi, comx, CX_JAUF);
    k.cpivot = k.pivot + COMI(CI_N);
  }
  if (COMI(CI_SCALING) != 0) k.luperm_row = sub(fi, comx, CX_LUPERM_ROW);
  // indmap and relind, one block of n per thread; link; length.
  const std::int64_t m = static_cast<std::int64_t>(COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS)) * COMI(CI_N);
  int *iw = sub(fi, comx, CX_IWORK);
  k.indmap = iw;
  k.relind = iw + m;
  k.link = iw + 2 * m;
  k.length = iw + 2 * m + COMI(CI_N);
  return k;
}

double pivot_perturbation(int k, int mtype, int n, const int *ia,
                          const void *a, int single) {
  if (k == 0) return 0.0;
  const double ak = std::fabs(static_cast<double>(k));  // k may be any int, INT_MIN too
  double eps = single ? static_cast<double>(std::exp(-2.3025851f * static_cast<float>(ak)))
                      : std::exp(-2.302585092994046 * ak);
  if (mtype == -2 || mtype == -4 || mtype == 6) {
    const int words = words_per_value(mtype);
    double amax = single ? largest_off_diagonal(n, ia, static_cast<const float *>(a), words)
                         : largest_off_diagonal(n, ia, static_cast<const double *>(a), words);
    if (n < 1 || amax == 0.0) amax = 1.0;
    if (amax < 1.0)
      eps *= std::sqrt(amax);
    else
      eps /= std::sqrt(amax);
  }
  if (single) eps = static_cast<float>(eps);
  return eps;
}

template <class R>
void telmira_factor_sym(const void *a, const int *ia, const int *ja, void *fi,
                        const int *comx, void *factors, void *work, void *up_uplen,
                        const void *scaling, int *comi, int *ooc_l, int threads) {
  const int mtype = COMI(CI_MTYPE);
  const int n = COMI(CI_N);
  const double eps =
      pivot_perturbation(COMI(CI_PERTURBATION), mtype, n, ia, a, sizeof(R) == sizeof(float));
  kernel_arrays k = arrays_of(fi, comx, comi, factors, sizeof(R) * words_per_value(mtype));
  int error = 0;
  int nsuper = COMI(CI_NSUPER), nthreads = threads, nnzl = COMI(CI_LNZ_LEN), tmpsize = COMI(CI_TMPSIZE);
  int level = COMI(CI_MSGLVL);
  switch (mtype) {
    case 2:
      if (COMI(CI_ONE_THREAD) == 0 && up_uplen != nullptr) {
        // Several threads share the sweep; each calls the dense routines
        // on one thread.
        int nparts = COMI(CI_NPARTS);
        int *up = sub(up_uplen, comx, CX_INLIST);
        vekd::blas_threads(1);
        blkl_omp<R>(static_cast<const R *>(a), &nsuper, &nthreads, &n, &nnzl, k.xlindx,
                    k.lindx, k.xlnz, static_cast<R *>(factors), k.indmap, k.relind,
                    &tmpsize, static_cast<R *>(work), k.nmod, k.link, k.snode, k.xsup,
                    k.xjalf, k.jalf, k.luperm, k.perm, &nparts, k.parts,
                    sub(fi, comx, CX_XNMOD), sub(up_uplen, comx, CX_XSLINDX),
                    sub(up_uplen, comx, CX_SLINDX), sub(up_uplen, comx, CX_SLENGTH), up,
                    up + COMI(CI_INLIST_END), &level, &error);
        break;
      }
      [[fallthrough]];
    case 4: {
      // The sequential sweep: L L^T, or L L^H (ch_blkl) for the Hermitian
      // type 4, whose mirrored entries arrive conjugated from the scatter.
      if (mtype == 4 && parallel_sweep(comi, up_uplen)) {
        typedef std::complex<R> C;
        const parallel_lists lists = lists_of(fi, comx, comi, up_uplen, k);
        vekd::blas_threads(1);
        ch_blkl_omp<C>(static_cast<const C *>(a), &nsuper, &nthreads, &n, &nnzl, k.xlindx,
                       k.lindx, k.xlnz, static_cast<C *>(factors), k.indmap, k.relind, &tmpsize,
                       static_cast<C *>(work), k.nmod, k.link, k.snode, k.xsup, &lists, k.xjalf,
                       k.jalf, k.luperm, k.perm, &level, &error);
        break;
      }
      auto sweep = [&](auto *values) {
        typedef std::remove_pointer_t<decltype(values)> V;
        blkl<V>(static_cast<const V *>(a), &nsuper, &nthreads, &n, &nnzl, k.xlindx, k.lindx,
                k.xlnz, values, k.indmap, k.relind, &tmpsize, static_cast<V *>(work), k.nmod,
                k.link, k.snode, k.xsup, k.length, k.xjalf, k.jalf, k.luperm, k.perm, &level,
                &error);
      };
      if (mtype == 2)
        sweep(static_cast<R *>(factors));
      else
        sweep(static_cast<std::complex<R> *>(factors));
      break;
    }
    case -2:
    case -4:
    case 6: {
      // Pivoting inside the supernodes: Bunch-Kaufman, or the diagonal
      // pivots when iparam(21) is 0. Only the real sweep counts the
      // inertia; the complex ones (Hermitian -4, complex symmetric 6, no
      // conjugates) leave the counters at 0.
      const R e = static_cast<R>(eps);
      const int diagp = COMI(CI_PIVOTING) == 0 ? 1 : 0;
      int rowflag = COMI(CI_SCALING) != 0 && scaling != nullptr ? 1 : 0;
      int npert = 0, npos = 0, nneg = 0;
      auto sweep = [&](auto &kernel, auto *values) {
        typedef std::remove_pointer_t<decltype(values)> V;
        kernel(static_cast<const V *>(a), ja, &nsuper, &nthreads, &n, &nnzl, k.xlindx, k.lindx,
               k.xlnz, values, k.indmap, k.relind, &tmpsize, static_cast<V *>(work), k.nmod,
               k.link, k.snode, k.xsup, k.length, k.pivot, k.xjalf, k.jalf, k.luperm, k.perm,
               &e, &diagp, &npert, &npos, &nneg, static_cast<const R *>(scaling), &rowflag,
               k.luperm_row, &level, &error);
      };
      typedef std::complex<R> C;
      if (parallel_sweep(comi, up_uplen)) {
        // Several threads share the sweep; each calls the dense routines
        // on one thread.
        const parallel_lists lists = lists_of(fi, comx, comi, up_uplen, k);
        vekd::blas_threads(1);
        auto parallel = [&](auto &kernel, auto *values) {
          typedef std::remove_pointer_t<decltype(values)> V;
          kernel(static_cast<const V *>(a), ja, &nsuper, &nthreads, &n, &nnzl, k.xlindx,
                 k.lindx, k.xlnz, values, k.indmap, k.relind, &tmpsize, static_cast<V *>(work),
                 k.nmod, k.link, k.snode, k.xsup, &lists, k.pivot, k.xjalf, k.jalf, k.luperm,
                 k.perm, &e, &diagp, &npert, &npos, &nneg, static_cast<const R *>(scaling),
                 &rowflag, k.luperm_row, &level, &error);
        };
        if (mtype == -2)
          parallel(blkldl_omp<R>, static_cast<R *>(factors));
        else if (mtype == -4)
          parallel(ch_blkldl_omp<C>, static_cast<C *>(factors));
        else
          parallel(c_blkl_omp<C>, static_cast<C *>(factors));
      } else if (mtype == -2) {
        sweep(blkldl<R>, static_cast<R *>(factors));
      } else if (mtype == -4) {
        sweep(ch_blkldl<C>, static_cast<C *>(factors));
      } else {
        sweep(tlm::c_blkl<C>, static_cast<C *>(factors));
      }
      COMI(CI_NPERT) = npert;
      COMI(CI_NPOS) = npos;
      COMI(CI_NNEG) = nneg;
      break;
    }
    default:
      missing_kernel(comi, &error);
      break;
  }
  kernel_result(error, comi, ooc_l);
}

template <class R>
void telmira_factor_unsym(const void *a, const int *, const int *ja, void *fi,
                          const int *comx, void *factors, void *work, void *up_uplen,
                          const void *scaling, int *comi, int *ooc_l, int threads) {
  const int mtype = COMI(CI_MTYPE);
  // Types 11 and 13 take the perturbation unadjusted; 1 and 3 none.
  const double eps = pivot_perturbation(COMI(CI_PERTURBATION), mtype, COMI(CI_N), nullptr, a,
                                        sizeof(R) == sizeof(float));
  kernel_arrays k = arrays_of(fi, comx, comi, factors, sizeof(R) * words_per_value(mtype));
  int error = 0;
  int n = COMI(CI_N), nsuper = COMI(CI_NSUPER), nthreads = threads, nnzl = COMI(CI_LNZ_LEN);
  int tmpsize = COMI(CI_TMPSIZE), level = COMI(CI_MSGLVL), rowflag = COMI(CI_SCALING) != 0 ? 1 : 0;
  // With several threads the parallel sweeps share the supernodes, each
  // calling the dense routines on one thread; one thread runs the
  // sequential sweep with the dense routines on the call's threads. Complex
  // values take the same sweeps, no conjugates.
  const bool parallel = parallel_sweep(comi, up_uplen);
  const parallel_lists lists =
      parallel ? lists_of(fi, comx, comi, up_uplen, k) : parallel_lists{};
  if (parallel) vekd::blas_threads(1);
  auto sweep = [&](auto *lnz) {
    typedef std::remove_pointer_t<decltype(lnz)> V;
    V *unz = lnz + static_cast<std::int64_t>(COMI(CI_LNZ_LEN));
    const V *av = static_cast<const V *>(a);
    V *temp = static_cast<V *>(work);
    if (parallel && (mtype == 1 || mtype == 3)) {
      blklu_omp<V>(av, &nsuper, &nthreads, &n, &nnzl, k.xlindx, k.lindx, k.xlnz, lnz, k.xunz,
                   unz, k.indmap, k.relind, &tmpsize, temp, k.nmod, k.link, k.snode, k.xsup,
                   &lists, k.pivot, k.xjalf, k.jalf, k.xjauf, k.jauf, k.luperm, &level, &error);
      return;
    }
    if (parallel) {
      const R e = static_cast<R>(eps);
      int npert = 0;
      blklu_unsym_omp<V>(av, ja, &nsuper, &nthreads, &n, &nnzl, k.xlindx, k.lindx, k.xlnz, lnz,
                         k.xunz, unz, k.indmap, k.relind, &tmpsize, temp, k.nmod, k.link,
                         k.snode, k.xsup, &lists, k.pivot, k.cpivot, k.xjalf, k.jalf, k.xjauf,
                         k.jauf, k.luperm, &e, &npert, static_cast<const R *>(scaling),
                         &rowflag, k.luperm_row, &level, &error);
      COMI(CI_NPERT) = npert;
      return;
    }
    if (mtype == 1 || mtype == 3) {
      blklu<V>(av, &nsuper, &nthreads, &n, &nnzl, k.xlindx, k.lindx, k.xlnz, lnz, k.xunz, unz,
               k.indmap, k.relind, &tmpsize, temp, k.nmod, k.link, k.snode, k.xsup, k.length,
               k.pivot, k.xjalf, k.jalf, k.xjauf, k.jauf, k.luperm, k.perm, &level, &error);
      return;
    }
    const R e = static_cast<R>(eps);
    int npert = 0;
    blklu_unsym<V>(av, ja, &nsuper, &nthreads, &n, &nnzl, k.xlindx, k.lindx, k.xlnz, lnz,
                   k.xunz, unz, k.indmap, k.relind, &tmpsize, temp, k.nmod, k.link, k.snode,
                   k.xsup, k.length, k.pivot, k.cpivot, k.xjalf, k.jalf, k.xjauf, k.jauf,
                   k.luperm, k.perm, &e, &npert, static_cast<const R *>(scaling), &rowflag,
                   k.luperm_row, &level, &error);
    COMI(CI_NPERT) = npert;
  };
  switch (mtype) {
    case 1:
    case 11:
      sweep(static_cast<R *>(factors));
      break;
    case 3:
    case 13:
      sweep(static_cast<std::complex<R> *>(factors));
      break;
    default:
      missing_kernel(comi, &error);
      break;
  }
  kernel_result(error, comi, ooc_l);
}

int factor_threads(int requested) {
  if (requested <= 1) return 1;
  const std::int64_t limit = vek_os_address_space_limit();
  if (limit < 0) return requested;
  const std::int64_t used = vek_os_virtual_size();
  if (used < 0) return requested;
  const std::int64_t fit = limit > used ? (limit - used) / room_per_thread : 0;
  if (fit < 1) return 1;
  return fit < requested ? static_cast<int>(fit) : requested;
}

// The installed BLAS takes a buffer for each of its threads at its first
// call and, where the address space cannot give one, retries for ever.
// Below the room of one thread the factorization and everything after it
// in this process go to the library's own dense routines, which allocate
// nothing that large. Returns 1 when it switched now.
int own_dense_when_cramped() {
  if (vekd::own_level3_in_use()) return 0;
  const std::int64_t limit = vek_os_address_space_limit();
  if (limit < 0) return 0;
  const std::int64_t used = vek_os_virtual_size();
  if (used < 0 || limit - used >= room_per_thread) return 0;
  vekd::use_own_level3(1);
  return 1;
}

template <class R>
void telmira_factorize(const void *a, const int *ia, const int *ja, void *fi,
                       const int *comx, void *factors, void *work, void *up_uplen,
                       const void *scaling, int *comi, double *comr,
                       int *ooc_l) {
  double t0 = 0.0, t1 = 0.0;
  telmira_clock(&t0);
  COMI(CI_NPERT) = COMI(CI_NPOS) = COMI(CI_NNEG) = 0;
  const int requested = COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS);
  const int threads = factor_threads(requested);
  if (threads < requested && COMI(CI_MSGLVL) > 0) {
    const std::intptr_t words[2] = {threads, requested};
    vek_serv_print_message_words(row_fewer_threads, 2, words);
  }
  if (own_dense_when_cramped() != 0 && COMI(CI_MSGLVL) > 0)
    vek_serv_print_message_words(row_own_dense, 0, nullptr);
  // A sequential sweep gives the dense routines below it the threads of
  // the call; the parallel sweeps set one thread for them.
  vekd::blas_threads(threads);
  if (ooc_l != nullptr && OOCL(OL_MODE) == 2) {
    // Factors in files: the kernels check their pivots panel by panel.
    telmira_factorize_ooc<R>(a, ia, ja, fi, comx, factors, work, up_uplen, scaling, comi,
                             ooc_l);
    telmira_clock(&t1);
    if (COMI(CI_STATUS) == 0) comr[5] = t1 - t0;
    return;
  }
  if (COMI(CI_TRIANGLE) == 1)
    telmira_factor_sym<R>(a, ia, ja, fi, comx, factors, work, up_uplen, scaling, comi,
                          ooc_l, threads);
  else
    telmira_factor_unsym<R>(a, ia, ja, fi, comx, factors, work, up_uplen, scaling, comi,
                            ooc_l, threads);
  // A factor whose pivots are not all finite numbers (NaN or infinite
  // values in A, or an overflow) solves nothing: the factorization fails.
  if (COMI(CI_STATUS) == 0 && (ooc_l == nullptr || OOCL(OL_STATUS) == 0) && factors != nullptr) {
    const int *xsup = sub(fi, comx, CX_XSUP), *xlnz = sub(fi, comx, CX_XLNZ);
    const int col =
        words_per_value(COMI(CI_MTYPE)) == 2
            ? nonfinite_pivot(COMI(CI_NSUPER), xsup, xlnz, static_cast<const std::complex<R> *>(factors))
            : nonfinite_pivot(COMI(CI_NSUPER), xsup, xlnz, static_cast<const R *>(factors));
    if (col != 0) {
      COMI(CI_FACTOR_FAILED) = -1;
      COMI(CI_STATUS) = ST_NONFINITE_PIVOT;
    }
  }
  telmira_clock(&t1);
  if (COMI(CI_STATUS) == 0) comr[5] = t1 - t0;
}

#define TELMIRA_FACTORIZE_INSTANCE(R)                                            \
  template void telmira_factorize<R>(const void *, const int *, const int *,     \
                                     void *, const int *, void *, void *, void *, \
                                     const void *, int *, double *, int *);      \
  template void telmira_factor_sym<R>(const void *, const int *, const int *,    \
                                      void *, const int *, void *, void *,       \
                                      void *, const void *, int *, int *, int);  \
  template void telmira_factor_unsym<R>(const void *, const int *, const int *,  \
                                        void *, const int *, void *, void *,     \
                                        void *, const void *, int *, int *, int);
TELMIRA_FACTORIZE_INSTANCE(double)
TELMIRA_FACTORIZE_INSTANCE(float)

}  // namespace tlm
