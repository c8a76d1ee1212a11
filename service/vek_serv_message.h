// vek_serv_message.h - the message service.
//
// Every text the library prints goes out by number: a built-in table of
// English texts, which a message catalogue of the platform may replace at
// run time. Around the table stand the solver's print routines, which take
// the solver's own internal message numbers and map them to rows, and the
// error handler that the dense layer calls on a bad argument.
//
// The buffers of the service are static and unprotected: one thread prints
// at a time.
#ifndef VEK_SERV_MESSAGE_H
#define VEK_SERV_MESSAGE_H

#include <cstdint>

// Size of the built-in table, rows numbered from 0.
constexpr int VEK_MESSAGE_ROWS = 1080;
// Size of the raw, format and result buffers in characters.
constexpr int VEK_MESSAGE_BUFFER = 512;

struct vek_message_row {
  const char *text;  // format string for the argument list of the call
  int identity;      // row number + 1
  int msg_class;     // 4 for nearly all rows; read by nothing
};

// The built-in row of a number; null outside the table.
const vek_message_row *vek_serv_message_row(int number);

// Prints message number with count arguments, a newline behind it, and
// flushes all output streams. mode 0 and 1 behave alike. Number 0 prints
// only a newline. A text longer than the format buffer ends the process
// with exit code 8.
void vek_serv_print_message(int mode, int number, int count, ...);

// Returns the text of number formatted with count arguments (result buffer),
// or the text itself when count is 0; an empty string for number 0. The
// result is cut at the buffer size.
const char *vek_serv_format_message(int number, int count, ...);

// Word-argument forms, for callers that hold their arguments in an array:
// each word is an int (for %d, %i, %u, %x, %c) or the address of a string
// (for %s), taken in the order of the conversions of the text.
void vek_serv_print_message_words(int number, int count,
                                  const std::intptr_t *words);
void vek_serv_print_message_reals(int number, int count,
                                  const double *values);

// Formats text with words (ints or string addresses) or with doubles, at
// most size characters including the end. Returns the length that the
// whole result has, as snprintf does.
int vek_serv_format_words(char *buf, int size, const char *text, int count,
                          const std::intptr_t *words);
int vek_serv_format_reals(char *buf, int size, const char *text, int count,
                          const double *values);

// The solver's print routines, by internal message number. args holds count
// words (ints or string addresses), count from 0 to 4.
extern "C" void telmira_message(const int *number, const int *count,
                                const std::intptr_t *args);
// The same for double arguments; also the time lines 111 to 120 and 131 to
// 140 and the statistics lines 215, 240, 241, 242.
extern "C" void telmira_message_real(const int *number, const int *count,
                                     const double *values);
// Label of time line 111 to 120 with the seconds and an iteration count.
extern "C" void telmira_message_timed(const int *number, const double *seconds,
                                      const int *iterations);
extern "C" void telmira_newline();

// Error handler of the dense layer, after the standard BLAS and LAPACK
// interface: routine name, info and the length of the name.
extern "C" void xerbla(const char *name, const int *info, int name_length);
typedef void (*vek_serv_xerbla_fn)(const char *name, const int *info,
                                   int name_length);
// Installs a replacement handler (null restores the built-in one). Nothing
// in the library calls it.
extern "C" void vek_serv_set_xerbla(vek_serv_xerbla_fn handler);

#endif
