// telmira_statistics.cpp - the report at the end of a call, in the solver's
// internal message numbers: banner, summary of the phases, time table with
// the out-of-core lines, and the statistics of the analysis.
#include "telmira_statistics.h"
#include "telmira_slots.h"

#include "telmira_phase.h"

#include <cstdint>

#include "service/vek_serv_clock.h"
#include "service/vek_serv_message.h"
#include "telmira_storage.h"

namespace {

// Timer flags, one per line of the time table.
constexpr int timer_flag_count = 10;

void say(int number, int count = 0, std::intptr_t a0 = 0,
         std::intptr_t a1 = 0) {
  const std::intptr_t args[2] = {a0, a1};
  telmira_message(&number, &count, args);
}

void say_real(int number, double value) {
  const int count = 1;
  telmira_message_real(&number, &count, &value);
}

// Message-table rows, printed directly, for the out-of-core lines.
void row(int number) { vek_serv_print_message(0, number, 0); }
void row_int(int number, int value) {
  const std::intptr_t word = value;
  vek_serv_print_message_words(number, 1, &word);
}
void row_real(int number, double value) {
  vek_serv_print_message_reals(number, 1, &value);
}

// ooc_r(k), one-based, in the precision of the handle.
double ooc_value(const void *ooc_r, int precision, int k) {
  if (precision == 1) return static_cast<const float *>(ooc_r)[k - 1];
  return static_cast<const double *>(ooc_r)[k - 1];
}

void ooc_add(void *ooc_r, int precision, int k, double value) {
  if (precision == 1)
    static_cast<float *>(ooc_r)[k - 1] += static_cast<float>(value);
  else
    static_cast<double *>(ooc_r)[k - 1] += value;
}

// A byte counter of ooc_l, read as an unsigned 32-bit number.
double ooc_bytes(const int *ooc_l, int k) {
  const double v = OOCL(k);
  return v < 0.0 ? v + 4294967296.0 : v;
}

// The shares of file I/O in the factorization, the solve and the whole
// call, in whole percent, into ooc_l(13) to ooc_l(16).
void ooc_percentages(const double *comr, int *ooc_l, const void *ooc_r,
                     int precision) {
  const double write = ooc_value(ooc_r, precision, 1);
  const double read_fact = ooc_value(ooc_r, precision, 2);
  const double read_solve = ooc_value(ooc_r, precision, 3);
  const double total = ooc_value(ooc_r, precision, 4);
  if (comr[5] > 0.0) {
    OOCL(OL_WRITE_PCT) = static_cast<int>(100.0 * write / comr[5]);
    OOCL(OL_READ_PCT) = static_cast<int>(100.0 * read_fact / comr[5]);
  }
  if (comr[6] > 0.0) OOCL(OL_READ_SOLVE_PCT) = static_cast<int>(100.0 * read_solve / comr[6]);
  if (total > 0.0)
    OOCL(OL_IO_PCT) = static_cast<int>(100.0 * (write + read_fact + read_solve) / total);
}

}  // namespace

void telmira_banner(const int *comi) {
  if (COMI(CI_MSGLVL) <= 0) return;
  telmira_newline();
  say(COMI(CI_MTYPE));  // the banner's internal number is the matrix type
}

void ooc_statistics(int which, int *ooc_l, const void *ooc_r, int precision) {
  if (ooc_l == nullptr) return;
  switch (which) {
    case 1:
      if (ooc_r == nullptr) return;
      row_real(779, ooc_value(ooc_r, precision, 1));
      row_real(780, ooc_value(ooc_r, precision, 2));
      return;
    case 2:
      if (ooc_r == nullptr) return;
      row_real(781, ooc_value(ooc_r, precision, 3));
      return;
    case 3: {
      row(782);
      row(783);
      row(784);
      row_int(785, OOCL(OL_WRITE_PCT));
      row_int(786, OOCL(OL_READ_PCT));
      row_int(787, 100 - OOCL(OL_READ_PCT) - OOCL(OL_WRITE_PCT));
      row(791);
      row_int(786, OOCL(OL_READ_SOLVE_PCT));
      row_int(792, 100 - OOCL(OL_READ_SOLVE_PCT));
      row(794);
      row_int(786, OOCL(OL_IO_PCT));
      row_int(795, 100 - OOCL(OL_IO_PCT));
      row(797);
      row(798);
      const double written = ooc_bytes(ooc_l, 8);
      const double read_fact = ooc_bytes(ooc_l, 9);
      const double read_solve = ooc_bytes(ooc_l, 10);
      row_real(799, written / 1000000.0);
      row_real(800, read_fact / 1000000.0);
      row(801);
      row_real(800, read_solve / 1000000.0);
      row(802);
      row_real(803, (written + read_fact + read_solve) / 1000000.0);
      row(782);
      return;
    }
    default:
      return;
  }
}

void telmira_statistics(const int *phase, const int *matrix_number,
                        const int *neqns, const int *nb, const int *entries,
                        const int *iparam, int *comi, double *comr,
                        int *timer_flags, int *ooc_l, void *ooc_r) {
  telmira_banner(comi);

  // Close the timers of the call, whatever the message level.
  double now = 0.0;
  telmira_clock(&now);
  comr[8] += now - comr[15];
  comr[9] = now - comr[9];
  const int precision = COMI(CI_PRECISION);
  const bool ooc = ooc_l != nullptr && ooc_r != nullptr && OOCL(OL_MODE) == 2;
  if (ooc) ooc_add(ooc_r, precision, 4, comr[9]);
  timer_flags[9] = 1;

  if (COMI(CI_MSGLVL) <= 0) return;
  const tlm::phase_code pc = tlm::decode_phase(*phase);
  const int first = pc.first;
  const int last = pc.last;
  telmira_newline();
  telmira_newline();

  if (*phase < 1) {
    // Only a release of one factorization comes here.
    say(0, 1, 4);
    say(140, 1, *matrix_number);
    telmira_newline();
    return;
  }

  say(0, 2, first, last);  // summary line, its underline and an empty line
  say(101);                // "Times:"
  say(102);

  // The time table: one line per flag that this call set. Lines 131..140
  // carry one time; the cgs line adds the iteration count, the total line
  // the part of the call that no stage accounts for.
  double sum = 0.0;
  for (int flag = 1; flag <= timer_flag_count; ++flag) {
    if (timer_flags[flag - 1] == 0) continue;
    const double seconds = comr[flag - 1];
    if (flag == 8) {
      const int number = 118;
      telmira_message_timed(&number, &seconds, &CTRL(IP_CGS));
    } else if (flag == 10) {
      const double values[2] = {seconds, seconds - sum};
      const int number = 120, count = 2;
      telmira_message_real(&number, &count, values);
    } else {
      if (ooc) {
        ooc_percentages(comr, ooc_l, ooc_r, precision);
        if (flag == 6) ooc_statistics(1, ooc_l, ooc_r, precision);
        if (flag == 7) ooc_statistics(2, ooc_l, ooc_r, precision);
      }
      say_real(130 + flag, seconds);
    }
    sum += seconds;
  }
  if (ooc && last == 3) ooc_statistics(3, ooc_l, ooc_r, precision);

  telmira_newline();
  say(103);  // "Statistics:"
  say(104);
  say(105, 1, COMI(CI_THREADS));
  // The hybrid line when the iteration ran in this call.
  if (COMI(CI_ITERATION) != 0 && timer_flags[7] != 0)
    say(106);
  else if (COMI(CI_ONE_THREAD) == 0)
    say(107);
  else if (COMI(CI_ONE_THREAD) == 1)
    say(108);

  telmira_newline();
  say(COMI(CI_TRANSPOSED) == 0 ? 109 : 110);
  say(112, 1, *neqns);
  say(114, 1, *entries);
  // Density of A in percent; an empty system has none.
  const double n = *neqns;
  say_real(215, n > 0.0 ? 100.0 * *entries / (n * n) : 0.0);
  say(117, 1, *nb);

  telmira_newline();
  say(118);  // " < Factors L and U > "
  if (COMI(CI_METHOD) == 0) {
    say(119);
    say(120);
  }
  say(122, 1, COMI(CI_PANEL));
  say(124, 1, COMI(CI_SUBGRAPHS));
  if (COMI(CI_PERM_MODE) > 0) {
    say(129);
  } else if (COMI(CI_METHOD) == 1) {
    say(125);
    if (COMI(CI_SEPFLAG) == 1) say(126);
    if (COMI(CI_SEPFLAG) == 0) say(127);
  } else if (COMI(CI_METHOD) == 2) {
    say(128);
  }
  say(131, 1, COMI(CI_NSUPER));
  say(133, 1, COMI(CI_WIDEST));
  say(134, 1, COMI(CI_LNZ_LEN));
  say(136, 1, COMI(CI_UNZ_LEN));
  const std::int64_t l_and_u =
      static_cast<std::int64_t>(COMI(CI_LNZ_LEN)) + static_cast<std::int64_t>(COMI(CI_UNZ_LEN));
  say(138, 1, static_cast<std::intptr_t>(l_and_u));

  if (*phase > 11) {
    say_real(240, comr[14] * 0.001);
    if (comr[5] > 0.0) say_real(241, comr[14] / comr[5] * 0.001);
    if (comr[16] > 0.0) say_real(242, comr[16]);
  }
}
