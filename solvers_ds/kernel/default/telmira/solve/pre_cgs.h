// pre_cgs.h - the Krylov iteration of the hybrid mode: conjugate gradients
// (|K| = 2) or conjugate gradients squared on the current matrix, with the
// stored factors of an earlier one as the preconditioner M.
//
// The complex forms use dot products without conjugation, sum a(i) b(i),
// and squared norms sum re^2 + im^2.
#ifndef TELMIRA_PRE_CGS_H
#define TELMIRA_PRE_CGS_H

#include <cstdint>

namespace tlm {

// What the iteration works with: the caller's matrix (one-based ia, ja),
// the solve's arrays (handle[STRUC_FI], comx, the factors, the work array,
// the scalings and the matching's order), and handle[CGS_ARR] with its
// length in values of T.
template <class T> struct cgs_operands {
  const int *ia;
  const int *ja;
  const T *a;
  void *fi;
  const int *comx;
  const void *factors;
  void *work;
  const void *s;
  const int *m;
  int *ooc_l;
  T *cgs;
  std::int64_t cgs_len;
};

// One run of the iteration on nrhs right-hand sides b; x holds the start
// vector M^-1 b on entry and the result on return. The limits come from
// comi: comi(18) the selection K (|K| = 2: CG), comi(40) the divergence
// limit, comi(41) the pass limit, comi(42) the pass of the progress check;
// comr[12] the tolerance on the size of a correction relative to the start
// vector. *st receives the result (0 converged; 1 to 4 breakdowns of CGS;
// -1 diverged, -2 too slow, -3 pass limit or a failed solve, -4 the array
// has the wrong length), *it the passes. With ctl6 non-zero a converged x
// is also copied to b. Failures set comi(43) to 1; -4 sets comi(50) to -2.
template <class T>
void pre_cgs(const int *n, const int *nrhs, const cgs_operands<T> &op, T *b, T *x, int *st,
             int *comi, const double *comr, int *it, const int *ctl6);

// The length of handle[CGS_ARR] that CGS needs, in values: five vectors,
// nine scalars per right-hand side and the scratch of the product.
inline std::int64_t cgs_array_length(std::int64_t n, std::int64_t nrhs, std::int64_t threads) {
  return 5 * n * nrhs + 9 * nrhs + 2 * threads * nrhs;
}

}  // namespace tlm

#endif
