// write_coeffs.cpp - the dump of the input of the facade to "coeffs.dat".
#include "write_coeffs.h"

#include <cstdio>

#include "utAssert.h"

int mu_dump_coeffs = 0;

namespace {
const char kFile[] = "source/solver/write_coeffs.cpp";

void put_int(std::FILE *f, int v) { std::fwrite(&v, sizeof v, 1, f); }
void put_double(std::FILE *f, double v) { std::fwrite(&v, sizeof v, 1, f); }
}  // namespace

void write_coeffs(muMatrixSym sym, int num_rows, int num_rhs,
                  const intcoDynArr &row_start, const intcoDynArr &col_index,
                  const doublecoDynArr &coeffs, const doublecoDynArr &rhs) {
  std::FILE *f = std::fopen("coeffs.dat", "wb");
  if (f == nullptr) {
    ut_report_assert_failure(kFile, __LINE__,
                             "::write_coeffs | Failed to open out_file");
    return;
  }
  int nnz = row_start[num_rows];
  put_int(f, static_cast<int>(sym));
  put_int(f, num_rows);
  put_int(f, num_rhs);
  put_int(f, nnz);
  for (int i = 0; i <= num_rows; ++i) put_int(f, row_start[i]);
  for (int k = 0; k < nnz; ++k) put_int(f, col_index[k]);
  for (int k = 0; k < nnz; ++k) put_double(f, coeffs[k]);
  long long nb = static_cast<long long>(num_rows) * num_rhs;
  for (long long k = 0; k < nb; ++k) put_double(f, rhs[static_cast<int>(k)]);
  std::fclose(f);
}
