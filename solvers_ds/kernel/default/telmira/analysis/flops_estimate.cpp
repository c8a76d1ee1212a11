// flops_estimate.cpp - operation count of the supernodal factorization.
//
// The count follows a left-looking sweep as the numeric phase runs it: each
// finished supernode waits in the link list of the supernode its next row
// falls into, with `length` holding its rows still to be applied.
#include "symbolic.h"

namespace tlm {

void flops_estimate(const int *nsuper, const int *xsup, const int *snode,
                    const int *xlindx, const int *lindx, int *length,
                    int *link, const int *symmetric, const int *mtype,
                    double *mflop) {
  const int ns = *nsuper;
  const bool sym = *symmetric != 0;
  for (int s = 0; s < ns; ++s) {
    length[s] = 0;
    link[s] = 0;
  }

  double ops = 0.0;
  for (int s = 1; s <= ns; ++s) {
    const int f = xsup[s - 1], l = xsup[s] - 1;
    const long long w = l - f + 1;
    const long long height = xlindx[s] - xlindx[s - 1];

    // Updates from the supernodes that wait for s. link(s) heads the list
    // until s is done; from then on link(s) chains s in its target's list.
    int u = link[s - 1];
    while (u != 0) {
      const int next = link[u - 1];
      const long long wu = xsup[u] - xsup[u - 1];
      const long long r = length[u - 1];
      int p = xlindx[u] - length[u - 1];  // next row of u in lindx
      long long q = 0;
      if (r == height) {
        ops += 2.0 * height * w * wu;
        if (height > w && !sym) ops += (2.0 * height * w - 2.0 * w * w) * wu;
        q = w;
      } else {
        while (q < r && lindx[p - 1 + q] <= l) ++q;
        ops += 2.0 * r * wu * q;
        if (r > q && !sym) ops += 2.0 * (r - q) * wu * q;
      }
      length[u - 1] = static_cast<int>(r - q);
      p += static_cast<int>(q);
      if (r - q > 0) {
        const int t = snode[lindx[p - 1] - 1];
        link[u - 1] = link[t - 1];
        link[t - 1] = u;
      }
      u = next;
    }

    // The diagonal block, then the rectangle below it.
    const long long w2 = w * w, w3 = w2 * w;
    if (sym)
      ops += static_cast<double>(w3 / 3 - w2 / 4 + 5 * w / 12);
    else
      ops += static_cast<double>(2 * w3 / 3 - w2 / 2 + 5 * w / 6);
    ops += static_cast<double>(w2) * (height - w) * (sym ? 1.0 : 2.0);

    if (height > w) {
      length[s - 1] = static_cast<int>(height - w);
      const int t = snode[lindx[xlindx[s - 1] + w - 1] - 1];
      link[s - 1] = link[t - 1];
      link[t - 1] = s;
    }
  }

  double mf = ops / 1000000.0;
  const int mt = *mtype;
  const int a = mt < 0 ? -mt : mt;
  if (!(a < 3 || mt == 11)) mf *= 4.0;
  *mflop = mf;
}

}  // namespace tlm
