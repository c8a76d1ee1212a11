// vek_serv_threads.cpp - thread control.
//
// A small table of process-wide settings, filled from the environment at the
// first getter, a count of the physical cores, and the rule that turns both
// into the number of threads a parallel region may use.
#include "service/vek_serv_threads.h"

#include "platform/vek_platform.h"

#include <omp.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>

namespace {

// Settings of the process, all 32-bit. Below 1 means "not set" for the
// thread counts; -1 means "not decided" for the others.
struct thread_settings {
  int mpi_override;        // -1 automatic, 0 force one thread, 1 no limit
  int all_threads;         // domain 0
  int blas_threads;        // domain 1
  int fft_threads;         // domain 2
  int vml_threads;         // domain 3
  int physical_cores;
  int logical_processors;
  int mpi_procs_per_node;
  int omp_num_threads;
  int mpi_thread_level;    // 0..3
  int dynamic;             // -1 not decided, 1 on, 0 off
};

thread_settings ts = {-1, -1, -1, -1, -1, 1, 1, -1, -1, -1, -1};

// Cleared (with release order) only after the whole table is filled, so a
// getter that sees 0 sees the table.
std::atomic<int> init_pending{1};

vek_serv_progress_fn progress_hook = nullptr;

const int env_buffer_size = 256;

// Reads an environment variable into buf. Returns 1 when it is set and fits
// the buffer, 0 otherwise: a value that does not fit is ignored, and an empty
// value reads as unset, as it does through the platform call.
int read_env(const char *name, char *buf) {
  unsigned n = vek_os_getenv(name, buf, env_buffer_size);
  if (n == 0 || n >= static_cast<unsigned>(env_buffer_size)) {
    buf[0] = '\0';
    return 0;
  }
  return 1;
}

int *domain_slot(int domain) {
  switch (domain) {
    case 0: return &ts.all_threads;
    case 1: return &ts.blas_threads;
    case 2: return &ts.fft_threads;
    case 3: return &ts.vml_threads;
    default: return nullptr;
  }
}

int is_list_separator(char c) {
  return c == ' ' || c == ',' || c == ';' || c == ':' || c == '"' ||
         c == '\'';
}

void count_cores();

void initialise() {
  char buf[env_buffer_size];

  // 1. "VEK_NUM_THREADS"
  if (read_env("VEK_NUM_THREADS", buf)) {
    int n = vek_serv_thread_count_value(buf);
    if (n >= 1 && ts.all_threads < 0) ts.all_threads = n;
  }

  // 2. "VEK_DOMAIN_NUM_THREADS"
  if (read_env("VEK_DOMAIN_NUM_THREADS", buf)) {
    int *slots[4] = {&ts.all_threads, &ts.blas_threads, &ts.fft_threads,
                     &ts.vml_threads};
    vek_serv_parse_domain_list(buf, slots);
  }

  // 3. "VEK_DYNAMIC": on unless the text says FALSE or false.
  if (ts.dynamic == -1) {
    ts.dynamic = 1;
    if (read_env("VEK_DYNAMIC", buf)) ts.dynamic = vek_serv_dynamic_value(buf);
  }

  // 4. "OMP_NUM_THREADS": only whether it is given matters, in dynamic mode
  // under a message-passing runtime; the number itself comes from OpenMP.
  if (read_env("OMP_NUM_THREADS", buf)) {
    int n = vek_serv_thread_count_value(buf);
    if (n >= 1) ts.omp_num_threads = n;
  }

  // 5. "V_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE": digits only.
  if (read_env("V_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", buf) &&
      vek_serv_is_digits(buf)) {
    int n = vek_serv_thread_count_value(buf);
    if (n > 0) ts.mpi_procs_per_node = n;
  }

  // 6. "V_MPI_THREAD_LEVEL": 0 when set, the level when it reads 0..3.
  if (read_env("V_MPI_THREAD_LEVEL", buf)) {
    ts.mpi_thread_level = 0;
    if (vek_serv_is_digits(buf)) {
      int level = vek_serv_thread_count_value(buf);
      if (level >= 0 && level <= 3) ts.mpi_thread_level = level;
    }
  }

  // 7. The core count, in every case.
  count_cores();

  init_pending.store(0, std::memory_order_release);
}

inline void ensure_initialised() {
  if (init_pending.load(std::memory_order_acquire)) initialise();
}

// Initial APIC id of the processor the calling thread runs on; where the
// processor cannot tell, the processor's number stands in for it.
unsigned current_apic_id(int processor) {
  if (!vek_os_has_cpuid()) return static_cast<unsigned>(processor);
  unsigned r[4];
  vek_os_cpuid(1, 0, r);
  return (r[1] >> 24) & 0xffu;
}

void count_cores() {
  ts.physical_cores = 1;
  ts.logical_processors = 1;

  // 1. A process that may not use every processor counts as one core.
  std::uint64_t process_mask = 0, system_mask = 0;
  if (!vek_os_get_process_affinity(&process_mask, &system_mask)) return;
  if (process_mask != system_mask || system_mask == 0) return;

  // 2. Topology widths; only the named vendor's HTT bit is believed.
  int logical_per_package = 1;
  int cores_per_package = 1;
  if (vek_os_has_cpuid()) {
    unsigned r[4];
    vek_os_cpuid(0, 0, r);
    unsigned max_leaf = r[0];
    char vendor[13];
    std::memcpy(vendor + 0, &r[1], 4);  // EBX
    std::memcpy(vendor + 4, &r[3], 4);  // EDX
    std::memcpy(vendor + 8, &r[2], 4);  // ECX
    vendor[12] = '\0';
    if (std::strcmp(vendor, "GenuineCorvo") == 0 && max_leaf >= 1) {
      vek_os_cpuid(1, 0, r);
      if (r[3] & (1u << 28)) {
        logical_per_package = static_cast<int>((r[1] >> 16) & 0xffu);
        if (logical_per_package < 1) logical_per_package = 1;
        if (max_leaf >= 4) {
          vek_os_cpuid(4, 0, r);
          cores_per_package = static_cast<int>(r[0] >> 26) + 1;
        }
      }
    }
  }

  // 3.
  int logical_per_core = logical_per_package / cores_per_package;
  if (logical_per_core < 1) logical_per_core = 1;

  // 4.-5. Visit every processor of the system mask and read its id.
  const int max_bits = 64;
  unsigned keys[max_bits];
  int found = 0;
  for (int k = 0; k < max_bits; ++k) {
    std::uint64_t bit = std::uint64_t(1) << k;
    if (bit > system_mask) break;
    if (vek_os_set_thread_affinity(bit) == 0) continue;
    vek_os_sleep0();
    unsigned id = current_apic_id(k);
    keys[found++] = vek_serv_core_key(id, logical_per_package,
                                      logical_per_core, cores_per_package);
  }

  // 6. Back to the process mask.
  vek_os_set_thread_affinity(process_mask);
  vek_os_sleep0();

  // 7. Distinct keys are the physical cores.
  int distinct = 0;
  for (int i = 0; i < found; ++i) {
    int seen = 0;
    for (int j = 0; j < i && !seen; ++j) seen = keys[j] == keys[i];
    if (!seen) ++distinct;
  }
  if (found > 0) ts.logical_processors = found;
  ts.physical_cores = distinct > 0 ? distinct : 1;
}

}  // namespace

// --- Text rules ----------------------------------------------------------------

int vek_serv_is_digits(const char *text) {
  if (text == nullptr || *text == '\0') return 0;
  for (const char *p = text; *p; ++p)
    if (*p < '0' || *p > '9') return 0;
  return 1;
}

int vek_serv_thread_count_value(const char *text) {
  if (text == nullptr || *text == '\0') return 0;
  if (!vek_serv_is_digits(text)) return 1;
  long long v = 0;
  for (const char *p = text; *p; ++p) {
    v = v * 10 + (*p - '0');
    if (v > INT_MAX) return INT_MAX;
  }
  return static_cast<int>(v);
}

int vek_serv_dynamic_value(const char *text) {
  const char *p = text;
  while (*p == ' ' || *p == '"' || *p == '\'') ++p;
  const char *end = p;
  while (*end && *end != ' ' && *end != '"' && *end != '\'') ++end;
  std::size_t len = static_cast<std::size_t>(end - p);
  if (len == 5 && (std::strncmp(p, "FALSE", 5) == 0 ||
                   std::strncmp(p, "false", 5) == 0))
    return 0;
  return 1;
}

void vek_serv_parse_domain_list(const char *text, int *settings[4]) {
  static const char *const names[4] = {"VEK_ALL", "VEK_BLAS", "VEK_FFT",
                                       "VEK_VML"};
  char value[env_buffer_size];
  const char *p = text;
  for (;;) {
    // 1. Separators.
    while (*p && is_list_separator(*p)) ++p;
    // 2. The name.
    const char *name = p;
    while (*p && *p != '=' && *p != '"' && *p != '\'' && *p != ' ') ++p;
    std::size_t name_len = static_cast<std::size_t>(p - name);
    if (name_len == 0) return;
    // 3. Blanks and equals signs.
    while (*p == ' ' || *p == '=') ++p;
    // 4. The value, up to the next separator.
    const char *v = p;
    while (*p && !is_list_separator(*p)) ++p;
    std::size_t value_len = static_cast<std::size_t>(p - v);
    if (*p) ++p;  // the scan goes on behind the separator
    // 5. Empty value means 1, else the number rule.
    int count = 1;
    if (value_len > 0) {
      if (value_len >= sizeof(value)) value_len = sizeof(value) - 1;
      std::memcpy(value, v, value_len);
      value[value_len] = '\0';
      count = vek_serv_thread_count_value(value);
    }
    // 6. Known names only, first mention wins.
    if (count < 1) continue;
    for (int d = 0; d < 4; ++d) {
      if (std::strlen(names[d]) == name_len &&
          std::strncmp(names[d], name, name_len) == 0) {
        if (*settings[d] < 0) *settings[d] = count;
        break;
      }
    }
  }
}

// --- Topology arithmetic ----------------------------------------------------------

int vek_serv_topology_width(unsigned n) {
  if (n <= 1) return 0;
  unsigned v = n - 1;
  int w = 0;
  while (v) {
    ++w;
    v >>= 1;
  }
  return w;
}

unsigned vek_serv_core_key(unsigned apic_id, int logical_per_package,
                           int logical_per_core, int cores_per_package) {
  int wpkg = vek_serv_topology_width(static_cast<unsigned>(logical_per_package));
  int wlpc = vek_serv_topology_width(static_cast<unsigned>(logical_per_core));
  int wcpp = vek_serv_topology_width(static_cast<unsigned>(cores_per_package));
  unsigned package_part = wpkg >= 32 ? 0u : (apic_id >> wpkg) << wpkg;
  unsigned core_mask =
      wcpp >= 32 ? ~0u : ((1u << wcpp) - 1u);
  unsigned core_part = wlpc >= 32 ? 0u : ((apic_id >> wlpc) & core_mask) << wlpc;
  return package_part | core_part;
}

// --- Getters and setters ------------------------------------------------------------

int vek_serv_domain_get_max_threads(int domain) {
  ensure_initialised();

  const int dynamic = ts.dynamic;
  if (dynamic == 1 && omp_in_parallel()) return 1;

  int n;
  bool explicit_request = true;
  int *slot = (domain >= 1 && domain <= 3) ? domain_slot(domain) : nullptr;
  if (slot != nullptr && *slot > 0) {
    n = *slot;
  } else if (ts.all_threads > 0) {
    n = ts.all_threads;
  } else {
    n = omp_get_max_threads();
    explicit_request = false;
  }

  if (dynamic != 1) return n;

  if (n > ts.physical_cores) n = ts.physical_cores;

  if (ts.mpi_override == 1) return n;
  if (ts.mpi_override == 0) return 1;

  if (ts.mpi_procs_per_node == -1 || explicit_request) return n;
  if (ts.omp_num_threads > 0) return n;
  if (ts.mpi_thread_level > 0) {
    int t = ts.physical_cores / ts.mpi_procs_per_node;
    return t > 1 ? t : 1;
  }
  return 1;
}

int vek_serv_get_max_threads() { return vek_serv_domain_get_max_threads(0); }

void vek_serv_set_num_threads(int n) {
  if (n > 0) ts.all_threads = n;
}

int vek_serv_domain_set_num_threads(int n, int domain) {
  int *slot = domain_slot(domain);
  if (n < 0 || slot == nullptr) return 0;
  *slot = n;
  return 1;
}

int vek_serv_get_dynamic() {
  ensure_initialised();
  return ts.dynamic;
}

void vek_serv_set_dynamic(int flag) { ts.dynamic = flag != 0 ? 1 : 0; }

void vek_serv_set_mpi_override(int flag) { ts.mpi_override = flag == 1 ? 1 : 0; }

int vek_serv_in_parallel() { return omp_in_parallel(); }

int vek_serv_physical_cores() {
  ensure_initialised();
  return ts.physical_cores;
}

int vek_serv_logical_processors() {
  ensure_initialised();
  return ts.logical_processors;
}

void vek_serv_set_progress(vek_serv_progress_fn routine) {
  // Every call of the entry sets the hook, also two at once on two handles.
  __atomic_store_n(&progress_hook, routine, __ATOMIC_RELEASE);
}

int vek_serv_progress(int *thread, int *step, const char *stage,
                      int stage_length) {
  vek_serv_progress_fn hook = __atomic_load_n(&progress_hook, __ATOMIC_ACQUIRE);
  if (hook == nullptr) return 0;
  return hook(thread, step, stage, stage_length);
}
