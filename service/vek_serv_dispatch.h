// vek_serv_dispatch.h - dispatch stubs: one per dense kernel operation.
//
// A stub owns one process-wide routine pointer, null at start, and knows the
// addresses of the variants of its operation, for the processor types 0, 2,
// 3, 4 and 5, and 6 (AVX2 with FMA) and 7 (AVX-512). A family without
// variants of its own for 6 and 7 names five: type 6 then takes the variant
// of type 5, and type 7 that of type 6. Its first call asks vek_serv_cpu_detect for the type and
// stores the variant's address; every call then goes through the pointer
// with the caller's arguments unchanged (hidden lengths of character
// arguments are ordinary trailing parameters of the signature). The fast
// path is one load, one test and an indirect call. Two threads resolving
// the same stub at once store the same value, so no lock is needed.
//
// A kernel family declares a stub by naming its variants, and publishes it
// under the operation's name:
//
//   void dswap(const int *n, double *x, const int *incx, double *y,
//              const int *incy) {
//     vek_serv_stub<dswap_t0, dswap_t2, dswap_t3, dswap_t4, dswap_t5>::call(
//         n, x, incx, y, incy);
//   }
//
// All variants must have the same signature; the stub has exactly that
// signature too.
#ifndef VEK_SERV_DISPATCH_H
#define VEK_SERV_DISPATCH_H

#include "service/vek_serv_cpu.h"

template <auto V0, auto V2, auto V3, auto V4, auto V5, auto V6 = V5,
          auto V7 = V6>
struct vek_serv_stub;

template <typename R, typename... A, R (*V0)(A...), R (*V2)(A...),
          R (*V3)(A...), R (*V4)(A...), R (*V5)(A...), R (*V6)(A...),
          R (*V7)(A...)>
struct vek_serv_stub<V0, V2, V3, V4, V5, V6, V7> {
  typedef R (*routine_type)(A...);

  // The resolved variant; null until the first call.
  static inline routine_type routine = nullptr;

  // The variant of a processor type. Type 1 and types above 7 never come
  // from the detection; they fall back to the plain variant.
  static routine_type variant(int type) {
    switch (type) {
      case 2: return V2;
      case 3: return V3;
      case 4: return V4;
      case 5: return V5;
      case 6: return V6;
      case 7: return V7;
      default: return V0;
    }
  }

  static R call(A... args) {
    routine_type f = __atomic_load_n(&routine, __ATOMIC_RELAXED);
    if (f == nullptr) {
      f = variant(vek_serv_cpu_detect());
      __atomic_store_n(&routine, f, __ATOMIC_RELAXED);
    }
    return f(args...);
  }
};

#endif
