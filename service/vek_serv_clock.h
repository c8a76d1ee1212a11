// vek_serv_clock.h - the one clock of the library, in seconds.
#ifndef VEK_SERV_CLOCK_H
#define VEK_SERV_CLOCK_H

double vek_serv_seconds();
extern "C" void telmira_clock(double *seconds);
// Processor time of the graph partitioner, in seconds.
double vek_serv_partitioner_seconds();

#endif
