// telmira_factorize_ooc.cpp - the out-of-core factorization: the steps of
// every matrix type in the storage policy of ooc_step.h, between the open
// and the close of the factor files.
//
//   type 2        blkl_ooc: Cholesky, panels kept in the value arena;
//                 blkl_ooc_omp on several threads
//   type 4        ch_blkl_ooc: Hermitian Cholesky
//   types -2,-4,6 blkldl_ooc, ch_blkldl_ooc, c_blkl_ooc: L D L^T
//   types 1, 3    blklu_ooc, c_blklu_ooc
//   types 11, 13  blklu_unsym_ooc, c_blklu_unsym_ooc
//
// The other sweeps are sequential; the dense routines below them run on
// the call's threads.
#include "telmira_factorize_ooc.h"
#include "telmira_slots.h"

#include <complex>
#include <cstdlib>

#include "blkl_ooc_omp.h"
#include "blkl_step.h"
#include "blkldl_step.h"
#include "blklu_step.h"
#include "dense/vek_dense.h"
#include "ooc_step.h"
#include "sweep_frame_branch.h"
#include "telmira_ooc_tree.h"
#include "service/vek_serv_memory.h"
#include "telmira_factorize.h"
#include "telmira_layout.h"
#include "telmira_storage.h"
#include "telmira_types.h"

namespace tlm {

namespace {


// One sweep of an inner step in the storage policy.
template <class T, class Inner>
void run_ooc(const sweep_shape &sh, const Inner &inner, int *xl, int *xu, const int *xunz,
             T *lbuf, T *ubuf, T *temp, ooc_sweep_io *io, sweep_counts *c, int *error,
             T *kept = nullptr) {
  const ooc_step<T, Inner> step{inner, sh, xl, xu, xunz, lbuf, ubuf, io, kept};
  sweep_run(sh, temp, step, c, error);
}

// The kernels of the matrix type on values T.
template <class T>
void ooc_kernels(const void *a_, const int *ja, const kernel_arrays &k, const sweep_shape &sh,
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
    // The block diagonals of the factored panels, two values a column.
    T *kept = static_cast<T *>(vek_serv_malloc(sizeof(T) * 2 * static_cast<std::size_t>(sh.n), 128));
    if (kept == nullptr) {
      *error = -2;
      return;
    }
    auto ldl = [&](auto *inner) {
      run_ooc(sh, *inner, xl, xu, nullptr, lbuf, ubuf, temp, io, &c, error, kept);
    };
    if constexpr (value_traits<T>::is_complex) {
      if (mtype == -4) {
        const ldl_step<T, true> inner{inner_sh, a,       ja,       lbuf,   temp,
                                      k.pivot,  k.xjalf, k.jalf,   k.luperm, k.perm,
                                      k.luperm_row, &e,  scaling, diagonal, scaled, kept};
        ldl(&inner);
      }
    }
    if (mtype != -4) {
      const ldl_step<T, false> inner{inner_sh, a,       ja,     lbuf,   temp,  k.pivot,
                                     k.xjalf,  k.jalf,  k.luperm, k.perm, k.luperm_row,
                                     &e,       scaling, diagonal, scaled, kept};
      ldl(&inner);
    }
    vek_serv_free_list(reinterpret_cast<void **>(&kept), static_cast<void **>(nullptr));
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

// The partition tree of type 2's branch sweep, where the plan chose it (the
// whole factor or its largest branch fits the arena) and the parts make
// the tree: then no panel is read back while the factorization runs. The
// tree's arrays and extra ints of work behind them lie in *block (the
// caller frees it). False when the arena sweep is to run; *error -2 when
// the heap refuses.
bool branch_tree(const int *comi, const int *ooc_l, const kernel_arrays &k, int extra,
                 ooc_tree *tree, int **block, int *error) {
  const int algorithm = OOCL(OL_ALGORITHM), ns = COMI(CI_NSUPER);
  *block = nullptr;
  if (COMI(CI_MTYPE) != 2 || (algorithm != 0 && algorithm != 3) ||
      !telmira_ooc_has_arena(telmira_ooc_blocks(ooc_l).ooc))
    return false;
  *block = static_cast<int *>(
      vek_serv_malloc(sizeof(int) * (2 * static_cast<std::size_t>(ns) + extra), 128));
  if (*block == nullptr) {
    *error = -2;
    return false;
  }
  return ooc_tree_build(COMI(CI_NPARTS), k.parts, ns, k.xsup, k.xlindx, k.lindx, k.snode,
                        *block, *block + ns, tree);
}

// The branch sweep on one thread.
template <class R>
bool cholesky_by_branches(const void *a, const kernel_arrays &k, const sweep_shape &sh,
                          const sweep_shape &inner_sh, int *xl, R *lbuf, R *temp,
                          const int *comi, const int *ooc_l, ooc_sweep_io *io, int *error) {
  ooc_tree tree;
  int *block = nullptr;
  const bool built = branch_tree(comi, ooc_l, k, sh.nsuper, &tree, &block, error);
  if (built) {
    int *taken = block + 2 * sh.nsuper;
    const chol_step<R> inner{inner_sh, static_cast<const R *>(a), lbuf, temp, k.xjalf,
                             k.jalf,   k.luperm, k.perm};
    io->branch = true;
    const ooc_step<R, chol_step<R>> step{inner, sh, xl, nullptr, nullptr, lbuf, nullptr, io,
                                         nullptr};
    ooc_file *f = io->ooc + (OOC_LNZ - 1);
    auto load = [&](int leaf, int *e) {
      int code = 0;
      if (ooc_set_branch(f, tree, leaf, k.xsup, k.xlindx, io->msglvl, &code) != 0) {
        io->arena_error = code;
        *e = -3;
      }
    };
    sweep_counts c;
    sweep_run_branches(sh, tree, taken, temp, step, load, &c, error);
    io->branch = false;
  }
  if (block != nullptr)
    vek_serv_free_list(reinterpret_cast<void **>(&block), static_cast<void **>(nullptr));
  return built || *error == -2;
}

// The parallel Cholesky sweep of type 2 when the call has several threads,
// the lists of the parallel frame and a block that holds the slots of
// every thread beside some arena, or, branch by branch, the arena of the
// plan. Returns false when the sequential sweep is to run instead;
// otherwise the sweep ran, with the counts in io.
template <class R>
bool cholesky_on_threads(const void *a, void *fi, const int *comx, void *up_uplen,
                         const kernel_arrays &k, const sweep_shape &sh, R *block,
                         R *temp, int *comi, const int *ooc_l, ooc_file *ooc,
                         ooc_sweep_io *total, int *error) {
  const int threads = COMI(CI_THREADS);
  if (COMI(CI_MTYPE) != 2 || threads < 2 || COMI(CI_ONE_THREAD) != 0 || up_uplen == nullptr ||
      !telmira_ooc_has_arena(ooc))
    return false;
  ooc_tree tree;
  int *tree_block = nullptr;
  const bool branch = branch_tree(comi, ooc_l, k, sh.nsuper, &tree, &tree_block, error);
  if (*error != 0) return true;
  const int panel = OOCL(OL_PANEL_VALUES);
  std::int64_t lvalues = 0;
  telmira_ooc_block_values(true, false, panel, OOCL(OL_ARENA_VALUES), &lvalues);
  const std::int64_t arena =
      branch ? OOCL(OL_ARENA_VALUES) : lvalues - blkl_ooc_omp_slot_values(panel, threads);
  if (arena < 0) {
    vek_serv_free_list(reinterpret_cast<void **>(&tree_block), static_cast<void **>(nullptr));
    return false;
  }
  ooc_thread_io *io = static_cast<ooc_thread_io *>(
      vek_serv_calloc(threads, static_cast<int>(sizeof(ooc_thread_io)), 128));
  int *up = sub(up_uplen, comx, CX_INLIST);
  const sweep_incoming in{COMI(CI_NPARTS),
                          sub(fi, comx, CX_PARTS),
                          sub(fi, comx, CX_XNMOD),
                          sub(up_uplen, comx, CX_XSLINDX),
                          sub(up_uplen, comx, CX_SLINDX),
                          sub(up_uplen, comx, CX_SLENGTH),
                          up,
                          up + COMI(CI_INLIST_END)};
  // xl: a copy of xlnz for each thread; first and rows_kept; the flags.
  const std::int64_t n1 = static_cast<std::int64_t>(sh.n) + 1, ns = sh.nsuper;
  const std::int64_t places = in.xslindx[ns] - 1;
  int *xl = static_cast<int *>(vek_serv_malloc(
      sizeof(int) * static_cast<std::size_t>(n1 * threads + 2 * ns) +
          static_cast<std::size_t>(places + 1), 128));
  if (io == nullptr || xl == nullptr) {
    vek_serv_free_list(reinterpret_cast<void **>(&io), reinterpret_cast<void **>(&xl),
                       reinterpret_cast<void **>(&tree_block), static_cast<void **>(nullptr));
    *error = -2;
    return true;
  }
  for (int t = 0; t < threads; ++t)
    for (std::int64_t i = 0; i < n1; ++i) xl[t * n1 + i] = k.xlnz[i];
  int *first = xl + n1 * threads, *rows_kept = first + ns;
  char *done = reinterpret_cast<char *>(rows_kept + ns);
  for (std::int64_t i = 0; i <= places; ++i) done[i] = 0;
  for (int K = 1; K <= ns; ++K) {
    first[K - 1] = in.xslindx[K - 1] - 1;
    rows_kept[K - 1] = 0;
    for (int i = first[K - 1]; i < in.xslindx[K] - 1; ++i)
      if (in.slength[i] > rows_kept[K - 1]) rows_kept[K - 1] = in.slength[i];
  }
  telmira_ooc_arena_reset(ooc + (OOC_LNZ - 1), static_cast<int>(arena));
  // Each thread calls the dense routines on one thread.
  vekd::blas_threads(1);
  blkl_ooc_omp<R>(static_cast<const R *>(a), sh, in, threads, k.xjalf, k.jalf, k.luperm,
                  k.perm, xl, block, static_cast<int>(arena), panel, temp, ooc, total->msglvl,
                  first, done, rows_kept, io, branch ? &tree : nullptr,
                  branch ? tree_block + 2 * sh.nsuper : nullptr, total->forward, error);
  for (int t = 0; t < threads; ++t) {
    total->written += io[t].written;
    total->read += io[t].read;
    total->t_write += io[t].t_write;
    total->t_read += io[t].t_read;
    if (total->io_error == 0) total->io_error = io[t].io_error;
    if (total->arena_error == 0) total->arena_error = io[t].arena_error;
    if (io[t].nonfinite != 0 &&
        (total->nonfinite == 0 || io[t].nonfinite < total->nonfinite))
      total->nonfinite = io[t].nonfinite;
  }
  vek_serv_free_list(reinterpret_cast<void **>(&io), reinterpret_cast<void **>(&xl),
                     reinterpret_cast<void **>(&tree_block), static_cast<void **>(nullptr));
  return true;
}

}  // namespace

template <class R>
void telmira_factorize_ooc(const void *a, const int *ia, const int *ja, void *fi,
                           const int *comx, void *factors, void *work, void *up_uplen,
                           const void *scaling, int *comi, int *ooc_l) {
  const ooc_blocks ob = telmira_ooc_blocks(ooc_l);
  const int mtype = COMI(CI_MTYPE), n = COMI(CI_N), w = words_per_value(mtype);
  const bool upper = COMI(CI_TRIANGLE) != 1;
  // The buffers are those the analysis planned: the arena of type 2, or
  // panel slots (also for type 2 after an analysis under another code).
  const bool planned_arena = telmira_ooc_has_arena(ob.ooc);
  const bool arena = mtype == 2 && planned_arena;
  const int msglvl = COMI(CI_MSGLVL);
  const kernel_arrays k = arrays_of(fi, comx, comi, factors, sizeof(R) * w);
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

  bool fused = false;  // the panels make the call's forward step
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
    io.upper = upper;
    io.target = 1;
    io.source = arena ? capacity + 1 : panel + 1;
    io.utarget = 1;
    io.usource = panel + 1;
    // The fused forward step, where the call offers it to a Cholesky factor.
    if (ob.forward != nullptr && mtype == 2 && ob.forward->n == n) io.forward = ob.forward;
    fused = io.forward != nullptr;
    int nsuper = COMI(CI_NSUPER), tmpsize = COMI(CI_TMPSIZE);
    const sweep_shape sh{n,       nsuper,  COMI(CI_LNZ_LEN), tmpsize, msglvl,
                         k.xsup,  k.snode, k.xlindx,         k.lindx, k.xlnz,
                         k.nmod,  k.link,  k.length,         k.indmap, k.relind};
    sweep_shape inner_sh = sh;
    inner_sh.xlnz = xl;
    const double eps = pivot_perturbation(COMI(CI_PERTURBATION), mtype, n, ia, a,
                                          sizeof(R) == sizeof(float));
    if (cholesky_on_threads<R>(a, fi, comx, up_uplen, k, sh, static_cast<R *>(factors),
                               static_cast<R *>(work), comi, ooc_l, ooc, &io, &error) ||
        cholesky_by_branches<R>(a, k, sh, inner_sh, xl, static_cast<R *>(factors),
                                static_cast<R *>(work), comi, ooc_l, &io, &error)) {
      // The steps end the sweep with -3 on what io names.
      if (error == -3 && (io.io_error != 0 || io.nonfinite != 0 || io.arena_error != 0))
        error = 0;
    } else if (w == 1) {
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
  if (ob.forward != nullptr) ob.forward->done = fused && OOCL(OL_STATUS) == 0 && error == 0;
}

template void telmira_factorize_ooc<double>(const void *, const int *, const int *, void *,
                                            const int *, void *, void *, void *, const void *,
                                            int *, int *);
template void telmira_factorize_ooc<float>(const void *, const int *, const int *, void *,
                                           const int *, void *, void *, void *, const void *,
                                           int *, int *);

}  // namespace tlm
