// telmira_factorize_ooc.cpp - the out-of-core factorization: the steps of
// every matrix type in the storage policy of ooc_step.h, between the open
// and the close of the factor files.
//
//   type 2        blkl_ooc: Cholesky, panels kept in the value arena
//   type 4        ch_blkl_ooc: Hermitian Cholesky
//   types -2,-4,6 blkldl_ooc, ch_blkldl_ooc, c_blkl_ooc: L D L^T
//   types 1, 3    blklu_ooc, c_blklu_ooc
//   types 11, 13  blklu_unsym_ooc, c_blklu_unsym_ooc
//
// The sweep is the sequential one; the dense routines below it run on the
// call's threads.
#include "telmira_factorize_ooc.h"
#include "telmira_slots.h"

#include <complex>
#include <cstdlib>

#include "blkl_step.h"
#include "blkldl_step.h"
#include "blklu_step.h"
#include "dense/vek_dense.h"
#include "ooc_step.h"
#include "service/vek_serv_memory.h"
#include "telmira_factorize.h"
#include "telmira_layout.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

namespace {

// The arrays of the sweeps inside handle[STRUC_FI].
struct ooc_arrays {
  int *perm, *xsup, *snode, *xlindx, *lindx, *xlnz, *xunz, *nmod, *xjalf, *jalf, *xjauf,
      *jauf, *luperm, *luperm_row, *pivot, *cpivot, *indmap, *relind, *link, *length;
};

ooc_arrays arrays_of(void *fi, const int *comx, const int *comi, void *factors,
                     std::size_t value_bytes) {
  ooc_arrays k{};
  k.perm = sub(fi, comx, CX_PERM);
  k.xsup = sub(fi, comx, CX_XSUP);
  k.snode = sub(fi, comx, CX_SNODE);
  k.xlindx = sub(fi, comx, CX_XLINDX);
  k.lindx = sub(fi, comx, CX_LINDX);
  k.xlnz = sub(fi, comx, CX_XLNZ);
  k.nmod = sub(fi, comx, CX_NMOD);
  k.xjalf = sub(fi, comx, CX_XJALF);
  k.jalf = sub(fi, comx, CX_JALF);
  k.luperm = sub(fi, comx, CX_LUPERM);
  k.pivot = factor_pivots(factors, comi, value_bytes);
  if (COMI(CI_TRIANGLE) != 1) {
    k.xunz = sub(fi, comx, CX_XUNZ);
    k.xjauf = sub(fi, comx, CX_XJAUF);
    k.jauf = sub(fi, comx, CX_JAUF);
    k.cpivot = k.pivot + COMI(CI_N);
  }
  if (COMI(CI_SCALING) != 0) k.luperm_row = sub(fi, comx, CX_LUPERM_ROW);
  // indmap and relind (the first thread's blocks), link, length.
  const std::int64_t m =
      static_cast<std::int64_t>(COMI(CI_THREADS) < 1 ? 1 : COMI(CI_THREADS)) * COMI(CI_N);
  int *iw = sub(fi, comx, CX_IWORK);
  k.indmap = iw;
  k.relind = iw + m;
  k.link = iw + 2 * m;
  k.length = iw + 2 * m + COMI(CI_N);
  return k;
}

// One sweep of an inner step in the storage policy.
template <class T, class Inner>
void run_ooc(const sweep_shape &sh, const Inner &inner, int *xl, int *xu, const int *xunz,
             T *lbuf, T *ubuf, T *temp, ooc_sweep_io *io, sweep_counts *c, int *error) {
  const ooc_step<T, Inner> step{inner, sh, xl, xu, xunz, lbuf, ubuf, io};
  sweep_run(sh, temp, step, c, error);
}

// The kernels of the matrix type on values T.
template <class T>
void ooc_kernels(const void *a_, const int *ja, const ooc_arrays &k, const sweep_shape &sh,
                 const sweep_shape &inner_sh, int *xl, int *xu, T *lbuf, T *ubuf, T *temp,
                 const real_of<T> *scaling, double eps, int *comi, ooc_sweep_io *io,
                 int *error) {
  typedef real_of<T> R;
  const int mtype = COMI(CI_MTYPE);
  const T *a = static_cast<const T *>(a_);
  const R e = static_cast<R>(eps);
  sweep_counts c;
  if (mtype == 2 || mtype == 4) {
    const chol_step<T> inner{inner_sh, a, lbuf, temp, k.xjalf, k.jalf, k.luperm, k.perm};
    run_ooc(sh, inner, xl, xu, nullptr, lbuf, ubuf, temp, io, &c, error);
  } else if (mtype == -2 || mtype == -4 || mtype == 6) {
    const bool diagonal = COMI(CI_PIVOTING) == 0;
    const bool scaled = COMI(CI_SCALING) != 0 && scaling != nullptr;
    auto ldl = [&](auto *inner) {
      run_ooc(sh, *inner, xl, xu, nullptr, lbuf, ubuf, temp, io, &c, error);
    };
    if constexpr (value_traits<T>::is_complex) {
      if (mtype == -4) {
        const ldl_step<T, true> inner{inner_sh, a,       ja,       lbuf,   temp,
                                      k.pivot,  k.xjalf, k.jalf,   k.luperm, k.perm,
                                      k.luperm_row, &e,  scaling, diagonal, scaled};
        ldl(&inner);
      }
    }
    if (mtype != -4) {
      const ldl_step<T, false> inner{inner_sh, a,       ja,     lbuf,   temp,  k.pivot,
                                     k.xjalf,  k.jalf,  k.luperm, k.perm, k.luperm_row,
                                     &e,       scaling, diagonal, scaled};
      ldl(&inner);
    }
    COMI(CI_NPERT) = c.npert;
    if (mtype == -2) {
      COMI(CI_NPOS) = c.npos;
      COMI(CI_NNEG) = c.nneg;
    }
  } else {
    // LU: complete pivoting and the scaled scatter for types 11 and 13.
    const bool unsym = mtype == 11 || mtype == 13;
    const bool scaled = unsym && COMI(CI_SCALING) != 0 && scaling != nullptr;
    const lu_step<T> inner{inner_sh, a,        unsym ? ja : nullptr, lbuf,   xu,
                           ubuf,     temp,     k.pivot, unsym ? k.cpivot : nullptr,
                           k.xjalf,  k.jalf,   k.xjauf, k.jauf, k.luperm,
                           scaled ? k.luperm_row : nullptr, &e, scaled ? scaling : nullptr};
    run_ooc(sh, inner, xl, xu, k.xunz, lbuf, ubuf, temp, io, &c, error);
    if (unsym) COMI(CI_NPERT) = c.npert;
  }
}

}  // namespace

template <class R>
void telmira_factorize_ooc(const void *a, const int *ia, const int *ja, void *fi,
                           const int *comx, void *factors, void *work, const void *scaling,
                           int *comi, int *ooc_l) {
  const ooc_blocks ob = telmira_ooc_blocks(ooc_l);
  const int mtype = COMI(CI_MTYPE), n = COMI(CI_N), w = words_per_value(mtype);
  const bool upper = COMI(CI_TRIANGLE) != 1;
  const bool arena = mtype == 2;
  const int msglvl = COMI(CI_MSGLVL);
  const ooc_arrays k = arrays_of(fi, comx, comi, factors, sizeof(R) * w);
  int error = 0;

  // The factor files, made anew; the directory starts empty.
  ooc_file *ooc = ob.ooc;
  for (int file = OOC_LNZ; file <= (upper ? OOC_UNZ : OOC_LNZ); ++file) {
    ooc_file *f = ooc + (file - 1);
    for (int j = 0; j < f->nfile; ++j) f->ne_inf[j] = 0;
    for (int r = 0; r <= f->nrecords; ++r) f->kfile[r] = f->pt_inf[r] = 0;
  }
  int io_error = 0;
  telmira_ooc_open(ob.path, OOC_LNZ, "w", ooc, &io_error);
  if (upper) telmira_ooc_open(ob.path, OOC_UNZ, "w", ooc, &io_error);
  if (io_error != 0) {
    telmira_ooc_report(&io_error, 0, "blkl: open file for storing lnz");
    int ignored = 0;
    telmira_ooc_close(OOC_LNZ, ooc, &ignored);
    ignored = 0;
    if (upper) telmira_ooc_close(OOC_UNZ, ooc, &ignored);
    OOCL(OL_STATUS) = -10;
    return;
  }

  // The inner steps' copies of xlnz and xunz.
  const std::size_t xbytes = sizeof(int) * (static_cast<std::size_t>(n) + 1);
  int *xl = static_cast<int *>(vek_serv_malloc(xbytes, 128));
  int *xu = upper ? static_cast<int *>(vek_serv_malloc(xbytes, 128)) : nullptr;
  if (xl == nullptr || (upper && xu == nullptr)) {
    error = -2;
  } else {
    for (int i = 0; i <= n; ++i) xl[i] = k.xlnz[i];
    if (upper)
      for (int i = 0; i <= n; ++i) xu[i] = k.xunz[i];
    const int panel = OOCL(OL_PANEL_VALUES), capacity = OOCL(OL_ARENA_VALUES);
    std::int64_t lvalues = 0;
    telmira_ooc_block_values(arena, upper, panel, capacity, &lvalues);
    if (arena) telmira_ooc_arena_reset(ooc + (OOC_LNZ - 1), capacity);
    ooc_sweep_io io{};
    io.ooc = ooc;
    io.msglvl = msglvl > 1 ? msglvl : 0;
    io.arena = arena;
    io.whole_sources = !(mtype == 2 || mtype == 4);
    io.upper = upper;
    io.target = 1;
    io.source = arena ? capacity + 1 : panel + 1;
    io.utarget = 1;
    io.usource = panel + 1;
    int nsuper = COMI(CI_NSUPER), tmpsize = COMI(CI_TMPSIZE);
    const sweep_shape sh{n,       nsuper,  COMI(CI_LNZ_LEN), tmpsize, msglvl,
                         k.xsup,  k.snode, k.xlindx,         k.lindx, k.xlnz,
                         k.nmod,  k.link,  k.length,         k.indmap, k.relind};
    sweep_shape inner_sh = sh;
    inner_sh.xlnz = xl;
    const double eps = pivot_perturbation(COMI(CI_PERTURBATION), mtype, n, ia, a,
                                          sizeof(R) == sizeof(float));
    if (w == 1) {
      R *l = static_cast<R *>(factors);
      ooc_kernels<R>(a, ja, k, sh, inner_sh, xl, xu, l, l + lvalues, static_cast<R *>(work),
                     static_cast<const R *>(scaling), eps, comi, &io, &error);
    } else {
      typedef std::complex<R> C;
      C *l = static_cast<C *>(factors);
      ooc_kernels<C>(a, ja, k, sh, inner_sh, xl, xu, l, l + lvalues, static_cast<C *>(work),
                     static_cast<const R *>(scaling), eps, comi, &io, &error);
    }
    const int precision = COMI(CI_PRECISION);
    telmira_ooc_count(ooc_l, ob.ooc_r, precision, OL_BYTES_WRITTEN, io.written, 1, io.t_write);
    telmira_ooc_count(ooc_l, ob.ooc_r, precision, OL_BYTES_READ, io.read, 2, io.t_read);
    if (io.io_error != 0) {
      telmira_ooc_report(&io.io_error, 0, "blkl write lnz 2");
      OOCL(OL_STATUS) = -11;
    } else if (io.nonfinite != 0) {
      error = ST_NONFINITE_PIVOT;
    } else if (io.arena_error != 0) {
      error = -3;
    }
  }
  if (xl != nullptr) vek_serv_free_list(reinterpret_cast<void **>(&xl), static_cast<void **>(nullptr));
  if (xu != nullptr) vek_serv_free_list(reinterpret_cast<void **>(&xu), static_cast<void **>(nullptr));
  int close_error = 0;
  telmira_ooc_close(OOC_LNZ, ooc, &close_error);
  if (upper) telmira_ooc_close(OOC_UNZ, ooc, &close_error);
  telmira_ooc_report(&close_error, 1, "blkl: close file with lnz");
  if (OOCL(OL_STATUS) == 0) {
    if (error != 0) COMI(CI_FACTOR_FAILED) = -1;
    COMI(CI_STATUS) = error;
  }
}

template void telmira_factorize_ooc<double>(const void *, const int *, const int *, void *,
                                            const int *, void *, void *, const void *, int *,
                                            int *);
template void telmira_factorize_ooc<float>(const void *, const int *, const int *, void *,
                                           const int *, void *, void *, const void *, int *,
                                           int *);

}  // namespace tlm
