// Tests of the clock: the calibration cost of the first read, the order of
// reads, and the rate checked against the system's monotonic clock. Under
// ctest each TEST runs in a process of its own, so each first read calibrates.
#include "service/vek_serv_clock.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <thread>

namespace {
double wall() {
  return std::chrono::duration<double>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}
}  // namespace

TEST(Clock, FirstReadCalibratesLaterReadsDoNot) {
  const std::clock_t p0 = std::clock();
  double w0 = wall();
  double s0 = vek_serv_seconds();
  double w1 = wall();
  const std::clock_t p1 = std::clock();
  double t = -1.0;
  telmira_clock(&t);
  double w2 = wall();
  double s1 = vek_serv_seconds();
  // The busy wait lasts 100 ms of processor time. That is the time of the
  // whole process: where the threads of a library loaded beside it spin
  // at start, the wall time of the wait is shorter.
  EXPECT_GE(static_cast<double>(p1 - p0) / CLOCKS_PER_SEC, 0.100);
  EXPECT_GE(w1 - w0, 0.100 / std::max(1u, std::thread::hardware_concurrency()));
  // A later read is a counter read; compared with the first, not with a
  // fixed time, so that a loaded machine does not fail it.
  EXPECT_LT(w2 - w1, 0.5 * (w1 - w0));
  EXPECT_GE(t, s0);
  EXPECT_LE(t, s1);
}

TEST(Clock, ReadsNeverGoBackwardsOnOneProcessor) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  sched_setaffinity(0, sizeof(one), &one);
  double prev = vek_serv_seconds();
  for (int i = 0; i < 10000; ++i) {
    double now = vek_serv_seconds();
    ASSERT_GE(now - prev, 0.0) << "read " << i;
    prev = now;
  }
}

// A wrong rate (inverted, or in the wrong unit) shows as an interval far
// from the one the system clock sees; the tolerance allows for the
// calibration on a loaded machine.
TEST(Clock, MeasuresAnIntervalInSeconds) {
  vek_serv_seconds();  // calibrate outside the interval
  for (int ms : {50, 200}) {
    double s0 = vek_serv_seconds(), w0 = wall();
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    double s1 = vek_serv_seconds(), w1 = wall();
    double ds = s1 - s0, dw = w1 - w0;
    EXPECT_GE(dw, ms / 1000.0);
    EXPECT_NEAR(ds, dw, 0.15 * dw + 0.005) << "sleep of " << ms << " ms";
  }
}
