// parlist.cpp - the update lists of the parallel numeric phase.
#include "parlist.h"

namespace tlm {


void parlist(const int *nsuper, const int *, const int *capacity,
             const int *xlindx, const int *lindx, const int *xsup,
             const int *snode, const int *nmod, const int *nparts,
             const int *parts, const int *mtype, int *xnmod, int *xslindx,
             int *slindx, int *slength, int *total, int *ntop, int *error) {
  const int ns = *nsuper, np = *nparts, cap = *capacity;
  *error = 0;
  *total = 0;
  *ntop = 1;

  // xnmod(1) = 1, then each entry the previous plus the previous nmod: a
  // target's incoming list has nmod places; the first supernode has none.
  xnmod[0] = 1;
  for (int s = 1; s <= ns; ++s) xnmod[s] = xnmod[s - 1] + nmod[s - 1];

  if (np > 1 && *mtype == 11) {
    // Special form: cells of (top supernode, part).
    const int t0 = parts[2 * (np - 1) + 1] + 1;  // first supernode after the parts
    const int T = ns - t0 + 1;
    if (T < 1) {
      xslindx[0] = 1;
      *ntop = 0;
      return;
    }
    const int c0 = xsup[t0 - 1];
    const long long cells = parlist_cells(T, np);  // C + 1, C cells
    // xslindx(k+1) counts cell k, then becomes the start of cell k + 1.
    for (long long k = 0; k < cells; ++k) xslindx[k] = 0;
    for (int pass = 1; pass <= 2; ++pass) {
      for (int p = 1; p <= np + 1; ++p) {
        const int first = p <= np ? parts[2 * (p - 1)] : t0;
        const int last = p <= np ? parts[2 * (p - 1) + 1] : ns;
        for (int s = first; s <= last; ++s) {
          int lastt = 0;
          for (int q = xlindx[s - 1] + 1; q < xlindx[s]; ++q) {
            const int r = lindx[q - 1];
            if (r < c0) continue;
            const int t = snode[r - 1];
            if (t == lastt || t == s) continue;
            lastt = t;
            const long long cell = static_cast<long long>(t - t0) * (np + 1) + p;
            if (pass == 1) {
              ++xslindx[cell];
            } else {
              const int at = xslindx[cell - 1]++;
              if (at > cap) {
                *error = -1;
                return;
              }
              slindx[at - 1] = s;
              slength[at - 1] = xlindx[s] - q;
            }
          }
        }
      }
      if (pass == 1) {
        xslindx[0] = 1;
        for (long long k = 1; k < cells; ++k) xslindx[k] += xslindx[k - 1];
      }
    }
    // Each cursor now stands at the start of the next cell: shift back.
    for (long long k = cells - 1; k >= 1; --k) xslindx[k] = xslindx[k - 1];
    xslindx[0] = 1;
    *total = xslindx[cells - 1] - 1;
    *ntop = T;
    return;
  }

  // Plain form.
  for (int s = 0; s <= ns; ++s) xslindx[s] = 0;
  xslindx[0] = 1;
  int count = 0;
  for (int s = 1; s <= ns; ++s) {
    int last = xsup[s - 1];
    for (int q = xlindx[s - 1] + 1; q < xlindx[s]; ++q) {
      const int c = xsup[snode[lindx[q - 1] - 1] - 1];
      if (c != last) {
        if (count >= cap) {
          *error = -1;
          return;
        }
        slindx[count] = c;
        slength[count] = xlindx[s] - q;
        ++count;
        last = c;
      }
    }
    xslindx[s] = count + 1;
  }
  *total = count;
}

}  // namespace tlm
