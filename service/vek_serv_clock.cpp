// vek_serv_clock.cpp - the one clock of the library.
//
// Seconds are read from the processor's time stamp counter, divided by its
// rate. The rate is measured once per process, at the first read, against
// the performance counter over a busy wait of a tenth of a second; after
// that a read is one counter read, one conversion and one division, with no
// system call, cheap enough to time each out-of-core record transfer.
#include "service/vek_serv_clock.h"

#include "platform/vek_platform.h"

#include <atomic>
#include <cstdint>

namespace {

// Process-wide values without a lock: should two threads make the first read
// at once, both calibrate and both store, and the results differ only by the
// measurement. The flag is set with release order after the rate, so a
// reader that finds it set finds the rate too.
double counter_rate = -1.0;       // time stamp ticks per second
std::atomic<int> calibrated{0};   // 1 once counter_rate holds a measured value

// A 64-bit counter as a double: high word * 65536 * 65536 + low word, the
// low word taken as unsigned.
double counter_to_double(std::int64_t v) {
  std::int32_t high = static_cast<std::int32_t>(v >> 32);
  std::uint32_t low = static_cast<std::uint32_t>(v & 0xffffffffu);
  return static_cast<double>(high) * 65536.0 * 65536.0 +
         static_cast<double>(low);
}

void calibrate() {
  std::int64_t f = 0, q0 = 0, q1 = 0;
  if (!vek_os_perf_frequency(&f)) f = 0;
  if (!vek_os_perf_counter(&q0)) q0 = 0;
  std::uint64_t t0 = vek_os_rdtsc();
  double c0 = vek_os_clock_ms();

  // Busy wait: a tenth of a second of the host's clock. A host whose clock
  // doesn't run (the C runtime's clock() then answers -1) waits on the
  // performance counter instead, and one without either measures nothing.
  if (c0 >= 0.0) {
    while (vek_os_clock_ms() - c0 < 100.0) {
    }
  } else if (f > 0) {
    std::int64_t q = q0;
    while (vek_os_perf_counter(&q) && q - q0 < f / 10) {
    }
  }

  if (!vek_os_perf_counter(&q1)) q1 = q0;
  std::uint64_t t1 = vek_os_rdtsc();

  double dq = counter_to_double(q1) - counter_to_double(q0);
  double rate = 1.0e9;  // one tick a nanosecond, where nothing was measured
  if (!(dq < 0.0001) && f != 0 && t1 != t0) {
    double dt = static_cast<double>(t1) - static_cast<double>(t0);
    rate = dt / (dq / static_cast<double>(f));
    if (!(rate > 0.0)) rate = 1.0e9;  // a counter that ran backwards
  }
  counter_rate = rate;
  calibrated.store(1, std::memory_order_release);
}

}  // namespace

double vek_serv_seconds() {
  if (!calibrated.load(std::memory_order_acquire)) calibrate();
  return static_cast<double>(vek_os_rdtsc()) / counter_rate;
}

extern "C" void telmira_clock(double *seconds) { *seconds = vek_serv_seconds(); }

double vek_serv_partitioner_seconds() { return vek_os_clock_ms() / 1000.0; }
