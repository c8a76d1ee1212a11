// residual_product.h - the sparse product of the iterative refinement and its
// extended-precision helpers.
//
// The matrix is the caller's as given to the entry: unpermuted, unscaled,
// compressed rows with one-based ia and ja. For an even absolute matrix type
// only the upper triangle is stored; each row's first entry is then taken as
// its diagonal entry, and every other entry (i, j) acts on both rows: as
// A(i, j) = a and as A(j, i) = conj(a) for absolute type 4, A(j, i) = a for
// types 2, -2 and 6. With nb right-hand sides, side j starts at neqns * j.
//
// The transposed flag selects y = A^T x, the plain transpose (no conjugate):
// for full storage row i scatters into y; for the triangle of a real or
// complex symmetric matrix A^T is A, and for a Hermitian one A^T is conj(A).
//
// Extended precision: in the double routines the 80-bit x87 format (a value
// in a 16-byte slot), in the single routines the 64-bit double. Either way
// one extended value fits in the space of two working values, which is how
// the refinement's work area is sized.
#ifndef TELMIRA_RESIDUAL_PRODUCT_H
#define TELMIRA_RESIDUAL_PRODUCT_H

#include <complex>

#include "telmira_types.h"

namespace tlm {

template <class T> struct extended_of;
template <> struct extended_of<double> { typedef long double type; };
template <> struct extended_of<float> { typedef double type; };
template <> struct extended_of<std::complex<double>> {
  typedef std::complex<long double> type;
};
template <> struct extended_of<std::complex<float>> { typedef std::complex<double> type; };
template <class T> using ext_t = typename extended_of<T>::type;

// y = A x, or y = A^T x when *trans is non-zero, in working precision.
// scratch: 2 * threads * nb values (a thread of the full-storage product
// with several sides gathers one row into nb of them). Threads:
//   transposed:                    one thread; y cleared, then rows scatter;
//   threads * nb = 1:              one thread, row after row;
//   full storage, nb = 1:          rows by a static schedule;
//   full storage, nb > 1:          the same, each thread gathering a row of
//                                  all sides in its own scratch words;
//   triangle storage, nb = 1:      one thread;
//   triangle storage, nb > 1:      the sides divided over min(nb, threads)
//                                  threads, each running the one-thread loop.
// A thread count below 1 counts as 1.
template <class T>
void residual_product(const int *trans, const int *neqns, const int *nb, const int *mtype,
                      const int *threads, const int *ia, const int *ja, const T *a,
                      const T *x, T *y, T *scratch);

// r = b - A x (or b - A^T x), with x extended and every product and sum
// formed in extended precision; r is rounded to working precision when it
// is stored. One thread. Returns the sum over all neqns * nb values of the
// absolute value of the extended residual (the modulus of a complex value).
// work: neqns extended values, the accumulators of the mirrored and
// scattered entries; needed for triangle storage and for the transposed
// product, unused (may be null) for the plain product of full storage.
template <class T>
double residual_extended(const int *trans, const int *neqns, const int *nb, const int *mtype,
                         const int *ia, const int *ja, const T *a, const ext_t<T> *x,
                         const T *b, T *r, ext_t<T> *work);

// xe = x, and x = xe rounded, for count values.
template <class T> void refine_to_extended(const int *count, const T *x, ext_t<T> *xe);
template <class T> void refine_from_extended(const int *count, const ext_t<T> *xe, T *x);

// xe = xe + d for count values, in extended precision; returns the sum of
// |d| (the modulus of a complex value).
template <class T> double refine_update_extended(const int *count, ext_t<T> *xe, const T *d);

// The word-wise 1-norm of count values: the sum of the absolute values of
// all words, a complex value counting |re| + |im|.
template <class T> double refine_sum_abs(const int *count, const T *v);

}  // namespace tlm

#endif
