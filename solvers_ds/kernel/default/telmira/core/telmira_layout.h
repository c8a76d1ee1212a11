// telmira_layout.h - where the analysis and the numeric phase keep their
// sub-arrays inside the handle's integer blocks.
//
// Each block of the storage plan (handle[STRUC_S0], [STRUC_S1], [STRUC_S2],
// [STRUC_FI], [WORK_I0], [UP_UPLEN]) holds several one-based integer arrays
// one after the other. Their positions, counted from 1 within the block,
// stand in comx under the numbers below; the mark 777777 means not laid out.
#ifndef TELMIRA_LAYOUT_H
#define TELMIRA_LAYOUT_H

#include <cstdint>

namespace tlm {

// handle[STRUC_S1]: the adjacency of the ordering.
constexpr int CX_XADJ = 1;
constexpr int CX_ADJNCY = 2;
// handle[STRUC_S0]: the order, the parts and the supernode partition.
constexpr int CX_S0_PERM = 3;
constexpr int CX_S0_INVP = 4;
constexpr int CX_S0_PARTS = 5;
constexpr int CX_S0_COLCNT = 6;
constexpr int CX_S0_SNODE = 7;
constexpr int CX_S0_XSUP = 8;
constexpr int CX_S0_XLNZ = 9;
constexpr int CX_S0_XUNZ = 10;
// handle[STRUC_S2]: the structure of the factor from the symbolic stage.
constexpr int CX_S2_XLINDX = 11;
constexpr int CX_S2_LINDX = 12;
constexpr int CX_S2_SPARENT = 13;
constexpr int CX_S2_PNLSCH = 14;
constexpr int CX_S2_NMOD = 15;
constexpr int CX_S2_STATE1 = 16;
constexpr int CX_S2_STATE2 = 17;
constexpr int CX_S2_TOPCNT = 18;
// handle[STRUC_FI]: what factorization and solve read.
constexpr int CX_PERM = 20;
constexpr int CX_INVP = 21;
constexpr int CX_XSUP = 22;
constexpr int CX_SNODE = 23;
constexpr int CX_XLINDX = 24;
constexpr int CX_LINDX = 25;
constexpr int CX_XLNZ = 26;
constexpr int CX_XUNZ = 27;
constexpr int CX_NMOD = 28;
constexpr int CX_PNLSCH = 29;
constexpr int CX_PARTS = 30;
constexpr int CX_XJALF = 31;
constexpr int CX_XJAUF = 32;
constexpr int CX_LUPERM = 33;
constexpr int CX_LUPERM_ROW = 34;
constexpr int CX_JALF = 35;
constexpr int CX_JAUF = 36;
constexpr int CX_IWORK = 37;  // indmap, relind, link, length of the kernels
constexpr int CX_PIVOT = 38;
constexpr int CX_XNMOD = 39;
constexpr int CX_CPIVOT = 40;  // column exchanges of the unsymmetric LU
// handle[UP_UPLEN]: the update lists of the parallel numeric phase.
constexpr int CX_XSLINDX = 44;
constexpr int CX_SLINDX = 45;
constexpr int CX_SLENGTH = 46;
constexpr int CX_INLIST = 47;
// The last word of handle[STRUC_FI] in use.
constexpr int CX_FI_END = 93;

// Sizes of the final structure for n equations, e stored entries, nsuper
// supernodes, lindx length c, parts list p, t threads, symmetric storage
// sym and the row flag of the scaled scatter. Fills the positions into comx
// when comx is not null, and returns the words the layout spans.
std::int64_t fi_layout(int n, int e, int nsuper, int c, int p, int t, int sym,
                       int rowflag, int *comx);

// A one-based sub-array of an integer block.
inline int *sub(void *block, const int *comx, int k) {
  return static_cast<int *>(block) + (comx[k - 1] - 1);
}

}  // namespace tlm

#endif
