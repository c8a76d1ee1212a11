// telmira_factorize.h - the factorization driver: the kernel by matrix type,
// thread count and storage mode, the pivot perturbation, and where each
// factorization keeps its pivot records.
#ifndef TELMIRA_FACTORIZE_H
#define TELMIRA_FACTORIZE_H

#include <cstddef>
#include <cstdint>

#include "telmira_storage.h"

namespace tlm {

// The pivot records of a factorization stand in its own factor block,
// behind the values of L and U (out of core: behind the panel buffers of
// comi(80) values): pivot (n entries), then cpivot (n entries).
// So each matrix_number of a handle keeps the exchanges of its own
// factorization. value_bytes: bytes of one value (8 or 16 in double).
constexpr int PIVOT_RECORD_WORDS = 2;  // ints per equation
inline int *factor_pivots(const void *factors, const int *comi, std::size_t value_bytes) {
  const std::size_t values =
      COMI(CI_OOC_VALUES) > 0 ? static_cast<std::size_t>(COMI(CI_OOC_VALUES))
                              : static_cast<std::size_t>(COMI(CI_LNZ_LEN)) + COMI(CI_UNZ_LEN);
  return reinterpret_cast<int *>(const_cast<char *>(static_cast<const char *>(factors)) +
                                 values * value_bytes);
}

// Pointers of the kernels' arrays inside handle[STRUC_FI] and the
// factor block (the pivot records); indmap and relind are the first
// thread's blocks.
struct kernel_arrays {
  int *perm, *xsup, *snode, *xlindx, *lindx, *xlnz, *xunz, *nmod, *pnlsch,
      *parts, *xjalf, *jalf, *xjauf, *jauf, *luperm, *luperm_row, *pivot, *cpivot;
  int *indmap, *relind, *link, *length;
};
kernel_arrays arrays_of(void *fi, const int *comx, const int *comi, void *factors,
                        std::size_t value_bytes);

// One numeric factorization: the kernel by matrix type, thread count and
// storage mode; the time goes to comr[5], the kernel's error cell to
// comi(50), the pivot counters to comi(62) to comi(64).
// up_uplen: the lists of the parallel sweeps (handle[UP_UPLEN]), null with
// one thread. Under a limit on the address space the sweep runs on fewer
// threads than comi(CI_THREADS) when the limit leaves no room for the
// dense routines' buffers of more (see factor_threads).
template <class R>
void telmira_factorize(const void *a, const int *ia, const int *ja, void *fi,
                       const int *comx, void *factors, void *work, void *up_uplen,
                       const void *scaling, int *comi, double *comr,
                       int *ooc_l);
// The selectors: symmetric storage (types 2, -2, 4, -4, 6) and full
// storage (types 1, 3, 11, 13); threads is the team of the parallel sweeps.
template <class R>
void telmira_factor_sym(const void *a, const int *ia, const int *ja, void *fi,
                        const int *comx, void *factors, void *work, void *up_uplen,
                        const void *scaling, int *comi, int *ooc_l, int threads);
template <class R>
void telmira_factor_unsym(const void *a, const int *ia, const int *ja,
                          void *fi, const int *comx, void *factors, void *work,
                          void *up_uplen, const void *scaling, int *comi, int *ooc_l,
                          int threads);

// The threads a factorization may use of the requested ones: each thread
// that enters the installed dense routines maps a buffer of its own (some
// 128 MB), and one whose buffer cannot be had under a limit on the address
// space waits for it without end while the others wait for its
// supernodes. So each thread, the first one too (its buffer need not exist
// yet), needs room_per_thread bytes between the limit and what the process
// already takes; down to one thread. Without a limit, or when the size
// cannot be read, all requested threads run.
constexpr long long room_per_thread = 160ll << 20;
int factor_threads(int requested);

// The pivot perturbation of a factorization: 10^-|comi(66)|, for types -2,
// -4 and 6 adjusted by the largest off-diagonal magnitude of a (each row's
// first entry left out). 0 when comi(66) is 0.
double pivot_perturbation(int k, int mtype, int n, const int *ia,
                          const void *a, int single);

}  // namespace tlm

#endif
