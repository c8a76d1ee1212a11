// vek_serv_ilaenv.h - the block-size oracle of the dense factorizations.
//
// The published ILAENV query with tables tuned for the factorizations that
// the solver reaches (DGETRF, DPOTRF and their sisters), and four
// queries of its own:
//   12  the cost of an LU panel in 32nds of its width
//   17  the column tiles of a thread's group in the threaded LU
//   18  the column tiles at the right end that no thread owns
//   19  the processor type (the name is not read)
// name has 6 characters (upper or lower case; the first one is the
// precision, S D C Z), opts 1. Other names and queries get the published
// answers.
#ifndef VEK_SERV_ILAENV_H
#define VEK_SERV_ILAENV_H

#include <cstddef>

int vek_serv_ilaenv(const int *ispec, const char *name, const char *opts, const int *n1,
                    const int *n2, const int *n3, const int *n4, std::size_t name_len,
                    std::size_t opts_len);

#endif
