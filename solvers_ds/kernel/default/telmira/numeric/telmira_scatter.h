// telmira_scatter.h - the scatter of A into a supernode's storage, the first
// step of every kernel for each supernode J: clear J's columns of lnz (and
// unz), store the values of A through the lists of the analysis, and fill
// the relative index indmap(row) = nrows - 1 - (place of row in J's list).
//
// Plain forms store a(luperm(k)); the scaled forms apply the scaling
// vector s of the matching (real, one-based):
//   unsymmetric: a(i) s(ja(i)) s(n + luperm_row(k)), s = n column factors,
//                then n row factors; the U entries alike;
//   symmetric:   a(i) s(luperm_row(k)) c, c = s(ja(i)) for a positive
//                jalf(k), else s(perm(column)), the input column of the
//                supernode column.
// hermitian = 1 stores the conjugate where jalf(k) is negative. The U lists
// take their sources at offset lcount = xjalf(n+1)-1 of luperm and
// luperm_row. All arrays one-based in content. The positions are those of
// the whole factor; shift, when given, moves the block: its entry at
// position p of lnz stands at lnz(p + shift(0)), of unz at unz(p +
// shift(1)) (a block held apart from the rest of the factor).
#ifndef TELMIRA_SCATTER_H
#define TELMIRA_SCATTER_H

#include "telmira_types.h"

namespace tlm {

// Full storage (types 1, 3, 11, 13): lnz and unz of supernode j.
template <class T>
void telmira_scatter_lu(const int *j, const int *n, const T *a, const int *xsup,
                        const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
                        const int *xunz, T *unz, const int *xjalf, const int *jalf,
                        const int *xjauf, const int *jauf, const int *luperm,
                        int *indmap, const long *shift = nullptr);
template <class T>
void telmira_scatter_lu_scaled(const int *j, const int *n, const T *a, const int *ja,
                               const real_of<T> *s, const int *xsup, const int *xlindx,
                               const int *lindx, const int *xlnz, T *lnz, const int *xunz,
                               T *unz, const int *xjalf, const int *jalf, const int *xjauf,
                               const int *jauf, const int *luperm, const int *luperm_row,
                               int *indmap, const long *shift = nullptr);

// Symmetric storage (types 2, -2, 4, -4, 6): lnz of supernode j.
template <class T>
void telmira_scatter_sym(const int *j, const T *a, const int *xsup, const int *xlindx,
                         const int *lindx, const int *xlnz, T *lnz, const int *xjalf,
                         const int *jalf, const int *luperm, const int *hermitian,
                         int *indmap, const long *shift = nullptr);
template <class T>
void telmira_scatter_sym_scaled(const int *j, const T *a, const int *ja,
                                const real_of<T> *s, const int *perm, const int *xsup,
                                const int *xlindx, const int *lindx, const int *xlnz,
                                T *lnz, const int *xjalf, const int *jalf,
                                const int *luperm, const int *luperm_row,
                                const int *hermitian, int *indmap,
                                const long *shift = nullptr);

}  // namespace tlm

#endif
