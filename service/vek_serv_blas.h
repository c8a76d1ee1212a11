// vek_serv_blas.h - the host's thread setting of the installed BLAS, kept
// across the library's public calls.
//
// The installed BLAS has one process-wide thread count, which the dense
// layer sets for the solver's work. A host that uses the same BLAS must find
// its own setting unchanged after a call of the library: a guard at each
// public entry saves the setting when the call begins and restores it when
// the call ends.
//
// The dense layer remembers the count it set last and sets the library only
// when its wish differs. So that this memory stays true, the guard puts the
// setting that the library's own work left behind back in place at the
// start of the next call, before the dense layer runs; the host never sees
// it. Guards nest: only the outermost one of a thread acts.
#ifndef VEK_SERV_BLAS_H
#define VEK_SERV_BLAS_H

class vek_serv_blas_guard {
 public:
  vek_serv_blas_guard();
  ~vek_serv_blas_guard();
  vek_serv_blas_guard(const vek_serv_blas_guard &) = delete;
  vek_serv_blas_guard &operator=(const vek_serv_blas_guard &) = delete;

 private:
  int saved_;  // the host's count, or 0 when this guard does nothing
};

// The installed BLAS's thread count, 0 when it has no such control.
int vek_serv_blas_get_threads();

#endif
