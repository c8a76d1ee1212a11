// utAssert.cpp - libutils: the assertion report and the validity stamp.
#include "utAssert.h"

#include <cstdio>

namespace {
// Stamps of a live and of a destroyed object; any other value means the
// memory never held a constructed object.
const unsigned kAlive = 0x5EA1AB1Eu;
const unsigned kDead = 0xDEADBEEFu;
}  // namespace

void HOST_CDECL ut_report_assert_failure(const char *file, int line,
                                         const char *message) {
  std::fprintf(stderr, "%s:%d: %s\n", file != nullptr ? file : "?", line,
               message != nullptr ? message : "");
  std::fflush(stderr);
}

utCheckValid::utCheckValid() : m_stamp(kAlive) {}

utCheckValid::utCheckValid(const utCheckValid &) : m_stamp(kAlive) {}

utCheckValid &utCheckValid::operator=(const utCheckValid &) {
  m_stamp = kAlive;
  return *this;
}

// The store goes through a volatile access: it must outlive the object for
// check_ok to see it, and the compiler would drop it as dead otherwise.
utCheckValid::~utCheckValid() {
  *static_cast<volatile unsigned *>(&m_stamp) = kDead;
}

void utCheckValid::check_ok(const void *object, const char *file,
                            int line) const {
  unsigned stamp = *static_cast<const volatile unsigned *>(&m_stamp);
  if (object == nullptr) {
    ut_report_assert_failure(file, line, "utCheckValid | null object");
  } else if (stamp == kDead) {
    ut_report_assert_failure(file, line, "utCheckValid | object destroyed");
  } else if (stamp != kAlive) {
    ut_report_assert_failure(file, line, "utCheckValid | object not valid");
  }
}
