// telmira_words.cpp - the words of the solver's error numbers and of the
// statuses behind them, and the version of the library: the public texts of
// telmira.h, which the tools print as they stand.
#include "telmira.h"

#define VEK_STRINGIFY2(x) #x
#define VEK_STRINGIFY(x) VEK_STRINGIFY2(x)

namespace {
constexpr bool same_text(const char *a, const char *b) {
  return *a == *b && (*a == '\0' || same_text(a + 1, b + 1));
}
}  // namespace

// The header's version string and its three numbers must tell the same.
static_assert(same_text(VEKUTILS_VERSION_STRING,
                        VEK_STRINGIFY(VEKUTILS_VERSION_MAJOR) "." VEK_STRINGIFY(
                            VEKUTILS_VERSION_MINOR) "." VEK_STRINGIFY(VEKUTILS_VERSION_PATCH)),
              "VEKUTILS_VERSION_STRING does not match the version numbers");

extern "C" TELMIRA_API const char *vekutils_version(void) {
  return VEKUTILS_VERSION_STRING;
}

extern "C" TELMIRA_API const char *telmira_error_words(int error) {
  switch (error) {
    case 0: return "success";
    case -1: return "input error: wrong sequence of phases, wrong parameters or refused input matrix";
    case -2: return "not enough memory";
    case -3: return "reordering or symbolic factorization failed";
    case -4: return "numerical factorization, solve or refinement failed";
    case -5: return "unclassified error";
    case -6: return "matching before reordering failed (structurally singular matrix)";
    case -7: return "internal error, or an input error at message level 0";
    case -8: return "32-bit integer overflow in a size computation";
    case -9: return "not enough memory for the out-of-core mode";
    case -10: return "an out-of-core temporary file could not be opened";
    case -11: return "read or write of an out-of-core data file failed";
    default: return "unknown error number";
  }
}

extern "C" TELMIRA_API const char *telmira_status_words(int error, int status) {
  if (error == -3) {
    switch (status) {
      case -31:
        return "types 1 and 3 need a structurally symmetric pattern with every diagonal "
               "entry stored; give the matrix as type 11 or 13";
      case -32:
        return "malformed structure: row starts that fall, columns out of range or not "
               "rising, or a row of a one-triangle type that does not begin with its "
               "diagonal";
      case -33: return "the order given in perm (iparam(5) = 1) is not a permutation of 1 to n";
      case -34:
        return "the matrix type is none of 1, 2, -2, 3, 4, -4, 6, 11, 13";
      default: return "";
    }
  }
  if (error == -4) {
    if (status > 0)
      return "a pivot is zero or not positive; iparam(30) is its input column (types 2 "
             "and 4: the matrix is not positive definite)";
    switch (status) {
      case -2: return "not enough memory during the factorization";
      case -3: return "the preconditioned iteration failed; iparam(20) tells how";
      case -112: return "iterative refinement stopped: the residual no longer falls";
      case -120: return "a pivot is NaN or infinite (NaN or infinite values in the matrix, or an overflow)";
      case -121: return "the solution holds a NaN or an infinite value";
      case -122:
        return "the solution's backward error stays above the square root of the rounding "
               "unit after refinement: the matrix is singular or too ill-conditioned";
      default: return "";
    }
  }
  return "";
}
