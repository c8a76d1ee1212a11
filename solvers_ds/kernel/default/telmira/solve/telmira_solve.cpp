// telmira_solve.cpp - the solve driver: gather of the right-hand sides into
// the permuted work vector, the triangular sweeps of the matrix type, and
// the scatter of the solution back to the input order.
#include "telmira_factorize.h"
#include "telmira_slots.h"
#include "telmira_solve.h"

#include <algorithm>
#include <complex>

#include "blkldlslvs.h"
#include "blkslv.h"
#include "blkslvs.h"
#include "dense/vek_dense.h"
#include "service/vek_serv_clock.h"
#include "service/vek_serv_memory.h"
#include "telmira_layout.h"
#include "telmira_ooc_arena.h"
#include "telmira_ooc_files.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

template <class T>
void psol_fwgath(const int *n, const int *nrhs, T *x, const T *b,
                 const int *perm, const void *s_, const int *m,
                 const int *comi) {
  typedef real_of<T> R;
  const R *s = static_cast<const R *>(s_);
  const int N = *n, K = *nrhs, mtype = COMI(CI_MTYPE);
  int scl = COMI(CI_MATCHING), back = 0;
  if (COMI(CI_SUBSTEP) == 3) {
    back = 1;
    if (mtype != -2) scl = 0;
  }
  if (scl >= 1 && (s == nullptr || (mtype >= 11 && m == nullptr))) scl = 0;
  const int team = std::max(1, std::min(COMI(CI_THREADS), K));
#pragma omp parallel for schedule(static) num_threads(team) if (team > 1)
  for (int k = 0; k < K; ++k) {
    T *xk = x + static_cast<std::int64_t>(k) * N;
    const T *bk = b + static_cast<std::int64_t>(k) * N;
    if (scl < 1) {
      for (int i = 0; i < N; ++i) xk[i] = bk[perm[i] - 1];
    } else if (mtype < 11 && back == 0) {
      for (int i = 0; i < N; ++i) {
        const int p = perm[i] - 1;
        xk[i] = bk[p] * s[p];
      }
    } else if (mtype < 11) {
      for (int i = 0; i < N; ++i) {
        const int p = perm[i] - 1;
        xk[i] = bk[p] / s[p];
      }
    } else {
      for (int i = 0; i < N; ++i) {
        const int q = m[perm[i] - 1] - 1;
        xk[i] = bk[q] * s[N + q];
      }
    }
  }
}

template <class T>
void psol_bwscat(const int *n, const int *nrhs, T *x, T *b, const int *perm,
                 const void *s_, T *buf, const int *bufcols, const int *comi) {
  typedef real_of<T> R;
  const R *s = static_cast<const R *>(s_);
  const int N = *n, K = *nrhs, mtype = COMI(CI_MTYPE);
  int scl = COMI(CI_MATCHING), front = 0;
  if (COMI(CI_SUBSTEP) == 1) {
    front = 1;
    if (mtype != -2) scl = 0;
  }
  if (s == nullptr) scl = 0;
  auto unscale = [&](T *v) {
    if (scl < 1) return;
    if (front)
      for (int i = 0; i < N; ++i) v[i] /= s[i];
    else
      for (int i = 0; i < N; ++i) v[i] *= s[i];
  };
  const int team = std::max(1, std::min(COMI(CI_THREADS), K));
  if (COMI(CI_OVER_B) == 1) {
#pragma omp parallel for schedule(static) num_threads(team) if (team > 1)
    for (int k = 0; k < K; ++k) {
      const T *xk = x + static_cast<std::int64_t>(k) * N;
      T *bk = b + static_cast<std::int64_t>(k) * N;
      for (int i = 0; i < N; ++i) bk[perm[i] - 1] = xk[i];
      unscale(bk);
    }
    return;
  }
  const int cols = std::max(1, *bufcols);
  for (int k0 = 0; k0 < K; k0 += cols) {
    const int kn = std::min(cols, K - k0);
#pragma omp parallel for schedule(static) num_threads(std::min(team, kn)) if (kn > 1)
    for (int j = 0; j < kn; ++j) {
      T *xk = x + static_cast<std::int64_t>(k0 + j) * N;
      T *bf = buf + static_cast<std::int64_t>(j) * N;
      for (int i = 0; i < N; ++i) bf[perm[i] - 1] = xk[i];
      for (int i = 0; i < N; ++i) xk[i] = bf[i];
      unscale(xk);
    }
  }
}

namespace {

// The structure arrays of the sweeps.
struct sweep_arrays {
  int n, nsuper, nthreads, substep, ldw;
  int *perm, *xsup, *xlindx, *lindx, *xlnz, *xunz, *pivot, *cpivot;
};

// The sweeps of the matrix type on the gathered right-hand sides x.
// Returns 0 when this version has no solve for the type.
template <class T>
int sweep(int mtype, const int *nrhs, const sweep_arrays &q, const T *lnz, const T *unz,
          int diagp, T *x, T *w) {
  int n = q.n, nsuper = q.nsuper, nthreads = q.nthreads, substep = q.substep, ldw = q.ldw;
  const bool one = *nrhs == 1;
  if (mtype == 1 || mtype == 11 || mtype == 3 || mtype == 13) {
    // LU factors, real and complex: column exchanges for types 11 and 13.
    const int *cpivot = mtype == 11 || mtype == 13 ? q.cpivot : nullptr;
    if (one)
      blkslv1<T>(&nsuper, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz, q.xunz, unz, q.pivot, cpivot,
                 x, &substep);
    else
      blkslv<T>(&nsuper, nrhs, &nthreads, &n, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz, q.xunz,
                unz, q.pivot, cpivot, x, w, &ldw, &substep);
    return 1;
  }
  if (mtype == -2 || mtype == 6) {
    // Real and complex symmetric (c_blkslvs) L D L^T factors.
    if (one)
      blkldlslvs1<T>(&nsuper, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz, q.pivot, &diagp, x,
                     &substep);
    else
      blkldlslvs<T>(&nsuper, nrhs, &nthreads, &n, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz,
                    q.pivot, &diagp, x, w, &ldw, &substep);
    return 1;
  }
  if constexpr (!tlm::value_traits<T>::is_complex) {
    if (mtype != 2) return 0;
    if (one)
      blkslvs1<T>(&nsuper, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz, x, &substep);
    else
      blkslvs<T>(&nsuper, nrhs, &nthreads, &n, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz, x, w,
                 &ldw, &substep);
  } else if (mtype == 4) {
    if (one)
      ch_blkslvs1<T>(&nsuper, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz, x, w, &ldw, &substep);
    else
      ch_blkslvs<T>(&nsuper, nrhs, &nthreads, &n, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz, x, w,
                    &ldw, &substep);
  } else if (mtype == -4) {
    if (one)
      ch_blkldlslvs1<T>(&nsuper, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz, q.pivot, &diagp, x, w,
                        &substep);
    else
      ch_blkldlslvs<T>(&nsuper, nrhs, &nthreads, &n, q.xsup, q.xlindx, q.lindx, q.xlnz, lnz,
                       q.pivot, &diagp, x, w, &ldw, &substep);
  } else {
    return 0;
  }
  return 1;
}

// The sweeps with factors in files. The factor block serves as a window:
// a run of consecutive supernodes whose panels fit it is read at once, and
// the kernel of the type runs on that run alone, through copies of xlnz and
// xunz moved to the window. Forward runs go up the supernodes, backward
// runs down; the L D L^T types take a diagonal pass between. Returns -1
// when the type has no solve, else 0; file failures set ooc_l(11).
template <class T>
int sweep_ooc(int mtype, const int *nrhs, const sweep_arrays &q, T *lwin, int diagp, T *x,
              T *w, const int *comi, int *ooc_l) {
  const ooc_blocks ob = telmira_ooc_blocks(ooc_l);
  ooc_file *ooc = ob.ooc;
  const bool upper = q.xunz != nullptr;
  const bool ldl = mtype == -2 || mtype == -4 || mtype == 6;
  const int panel = OOCL(OL_PANEL_VALUES);
  std::int64_t lcap = 0;
  const std::int64_t all =
      telmira_ooc_block_values(telmira_ooc_has_arena(ooc), upper, panel, OOCL(OL_ARENA_VALUES),
                               &lcap);
  const std::int64_t ucap = all - lcap;
  T *uwin = lwin + lcap;
  const int n = q.n, ns = q.nsuper;
  int e = 0;
  telmira_ooc_open(ob.path, OOC_LNZ, "r", ooc, &e);
  if (upper) telmira_ooc_open(ob.path, OOC_UNZ, "r", ooc, &e);
  if (e != 0) {
    telmira_ooc_report(&e, 0, "solution step: open lindx");
    int ignored = 0;
    telmira_ooc_close(OOC_LNZ, ooc, &ignored);
    ignored = 0;
    if (upper) telmira_ooc_close(OOC_UNZ, ooc, &ignored);
    OOCL(OL_STATUS) = -10;
    return 0;
  }
  const std::size_t xbytes = sizeof(int) * (static_cast<std::size_t>(n) + 1);
  int *xl = static_cast<int *>(vek_serv_malloc(xbytes, 128));
  int *xu = upper ? static_cast<int *>(vek_serv_malloc(xbytes, 128)) : nullptr;
  int result = 0;
  std::int64_t bytes = 0;
  double t_read = 0.0;
  // The panels of J1..J2 lie end to start in the stores; a single panel
  // always fits.
  auto span = [&](const int *xs, int J1, int J2) -> std::int64_t {
    return std::abs(xs[q.xsup[J2] - 1]) - std::abs(xs[q.xsup[J1 - 1] - 1]);
  };
  auto fits = [&](int J1, int J2) {
    return span(q.xlnz, J1, J2) <= lcap && (!upper || span(q.xunz, J1, J2) <= ucap);
  };
  // The run in the window: a pass that begins where the last one ended
  // (the backward pass at the top, or any pass when all panels fit) starts
  // with it and reads it no second time.
  int held1 = 0, held2 = 0;
  // One run J1..J2: read, move the pointers, solve with sub-step sub.
  auto run = [&](int J1, int J2, int sub) {
    if (J1 != held1 || J2 != held2) {
      double t0 = 0.0, t1 = 0.0;
      telmira_clock(&t0);
      held1 = held2 = 0;
      bytes += telmira_ooc_read_records(ooc, OOC_LNZ, J1, J2, q.xsup, q.xlnz, lwin, 0, &e);
      if (upper)
        bytes += telmira_ooc_read_records(ooc, OOC_UNZ, J1, J2, q.xsup, q.xunz, uwin, 0, &e);
      telmira_clock(&t1);
      t_read += t1 - t0;
      if (e != 0) return false;
      held1 = J1;
      held2 = J2;
    }
    const int f = q.xsup[J1 - 1], l = q.xsup[J2];
    const int ls = 1 - std::abs(q.xlnz[f - 1]);
    for (int c = f; c <= l; ++c) xl[c - 1] = q.xlnz[c - 1] < 0 ? q.xlnz[c - 1] - ls : q.xlnz[c - 1] + ls;
    if (upper) {
      const int us = 1 - std::abs(q.xunz[f - 1]);
      for (int c = f; c <= l; ++c)
        xu[c - 1] = q.xunz[c - 1] < 0 ? q.xunz[c - 1] - us : q.xunz[c - 1] + us;
    }
    sweep_arrays r = q;
    r.nsuper = J2 - J1 + 1;
    r.xsup = q.xsup + (J1 - 1);
    r.xlindx = q.xlindx + (J1 - 1);
    r.xlnz = xl;
    r.xunz = xu;
    r.substep = sub;
    if (!sweep<T>(mtype, nrhs, r, lwin, uwin, diagp, x, w)) result = -1;
    return result == 0;
  };
  // The passes: 1 forward (up), 2 diagonal, 3 backward (down).
  const int s = q.substep;
  const bool pass[4] = {false, s == 0 || s == 1, ldl && (s == 0 || s == 2), s == 0 || s == 3};
  if (xl == nullptr || (upper && xu == nullptr)) {
    result = -2;
  } else {
    for (int p = 1; p <= 3 && result == 0 && e == 0; ++p) {
      if (!pass[p]) continue;
      if (p < 3) {
        for (int J1 = 1; J1 <= ns;) {
          int J2 = J1;
          while (J2 < ns && fits(J1, J2 + 1)) ++J2;
          if (!run(J1, J2, p)) break;
          J1 = J2 + 1;
        }
      } else {
        for (int J2 = ns; J2 >= 1;) {
          int J1 = J2;
          if (J2 == held2)
            J1 = held1;
          else
            while (J1 > 1 && fits(J1 - 1, J2)) --J1;
          if (!run(J1, J2, p)) break;
          J2 = J1 - 1;
        }
      }
    }
  }
  if (xl != nullptr) vek_serv_free_list(reinterpret_cast<void **>(&xl), static_cast<void **>(nullptr));
  if (xu != nullptr) vek_serv_free_list(reinterpret_cast<void **>(&xu), static_cast<void **>(nullptr));
  telmira_ooc_count(ooc_l, ob.ooc_r, COMI(CI_PRECISION), OL_BYTES_READ_SOLVE, bytes, 3, t_read);
  if (e != 0) {
    telmira_ooc_report(&e, 0, "blkslv_ooc read for forward step");
    OOCL(OL_STATUS) = -11;
  }
  int close_error = 0;
  telmira_ooc_close(OOC_LNZ, ooc, &close_error);
  if (upper) telmira_ooc_close(OOC_UNZ, ooc, &close_error);
  telmira_ooc_report(&close_error, 1, "solution completed");
  return result == -1 ? -1 : 0;
}

template <class T>
void solve_values(const int *nrhs, T *x, T *b, void *fi, const int *comx, const T *lnz,
                  T *w, const void *s, const int *m, int *comi, int *ooc_l) {
  sweep_arrays q{};
  q.n = COMI(CI_N);
  q.nsuper = COMI(CI_NSUPER);
  q.nthreads = COMI(CI_THREADS);
  q.substep = COMI(CI_SUBSTEP);
  q.ldw = COMI(CI_LONGEST_COL) > 0 ? COMI(CI_LONGEST_COL) : 1;
  q.perm = sub(fi, comx, CX_PERM);
  q.xsup = sub(fi, comx, CX_XSUP);
  q.xlindx = sub(fi, comx, CX_XLINDX);
  q.lindx = sub(fi, comx, CX_LINDX);
  q.xlnz = sub(fi, comx, CX_XLNZ);
  q.pivot = factor_pivots(lnz, comi, sizeof(T));
  if (COMI(CI_TRIANGLE) != 1) {
    q.xunz = sub(fi, comx, CX_XUNZ);
    q.cpivot = q.pivot + q.n;
  }
  const int mtype = COMI(CI_MTYPE), diagp = COMI(CI_PIVOTING) == 0 ? 1 : 0;
  const T *unz = lnz + static_cast<std::int64_t>(COMI(CI_LNZ_LEN));
  int n = q.n, bufcols = n > 0 ? COMI(CI_BUFFER_LEN) / n : 1;
  const bool in_files = ooc_l != nullptr && OOCL(OL_MODE) == 2;
  // The forward sweep that the factorization of this call made on these
  // right-hand sides, taken once.
  ooc_forward *fw = in_files ? telmira_ooc_blocks(ooc_l).forward : nullptr;
  const bool fused = fw != nullptr && fw->done == 1 && fw->b == b && fw->n == n &&
                     fw->nrhs == *nrhs && q.substep == 0 && mtype == 2;
  if (fused) {
    const T *y = static_cast<const T *>(fw->x);
    std::copy(y, y + static_cast<std::int64_t>(n) * *nrhs, x);
    fw->done = 2;
  } else {
    psol_fwgath<T>(&n, nrhs, x, b, q.perm, s, m, comi);
  }
  // Threads across the right-hand sides; each calls the dense routines on
  // one thread.
  if (*nrhs > 1 && q.nthreads > 1) vekd::blas_threads(1);
  if (in_files && *nrhs > 0) {
    // The factor block holds no factors then, only the window.
    sweep_arrays qf = q;
    if (fused) qf.substep = 3;
    if (sweep_ooc<T>(mtype, nrhs, qf, const_cast<T *>(lnz), diagp, x, w, comi, ooc_l) != 0) {
      COMI(CI_STATUS) = -1;
      return;
    }
    if (OOCL(OL_STATUS) != 0) return;
  } else if (*nrhs > 0 && !sweep<T>(mtype, nrhs, q, lnz, unz, diagp, x, w)) {
    // The solves of the other types come with their factorizations.
    COMI(CI_STATUS) = -1;
    return;
  }
  psol_bwscat<T>(&n, nrhs, x, b, q.perm, s, w, &bufcols, comi);
}

}  // namespace

template <class R>
void telmira_solve(const int *nrhs, void *x, void *b, void *fi, const int *comx,
                   const void *factors, void *work, const void *s, const int *m, int *comi,
                   int *ooc_l) {
  COMI(CI_STATUS) = 0;
  if (COMI(CI_WORDS) == 1) {
    solve_values<R>(nrhs, static_cast<R *>(x), static_cast<R *>(b), fi, comx,
                    static_cast<const R *>(factors), static_cast<R *>(work), s, m, comi, ooc_l);
  } else {
    typedef std::complex<R> C;
    solve_values<C>(nrhs, static_cast<C *>(x), static_cast<C *>(b), fi, comx,
                    static_cast<const C *>(factors), static_cast<C *>(work), s, m, comi, ooc_l);
  }
}

#define PSOL_INSTANCE(T)                                                        \
  template void psol_fwgath<T>(const int *, const int *, T *, const T *,        \
                               const int *, const void *, const int *,          \
                               const int *);                                    \
  template void psol_bwscat<T>(const int *, const int *, T *, T *, const int *, \
                               const void *, T *, const int *, const int *);
PSOL_INSTANCE(double)
PSOL_INSTANCE(float)
PSOL_INSTANCE(std::complex<double>)
PSOL_INSTANCE(std::complex<float>)

#define TELMIRA_SOLVE_INSTANCE(R)                                                \
  template void telmira_solve<R>(const int *, void *, void *, void *,            \
                                 const int *, const void *, void *, const void *, \
                                 const int *, int *, int *);
TELMIRA_SOLVE_INSTANCE(double)
TELMIRA_SOLVE_INSTANCE(float)

}  // namespace tlm
