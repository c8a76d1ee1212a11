// vek_serv.h - all runtime services of the library.
#ifndef VEK_SERV_H
#define VEK_SERV_H
#include "service/vek_serv_clock.h"
#include "service/vek_serv_cpu.h"
#include "service/vek_serv_memory.h"
#include "service/vek_serv_threads.h"
#endif
