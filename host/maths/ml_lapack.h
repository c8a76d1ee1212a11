// ml_lapack.h - the LAPACK routines that libmaths calls, in their Fortran
// form: every argument by address, character arguments followed by their
// hidden lengths at the end.
#ifndef ML_LAPACK_H
#define ML_LAPACK_H

#include <cstddef>

extern "C" {
void dpotrf_(const char *uplo, const int *n, double *a, const int *lda,
             int *info, std::size_t uplo_len);
void dpotrs_(const char *uplo, const int *n, const int *nrhs, const double *a,
             const int *lda, double *b, const int *ldb, int *info,
             std::size_t uplo_len);
void dgetrf_(const int *m, const int *n, double *a, const int *lda, int *ipiv,
             int *info);
void dgetrs_(const char *trans, const int *n, const int *nrhs, const double *a,
             const int *lda, const int *ipiv, double *b, const int *ldb,
             int *info, std::size_t trans_len);
void dgesvd_(const char *jobu, const char *jobvt, const int *m, const int *n,
             double *a, const int *lda, double *s, double *u, const int *ldu,
             double *vt, const int *ldvt, double *work, const int *lwork,
             int *info, std::size_t jobu_len, std::size_t jobvt_len);
}

#endif
