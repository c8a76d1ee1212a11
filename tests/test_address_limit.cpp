// test_address_limit.cpp - a threaded solve under a limit on the address
// space. Each thread that enters the dense routines maps a large buffer of
// its own; where the limit leaves no room for one, the factorization must
// run on fewer threads (and say so at message level 1) instead of waiting
// for ever. Every run goes on in a child process under setrlimit, watched
// by a timeout, and must end with error 0 and a solution that satisfies
// the system, or with error -2.
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "test_system.h"

namespace {

long virtual_bytes() {
  long pages = 0;
  if (std::FILE *f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld", &pages) != 1) pages = 0;
    std::fclose(f);
  }
  return pages * sysconf(_SC_PAGESIZE);
}

struct outcome {
  bool ended = false;
  int error = 1;
  double residual = -1.0;
  bool fewer = false;  // the message of the reduced team was printed
};

// lap3d:30 solved on two threads in a child whose address space is held to
// what it uses after building the system plus room_mb (0: no limit).
outcome limited_solve(long room_mb) {
  int fds[2];
  if (pipe(fds) != 0) return {};
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    vektest::use_threads(2);
    vektest::system s(vekio::lap3d(30), 2);
    s.msglvl = 1;
    if (room_mb > 0) {
      rlimit lim{};
      getrlimit(RLIMIT_AS, &lim);
      lim.rlim_cur = static_cast<rlim_t>(virtual_bytes() + (room_mb << 20));
      setrlimit(RLIMIT_AS, &lim);
    }
    const std::string printed = s.call_printing(13);
    const double residual = s.error == 0 ? s.residual(s.x) : -1.0;
    const bool fewer = printed.find("factorizes on 1 of the 2 threads") != std::string::npos;
    dprintf(fds[1], "%d %.3e %d\n", s.error, residual, fewer ? 1 : 0);
    close(fds[1]);
    _exit(0);
  }
  close(fds[1]);
  outcome o;
  std::string text;
  for (;;) {
    pollfd p{fds[0], POLLIN, 0};
    if (poll(&p, 1, 120000) <= 0) break;  // silence for two minutes: a hang
    char buffer[256];
    const ssize_t got = read(fds[0], buffer, sizeof(buffer));
    if (got <= 0) {
      o.ended = true;
      break;
    }
    text.append(buffer, static_cast<std::size_t>(got));
  }
  close(fds[0]);
  if (!o.ended) kill(pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  int fewer = 0;
  if (std::sscanf(text.c_str(), "%d %lf %d", &o.error, &o.residual, &fewer) != 3) o.ended = false;
  o.fewer = fewer != 0;
  return o;
}

TEST(AddressLimit, TwoThreadsUnderATightLimitEndWithAnAnswer) {
  // Without a limit both threads run.
  const outcome free_run = limited_solve(0);
  ASSERT_TRUE(free_run.ended);
  EXPECT_EQ(free_run.error, 0);
  EXPECT_LE(free_run.residual, 1e-10);
  EXPECT_FALSE(free_run.fewer);

  // Room for the factors and one dense buffer, not for two; then not even
  // for the installed BLAS's first buffer, which it used to retry for ever:
  // the own dense routines take over.
  for (long room_mb : {100L, 160L, 260L, 320L}) {
    SCOPED_TRACE(::testing::Message() << "room " << room_mb << " MB");
    const outcome o = limited_solve(room_mb);
    std::printf("room %ld MB: error %d, residual %.1e, %s\n", room_mb, o.error, o.residual,
                o.fewer ? "one thread" : "both threads");
    ASSERT_TRUE(o.ended) << "no end within the timeout";
    EXPECT_TRUE(o.error == 0 || o.error == -2) << o.error;
    if (o.error == 0) {
      EXPECT_LE(o.residual, 1e-10);
      EXPECT_TRUE(o.fewer);
    }
  }
}

}  // namespace
