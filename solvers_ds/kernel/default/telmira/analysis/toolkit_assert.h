// toolkit_assert.h - fatal contract checks of the preprocessing toolkit.
//
// A failed check prints one line "Assertion failed: <unit>:<line>: <text>"
// to the standard output, flushes all streams and aborts. The text is the
// condition as written; TLM_ASSERT_TEXT takes it literally where the names
// in the code differ from the ones the text uses.
#ifndef TELMIRA_TOOLKIT_ASSERT_H
#define TELMIRA_TOOLKIT_ASSERT_H

namespace tlm {
[[noreturn]] void toolkit_assert_failed(const char *unit, int line,
                                        const char *text);
}  // namespace tlm

#define TLM_ASSERT_TEXT(cond, unit, text)                    \
  do {                                                       \
    if (!(cond)) ::tlm::toolkit_assert_failed(unit, __LINE__, text); \
  } while (0)

#define TLM_ASSERT(cond, unit) TLM_ASSERT_TEXT(cond, unit, #cond)

#endif
