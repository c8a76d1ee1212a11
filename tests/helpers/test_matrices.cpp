#include "test_matrices.h"

#include <gtest/gtest.h>

namespace vektest {

std::string matrices_dir() { return VEK_SHARED_MATRICES; }

bool load(const std::string &name, vekio::sparse &full,
          vekio::mm_header *header) {
  vekio::mm_header h;
  std::string err;
  vekio::sparse m;
  if (!vekio::read_matrix_market(matrices_dir() + "/" + name + ".mtx", m, h, err)) {
    ADD_FAILURE() << err;
    return false;
  }
  full = h.pattern ? vekio::make_spd(m) : m;
  if (header) *header = h;
  return true;
}

}  // namespace vektest
