// test_matrices.h - matrices for the tests: the real ones from the shared
// collection and the generated model problems.
#ifndef VEK_TEST_MATRICES_H
#define VEK_TEST_MATRICES_H

#include <string>

#include "vekio.h"

namespace vektest {

// Directory of the shared Matrix Market collection.
std::string matrices_dir();

// Reads NAME.mtx from the shared collection in full storage; pattern files
// are given SPD values. Fails the current test (and returns false) when the
// file cannot be read.
bool load(const std::string &name, vekio::sparse &full,
          vekio::mm_header *header = nullptr);

}  // namespace vektest

#endif
