// vek_dense_getrf_tiles.cpp - the threaded LU: a scheduler of column tiles.
//
// The columns are cut into tiles of nb. The panel of tile p is the block
// from its diagonal down; panel 1 is factored before the region. The tiles
// of the left part belong to the threads, block-cyclically in groups of
// group_width tiles; a thread brings the tiles of a group forward with one
// product per panel on all tiles that stand at the same panel. The tiles at
// the right end (tail) belong to no thread: any idle thread applies one
// panel to one of them. The next panel always goes first: whoever holds its
// tile brings it up to date and factors it. All choices are made under the
// call's status lock over the status block lu_status:
//
//   word 0 nthreads, 1 ntiles, 2 npanels, 3 group_width, 4 tail,
//   5 frontier (lowest panel that the tail tiles have not all passed),
//   6 panel_ready (the last factored panel),
//   6 + c column_state of tile c: s >= 0 when panels 1 to s have been
//         applied to it, -s while a thread brings it to s.
//
// The row exchanges of each panel reach the tiles to its right with the
// panel; those left of it are applied at the end.
#include <omp.h>

#include <algorithm>

#include "dense/vek_dense_lapack.h"
#include "service/vek_serv_memory.h"

namespace vekd {
namespace {

// The words of lu_status; column_state(c) is word COLUMN_STATE - 1 + c.
enum { NTHREADS, NTILES, NPANELS, GROUP_WIDTH, TAIL, FRONTIER, PANEL_READY, COLUMN_STATE };

// The task of a thread, lu_task: kind 0 none, 1 update, 2 update and factor
// the panel of first_tile, -1 all done.
struct lu_task {
  int kind, first_panel, last_panel, first_tile, last_tile;
};

// Enters the finished task of thread t (of nt) and chooses its next one.
// Runs under the status lock; news counts the tasks entered.
void choose(std::int32_t *lu_status, lu_task &task, int t, int nt, std::int32_t *news) {
  std::int32_t *column_state = lu_status + (COLUMN_STATE - 1);  // c from 1
  if (task.kind == 1 || task.kind == 2) __atomic_add_fetch(news, 1, __ATOMIC_RELEASE);
  if (task.kind == 1) {
    for (int c = task.first_tile; c <= task.last_tile; ++c) column_state[c] = task.last_panel;
  } else if (task.kind == 2) {
    column_state[task.first_tile] = task.first_tile;
    lu_status[PANEL_READY] = task.first_tile;
  }
  task.kind = 0;
  const int ntiles = lu_status[NTILES], npanels = lu_status[NPANELS];
  const int width = lu_status[GROUP_WIDTH], tail = lu_status[TAIL], ready = lu_status[PANEL_READY];
  const int lim = std::max(ntiles - tail, 0);
  bool pending = false;
  if (ready < lim) {
    for (int g = t * width + 1; g <= lim; g += nt * width) {
      const int e = std::min(g + width - 1, lim);
      if (e <= ready) continue;
      const int s = std::max(g, ready + 1);
      if (s == ready + 1 && ready < npanels) {
        const int u = column_state[ready + 1];
        if (u >= 0 && u < ready) {
          task = {2, u + 1, ready, ready + 1, ready + 1};
          column_state[ready + 1] = -(ready + 1);
          return;
        }
      }
      for (int c = s; c <= e; ++c) {
        const int u = column_state[c];
        if (u >= 0 && u < ready) {
          int last = c;
          while (last < e && column_state[last + 1] == u) ++last;
          task = {1, u + 1, ready, c, last};
          for (int k = c; k <= last; ++k) column_state[k] = -ready;
          return;
        }
      }
      for (int c = s; c <= e; ++c)
        if (column_state[c] != npanels) pending = true;
    }
  }
  // The tail, one panel at a time, from the lowest level up.
  const int c0 = std::max(lim + 1, ready + 1);
  bool blocked = false;
  for (int f = lu_status[FRONTIER];; ++f) {
    if (f >= npanels) {
      task.kind = (!pending && f == npanels) ? -1 : 0;
      return;
    }
    int found = 0;
    bool held = false;
    for (int c = c0; c <= ntiles; ++c) {
      if (column_state[c] == f) {
        found = c;
        break;
      }
      if (column_state[c] == -f) held = true;
    }
    if (found == 0) {
      if (held) blocked = true;
      else if (!blocked) lu_status[FRONTIER] = f + 1;
      continue;
    }
    if (f >= ready) return;  // kind 0: the next panel is not there yet
    if (found == ready + 1 && ready < npanels) {
      task = {2, f + 1, ready, found, found};
      column_state[found] = -found;
    } else {
      task = {1, f + 1, f + 1, found, found};
      column_state[found] = -(f + 1);
    }
    return;
  }
}

template <class T>
int run_task(const lu_task &task, int m, int n, T *a, int lda, int *ipiv, int *info, int nb,
             int t) {
  typedef level3<T> L;
  const int c0 = (task.first_tile - 1) * nb + 1;
  const int c1 = std::min(task.last_tile * nb, n);
  const int ncols = c1 - c0 + 1;
  for (int p = task.first_panel; p <= task.last_panel; ++p) {
    const int kk = (p - 1) * nb + 1;
    L::laswp(ncols, entry(a, lda, 1, c0), lda, kk, kk + nb - 1, ipiv);
    L::trsm("L", "L", "N", "U", nb, ncols, T(1), entry(a, lda, kk, kk), lda,
            entry(a, lda, kk, c0), lda);
    if (kk + nb <= m)
      L::gemm("N", "N", m - kk - nb + 1, ncols, nb, T(-1), entry(a, lda, kk + nb, kk), lda,
              entry(a, lda, kk, c0), lda, T(1), entry(a, lda, kk + nb, c0), lda);
  }
  if (task.kind != 2) return 0;
  const int r0 = c0, width = ncols;
  int local = 0;
  const int stop = getrf_panel(m - r0 + 1, width, entry(a, lda, r0, r0), lda, ipiv + (r0 - 1),
                               &local, t, r0 - 1);
  if (*info == 0 && local > 0) *info = local + r0 - 1;
  const int last = std::min(m, r0 + width - 1);
  for (int i = r0; i <= last; ++i) ipiv[i - 1] += r0 - 1;
  return stop;
}

}  // namespace

template <class T>
int getrf_tiles(int m, int n, T *a, int lda, int *ipiv, int *info, int nthreads, int nb) {
  const char *name = lapack_names<T>::getrf;
  const int ntiles = (n - 1) / nb + 1;
  const int npanels = m < n ? (m - 1) / nb : (n - 1) / nb;
  std::int32_t *lu_status = static_cast<std::int32_t *>(
      vek_serv_allocate(static_cast<std::int64_t>(ntiles + 7) * 4, 128));
  if (lu_status == nullptr) return 1;
  *info = 0;
  if (getrf_panel(m, nb, a, lda, ipiv, info, 0, 0) != 0) {
    vek_serv_deallocate(lu_status);
    return 2;
  }
  int stop = 0;
  std::int32_t news = 0;
  std::int32_t status_lock = 0;
#pragma omp parallel num_threads(nthreads)
  {
    const int t = omp_get_thread_num(), nt = omp_get_num_threads();
#pragma omp single
    {
      lu_status[NTHREADS] = nt;
      lu_status[NTILES] = ntiles;
      lu_status[NPANELS] = npanels;
      lu_status[GROUP_WIDTH] = ilaenv(17, name, ' ', m, n, nt, -1);
      lu_status[TAIL] = ilaenv(18, name, ' ', m, n, nt, -1);
      lu_status[FRONTIER] = 0;
      lu_status[PANEL_READY] = 1;
      for (int c = 1; c <= ntiles; ++c) lu_status[COLUMN_STATE - 1 + c] = 0;
    }
    lu_task task = {0, 0, 0, 0, 0};
    const int width = lu_status[GROUP_WIDTH];
    const int lim = std::max(ntiles - lu_status[TAIL], 0);
    const int start = t > 0 ? t * width + 1 : (width > 1 ? 2 : nt + 1);
    const bool idle = start > lim && lu_status[TAIL] < 1;
#pragma omp barrier
    while (!idle && __atomic_load_n(&stop, __ATOMIC_RELAXED) == 0) {
      std::int32_t seen;
      lock_status(&status_lock);
      choose(lu_status, task, t, nt, &news);
      seen = __atomic_load_n(&news, __ATOMIC_RELAXED);
      unlock_status(&status_lock);
      if (task.kind == -1) break;
      if (task.kind == 0) {
        wait_for_news(&news, seen);
        continue;
      }
      if (run_task(task, m, n, a, lda, ipiv, info, nb, t) != 0)
        __atomic_store_n(&stop, 1, __ATOMIC_RELAXED);
    }
  }
  if (stop != 0) {
    vek_serv_deallocate(lu_status);
    return 2;
  }
  // The last block: rows and columns beyond the panels of the region.
  const int base = npanels * nb, mn = std::min(m, n);
  int local = 0;
  if (getrf_panel(m - base, n - base, entry(a, lda, base + 1, base + 1), lda, ipiv + base,
                  &local, 0, base) != 0) {
    vek_serv_deallocate(lu_status);
    return 2;
  }
  if (*info == 0 && local > 0) *info = local + base;
  for (int i = base + 1; i <= mn; ++i) ipiv[i - 1] += base;
  deferred_swaps(npanels, nb, a, lda, mn, ipiv, nthreads);
  vek_serv_deallocate(lu_status);
  return 0;
}

#define VEK_TILES_INSTANCE(T) \
  template int getrf_tiles<T>(int, int, T *, int, int *, int *, int, int);
VEK_TILES_INSTANCE(double)
VEK_TILES_INSTANCE(float)
VEK_TILES_INSTANCE(zcomplex)
VEK_TILES_INSTANCE(ccomplex)

}  // namespace vekd
