// vekio.h - matrices for the tools, benchmarks and tests: Matrix Market
// input, generated model problems, the storage forms the solver takes, and
// residuals.
//
// A `sparse` holds compressed rows with one-based ia and ja, columns rising
// within a row, as the solver's entry takes them. Complex values are stored
// as (re, im) pairs in `a`.
#ifndef VEKIO_H
#define VEKIO_H

#include <complex>
#include <string>
#include <vector>

namespace vekio {

struct sparse {
  int n = 0;
  bool cplx = false;
  std::vector<int> ia;     // n + 1 row starts, one-based
  std::vector<int> ja;     // column numbers, one-based
  std::vector<double> a;   // nnz values, or 2 * nnz for complex
  int nnz() const { return n > 0 ? ia[n] - 1 : 0; }
};

enum class mm_symmetry { general, symmetric, hermitian, skew };

struct mm_header {
  bool cplx = false;
  bool pattern = false;
  bool integer = false;
  mm_symmetry sym = mm_symmetry::general;
};

// Reads a coordinate Matrix Market file (real, complex, integer or pattern;
// general, symmetric, skew-symmetric or Hermitian) into full storage: both
// triangles are present, duplicates are summed, columns rise in each row.
// Pattern entries get the value 1. On failure returns false and sets err to
// "FILE:LINE: what is wrong".
bool read_matrix_market(const std::string &path, sparse &full,
                        mm_header &header, std::string &err);

// The matrix type a file's header suggests: real general 11, real
// symmetric -2, pattern symmetric 2 (after make_spd), complex general 13,
// complex symmetric 6, Hermitian -4, pattern general 11.
int suggested_mtype(const mm_header &header);

// Gives a pattern values that make it symmetric positive definite when the
// pattern is symmetric: -1 off the diagonal and the row's off-diagonal
// count + 1 on it. Diagonal entries are added where missing.
sparse make_spd(const sparse &pattern);

// The storage a matrix type asks for: symmetric storage (even absolute
// type code) keeps the upper triangle, diagonal included; the others keep
// the full pattern. Diagonal entries are inserted (as zero) where absent
// for symmetric storage.
sparse storage_for_type(const sparse &full, int mtype);

// True for the types that store one triangle (even absolute code).
bool symmetric_type(int mtype);

// Model problems, full storage, real.
sparse lap2d(int N);              // 5-point, 4 on the diagonal
sparse lap3d(int N);              // 7-point, 6 on the diagonal
sparse diagonal(int n, double first = 1.0, double step = 1.0); // d_i = first + (i-1) step
// Convection-diffusion -Laplace u + beta (u_x + u_y), 5-point central
// differences scaled by h^2: structurally symmetric, unsymmetric values.
sparse convdiff2d(int N, double beta);
// Convection-diffusion in 3D on N^3: 7-point, first-order upwind, with the
// cell Peclet numbers px, py, pz (unsymmetric values, M-matrix).
sparse convdiff3d(int N, double px, double py, double pz);
// convdiff3d with the phase exp(i theta) on the upstream couplings in x and
// i omega on the diagonal: complex unsymmetric.
sparse convdiff3d_complex(int N, double px, double py, double pz, double theta,
                          double omega);
// The 7-point Laplacian on N^3 minus shift I; theta not 0 puts the phase
// exp(+-i theta) on the couplings in x (Hermitian).
sparse shifted_laplacian3d(int N, std::complex<double> shift, double theta);
// A shift near 1 that keeps away from the eigenvalues of the 7-point
// Laplacian on N^3 (the best of 0.95 to 1.05 in steps of 0.001).
double shift_near_one(int N);
// Parses "lap2d:N", "lap3d:N", "cd2d:N" (convection-diffusion with a cell
// Peclet number of 2.5), "cd3d:N" (upwind convection-diffusion, cell Peclet
// numbers 1, 0.6, 0.3), "zcd3d:N" (cd3d with the phase exp(0.5 i) on the
// upstream couplings in x and 0.4 i on the diagonal: complex unsymmetric),
// "indef3d:N" (lap3d minus sigma I, sigma near 1:
// real symmetric indefinite), "helm3d:N" (lap3d minus sigma I plus 0.1 i I:
// complex symmetric), "herm3d:N" (indef3d with the phase exp(0.3 i) on the
// couplings in x: Hermitian indefinite), "diag:N"; false with err on a bad
// name.
bool generate(const std::string &what, sparse &full, std::string &err);

// y = A x for A as given to the solver with the given type: symmetric
// storage is expanded on the fly (Hermitian for types 4 and -4, plain
// symmetric otherwise). x and y hold n values, complex as pairs.
void multiply(const sparse &A, int mtype, const double *x, double *y);

// Infinity norm of A (max row sum of magnitudes) for the same storage rules.
double norm_inf(const sparse &A, int mtype);

// Relative residual ||b - A x|| / (||A|| ||x|| + ||b||) in infinity norms,
// the largest over nrhs right-hand sides stored one after the other.
double relative_residual(const sparse &A, int mtype, const double *x,
                         const double *b, int nrhs);

// Dense blocks of vectors (right-hand sides, solutions): n rows and k
// columns, stored column after column, complex values as (re, im) pairs.
struct dense_block {
  int n = 0;
  int k = 0;
  bool cplx = false;
  std::vector<double> v;  // n * k values, or 2 * n * k for complex
};

// Reads a Matrix Market file of a dense block: the array format (real,
// integer or complex; general), values column after column, or the
// coordinate format (general), whose entries not given are zero. On failure
// returns false and sets err to "FILE:LINE: what is wrong".
bool read_matrix_market_dense(const std::string &path, dense_block &block, std::string &err);

// Writes a dense block in the Matrix Market array format, real or complex
// general, with 17 significant digits. On failure returns false with err.
bool write_matrix_market_dense(const std::string &path, const dense_block &block,
                               std::string &err);

}  // namespace vekio

#endif
