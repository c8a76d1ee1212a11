// genmmd.cpp - multiple minimum degree ordering (Liu's algorithm) and its
// constrained form.
//
// The quotient graph lives in adjncy itself: an eliminated node's list holds
// the nodes it reaches, a negative entry -e links on to the list of element
// e, a 0 ends a list early. The degree lists are doubly linked through
// dforw (= invp) and dbakw (= perm): dbakw[x] = -d marks the head of list d,
// 0 marks a node waiting for a degree update, -maxint a node absorbed into
// another (or, in the constrained form, a reserved node kept out of the
// lists). qsize is the size of each supernode, 0 for absorbed nodes. All
// arrays are used one-based through pointers shifted by one.

#include "ordering.h"

namespace {

// Reserved nodes (constrained form): rank > 0 while the constraint holds.
inline bool reserved(const int *rank, int node) {
  return rank != nullptr && rank[node] > 0;
}

// Builds the initial degree lists. Reserved nodes stay out of them; they
// wait, marked for a degree update, until the constraint is lifted.
void mmdint(int n, const int *xadj, int *dhead, int *dforw, int *dbakw,
            int *qsize, int *llist, int *marker, const int *rank) {
  for (int node = 1; node <= n; ++node) {
    dhead[node] = 0;
    qsize[node] = 1;
    marker[node] = 0;
    llist[node] = 0;
  }
  for (int node = 1; node <= n; ++node) {
    if (reserved(rank, node)) {
      dforw[node] = 0;
      dbakw[node] = 0;
      continue;
    }
    int ndeg = xadj[node + 1] - xadj[node] + 1;
    int fnode = dhead[ndeg];
    dforw[node] = fnode;
    dhead[ndeg] = node;
    if (fnode > 0) dbakw[fnode] = node;
    dbakw[node] = -ndeg;
  }
}

// Eliminates mdnode: forms its reachable set in its own list (reusing the
// storage of absorbed elements), takes the reachable nodes out of the degree
// lists, purges their lists, and merges the ones left with no neighbour.
void mmdelm(int mdnode, const int *xadj, int *adjncy, int *dhead, int *dforw,
            int *dbakw, int *qsize, int *llist, int *marker, int maxint,
            int tag, const int *rank) {
  marker[mdnode] = tag;
  int istrt = xadj[mdnode];
  int istop = xadj[mdnode + 1] - 1;
  int elmnt = 0;
  int rloc = istrt;
  int rlmt = istop;
  for (int i = istrt; i <= istop; ++i) {
    int nabor = adjncy[i];
    if (nabor == 0) break;
    if (marker[nabor] >= tag) continue;
    marker[nabor] = tag;
    if (dforw[nabor] < 0) {
      llist[nabor] = elmnt;
      elmnt = nabor;
    } else {
      adjncy[rloc++] = nabor;
    }
  }
  // Merge in the nodes reachable through the neighbouring elements.
  while (elmnt > 0) {
    adjncy[rlmt] = -elmnt;
    int link = elmnt;
    bool more = true;
    while (more) {
      more = false;
      int jstrt = xadj[link];
      int jstop = xadj[link + 1] - 1;
      for (int j = jstrt; j <= jstop; ++j) {
        int node = adjncy[j];
        if (node < 0) {
          link = -node;
          more = true;
          break;
        }
        if (node == 0) break;
        if (marker[node] >= tag || dforw[node] < 0) continue;
        marker[node] = tag;
        while (rloc >= rlmt) {
          int l = -adjncy[rlmt];
          rloc = xadj[l];
          rlmt = xadj[l + 1] - 1;
        }
        adjncy[rloc++] = node;
      }
    }
    elmnt = llist[elmnt];
  }
  if (rloc <= rlmt) adjncy[rloc] = 0;

  // Each node of the reachable set.
  int link = mdnode;
  for (;;) {
    int jstrt0 = xadj[link];
    int jstop0 = xadj[link + 1] - 1;
    bool relinked = false;
    for (int i = jstrt0; i <= jstop0; ++i) {
      int rnode = adjncy[i];
      if (rnode < 0) {
        link = -rnode;
        relinked = true;
        break;
      }
      if (rnode == 0) return;
      bool parked = reserved(rank, rnode);
      int pvnode = dbakw[rnode];
      if (!parked && pvnode != 0 && pvnode != -maxint) {
        int nxnode = dforw[rnode];
        if (nxnode > 0) dbakw[nxnode] = pvnode;
        if (pvnode > 0) dforw[pvnode] = nxnode;
        if (pvnode < 0) dhead[-pvnode] = nxnode;
      }
      // Purge the inactive neighbours of rnode.
      int jstrt = xadj[rnode];
      int jstop = xadj[rnode + 1] - 1;
      int xqnbr = jstrt;
      for (int j = jstrt; j <= jstop; ++j) {
        int nabor = adjncy[j];
        if (nabor == 0) break;
        if (marker[nabor] >= tag) continue;
        adjncy[xqnbr++] = nabor;
      }
      int nqnbrs = xqnbr - jstrt;
      if (nqnbrs <= 0 && !parked) {
        // Indistinguishable from mdnode: absorb it.
        qsize[mdnode] += qsize[rnode];
        qsize[rnode] = 0;
        marker[rnode] = maxint;
        dforw[rnode] = -mdnode;
        dbakw[rnode] = -maxint;
      } else {
        // Needs a degree update; mdnode becomes one of its neighbours.
        dforw[rnode] = nqnbrs + 1;
        dbakw[rnode] = 0;
        adjncy[xqnbr++] = mdnode;
        if (xqnbr <= jstop) adjncy[xqnbr] = 0;
      }
    }
    if (!relinked) return;
  }
}

// Puts enode with external degree deg-1 into degree list deg; a reserved
// node is kept out of the lists (and not updated again in this round).
inline void mmd_insert(int enode, int deg, int *mdeg, int *dhead, int *dforw,
                       int *dbakw, const int *rank, int maxint) {
  if (reserved(rank, enode)) {
    dforw[enode] = 0;
    dbakw[enode] = -maxint;
    return;
  }
  int fnode = dhead[deg];
  dforw[enode] = fnode;
  dbakw[enode] = -deg;
  if (fnode > 0) dbakw[fnode] = enode;
  dhead[deg] = enode;
  if (deg < *mdeg) *mdeg = deg;
}

// Degree update of the nodes next to the elements just formed (chained from
// ehead through llist).
void mmdupd(int ehead, int n, const int *xadj, const int *adjncy, int delta,
            int *mdeg, int *dhead, int *dforw, int *dbakw, int *qsize,
            int *llist, int *marker, int maxint, int *tag, const int *rank) {
  int mdeg0 = *mdeg + delta;
  int elimnt = ehead;
  while (elimnt > 0) {
    int mtag = *tag + mdeg0;
    if (mtag >= maxint) {
      *tag = 1;
      for (int i = 1; i <= n; ++i)
        if (marker[i] < maxint) marker[i] = 0;
      mtag = *tag + mdeg0;
    }
    // Split the nodes of the element into those with two neighbours in the
    // quotient graph (q2) and the others (qx); deg0 is the element's size.
    int q2head = 0, qxhead = 0, deg0 = 0;
    int link = elimnt;
    bool more = true;
    while (more) {
      more = false;
      int istrt = xadj[link];
      int istop = xadj[link + 1] - 1;
      for (int i = istrt; i <= istop; ++i) {
        int enode = adjncy[i];
        if (enode < 0) {
          link = -enode;
          more = true;
          break;
        }
        if (enode == 0) break;
        if (qsize[enode] == 0) continue;
        deg0 += qsize[enode];
        marker[enode] = mtag;
        if (dbakw[enode] == 0) {
          if (dforw[enode] != 2) {
            llist[enode] = qxhead;
            qxhead = enode;
          } else {
            llist[enode] = q2head;
            q2head = enode;
          }
        }
      }
    }
    // Nodes with two neighbours: the element and one other.
    for (int enode = q2head; enode > 0; enode = llist[enode]) {
      if (dbakw[enode] != 0) continue;
      ++*tag;
      int deg = deg0;
      int istrt = xadj[enode];
      int nabor = adjncy[istrt];
      if (nabor == elimnt) nabor = adjncy[istrt + 1];
      link = nabor;
      if (dforw[nabor] >= 0) {
        deg += qsize[nabor];
      } else {
        bool again = true;
        while (again) {
          again = false;
          int jstrt = xadj[link];
          int jstop = xadj[link + 1] - 1;
          for (int i = jstrt; i <= jstop; ++i) {
            int node = adjncy[i];
            if (node == enode) continue;
            if (node < 0) {
              link = -node;
              again = true;
              break;
            }
            if (node == 0) break;
            if (qsize[node] == 0) continue;
            if (marker[node] < *tag) {
              marker[node] = *tag;
              deg += qsize[node];
            } else if (dbakw[node] == 0 && dforw[node] == 2 &&
                       !reserved(rank, node) && !reserved(rank, enode)) {
              // Indistinguishable from enode: absorb it.
              qsize[enode] += qsize[node];
              qsize[node] = 0;
              marker[node] = maxint;
              dforw[node] = -enode;
              dbakw[node] = -maxint;
            }
          }
        }
      }
      deg = deg - qsize[enode] + 1;
      mmd_insert(enode, deg, mdeg, dhead, dforw, dbakw, rank, maxint);
    }
    // The other nodes.
    for (int enode = qxhead; enode > 0; enode = llist[enode]) {
      if (dbakw[enode] != 0) continue;
      ++*tag;
      int deg = deg0;
      int istrt = xadj[enode];
      int istop = xadj[enode + 1] - 1;
      for (int i = istrt; i <= istop; ++i) {
        int nabor = adjncy[i];
        if (nabor == 0) break;
        if (marker[nabor] >= *tag) continue;
        marker[nabor] = *tag;
        if (dforw[nabor] >= 0) {
          deg += qsize[nabor];
          continue;
        }
        link = nabor;
        bool again = true;
        while (again) {
          again = false;
          int jstrt = xadj[link];
          int jstop = xadj[link + 1] - 1;
          for (int j = jstrt; j <= jstop; ++j) {
            int node = adjncy[j];
            if (node < 0) {
              link = -node;
              again = true;
              break;
            }
            if (node == 0) break;
            if (marker[node] < *tag) {
              marker[node] = *tag;
              deg += qsize[node];
            }
          }
        }
      }
      deg = deg - qsize[enode] + 1;
      mmd_insert(enode, deg, mdeg, dhead, dforw, dbakw, rank, maxint);
    }
    *tag = mtag;
    elimnt = llist[elimnt];
  }
}

// Final numbering: absorbed nodes follow their representative.
void mmdnum(int n, int *perm, int *invp, const int *qsize) {
  for (int node = 1; node <= n; ++node)
    perm[node] = qsize[node] <= 0 ? invp[node] : -invp[node];
  for (int node = 1; node <= n; ++node) {
    if (perm[node] > 0) continue;
    int father = node;
    while (perm[father] <= 0) father = -perm[father];
    int root = father;
    int num = perm[root] + 1;
    invp[node] = -num;
    perm[root] = num;
    father = node;
    for (;;) {
      int nextf = -perm[father];
      if (nextf <= 0) break;
      perm[father] = -root;
      father = nextf;
    }
  }
  for (int node = 1; node <= n; ++node) {
    int num = -invp[node];
    invp[node] = num;
    perm[num] = node;
  }
}

// External degree of a parked node, computed afresh, for its entry into the
// degree lists once the constraint is lifted.
int mmd_fresh_degree(int node, const int *xadj, const int *adjncy,
                     const int *dforw, const int *qsize, int *marker,
                     int tag) {
  int deg = 0;
  marker[node] = tag;
  int istrt = xadj[node];
  int istop = xadj[node + 1] - 1;
  for (int i = istrt; i <= istop; ++i) {
    int nabor = adjncy[i];
    if (nabor == 0) break;
    if (marker[nabor] >= tag) continue;
    marker[nabor] = tag;
    if (dforw[nabor] >= 0) {
      deg += qsize[nabor];
      continue;
    }
    int link = nabor;
    bool again = true;
    while (again) {
      again = false;
      int jstrt = xadj[link];
      int jstop = xadj[link + 1] - 1;
      for (int j = jstrt; j <= jstop; ++j) {
        int v = adjncy[j];
        if (v < 0) {
          link = -v;
          again = true;
          break;
        }
        if (v == 0) break;
        if (marker[v] < tag) {
          marker[v] = tag;
          deg += qsize[v];
        }
      }
    }
  }
  return deg;
}

inline void mmd_next_tag(int n, int *tag, int maxint, int *marker) {
  ++*tag;
  if (*tag >= maxint) {
    *tag = 1;
    for (int i = 1; i <= n; ++i)
      if (marker[i] < maxint) marker[i] = 0;
  }
}

// The common body; rank null (or ncon 0) is the plain algorithm. Arrays are
// shifted to one-based here.
void mmd_order(int n, const int *xadj0, int *adjncy0, int *invp0, int *perm0,
               int delta, int *dhead0, int *qsize0, int *llist0, int *marker0,
               int maxint, int *nofsub, int ncon, int *rank0, int sepflag) {
  *nofsub = 0;
  if (n <= 0) return;
  const int *xadj = xadj0 - 1;
  int *adjncy = adjncy0 - 1;
  int *invp = invp0 - 1;
  int *perm = perm0 - 1;
  int *dhead = dhead0 - 1;
  int *qsize = qsize0 - 1;
  int *llist = llist0 - 1;
  int *marker = marker0 - 1;
  int *rank = nullptr;
  if (ncon > 0 && rank0 != nullptr) {
    if (ncon > n) ncon = n;
    rank = rank0 - 1;
    for (int i = 1; i <= n; ++i) rank[i] = 0;
    for (int c = n - ncon + 1; c <= n; ++c) rank[perm[c]] = c;
  } else {
    ncon = 0;
  }
  mmdint(n, xadj, dhead, invp, perm, qsize, llist, marker, rank);

  // Isolated nodes first.
  int num = 1;
  int nextmd = dhead[1];
  while (nextmd > 0) {
    int mdnode = nextmd;
    nextmd = invp[mdnode];
    marker[mdnode] = maxint;
    invp[mdnode] = -num;
    ++num;
  }
  if (num > n) {
    mmdnum(n, perm, invp, qsize);
    return;
  }
  int tag = 1;
  dhead[1] = 0;
  int mdeg = 2;
  for (;;) {
    if (ncon > 0 && num > n - ncon) {
      // All free nodes are numbered: settle the reserved ones.
      if (sepflag == 0) {
        for (int i = 1; i <= n; ++i)
          if (rank[i] > 0) invp[i] = -rank[i];
        break;
      }
      // Lift the constraint: the reserved nodes enter the degree lists.
      ncon = 0;
      mdeg = n;
      for (int node = 1; node <= n; ++node) {
        if (rank[node] <= 0) continue;
        rank[node] = 0;
        mmd_next_tag(n, &tag, maxint, marker);
        int deg =
            mmd_fresh_degree(node, xadj, adjncy, invp, qsize, marker, tag) + 1;
        mmd_insert(node, deg, &mdeg, dhead, invp, perm, nullptr, maxint);
      }
      rank = nullptr;
    }
    if (num > n) break;
    while (mdeg <= n && dhead[mdeg] <= 0) ++mdeg;
    if (mdeg > n) break;  // nothing left to eliminate
    int mdlmt = mdeg + delta;
    int ehead = 0;
    bool done = false;
    for (;;) {
      int mdnode = dhead[mdeg];
      if (mdnode <= 0) {
        ++mdeg;
        if (mdeg > mdlmt || mdeg > n) break;
        continue;
      }
      nextmd = invp[mdnode];
      dhead[mdeg] = nextmd;
      if (nextmd > 0) perm[nextmd] = -mdeg;
      invp[mdnode] = -num;
      *nofsub += mdeg + qsize[mdnode] - 2;
      if (num + qsize[mdnode] > n) {
        done = true;
        break;
      }
      mmd_next_tag(n, &tag, maxint, marker);
      mmdelm(mdnode, xadj, adjncy, dhead, invp, perm, qsize, llist, marker,
             maxint, tag, rank);
      num += qsize[mdnode];
      llist[mdnode] = ehead;
      ehead = mdnode;
      if (delta < 0) break;
    }
    if (done || num > n) break;
    mmdupd(ehead, n, xadj, adjncy, delta, &mdeg, dhead, invp, perm, qsize,
           llist, marker, maxint, &tag, rank);
  }
  mmdnum(n, perm, invp, qsize);
}

}  // namespace

void genmmd(int *n, int *xadj, int *adjncy, int *invp, int *perm, int *delta,
            int *dhead, int *qsize, int *llist, int *marker, int *maxint,
            int *nofsub) {
  mmd_order(*n, xadj, adjncy, invp, perm, *delta, dhead, qsize, llist, marker,
            *maxint, nofsub, 0, nullptr, 1);
}

void genmmd_constrained(int *n, int *xadj, int *adjncy, int *invp, int *perm,
                        int *delta, int *dhead, int *qsize, int *llist,
                        int *marker, int *maxint, int *nofsub, int *ncon,
                        int *rank, int *sepflag) {
  mmd_order(*n, xadj, adjncy, invp, perm, *delta, dhead, qsize, llist, marker,
            *maxint, nofsub, *ncon, rank, *sepflag);
}
