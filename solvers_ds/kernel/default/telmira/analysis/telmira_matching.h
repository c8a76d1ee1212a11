// telmira_matching.h - the matching step of the analysis: the weighted
// matching of the matrix, the symmetric pivot order of the symmetric types,
// and the permutation and scaling factors that the rest of the solver reads.
#ifndef TELMIRA_MATCHING_H
#define TELMIRA_MATCHING_H

namespace tlm {

// Runs the matching on the matrix of a call (one-based ia, ja; values of
// the precision R, complex values as pairs).
//   comi      the state: reads (1) n, (12) mtype, (14) method, (15)
//             threads, (10), (60) the requested part count, (67), (69);
//             writes (60) the part count of the symmetric order
//   mc64_i    integer work, 6 n + 23 words
//   mc64_r    real work, 3 n + e words, 3 n + 2 e for complex types
//   ddist_mps the range list of the symmetric types, max(comi(61), 16)
//             words; receives the one-based pairs of the parts followed by
//             the top region (ignored for the unsymmetric types)
//   matchperm handle[MC64PERM]: the one-based permutation
//   uv        handle[MC64UV]: column factors, then row factors
// Returns 0, or the status of error -6, minus the result of the matching;
// *failed is set to 1 when the step failed, and to 2 (status 0) when the
// heap had no room for its work. A matrix without a perfect
// matching (structurally singular) passes with a completed permutation.
template <class R>
int telmira_matching(int *comi, const void *a, const int *ia, const int *ja,
                     int *mc64_i, R *mc64_r, int *ddist_mps, int *matchperm,
                     R *uv, int *failed);

}  // namespace tlm

#endif
