// telmira_storage.cpp - the storage plan of a solver handle: the blocks of
// a state, the driver's allocation with its statuses and memory sums, the
// factor entries, fact_plan, the release order, and the allocators of the
// toolkit that end the process on failure.
#include "telmira_storage.h"
#include "telmira_slots.h"

#include "service/vek_serv_memory.h"
#include "telmira_ooc_files.h"
#include "telmira_types.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tlm {

state_view state_of(const std::intptr_t *handle) {
  state_view s{};
  char *basic = reinterpret_cast<char *>(handle[SLOT_BASIC]);
  if (basic != nullptr) {
    s.comi = reinterpret_cast<int *>(basic);
    s.comr = reinterpret_cast<double *>(basic + 4 * COMI_WORDS);
    s.comx = reinterpret_cast<int *>(basic + 4 * COMI_WORDS + 8 * COMR_WORDS);
  }
  s.fact_adr = reinterpret_cast<std::intptr_t *>(handle[SLOT_FACT_ADR]);
  s.ooc_adr = reinterpret_cast<void **>(handle[SLOT_OOC_ADR]);
  if (s.ooc_adr != nullptr) {
    s.ooc_path = static_cast<char *>(s.ooc_adr[0]);
    s.ooc_l = static_cast<int *>(s.ooc_adr[1]);
    s.ooc_r = s.ooc_adr[2];
    s.ooc = s.ooc_adr[3];
  }
  return s;
}

int kbytes_of(std::int64_t bytes) {
  return bytes > 0 ? static_cast<int>(bytes / 1024 + 1) : 0;
}

namespace {

// Both forms of the plan's allocation: zero-filled, or with only the last
// `zeroed` bytes cleared.
int plan_alloc(void **slot, std::int64_t bytes, bool clear, std::int64_t zeroed,
               int failure_status, int *status, storage_sums *sums) {
  if (bytes <= 0) return 1;
  void *p = nullptr;
  if (bytes <= INT_MAX)
    p = clear ? vek_serv_calloc(static_cast<int>(bytes), 1, ALIGNMENT)
              : vek_serv_malloc(static_cast<int>(bytes), ALIGNMENT);
  if (p == nullptr) {
    *status = failure_status;
    sums->failed_bytes = bytes;
    sums->failed_sum = sums->analysis;
    return 0;
  }
  *slot = p;
  if (!clear && zeroed > 0)
    std::memset(static_cast<char *>(p) + (bytes - zeroed), 0, static_cast<std::size_t>(zeroed));
  if (sums->counting) sums->analysis += kbytes_of(bytes);
  return 1;
}

}  // namespace

int storage_alloc(void **slot, std::int64_t bytes, int failure_status,
                  int *status, storage_sums *sums) {
  return plan_alloc(slot, bytes, true, 0, failure_status, status, sums);
}

int storage_alloc_uncleared(void **slot, std::int64_t bytes, std::int64_t zeroed,
                            int failure_status, int *status, storage_sums *sums) {
  return plan_alloc(slot, bytes, false, zeroed, failure_status, status, sums);
}

int storage_alloc_slot(std::intptr_t *handle, int slot, std::int64_t bytes,
                       int failure_status, int *status, storage_sums *sums) {
  void *p = reinterpret_cast<void *>(handle[slot]);
  int ok = storage_alloc(&p, bytes, failure_status, status, sums);
  handle[slot] = reinterpret_cast<std::intptr_t>(p);
  return ok;
}

void storage_free(void **slot, int mark) {
  if (*slot == nullptr ||
      reinterpret_cast<std::intptr_t>(*slot) == static_cast<std::intptr_t>(mark))
    return;
  vek_serv_free_list(slot, static_cast<void **>(nullptr));
}

void storage_free_slot(std::intptr_t *handle, int slot, int mark) {
  void *p = reinterpret_cast<void *>(handle[slot]);
  storage_free(&p, mark);
  handle[slot] = reinterpret_cast<std::intptr_t>(p);
}

int create_basic(std::intptr_t *handle, int max_fac_store, int precision,
                 int mark, int *status, storage_sums *sums) {
  if (!storage_alloc_slot(handle, SLOT_BASIC, BASIC_BYTES, ST_BASIC, status,
                          sums))
    return 0;
  std::int64_t entries = max_fac_store > 0 ? max_fac_store : 0;
  if (!storage_alloc_slot(handle, SLOT_FACT_ADR,
                          entries * LENG_FACT_ADR *
                              static_cast<std::int64_t>(sizeof(std::intptr_t)),
                          ST_FACT_ADR, status, sums))
    return 0;
  state_view s = state_of(handle);
  int *comi = s.comi;
  int *comx = s.comx;
  for (int k = 1; k <= COMX_WORDS; ++k) COMX(k) = mark;
  COMI(CI_MAX_FAC_STORE) = static_cast<int>(entries);
  COMI(CI_PRECISION) = precision;
  for (int k = 1; k <= COMI(CI_MAX_FAC_STORE); ++k)
    reset_fact_entry(s.fact_adr + (k - 1) * LENG_FACT_ADR, mark);
  return 1;
}

int create_ooc(std::intptr_t *handle, int value_bytes, int *status,
               storage_sums *sums) {
  if (!storage_alloc_slot(handle, SLOT_OOC_ADR, OOC_BLOCKS * sizeof(void *),
                          ST_OOC_PATH, status, sums))
    return 0;
  void **blocks = reinterpret_cast<void **>(handle[SLOT_OOC_ADR]);
  for (int k = 0; k < OOC_BLOCKS; ++k) blocks[k] = nullptr;
  if (!storage_alloc(&blocks[0], OOC_PATH_CHARS, ST_OOC_PATH, status, sums))
    return 0;
  std::memset(blocks[0], ' ', OOC_PATH_CHARS);
  if (!storage_alloc(&blocks[1], 4 * OOC_L_WORDS, ST_OOC_LR, status, sums))
    return 0;
  if (!storage_alloc(&blocks[2],
                     static_cast<std::int64_t>(value_bytes) * OOC_R_WORDS,
                     ST_OOC_LR, status, sums))
    return 0;
  if (!storage_alloc(&blocks[3],
                     static_cast<std::int64_t>(OOC_FILES) * OOC_RECORD_BYTES,
                     ST_OOC_FILES, status, sums))
    return 0;
  tlm::telmira_ooc_attach(static_cast<int *>(blocks[1]), blocks);
  return 1;
}

std::intptr_t *fact_entry(const std::intptr_t *handle, int matrix_number) {
  state_view s = state_of(handle);
  if (s.fact_adr == nullptr || s.comi == nullptr) return nullptr;
  const int *comi = s.comi;
  if (matrix_number < 1 || matrix_number > COMI(CI_MAX_FAC_STORE)) return nullptr;
  return s.fact_adr + (matrix_number - 1) * LENG_FACT_ADR;
}

void reset_fact_entry(std::intptr_t *entry, int mark) {
  for (int k = 0; k < LENG_FACT_ADR; ++k) entry[k] = 0;
  entry[1] = mark;
}

void release_fact_entry(std::intptr_t *entry, int mark) {
  void *factors = reinterpret_cast<void *>(entry[0]);
  storage_free(&factors, mark);
  reset_fact_entry(entry, mark);
}

void storage_release(std::intptr_t *handle, int mark, int everything) {
  state_view s = state_of(handle);
  int *comi = s.comi;
  int *comx = s.comx;
  // The files of the out-of-core mode go first: removed unless the keep
  // flag (0) asks to keep them, and their directories forgotten.
  if (s.ooc != nullptr && s.ooc_l != nullptr) {
    const int *ooc_l = s.ooc_l;
    ooc_file *ooc = static_cast<ooc_file *>(s.ooc);
    telmira_ooc_finish(s.ooc_path, ooc, OOCL(OL_KEEP_FILES) != 0);
    for (int k = 0; k < OOC_FILE_COUNT; ++k) telmira_ooc_forget(ooc + k);
  }
  if (s.fact_adr != nullptr && comi != nullptr) {
    for (int k = 1; k <= COMI(CI_MAX_FAC_STORE); ++k) {
      std::intptr_t *e = s.fact_adr + (k - 1) * LENG_FACT_ADR;
      void *factors = reinterpret_cast<void *>(e[0]);
      storage_free(&factors, mark);
      e[0] = 0;
    }
  }
  for (int slot = FREEHANDLE + NARRAYS - 2; slot >= FREEHANDLE + 2; --slot)
    storage_free_slot(handle, slot, mark);
  if (comx != nullptr) COMX(COMX_WORK) = mark;
  if (!everything) return;
  void *blocks[OOC_BLOCKS] = {};
  if (s.ooc_adr != nullptr)
    for (int k = 0; k < OOC_BLOCKS; ++k) blocks[k] = s.ooc_adr[k];
  storage_free_slot(handle, SLOT_FACT_ADR, mark);
  storage_free_slot(handle, SLOT_OOC_ADR, mark);
  storage_free_slot(handle, SLOT_BASIC, mark);
  storage_free(&blocks[2], mark);  // ooc_r
  storage_free(&blocks[1], mark);  // ooc_l
  storage_free(&blocks[0], mark);  // ooc_path
  storage_free(&blocks[3], mark);  // ooc
  handle[SLOT_COUNT] = 0;
}

void fact_plan(int *phase, const int *nb, std::intptr_t *handle,
               const std::intptr_t *entry, const int *mark, const int *commit,
               fact_sizes *plan) {
  state_view s = state_of(handle);
  int *comi = s.comi;
  int *comx = s.comx;
  const std::intptr_t m = *mark;
  const std::int64_t w = words_per_value(COMI(CI_MTYPE));
  const std::int64_t f = COMI(CI_OOC_VALUES) > 0
                             ? static_cast<std::int64_t>(COMI(CI_OOC_VALUES))
                             : static_cast<std::int64_t>(COMI(CI_LNZ_LEN)) + COMI(CI_UNZ_LEN);
  std::int64_t r = COMI(CI_TMPSIZE);
  if (static_cast<std::int64_t>(COMI(CI_LONGEST_COL)) * *nb > r)
    r = static_cast<std::int64_t>(COMI(CI_LONGEST_COL)) * *nb;
  if (COMI(CI_N) > r) r = COMI(CI_N);
  r *= COMI(CI_THREADS);

  plan->force = 0;
  if (entry == nullptr || entry[1] == m) {
    // No factorization has filled this entry.
    if (*phase == 33) *phase = 23;
    plan->factor = f;
    plan->force = 1;
  } else if (entry[0] == m) {
    plan->factor = f;
  } else if (entry[4] == w && entry[5] == COMI(CI_MTYPE)) {
    // Factors made under the other sign of the type (2 and -2, 4 and -4)
    // are made anew: a Cholesky factor has no pivot records to solve with.
    plan->factor = 0;
  } else {
    plan->factor = -f;
    plan->force = 1;
  }
  if ((*phase == 22 || *phase == 23) && COMI(CI_ITERATION) == 0) plan->force = 1;

  const std::int64_t work = r * w;
  std::int64_t new_work = COMI(CI_WORK_LEN);
  if (COMX(COMX_WORK) == *mark) {
    plan->work = work;
    new_work = work;
  } else if (work > COMI(CI_WORK_LEN)) {
    plan->work = -work;
    new_work = work;
  } else {
    plan->work = 0;
  }

  plan->iteration = 0;
  const std::int64_t n = COMI(CI_N);
  const std::int64_t k = *nb;
  if (COMI(CI_ITERATION) != 0 && *phase % 10 >= 3)
    plan->iteration = ((5 * n + 9) * k + 2 * k * COMI(CI_THREADS)) * w;

  if (*commit) {
    COMI(CI_WORDS) = static_cast<int>(w);
    COMI(CI_WORK_LEN) = static_cast<int>(new_work);
    COMI(CI_FORCE) = plan->force;
    if (plan->work < 0) COMX(COMX_WORK) = *mark;
    COMI(CI_ITERATION_LEN) = static_cast<int>(plan->iteration);
    COMI(CI_BUFFER_LEN) = static_cast<int>(r);
  }
}

}  // namespace tlm

// ---------------------------------------------------------------------------
// Allocators without an error path
// ---------------------------------------------------------------------------

namespace {

[[noreturn]] void allocation_failed(const char *name, std::size_t size) {
  char text[512];
  std::snprintf(text, sizeof(text),
                "***Memory allocation failed for %s. Requested size: %lld bytes",
                name, static_cast<long long>(size));
  std::printf("Error! %s", text);
  std::fflush(nullptr);
  std::abort();
}

}  // namespace

void *mem_alloc(std::size_t size, const char *name) {
  if (size == 0) return nullptr;
  void *p = vek_serv_malloc(size, tlm::ALIGNMENT);
  if (p == nullptr) allocation_failed(name, size);
  return p;
}

void *mem_realloc(void *pointer, std::size_t size, const char *name) {
  if (size == 0) {
    vek_serv_free(pointer);
    return nullptr;
  }
  void *p = vek_serv_realloc(pointer, size);
  if (p == nullptr) allocation_failed(name, size);
  return p;
}

int *mem_alloc_int(int count, const char *name) {
  if (count <= 0) return nullptr;
  return static_cast<int *>(
      mem_alloc(static_cast<std::size_t>(count) * sizeof(int), name));
}

int *mem_alloc_int_fill(int count, int value, const char *name) {
  int *p = mem_alloc_int(count, name);
  for (int k = 0; k < count; ++k) p[k] = value;
  return p;
}

int *mem_realloc_int(int *pointer, int count, const char *name) {
  if (count <= 0) return nullptr;
  return static_cast<int *>(mem_realloc(
      pointer, static_cast<std::size_t>(count) * sizeof(int), name));
}

void *mem_try_alloc(std::size_t size, const char *) {
  if (size == 0) return nullptr;
  return vek_serv_malloc(size, tlm::ALIGNMENT);
}

void *mem_try_realloc(void *pointer, std::size_t size, const char *) {
  if (size == 0) {
    vek_serv_free(pointer);
    return nullptr;
  }
  return vek_serv_realloc(pointer, size);
}

int *mem_try_alloc_int(long count, const char *name) {
  return static_cast<int *>(
      mem_try_alloc(sizeof(int) * static_cast<std::size_t>(count > 0 ? count : 1), name));
}
