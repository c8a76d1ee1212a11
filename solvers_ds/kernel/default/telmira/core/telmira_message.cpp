// telmira_message.cpp - the solver's print routines: its internal message
// numbers, their rows in the message table, the summary line and the time
// lines.
#include "service/vek_serv_message.h"

#include <cstdio>
#include <cstring>

namespace {

// Row of the message table for an internal number; 0 when there is none.
int telmira_row(int number) {
  switch (number) {
    // Banners, one per matrix type.
    case -4: return 883;
    case -2: return 881;
    case 1: return 885;
    case 2: return 880;
    case 3: return 886;
    case 4: return 882;
    case 6: return 884;
    case 11: return 887;
    case 13: return 888;
    // Report headings.
    case 101: return 899;
    case 102: return 898;
    case 103: return 913;
    case 104: return 897;
    case 134: return 944;
    case 136: return 946;
    case 138: return 948;
    case 140: return 952;
    case 141: return 953;
    case 401: return 809;
    case 402: return 810;
    case 440: return 843;
    case 441: return 844;
    case 460: return 1002;
    case 461: return 1003;
    case 462: return 1004;
    default: break;
  }
  if (number >= 105 && number <= 114) return number + 809;
  if (number >= 116 && number <= 133) return number + 809;
  if (number >= 405 && number <= 430) return number + 406;
  if (number >= 433 && number <= 438) return number + 404;
  if (number >= 443 && number <= 452) return number + 402;
  if (number >= 501 && number <= 512) return number + 354;
  if (number >= 601 && number <= 613) return number + 266;
  return 0;
}

const int row_unknown = 808;

void print_unknown(int number) {
  const std::intptr_t word = number;
  vek_serv_print_message_words(row_unknown, 1, &word);
}

// Word of the summary line for a phase digit; empty for other values.
const char *phase_word(std::intptr_t digit) {
  if (digit >= 1 && digit <= 4)
    return vek_serv_format_message(889 + static_cast<int>(digit), 0);
  return "";
}

// Label and value of a time line, printed as one line.
void print_time_line(int label_row, int value_row, int count,
                     const double *values) {
  char value[VEK_MESSAGE_BUFFER + 1];
  vek_serv_format_reals(value, sizeof(value),
                        vek_serv_format_message(value_row, 0), count, values);
  std::printf("%s%s\n", vek_serv_format_message(label_row, 0), value);
  std::fflush(nullptr);
}

}  // namespace

extern "C" void telmira_message(const int *number, const int *count,
                                const std::intptr_t *args) {
  if (*number == 0) {
    // The summary line: "Summary TELMIRA: ( first to last )".
    char line[VEK_MESSAGE_BUFFER + 1];
    std::snprintf(line, sizeof(line), "%s", vek_serv_format_message(889, 0));
    std::size_t used = std::strlen(line);
    std::snprintf(line + used, sizeof(line) - used, "%s", phase_word(args[0]));
    if (*count == 2) {
      used = std::strlen(line);
      std::snprintf(line + used, sizeof(line) - used, "%s%s",
                    vek_serv_format_message(894, 0), phase_word(args[1]));
    }
    used = std::strlen(line);
    std::snprintf(line + used, sizeof(line) - used, "%s",
                  vek_serv_format_message(895, 0));
    std::printf("%s\n", line);
    std::fflush(nullptr);
    vek_serv_print_message(0, 896, 0);
    vek_serv_print_message(0, 0, 0);
    return;
  }
  int row = telmira_row(*number);
  if (row == 0) {
    print_unknown(*number);
    return;
  }
  if (*count < 0 || *count > 4) return;
  vek_serv_print_message_words(row, *count, args);
}

extern "C" void telmira_message_real(const int *number, const int *count,
                                     const double *values) {
  int n = *number;
  if (n >= 111 && n <= 120) {
    print_time_line(900 + n - 111, 911, 2, values);
  } else if (n >= 131 && n <= 140) {
    print_time_line(900 + n - 131, 912, 1, values);
  } else if (n == 215 || n == 240 || n == 241 || n == 242) {
    int row = n == 215 ? 924 : 949 + (n - 240);
    vek_serv_print_message_reals(row, *count, values);
    vek_serv_print_message(0, 0, 0);
  } else {
    print_unknown(n);
  }
}

extern "C" void telmira_message_timed(const int *number, const double *seconds,
                                      const int *iterations) {
  int n = *number;
  if (n < 111 || n > 120) {
    print_unknown(n);
    return;
  }
  char value[VEK_MESSAGE_BUFFER + 1];
  const double values[2] = {*seconds, static_cast<double>(*iterations)};
  vek_serv_format_reals(value, sizeof(value), vek_serv_format_message(910, 0),
                        2, values);
  std::printf("%s%s\n", vek_serv_format_message(900 + n - 111, 0), value);
  std::fflush(nullptr);
  vek_serv_print_message(0, 0, 0);
}

extern "C" void telmira_newline() { vek_serv_print_message(0, 0, 0); }
