// factor_progress.cpp - the progress of a numeric factorization.
#include "factor_progress.h"

#include <cstdio>

#include "service/vek_serv_message.h"
#include "service/vek_serv_threads.h"

namespace {

const char progress_text[] = "Telmira: factorization phase";
const int progress_len = 28;

int report(int percent) {
  int thread = 1, step = percent;
  return vek_serv_progress(&thread, &step, progress_text, progress_len);
}

}  // namespace

int factor_progress_start(factor_progress *p, int msglvl) {
  p->last = -1;
  p->talk = msglvl > 0;
  if (p->talk) vek_serv_print_message(0, 804, 0);
  return report(0);
}

int factor_progress_step(factor_progress *p, int percent) {
  if (percent <= p->last) return 0;
  p->last = percent;
  if (p->talk) {
    std::printf(" %d %% \n", percent);
    std::fflush(nullptr);
  }
  return report(percent);
}

int factor_progress_end(factor_progress *p) {
  if (p->talk) {
    std::printf(" 100 %% \n \n ");
    std::fflush(nullptr);
  }
  return report(100);
}
