// symbfct.cpp - second stage of the symbolic factorization: the supernodal
// tree, the ready list, the row lists of the supernodes, the storage layout
// of the factor, and the counts the numeric phase plans with.
#include <climits>
#include <cstdio>

#include "service/vek_serv_clock.h"
#include "telmira_slots.h"
#include "symbolic.h"

namespace tlm {

// --- storage layout -------------------------------------------------------

struct layout_cursor {
  long long l, u, limit;
};

// Gives each column of supernodes first..last its place in lnz and unz.
static bool layout_range(int first, int last, const int *xsup,
                         const int *colcnt, int *xlnz, int *xunz,
                         layout_cursor *c) {
  for (int s = first; s <= last; ++s) {
    const int f = xsup[s - 1], l = xsup[s] - 1;
    const long long hl = colcnt[f - 1];
    const long long hu = colcnt[l - 1] - 1;
    for (int j = f; j <= l; ++j) {
      if (c->l + hl > c->limit || c->u + hu > c->limit) return false;
      xlnz[j - 1] = static_cast<int>(c->l);
      xunz[j - 1] = static_cast<int>(c->u);
      c->l += hl;
      c->u += hu;
    }
  }
  return true;
}

void symbfct_layout(const int *n, const int *nsuper, const int *xsup,
                    const int *colcnt, const int *nparts, const int *parts,
                    int *xlnz, int *xunz, int *error) {
  const int neqns = *n, ns = *nsuper, np = *nparts;
  *error = 0;
  layout_cursor c = {1, 1, symbolic_cursor_limit - neqns};

  // Part after part, each preceded by the gap before it; the top region
  // closes the sweep.
  int end = 0;
  for (int k = 0; k < np; ++k) {
    const int first = parts[2 * k], last = parts[2 * k + 1];
    if (last < first) continue;
    if (!layout_range(end + 1, first - 1, xsup, colcnt, xlnz, xunz, &c) ||
        !layout_range(first, last, xsup, colcnt, xlnz, xunz, &c)) {
      *error = symbolic_overflow;
      return;
    }
    if (last > end) end = last;
  }
  if (!layout_range(end + 1, ns, xsup, colcnt, xlnz, xunz, &c)) {
    *error = symbolic_overflow;
    return;
  }
  xlnz[neqns] = static_cast<int>(c.l);
  xunz[neqns] = static_cast<int>(c.u);
}

// --- supernodal tree and ready list ---------------------------------------

void symbfct_tree(const int *nsuper, const int *xsup, const int *snode,
                  const int *parent, int *sparent, int *pnlsch, int *count) {
  const int ns = *nsuper;
  for (int s = 0; s < ns; ++s) {
    sparent[s] = 0;
    count[s] = 0;
  }
  for (int s = ns; s >= 1; --s) {
    const int p = parent[xsup[s] - 2];
    sparent[s - 1] = p != 0 ? snode[p - 1] : 0;
  }
  for (int s = 0; s < ns; ++s)
    if (sparent[s] != 0) ++count[sparent[s] - 1];

  // Leaves first, negated; a parent follows once its last child is listed.
  int len = 0;
  for (int s = 1; s <= ns; ++s)
    if (count[s - 1] == 0) pnlsch[len++] = -s;
  for (int i = 0; i < len; ++i) {
    const int s = pnlsch[i] < 0 ? -pnlsch[i] : pnlsch[i];
    const int p = sparent[s - 1];
    if (p != 0 && --count[p - 1] == 0) pnlsch[len++] = p;
  }
}

// --- row lists ------------------------------------------------------------

void symbfct_structure(const int *n, const int *xadj, const int *adjncy,
                       const int *perm, const int *invp, const int *colcnt,
                       const int *nsuper, const int *xsup, const int *snode,
                       int *xlindx, int *lindx, int *mrglnk, int *rchlnk,
                       int *marker, int *error) {
  const int neqns = *n, ns = *nsuper;
  *error = 0;
  if (neqns < 1) return;
  for (int i = 0; i < neqns; ++i) marker[i] = 0;
  for (int s = 0; s < ns; ++s) mrglnk[s] = 0;

  int point = 1;
  for (int s = 1; s <= ns; ++s) {
    xlindx[s - 1] = point;
    point += colcnt[xsup[s - 1] - 1];
  }
  xlindx[ns] = point;

  // The list of a supernode is kept as a sorted chain in rchlnk: rchlnk[0]
  // is its head, tail the sentinel n+1.
  const int tail = neqns + 1;
  for (int s = 1; s <= ns; ++s) {
    const int f = xsup[s - 1];
    const int width = xsup[s] - f;
    const int length = colcnt[f - 1];
    int knz = 0;
    rchlnk[0] = tail;

    int child = mrglnk[s - 1];
    if (child > 0) {
      // The first child gives its rows below its own columns as they are.
      int w = xsup[child] - xsup[child - 1];
      for (int p = xlindx[child] - 1; p >= xlindx[child - 1] + w; --p) {
        const int row = lindx[p - 1];
        ++knz;
        marker[row - 1] = s;
        rchlnk[row] = rchlnk[0];
        rchlnk[0] = row;
      }
      // Further children are merged in until the list is complete.
      child = mrglnk[child - 1];
      while (child != 0 && knz < length) {
        w = xsup[child] - xsup[child - 1];
        int next = 0;
        for (int p = xlindx[child - 1] + w; p < xlindx[child]; ++p) {
          const int row = lindx[p - 1];
          int i;
          do {
            i = next;
            next = rchlnk[i];
          } while (row > next);
          if (row < next) {
            ++knz;
            rchlnk[i] = row;
            rchlnk[row] = next;
            marker[row - 1] = s;
            next = row;
          }
        }
        child = mrglnk[child - 1];
      }
    }

    // Rows of the matrix below f in column f.
    if (knz < length) {
      const int node = perm[f - 1];
      for (int p = xadj[node - 1]; p < xadj[node]; ++p) {
        const int row = invp[adjncy[p - 1] - 1];
        if (row <= f || marker[row - 1] == s) continue;
        int i, next = 0;
        do {
          i = next;
          next = rchlnk[i];
        } while (row > next);
        ++knz;
        rchlnk[i] = row;
        rchlnk[row] = next;
        marker[row - 1] = s;
      }
    }

    if (rchlnk[0] != f) {
      rchlnk[f] = rchlnk[0];
      rchlnk[0] = f;
      ++knz;
    }
    if (knz != xlindx[s] - xlindx[s - 1]) {
      *error = symbolic_inconsistent;
      return;
    }

    int i = 0;
    for (int p = xlindx[s - 1]; p < xlindx[s]; ++p) {
      i = rchlnk[i];
      lindx[p - 1] = i;
    }

    // The supernode waits for the supernode of its first row below.
    if (width < length) {
      const int t = snode[lindx[xlindx[s - 1] + width - 1] - 1];
      mrglnk[s - 1] = mrglnk[t - 1];
      mrglnk[t - 1] = s;
    }
  }
}

// --- temporary block size -------------------------------------------------

void symbfct_tmpsiz(const int *n, const int *nsuper, const int *xsup,
                    const int *snode, const int *xlindx, const int *lindx,
                    long long *tmpsiz) {
  const int ns = *nsuper;
  long long tsize = 0;
  for (int s = ns; s >= 1; --s) {
    const int width = xsup[s] - xsup[s - 1];
    const int beg = xlindx[s - 1] + width, end = xlindx[s] - 1;
    long long r = end - beg + 1;
    if (static_cast<long long>(width) * r > tsize)
      tsize = static_cast<long long>(width) * r;
    if (r * (r + 1) / 2 <= tsize) continue;
    // The rows fall into runs by their target supernode; each run of q rows
    // gives an update block of r rows by q columns, trapezoidal.
    int p = beg;
    while (p <= end) {
      const int t = snode[lindx[p - 1] - 1];
      long long q = 0;
      while (p <= end && snode[lindx[p - 1] - 1] == t) {
        ++q;
        ++p;
      }
      const long long tlen = xlindx[t] - xlindx[t - 1];
      if (tlen >= r) {
        const long long block = r * q - (q * q - q) / 2;
        if (block > tsize) tsize = block;
      }
      r -= q;
      if (r * (r + 1) / 2 <= tsize) break;
    }
  }
  *tmpsiz = tsize == 0 ? *n : tsize;
}

// --- driver ---------------------------------------------------------------

static void trace_index_array(const char *name, const int *a, int count) {
  std::printf("%s\n", name);
  for (int i = 0; i < count; ++i)
    std::printf("%d%c", a[i], (i % 10 == 9 || i + 1 == count) ? '\n' : ' ');
  std::fflush(stdout);
}

static inline int clamp_int(long long v) {
  return v > INT_MAX ? INT_MAX : static_cast<int>(v);
}

void symbfct(const int *n, int *comi, double *seconds, const int *perm,
             const int *invp, const int *xadj, const int *adjncy,
             const int *colcnt, const int *xsup, const int *snode,
             const int *parts, int *xlindx, int *lindx, int *xlnz, int *xunz,
             int *sparent, int *pnlsch, int *nmod, int *state1, int *state2,
             int *topcnt, int *work, int *error) {
  double start = 0.0;
  telmira_clock(&start);
  const int neqns = *n;
  const int ns = comi[CI_NSUPER - 1];
  const int nlindx = comi[CI_LINDX_LEN - 1];
  const int np = comi[CI_NPARTS - 1];
  *error = 0;

  int *parent = work;
  int *marker = work + neqns;  // first the ancestors of the tree
  int *rchlnk = work + 2 * neqns;
  int *mrglnk = work + 3 * neqns + 1;  // first the child counts
  const long long wlen = symbfct_work_length(neqns, ns);
  for (long long i = 0; i < wlen; ++i) work[i] = 0;
  for (int s = 0; s <= ns; ++s) xlindx[s] = 0;
  for (int i = 0; i < nlindx; ++i) lindx[i] = 0;
  for (int j = 0; j <= neqns; ++j) {
    xlnz[j] = 0;
    xunz[j] = 0;
  }

  etree(n, xadj, adjncy, perm, invp, &np, parts, parent, marker);
  symbfct_tree(&ns, xsup, snode, parent, sparent, pnlsch, mrglnk);

  int flag = 0;
  symbfct_layout(n, &ns, xsup, colcnt, &np, parts, xlnz, xunz, &flag);
  if (flag == 0)
    symbfct_structure(n, xadj, adjncy, perm, invp, colcnt, &ns, xsup, snode,
                      xlindx, lindx, mrglnk, rchlnk, marker, &flag);
  if (flag != 0) {
    comi[CI_STATUS - 1] =
        flag == symbolic_overflow ? symbfct_status_overflow : symbfct_status_other;
    *error = comi[CI_STATUS - 1];
    return;
  }
  comi[CI_LNZ_LEN - 1] = xlnz[neqns] - 1;
  comi[CI_UNZ_LEN - 1] = xunz[neqns] - 1;
  if (comi[CI_TRIANGLE - 1] == 1 || comi[CI_UNZ_LEN - 1] < 1) comi[CI_UNZ_LEN - 1] = 1;

  long long tmpsiz = 0;
  symbfct_tmpsiz(n, &ns, xsup, snode, xlindx, lindx, &tmpsiz);
  comi[CI_TMPSIZE - 1] = clamp_int(4 * tmpsiz);
  comi[CI_WORK_FACTOR - 1] = 4;

  for (int s = 0; s < ns; ++s) {
    nmod[s] = 0;
    state1[s] = symbolic_state_mark;
    state2[s] = symbolic_state_mark;
    topcnt[s] = 0;
  }

  // Each supernode updates every supernode its rows below fall into; rows
  // ascend, so that a target shows as one run.
  for (int s = 1; s <= ns; ++s) {
    const int width = xsup[s] - xsup[s - 1];
    int last = 0;
    for (int p = xlindx[s - 1] + width; p < xlindx[s]; ++p) {
      const int t = snode[lindx[p - 1] - 1];
      if (t != last) {
        ++nmod[t - 1];
        last = t;
      }
    }
  }
  comi[CI_SYMBOLIC_DONE - 1] = 1;

  // Rows in the top region, for supernodes that also have rows before it.
  int top = 1;
  if (np >= 1) {
    const int lastsup = parts[2 * np - 1];
    if (lastsup >= 1 && lastsup <= ns) top = xsup[lastsup];
  }
  int longest = 0;
  for (int s = 1; s <= ns; ++s) {
    int read = 0;
    for (int p = xlindx[s] - 1; p >= xlindx[s - 1]; --p) {
      if (lindx[p - 1] < top) {
        topcnt[s - 1] = read;
        break;
      }
      ++read;
    }
    const int height = xlindx[s] - xlindx[s - 1];
    if (height > longest) longest = height;
  }
  comi[CI_LONGEST_COL - 1] = longest;

  if (comi[CI_MSGLVL - 1] >= 2) {
    trace_index_array("index pointer xlindx", xlindx, ns + 1);
    trace_index_array("index pointer xlnz", xlnz, neqns + 1);
    trace_index_array("index pointer xunz", xunz, neqns + 1);
    trace_index_array("index array lindx", lindx, xlindx[ns] - 1);
  }
  comi[CI_STATUS - 1] = 0;

  double stop = 0.0;
  telmira_clock(&stop);
  *seconds += stop - start;
}

}  // namespace tlm
