// vek_dense_chblkl.h - the unblocked Cholesky factorization of a diagonal
// block, beside the operations of vek_dense.h, in the same manner.
#ifndef VEK_DENSE_CHBLKL_H
#define VEK_DENSE_CHBLKL_H

namespace vekd {

// Cholesky factorization of the triangle uplo, column by column (no
// blocking); info as published. For complex values A is Hermitian: the
// imaginary parts of its diagonal are not read, and the factor's diagonal
// is real.
template <class T>
void potf2(const char *uplo, const int *n, T *a, const int *lda, int *info);

}  // namespace vekd

#endif
