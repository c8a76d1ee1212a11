// telmira_scatter.cpp - the scatter of A into one supernode's storage, plain
// and scaled, for the full and the symmetric storage.
#include "telmira_scatter.h"

#include <cstdlib>

#include "scalar_kind.h"

namespace tlm {

namespace {

// The conjugate that a Hermitian kernel stores for a mirrored entry.
template <class T> inline T conj_of(const T &v) { return scalar_kind<T, true>::conj(v); }

// Clears the columns of supernode J in lnz (and in unz when given), fills
// the relative index, and returns the first and last column.
// The positions of the lists (and of xlnz, xunz) are those of the whole
// factor; shift (null: none) moves them to where the block stands: shift[0]
// for lnz, shift[1] for unz.
template <class T>
void clear_block(int J, const int *xsup, const int *xlindx, const int *lindx,
                 const int *xlnz, T *lnz, const int *xunz, T *unz, int *indmap,
                 int *fstcol, int *lstcol, const long *shift) {
  *fstcol = xsup[J - 1];
  *lstcol = xsup[J] - 1;
  const long ls = shift != nullptr ? shift[0] : 0, us = shift != nullptr ? shift[1] : 0;
  for (long p = std::abs(xlnz[*fstcol - 1]); p < std::abs(xlnz[*lstcol]); ++p)
    lnz[p - 1 + ls] = T(0);
  if (unz != nullptr)
    for (long p = std::abs(xunz[*fstcol - 1]); p < std::abs(xunz[*lstcol]); ++p)
      unz[p - 1 + us] = T(0);
  const int nrows = std::abs(xlnz[*fstcol]) - std::abs(xlnz[*fstcol - 1]);
  const int *rows = lindx + (xlindx[J - 1] - 1);
  for (int i = 0; i < nrows; ++i) indmap[rows[i] - 1] = nrows - 1 - i;
}

}  // namespace

template <class T>
void telmira_scatter_lu(const int *j, const int *n, const T *a, const int *xsup,
                        const int *xlindx, const int *lindx, const int *xlnz, T *lnz,
                        const int *xunz, T *unz, const int *xjalf, const int *jalf,
                        const int *xjauf, const int *jauf, const int *luperm,
                        int *indmap, const long *shift) {
  int f = 0, l = 0;
  clear_block(*j, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, indmap, &f, &l, shift);
  const int *uperm = luperm + (xjalf[*n] - 1);
  const long ls = shift != nullptr ? shift[0] : 0, us = shift != nullptr ? shift[1] : 0;
  for (int c = f; c <= l; ++c) {
    for (int i = xjalf[c - 1]; i < xjalf[c]; ++i)
      lnz[std::abs(jalf[i - 1]) - 1 + ls] = a[luperm[i - 1] - 1];
    for (int i = xjauf[c - 1]; i < xjauf[c]; ++i)
      unz[jauf[i - 1] - 1 + us] = a[uperm[i - 1] - 1];
  }
}

template <class T>
void telmira_scatter_lu_scaled(const int *j, const int *n, const T *a, const int *ja,
                               const real_of<T> *s, const int *xsup, const int *xlindx,
                               const int *lindx, const int *xlnz, T *lnz, const int *xunz,
                               T *unz, const int *xjalf, const int *jalf, const int *xjauf,
                               const int *jauf, const int *luperm, const int *luperm_row,
                               int *indmap, const long *shift) {
  int f = 0, l = 0;
  clear_block(*j, xsup, xlindx, lindx, xlnz, lnz, xunz, unz, indmap, &f, &l, shift);
  const int N = *n;
  const long lcount = xjalf[N] - 1;
  const long ls = shift != nullptr ? shift[0] : 0, us = shift != nullptr ? shift[1] : 0;
  const real_of<T> *srow = s + N;
  for (int c = f; c <= l; ++c) {
    for (int k = xjalf[c - 1]; k < xjalf[c]; ++k) {
      const int i = luperm[k - 1];
      lnz[std::abs(jalf[k - 1]) - 1 + ls] =
          a[i - 1] * s[ja[i - 1] - 1] * srow[luperm_row[k - 1] - 1];
    }
    for (int k = xjauf[c - 1]; k < xjauf[c]; ++k) {
      const int i = luperm[lcount + k - 1];
      unz[jauf[k - 1] - 1 + us] =
          a[i - 1] * s[ja[i - 1] - 1] * srow[luperm_row[lcount + k - 1] - 1];
    }
  }
}

template <class T>
void telmira_scatter_sym(const int *j, const T *a, const int *xsup, const int *xlindx,
                         const int *lindx, const int *xlnz, T *lnz, const int *xjalf,
                         const int *jalf, const int *luperm, const int *hermitian,
                         int *indmap, const long *shift) {
  int f = 0, l = 0;
  clear_block<T>(*j, xsup, xlindx, lindx, xlnz, lnz, nullptr, nullptr, indmap, &f, &l, shift);
  const long ls = shift != nullptr ? shift[0] : 0;
  for (int c = f; c <= l; ++c)
    for (int k = xjalf[c - 1]; k < xjalf[c]; ++k) {
      const int p = jalf[k - 1];
      const T v = a[luperm[k - 1] - 1];
      lnz[std::abs(p) - 1 + ls] = (*hermitian && p < 0) ? conj_of(v) : v;
    }
}

template <class T>
void telmira_scatter_sym_scaled(const int *j, const T *a, const int *ja,
                                const real_of<T> *s, const int *perm, const int *xsup,
                                const int *xlindx, const int *lindx, const int *xlnz,
                                T *lnz, const int *xjalf, const int *jalf,
                                const int *luperm, const int *luperm_row,
                                const int *hermitian, int *indmap, const long *shift) {
  int f = 0, l = 0;
  clear_block<T>(*j, xsup, xlindx, lindx, xlnz, lnz, nullptr, nullptr, indmap, &f, &l, shift);
  const long ls = shift != nullptr ? shift[0] : 0;
  for (int c = f; c <= l; ++c) {
    const real_of<T> sc = s[perm[c - 1] - 1];
    for (int k = xjalf[c - 1]; k < xjalf[c]; ++k) {
      const int p = jalf[k - 1];
      const int i = luperm[k - 1];
      const real_of<T> cf = p > 0 ? s[ja[i - 1] - 1] : sc;
      T v = a[i - 1] * s[luperm_row[k - 1] - 1] * cf;
      if (*hermitian && p < 0) v = conj_of(v);
      lnz[std::abs(p) - 1 + ls] = v;
    }
  }
}

TLM_INSTANTIATE_EACH(telmira_scatter_lu)
TLM_INSTANTIATE_EACH(telmira_scatter_lu_scaled)
TLM_INSTANTIATE_EACH(telmira_scatter_sym)
TLM_INSTANTIATE_EACH(telmira_scatter_sym_scaled)

}  // namespace tlm
