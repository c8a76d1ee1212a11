// toolkit_assert.cpp - the report of a failed toolkit contract.

#include "toolkit_assert.h"

#include <cstdio>
#include <cstdlib>

namespace tlm {

void toolkit_assert_failed(const char *unit, int line, const char *text) {
  std::printf("Assertion failed: %s:%d: %s\n", unit, line, text);
  std::fflush(nullptr);
  std::abort();
}

}  // namespace tlm
