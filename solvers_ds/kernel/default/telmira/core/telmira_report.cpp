// telmira_report.cpp - the printed report of a failed call: the header
// line of the error number and the lines of its status, in the solver's
// internal message numbers.
#include "telmira_report.h"
#include "telmira_slots.h"
#include "telmira_storage.h"

#include "service/vek_serv_message.h"

namespace {

void say(int number, int count = 0, std::intptr_t a0 = 0, std::intptr_t a1 = 0,
         std::intptr_t a2 = 0) {
  const std::intptr_t args[3] = {a0, a1, a2};
  telmira_message(&number, &count, args);
}

// The four summary lines behind a refused parameter.
void say_summary(int status, int max_fac_store, int matrix_number,
                 int matrix_type, int ido, int neqns, int entries, int nb) {
  say(425, 2, status, max_fac_store);
  say(426, 2, matrix_number, matrix_type);
  say(427, 2, ido, neqns);
  say(428, 2, entries, nb);
}

// Internal message of the allocation line for an allocation status: 600
// plus the hundreds of the status, so that -201 and -203 count as -200.
int allocation_message(int status) {
  int hundreds = (status < 0 ? -status : status) / 100;
  return 600 + hundreds;
}

}  // namespace

void telmira_report(int *error, const int *status, const int *comi,
                    const int *max_fac_store, const int *matrix_number,
                    const int *matrix_type, const int *ido, const int *phase,
                    const int *neqns, const int *nb, const int *entries,
                    const int *stored_entries, const int *iparam,
                    const std::int64_t *failed_size, const int *memory_sum) {
  const int e = *error;
  const int st = *status;
  if (comi != nullptr && COMI(CI_LIVE) < 0) {
    // A refused first call: no state had been made for it.
    say(401);
    say(402, 1, *phase);
    return;
  }

  say(e == -1 && st >= 21 && st <= 30 ? 512 : 500 - e, 1, st);

  const int stored_neqns = comi != nullptr ? COMI(CI_N) : 0;
  const int stored_type = comi != nullptr ? COMI(CI_MTYPE) : 0;
  const int stored_max = comi != nullptr ? COMI(CI_MAX_FAC_STORE) : 0;
  auto summary = [&]() {
    say_summary(st, *max_fac_store, *matrix_number, *matrix_type, *ido, *neqns,
                *entries, *nb);
  };

  switch (e) {
    case -1:
      switch (st) {
        case 100000: say(405); break;
        case 10000: say(406); break;
        case 1000: say(401); say(402, 1, *phase); break;
        case 100: say(409, 1, *matrix_number); break;
        case 2: say(412, 2, *max_fac_store, stored_max); summary(); break;
        case 3: say(413, 2, *max_fac_store, *matrix_number); summary(); break;
        case 4: say(414, 2, *matrix_number, *ido); summary(); break;
        case 15: say(416, 1, *matrix_type); summary(); break;
        case 5: say(415, 2, *matrix_type, stored_type); summary(); break;
        case 6: say(417, 2, *neqns, stored_neqns); summary(); break;
        case 7: say(418, 1, *neqns); summary(); break;
        case 8: say(419, 2, *entries, *stored_entries); summary(); break;
        case 9: say(420, 2, *nb, *ido); summary(); break;
        case 10: say(421, 1, CTRL(IP_OVER_B)); summary(); break;
        case 11: say(422, 1, CTRL(IP_METHOD)); summary(); break;
        case 20: say(429, 1, *phase); break;
        case 21: case 22: case 23: case 24:
          say(449 + st - 21, 3, CTRL(IP_CHECK_PLACE1), CTRL(IP_CHECK_PLACE2), CTRL(IP_CHECK_PLACE3));
          break;
        default: say(411, 1, *ido); summary(); break;
      }
      break;
    case -2:
      // A slot of the plan names its block; the scratch of a stage (status
      // -2 from the ordering or the column counts) has no line of its own.
      if (st <= -100) say(allocation_message(st), 1, static_cast<std::intptr_t>(*failed_size));
      say(433, 1, *memory_sum);
      say(434, 2, CTRL(IP_PEAK_KB), CTRL(IP_PERMANENT_KB));
      say(435, 1, CTRL(IP_NUMERIC_KB));
      break;
    case -3:
    case -8:
      say(436);
      break;
    case -4:
      if (st == -112) {
        say(437);
        say(438);
      }
      if (st == tlm::ST_NONFINITE_PIVOT)
        say(460);
      else if (st == tlm::ST_NONFINITE_SOLUTION)
        say(461);
      else if (st == tlm::ST_INACCURATE_SOLUTION)
        say(462);
      else if (st == -3 || CTRL(IP_CGS) < 0)
        say(441, 1, CTRL(IP_CGS));
      else if (st == -2)
        say(443);
      else if (*matrix_type == 2 || *matrix_type == 4)
        say(444);
      else
        say(445);
      break;
    case -5:
    case -10:
      say(446);
      break;
    case -6:
      say(447, 2, -st, stored_neqns);
      say(448);
      break;
    default:
      break;
  }
}
