// fuzz_telmira.h - a seeded random driver for the entry telmira: random and
// mutated matrices, sequences of phases, garbage in the control array, all
// message levels, the matrix check on and off. Every call must end with an
// error number or with a solution whose backward error is small; the
// library's heap blocks must all be back after the release of a handle.
#ifndef VEK_FUZZ_TELMIRA_H
#define VEK_FUZZ_TELMIRA_H

#include <cstdint>
#include <string>

namespace vektest {

// A fresh temporary folder for the out-of-core files of this process, put
// in VEK_TELMIRA_OOC_PATH unless the caller set that: test programs that
// run side by side then never share "ooc_temp" files. Removed at the end.
class ooc_scratch {
 public:
  ooc_scratch();
  ~ooc_scratch();
  ooc_scratch(const ooc_scratch &) = delete;
  ooc_scratch &operator=(const ooc_scratch &) = delete;

 private:
  std::string dir_;
};

struct fuzz_options {
  long calls = 10000;           // calls of telmira to make, releases included
  std::uint64_t seed = 1;       // case k runs on seed + k
  long first_case = 0;          // skip to this case (to replay one)
  long only_cases = -1;         // stop after this many cases (-1: by calls)
  int max_n = 60;               // largest order of the small matrices
  double call_limit_s = 60.0;   // a call that runs longer is a hang
  bool quiet_output = true;     // the solver's own report goes to /dev/null
  bool verbose = false;         // one line per case on stderr
};

struct fuzz_result {
  long calls = 0, cases = 0;
  long successes = 0;           // calls that returned 0
  long verified = 0;            // solutions checked against the matrix
  long errors[16] = {0};        // calls that returned -1 .. -15
  long failures = 0;            // wrong answers, leaks, bad releases
  std::string first_failure;    // what went wrong first, with its case
};

// Runs the cases; returns the number of failures (also in result).
long fuzz_telmira(const fuzz_options &options, fuzz_result *result);

// One line of figures for a report.
std::string fuzz_summary(const fuzz_result &result);

}  // namespace vektest

#endif
