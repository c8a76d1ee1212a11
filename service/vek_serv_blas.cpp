// vek_serv_blas.cpp - the guard of the host's BLAS thread setting.
#include "service/vek_serv_blas.h"

#include <atomic>

#include "platform/vek_platform.h"

namespace {

typedef int (*getter_fn)();
typedef void (*setter_fn)(int);

struct blas_control {
  getter_fn get;
  setter_fn set;
};

// The installed library's own thread control, when it has one (looked up
// by name among the loaded libraries, as the dense layer does).
const blas_control &control() {
  static const blas_control c = {
      reinterpret_cast<getter_fn>(vek_os_find_symbol("openblas_get_num_threads")),
      reinterpret_cast<setter_fn>(vek_os_find_symbol("openblas_set_num_threads"))};
  return c;
}

// Depth of the guards on this thread.
thread_local int guard_depth = 0;

// The setting that the library's work left at the end of its last call, 0
// before the first.
std::atomic<int> library_setting{0};

}  // namespace

int vek_serv_blas_get_threads() {
  const blas_control &c = control();
  return c.get != nullptr ? c.get() : 0;
}

vek_serv_blas_guard::vek_serv_blas_guard() : saved_(0) {
  if (guard_depth++ != 0) return;
  const blas_control &c = control();
  if (c.get == nullptr || c.set == nullptr) return;
  saved_ = c.get();
  const int own = library_setting.load(std::memory_order_relaxed);
  if (own > 0 && own != saved_) c.set(own);
}

vek_serv_blas_guard::~vek_serv_blas_guard() {
  --guard_depth;
  if (saved_ <= 0) return;
  const blas_control &c = control();
  const int own = c.get();
  library_setting.store(own, std::memory_order_relaxed);
  if (own != saved_) c.set(saved_);
}
