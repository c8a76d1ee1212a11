// test_analysis.h - the structure of a factorization, built for the tests by
// the library's own analysis chain: ordering (sssord), supernodes (sfinit),
// structure (symbfct) and the scatter lists of A (inv_perm_mod_mod, full
// storage, or inv_perm_mod_mod_sym, upper triangle stored).
#ifndef VEK_TEST_ANALYSIS_H
#define VEK_TEST_ANALYSIS_H

#include <vector>

#include "vekio.h"

namespace vektest {

typedef std::vector<int> ivec;

// Everything the numeric phase receives from the analysis, and what the
// symbolic stages leave beside it. comi holds the sizes: comi(34) and
// comi(35) the lengths of lnz and unz, comi(37) the slice of temp of one
// thread.
struct analysis {
  int n = 0, ns = 0, error1 = 0, error2 = 0;
  ivec comi = ivec(128, 0), perm, invp, xadj, adjncy, parts, xsup, snode, xlindx, lindx,
       xlnz, xunz, nmod;
  ivec colcnt, parent, sparent, pnlsch, state1, state2, topcnt;
};

// The symbolic stages on the graph (xadj, adjncy), order (perm, invp),
// parts and settings in s: supernodes (sfinit, its status in error1) and
// structure (symbfct, in error2).
void supernodes(analysis &s);
void structure(analysis &s);

// Ordering method (iparam(2)), part count and panel width as the driver
// hands them on. roworder (types above 10) is the matching's row order: row
// v of the matrix that is factorized is row roworder(v) of a. Failures of
// the steps fail the current test.
analysis analyse(vekio::sparse &a, int mtype, ivec *roworder, int method, int nparts,
                 int panel);

// The scatter lists of a, the last step of the analysis.
struct scatter_lists {
  ivec xjalf, jalf, xjauf, jauf, luperm, luperm_row;
  int lcount = 0, ucount = 0;
};

// rowflag nonzero fills luperm_row. Every array and the work space have 8
// words of scatter_guard behind them, which must stay; luperm_row keeps the
// guard where it is not filled.
const int scatter_guard = 0x5A5A5A5A;
scatter_lists make_scatter_lists(const vekio::sparse &a, analysis &s, int mtype,
                                 const ivec *roworder, int rowflag);

}  // namespace vektest

#endif
