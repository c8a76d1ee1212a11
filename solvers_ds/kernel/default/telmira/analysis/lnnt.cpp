// lnnt.cpp - column counts of the factor by the walk of the row subtrees.
//
// Row j of L has an entry in column k exactly when k lies on the path from
// some neighbour k0 < j of j up the elimination tree towards j. The walk of
// row j marks each visited column with j, so that every column of the row
// subtree is counted once, and stops at a column marked by an earlier walk
// from the same row. Each thread owns its marks and counts; the walk of row
// j only ever reads marks of columns below j, so that a row's count does not
// depend on how the rows are divided among the threads.
#include <omp.h>

#include <cstddef>

#include "service/vek_serv_memory.h"
#include "service/vek_serv_threads.h"
#include "symbolic.h"

namespace tlm {

void lnnt(const int *n, const int *xadj, const int *adjncy, const int *perm,
          const int *invp, const int *parent, int *colcnt, long long *total,
          int *threads_used, int *error) {
  const int neqns = *n;
  *error = 0;
  *total = neqns > 0 ? neqns : 0;
  if (threads_used) *threads_used = 1;
  for (int j = 0; j < neqns; ++j) colcnt[j] = 1;
  if (neqns < 2) return;

  // Scratch of 8 bytes a column and thread, within the byte limit.
  int threads = vek_serv_get_max_threads();
  if (threads < 1) threads = 1;
  while (8LL * threads * neqns > lnnt_scratch_limit && threads > 1)
    threads /= 2;
  if (threads > lnnt_max_threads) threads = lnnt_max_threads;

  int *marks = nullptr, *counts = nullptr;
  for (;;) {
    const std::size_t bytes =
        static_cast<std::size_t>(threads) * neqns * sizeof(int);
    marks = static_cast<int *>(vek_serv_malloc(bytes, 64));
    counts = static_cast<int *>(vek_serv_malloc(bytes, 64));
    if (marks != nullptr && counts != nullptr) break;
    vek_serv_free(marks);
    vek_serv_free(counts);
    marks = counts = nullptr;
    if (threads == 1) {
      *error = symbolic_no_memory;
      return;
    }
    threads /= 2;
  }

  long long rows = 0;
  int team = 1;
#pragma omp parallel num_threads(threads) reduction(+ : rows)
  {
    const int id = omp_get_thread_num();
    const int nt = omp_get_num_threads();
#pragma omp single
    team = nt;
    int *mark = marks + static_cast<std::size_t>(id) * neqns;
    int *count = counts + static_cast<std::size_t>(id) * neqns;
    for (int k = 0; k < neqns; ++k) {
      mark[k] = 0;
      count[k] = 0;
    }

#pragma omp for schedule(static)
    for (int j = 2; j <= neqns; ++j) {
      const int node = perm[j - 1];
      int rowcnt = 0;
      for (int p = xadj[node - 1]; p < xadj[node]; ++p) {
        int k = invp[adjncy[p - 1] - 1];
        while (k < j && mark[k - 1] < j) {
          mark[k - 1] = j;
          ++rowcnt;
          ++count[k - 1];
          k = parent[k - 1];
          if (k == 0) break;
        }
      }
      rows += rowcnt;
    }

    // The implied barrier of the loop above makes all counts final.
#pragma omp for schedule(static)
    for (int k = 0; k < neqns; ++k) {
      int c = 1;
      for (int q = 0; q < nt; ++q)
        c += counts[static_cast<std::size_t>(q) * neqns + k];
      colcnt[k] = c;
    }
  }

  vek_serv_free(marks);
  vek_serv_free(counts);
  *total = rows + neqns;
  if (threads_used) *threads_used = team;
}

}  // namespace tlm
