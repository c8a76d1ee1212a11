// telmira_factorize_ooc.h - the factorization of the out-of-core mode: the
// kernels of every matrix type on panel buffers, with the factors written
// to the files of the mode (file 2, and file 3 for the U blocks).
#ifndef TELMIRA_FACTORIZE_OOC_H
#define TELMIRA_FACTORIZE_OOC_H

namespace tlm {

// factors: the panel buffers of telmira_ooc_block_values, then the pivot
// records. The kernel's error cell goes to comi(50); a file that cannot be
// opened sets ooc_l(11) = -10, a failed transfer -11. The byte and time
// counters of the mode grow by what the sweep moved. up_uplen: the lists
// of the parallel sweep, null for the sequential one; type 2 on several
// threads shares its sweep among them (blkl_ooc_omp.h) when the block
// holds two panel slots per thread.
template <class R>
void telmira_factorize_ooc(const void *a, const int *ia, const int *ja, void *fi,
                           const int *comx, void *factors, void *work, void *up_uplen,
                           const void *scaling, int *comi, int *ooc_l);

}  // namespace tlm

#endif
