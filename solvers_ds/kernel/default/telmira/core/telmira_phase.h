// telmira_phase.h - the phase code of a call, decoded once.
//
// ido names the phases to run: its tens digit the first, its units digit
// the last (1 analysis, 2 factorization, 3 solve); 331, 332 and 333 are the
// forward, diagonal and backward sub-steps of a solve; 0 and -1 release.
#ifndef TELMIRA_PHASE_H
#define TELMIRA_PHASE_H

namespace tlm {

struct phase_code {
  int code;     // ido, with 331 to 334 taken as 33
  int first;    // first phase: 1, 2 or 3 (0 for the releases)
  int last;     // last phase
  int substep;  // 1, 2 or 3 for ido 331 to 333, else 0

  bool analyses() const { return first == 1; }
  bool factorizes() const { return first <= 2 && last >= 2; }
  bool solves() const { return last == 3; }
  // A whole solve, as opposed to one of its sub-steps.
  bool whole_solve() const { return last == 3 && substep == 0; }
};

inline phase_code decode_phase(int ido) {
  phase_code p{};
  p.code = (ido >= 331 && ido <= 334) ? ido / 10 : ido;
  p.first = p.code > 0 ? p.code / 10 : 0;
  p.last = p.code > 0 ? p.code % 10 : 0;
  p.substep = (ido >= 331 && ido <= 333) ? ido % 10 : 0;
  return p;
}

}  // namespace tlm

#endif
