// utAssert.h - libutils: assertion reports and object validity stamps.
#ifndef UT_ASSERT_H
#define UT_ASSERT_H

#include "host_export.h"

// Reports a failed assertion as one line on the standard error,
//   FILE:LINE: MESSAGE
// and returns: the caller decides whether to go on.
UT_API void HOST_CDECL ut_report_assert_failure(const char *file, int line,
                                                const char *message);

// Conversion modes of the routines that take values from a raw block.
// utConvertCopy (the first, 0) copies the values.
enum utConvert { utConvertCopy = 0 };

// A stamp that an object carries as a member. Construction marks it alive,
// destruction marks it dead; check_ok reports (through
// ut_report_assert_failure, with the given file and line) an object whose
// address is null or whose stamp is not alive - a destroyed, never
// constructed or overwritten object.
class UT_API utCheckValid {
 public:
  utCheckValid();
  utCheckValid(const utCheckValid &other);
  utCheckValid &operator=(const utCheckValid &other);
  ~utCheckValid();

  void check_ok(const void *object, const char *file, int line) const;

 private:
  unsigned m_stamp;
};

#endif
