// vek_fuzz.cpp - the long run of the random driver on the entry:
//   vek-fuzz [--calls N] [--seed S] [--case K] [--from K] [--max-n N] [--verbose]
// --case K replays case K alone (with the seed of the run that failed);
// --from K starts the run at case K.
// Exit status 0 when every call ended with an error number or a correct
// answer and every handle gave all back; 1 otherwise; a hang aborts.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_telmira.h"

int main(int argc, char **argv) {
  vektest::fuzz_options o;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const char *value = i + 1 < argc ? argv[i + 1] : nullptr;
    if (arg == "--calls" && value) { o.calls = std::atol(value); ++i; }
    else if (arg == "--seed" && value) { o.seed = std::strtoull(value, nullptr, 10); ++i; }
    else if (arg == "--case" && value) { o.first_case = std::atol(value); o.only_cases = 1; ++i; }
    else if (arg == "--from" && value) { o.first_case = std::atol(value); ++i; }
    else if (arg == "--max-n" && value) { o.max_n = std::atoi(value); ++i; }
    else if (arg == "--verbose") { o.verbose = true; }
    else if (arg == "--show-output") { o.quiet_output = false; }
    else {
      std::fprintf(stderr, "usage: vek-fuzz [--calls N] [--seed S] [--case K] [--from K] [--max-n N] [--verbose] [--show-output]\n");
      return 2;
    }
  }
  if (o.max_n < 2) o.max_n = 2;
  vektest::fuzz_result r;
  vektest::fuzz_telmira(o, &r);
  std::printf("%s\n", vektest::fuzz_summary(r).c_str());
  if (r.failures) std::printf("first failure: %s\n", r.first_failure.c_str());
  return r.failures ? 1 : 0;
}
