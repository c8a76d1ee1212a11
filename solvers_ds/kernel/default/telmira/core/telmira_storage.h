// telmira_storage.h - the storage plan of a solver handle.
//
// All memory of a solve hangs on the caller's handle. This header names the
// slots, the basic block (comi, comr, comx), the factor table all_fact_adr
// and the four out-of-core blocks behind all_ooc_adr, the memory sums, the
// planning routine fact_plan, the release order, and the allocators that
// end the process on failure (mem_alloc and its kin).
#ifndef TELMIRA_STORAGE_H
#define TELMIRA_STORAGE_H

#include <cstddef>
#include "telmira_slots.h"
#include <cstdint>

// One-based views of the integer state, as the solver's traces number them:
// COMI(50) is the fiftieth word of comi (named in telmira_slots.h). comr is
// indexed from 0.
#define COMI(k) comi[(k) - 1]
#define COMX(k) comx[(k) - 1]
#define CTRL(k) iparam[(k) - 1]
#define OOCL(k) ooc_l[(k) - 1]

namespace tlm {

// --- Slots of the handle ---------------------------------------------------
constexpr int FREEHANDLE = 2;     // handle[FREEHANDLE+i]: i = 1 all_fact_adr,
constexpr int NARRAYS = 15;       // i = 2..13 the arrays, i = 14 all_ooc_adr
constexpr int LENG_FACT_ADR = 6;  // words of one factor entry

constexpr int SLOT_COUNT = 0;     // checked calls since the analysis began
constexpr int SLOT_BASIC = 1;
constexpr int SLOT_FACT_ADR = FREEHANDLE + 1;
constexpr int STRUC_S0 = 4;
constexpr int STRUC_S1 = 5;
constexpr int STRUC_S2 = 6;
constexpr int STRUC_FI = 7;
constexpr int WORK_I0 = 8;
constexpr int WORK_R0 = 9;
constexpr int CGS_ARR = 10;
constexpr int UP_UPLEN = 11;
constexpr int MC64PERM = 12;
constexpr int MC64UV = 13;
constexpr int SLOT_OOC_ADR = FREEHANDLE + NARRAYS - 1;

// --- The basic block: comi, comr, comx in one 960-byte allocation ----------
constexpr int COMI_WORDS = 100;
constexpr int COMR_WORDS = 20;
constexpr int COMX_WORDS = 100;
constexpr int BASIC_BYTES =
    4 * COMI_WORDS + 8 * COMR_WORDS + 4 * COMX_WORDS;  // 960
constexpr int ALIGNMENT = 128;

// --- The out-of-core blocks behind all_ooc_adr ------------------------------
constexpr int OOC_BLOCKS = 5;  // the four blocks and the call's fused forward step
constexpr int OOC_PATH_CHARS = 1024;
constexpr int OOC_L_WORDS = 128;
constexpr int OOC_R_WORDS = 128;
constexpr int OOC_FILES = 11;
// One logical file record: 72 bytes on the 32-bit host, where each of its
// seven array addresses is a 4-byte word; twice that holds them here.
constexpr int OOC_RECORD_BYTES = 72 * static_cast<int>(sizeof(void *) / 4);

// --- Allocation statuses, reported under error -2 ----------------------------
constexpr int ST_BASIC = -100;
constexpr int ST_FACT_ADR = -200;
constexpr int ST_OOC_PATH = -201;  // also all_ooc_adr
constexpr int ST_OOC_LR = -202;
constexpr int ST_OOC_FILES = -203;
constexpr int ST_STRUC_S0 = -400;
constexpr int ST_MC64_I = -401;  // also ddist_mps
constexpr int ST_MC64_R = -402;
constexpr int ST_MC64PERM = -403;
constexpr int ST_MC64UV = -404;
constexpr int ST_WORK_I0 = -500;
constexpr int ST_STRUC_S1 = -600;
constexpr int ST_STRUC_S2 = -700;
constexpr int ST_STRUC_FI = -800;
constexpr int ST_LOC_INT = -900;
constexpr int ST_UP_UPLEN = -1000;
constexpr int ST_FACT_LU = -1100;
constexpr int ST_WORK_R0 = -1200;
constexpr int ST_CGS_ARR = -1300;
// Statuses of error -4 for values that are not finite numbers: a pivot of
// the factor, or the solution of a solve.
constexpr int ST_NONFINITE_PIVOT = -120;
constexpr int ST_NONFINITE_SOLUTION = -121;
// Status of error -4 for a solution whose backward error stays above the
// square root of the rounding unit after refinement.
constexpr int ST_INACCURATE_SOLUTION = -122;

// Positions in comx that the storage plan itself uses.
constexpr int COMX_FACTORS = 41;  // factor block in use
constexpr int COMX_U_PART = 42;   // position of U in the factor block
constexpr int COMX_CGS = 57;      // iteration array in use
constexpr int COMX_WORK = 75;     // work array set

// Addresses of the parts of a live state; null members where the block is
// absent.
struct state_view {
  int *comi;          // 100 ints, COMI(k)
  double *comr;       // 20 doubles, comr[k]
  int *comx;          // 100 ints, COMX(k)
  std::intptr_t *fact_adr;  // COMI(CI_MAX_FAC_STORE) entries of LENG_FACT_ADR words
  void **ooc_adr;     // the four blocks below
  char *ooc_path;
  int *ooc_l;         // 128 ints, OOCL(k)
  void *ooc_r;        // 128 values of the handle's precision
  void *ooc;          // OOC_FILES records
};

state_view state_of(const std::intptr_t *handle);

// The three running sums in kilobytes, and what the report of an
// allocation failure needs.
struct storage_sums {
  int analysis;      // G: peak of the analysis
  int permanent;     // P: kept after the analysis
  int numeric;       // N: factors, iteration and work arrays
  int counting;      // 1 while allocations add to G
  std::int64_t failed_bytes;  // size of the request that failed
  int failed_sum;    // G when it failed
};

// Kilobytes that an allocation of bytes adds to a sum: bytes / 1024 + 1,
// and 0 for nothing.
int kbytes_of(std::int64_t bytes);

// Allocates bytes, zero-filled and aligned to 128, into *slot. A size of 0
// allocates nothing and leaves the slot as it is. On failure stores
// failure_status in *status, records the request in sums and returns 0.
int storage_alloc(void **slot, std::int64_t bytes, int failure_status,
                  int *status, storage_sums *sums);
// The same without the zero fill, for a block whose every value a kernel
// writes before it reads it; `zeroed` bytes at its end are cleared.
int storage_alloc_uncleared(void **slot, std::int64_t bytes, std::int64_t zeroed,
                            int failure_status, int *status, storage_sums *sums);
// The same for a handle slot.
int storage_alloc_slot(std::intptr_t *handle, int slot, std::int64_t bytes,
                       int failure_status, int *status, storage_sums *sums);
// Frees *slot unless it is null or holds the mark, and nulls it.
void storage_free(void **slot, int mark);
void storage_free_slot(std::intptr_t *handle, int slot, int mark);

// Creates the basic block and all_fact_adr in an empty handle, fills comx
// with the mark, resets the factor entries and stores COMI(CI_MAX_FAC_STORE) and
// COMI(CI_PRECISION). Returns 0 and sets *status on failure.
int create_basic(std::intptr_t *handle, int max_fac_store, int precision,
                 int mark, int *status, storage_sums *sums);
// Creates all_ooc_adr and its four blocks; ooc_r has 128 words of
// value_bytes each. The path is filled with blanks.
int create_ooc(std::intptr_t *handle, int value_bytes, int *status,
               storage_sums *sums);

// Factor entry of matrix_number; null when it has none.
std::intptr_t *fact_entry(const std::intptr_t *handle, int matrix_number);
// Word 1 = 0, word 2 = the mark, the rest clear.
void reset_fact_entry(std::intptr_t *entry, int mark);
// Frees the factors of one entry (unless word 1 is the mark) and resets it.
void release_fact_entry(std::intptr_t *entry, int mark);

// Release at the start of an analysis (everything = 0) and at ido -1
// (everything = 1), in the order: factors, slots 15 down to 4, the work
// mark, and for everything the blocks of the state; handle[0] becomes 0.
void storage_release(std::intptr_t *handle, int mark, int everything);

// Plan of the factor, work and iteration sizes for a phase. Sizes in values
// of the handle's precision: factor > 0 a new block of that many, < 0 free
// and make anew, 0 nothing new; work likewise; iteration > 0 allocate.
// *force is 1 when the numbers must be computed. commit = 1 stores the plan
// in comi and comx; a forecast (commit = 0) changes nothing but *phase.
struct fact_sizes {
  std::int64_t factor;
  std::int64_t work;
  std::int64_t iteration;
  int force;
};
void fact_plan(int *phase, const int *nb, std::intptr_t *handle,
               const std::intptr_t *entry, const int *mark, const int *commit,
               fact_sizes *plan);

}  // namespace tlm

// Allocators of the toolkit and the graph code, where no error path exists:
// they print "Error! ***Memory allocation failed for <name>. Requested
// size: <n> bytes" and end the process. Size 0 gives null.
void *mem_alloc(std::size_t size, const char *name);
void *mem_realloc(void *pointer, std::size_t size, const char *name);
int *mem_alloc_int(int count, const char *name);
int *mem_alloc_int_fill(int count, int value, const char *name);
int *mem_realloc_int(int *pointer, int count, const char *name);

// The same requests for code that has an error path: null on failure (and
// for size 0), nothing printed, the process goes on. mem_try_realloc keeps
// the old block intact when it fails. The name is for the reader.
void *mem_try_alloc(std::size_t size, const char *name);
void *mem_try_realloc(void *pointer, std::size_t size, const char *name);
// count ints, at least one, so that null always means failure.
int *mem_try_alloc_int(long count, const char *name);

#endif
