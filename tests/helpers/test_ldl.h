// test_ldl.h - the dense rebuild of a supernodal L D L^T factor (real,
// complex symmetric or Hermitian) and its distance from the matrix it
// stands for.
#ifndef VEK_TEST_LDL_H
#define VEK_TEST_LDL_H

#include <complex>
#include <vector>

#include "test_analysis.h"
#include "vekio.h"

namespace vektest {

typedef std::vector<std::complex<double>> zvec;

// The factor's values widened to complex double.
template <class T> zvec widen(const std::vector<T> &v) { return zvec(v.begin(), v.end()); }

// G D G^T - A (G D G^H for Hermitian values) entry by entry, in units of
// n u (|A| + |G||D||G^T|); A the input in full storage (real or complex),
// permuted by s.perm and scaled by scale (empty: not scaled), its diagonal
// read by its real part for Hermitian values. Supernode J contributes to G
// its block factor M over L21, in its columns: with diagonal pivoting
// (diagp 1) M = P1 ... P(nc-1) L11, with Bunch-Kaufman M = P1 L1 P2 L2 ...,
// Lk the unit matrix with the block's column (or pair of columns) of step k
// below the step.
double ldl_misfit(const analysis &s, const vekio::sparse &full,
                  const std::vector<double> &scale, const zvec &lnz, const ivec &pivot,
                  int diagp, bool hermitian, double u);

}  // namespace vektest

#endif
