// factor_progress.h - the progress of a numeric factorization: the reports
// through the progress hook ("Telmira: factorization phase"), and at
// message level 1 message 804 and one line " p % " per report.
#ifndef TELMIRA_FACTOR_PROGRESS_H
#define TELMIRA_FACTOR_PROGRESS_H

struct factor_progress {
  int last;   // last per cent reported, -1 before the first
  int talk;   // message level above 0
};

// Message 804 and the report of 0. Returns the hook's answer (non-zero:
// stop).
int factor_progress_start(factor_progress *p, int msglvl);
// Reports percent when it rises above the last report. Returns the hook's
// answer, 0 when nothing was reported.
int factor_progress_step(factor_progress *p, int percent);
// The report of 100 and the closing line. Returns the hook's answer.
int factor_progress_end(factor_progress *p);

#endif
