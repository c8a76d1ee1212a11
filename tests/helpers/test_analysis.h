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

// Everything the numeric phase receives from the analysis. comi holds the
// sizes: comi(34) and comi(35) the lengths of lnz and unz, comi(37) the
// slice of temp of one thread.
struct analysis {
  int n = 0, ns = 0;
  ivec comi = ivec(128, 0), perm, invp, xadj, adjncy, parts, xsup, snode, xlindx, lindx,
       xlnz, xunz, nmod;
};

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

// rowflag nonzero fills luperm_row.
scatter_lists make_scatter_lists(const vekio::sparse &a, analysis &s, int mtype,
                                 const ivec *roworder, int rowflag);

}  // namespace vektest

#endif
