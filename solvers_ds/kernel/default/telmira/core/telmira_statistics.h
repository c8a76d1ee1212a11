// telmira_statistics.h - the report at the end of a call: banner, summary of
// the phases, time table, out-of-core figures and the structure statistics
// of the analysis. Every line goes out through the solver's message numbers.
#ifndef TELMIRA_STATISTICS_H
#define TELMIRA_STATISTICS_H

// Banner of the matrix type comi(12) when comi(11) > 0: an empty line and
// the banner line.
void telmira_banner(const int *comi);

// The report at the end of a call. The timers are closed whatever the
// message level: comr[8] gains the time since the end of the last stage
// (comr[15]), comr[9] turns from the clock at the start of the call into
// the call's duration, and timer flag 10 is set; in out-of-core mode 2 the
// duration is added to ooc_r(4). With comi(11) above 0 the report follows.
//
// phase: the call's phase (ido, with 331..333 as 33); entries: ia(neqns+1)-1
// of this call; timer_flags: 10 flags, index 0 for flag 1, set by the stages
// of this call. ooc_l: 128 ints (OOCL(k)); ooc_r: 128 values, double when
// comi(90) is 0, float when it is 1; both may be null (no out-of-core block).
void telmira_statistics(const int *phase, const int *matrix_number,
                        const int *neqns, const int *nb, const int *entries,
                        const int *iparam, int *comi, double *comr,
                        int *timer_flags, int *ooc_l, void *ooc_r);

// The out-of-core lines: which 1 = the two factorization lines (write and
// read times), 2 = the solution line, 3 = the table of percentages and
// transferred megabytes. precision: 0 when ooc_r holds doubles, 1 floats.
void ooc_statistics(int which, int *ooc_l, const void *ooc_r, int precision);

#endif
