// parlist.h - the update lists of the parallel numeric phase.
//
// For each source supernode the list of the supernodes it updates, so that
// a finished source can hand its updates on without a search of lindx.
// All arrays are one-based in content and passed by their first element.
#ifndef TELMIRA_PARLIST_H
#define TELMIRA_PARLIST_H

namespace tlm {

// Builds xnmod (nsuper+1: start of each target's incoming list, from nmod)
// and the source lists:
//   plain form  (all types but 11 with several parts): xslindx (nsuper+1),
//     slindx/slength: per source the first column of each target supernode
//     and the number of the source's rows from there to the end of its list.
//   special form (mtype 11, nparts > 1): per (top supernode, part) cell the
//     sources that update the top supernode; xslindx has
//     ntop (nparts+1) + 1 entries.
// capacity: room in slindx and slength. total receives the entries written,
// ntop the count of top supernodes (1 for the plain form). error: 0, or -1
// when the lists would pass capacity.
void parlist(const int *nsuper, const int *n, const int *capacity,
             const int *xlindx, const int *lindx, const int *xsup,
             const int *snode, const int *nmod, const int *nparts,
             const int *parts, const int *mtype, int *xnmod, int *xslindx,
             int *slindx, int *slength, int *total, int *ntop, int *error);

// Entries of the special form's xslindx for ntop top supernodes.
inline long long parlist_cells(int ntop, int nparts) {
  return static_cast<long long>(ntop) * (nparts + 1) + 1;
}

}  // namespace tlm

#endif
