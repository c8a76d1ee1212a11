// Tests of processor detection, the cache table and the dispatch stubs. The
// type and the tables are cached per process; each TEST runs in a process of
// its own under ctest.
#include "service/vek_serv_cpu.h"
#include "service/vek_serv_dispatch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

namespace {

const unsigned SSE3 = 1u << 0, SSSE3 = 1u << 9, SSE41 = 1u << 19,
               SSE42 = 1u << 20, SSE2 = 1u << 26, TOPOEXT = 1u << 22;

// A made-up processor: a table of leaf/sub-leaf to registers; anything not
// listed reads as zeros.
std::map<std::pair<unsigned, unsigned>, std::tuple<unsigned, unsigned, unsigned, unsigned>>
    fake;

void fake_cpuid(unsigned leaf, unsigned subleaf, unsigned r[4]) {
  auto it = fake.find({leaf, subleaf});
  if (it == fake.end()) {
    r[0] = r[1] = r[2] = r[3] = 0;
    return;
  }
  std::tie(r[0], r[1], r[2], r[3]) = it->second;
}

void fake_vendor(const char *text, unsigned max_leaf) {
  unsigned w[3];
  std::memcpy(w, text, 12);
  fake[{0, 0}] = {max_leaf, w[0], w[2], w[1]};  // EBX, EDX, ECX order
}

void fake_features(unsigned ecx, unsigned edx) {
  fake[{1, 0}] = {0, 0, ecx, edx};
}

// A cache record of leaves 4 and 0x8000001D.
std::tuple<unsigned, unsigned, unsigned, unsigned> cache_record(
    unsigned type, unsigned level, unsigned line, unsigned partitions,
    unsigned ways, unsigned sets) {
  return {type | (level << 5),
          (line - 1) | ((partitions - 1) << 12) | ((ways - 1) << 22),
          sets - 1, 0};
}

void use_fake() {
  fake.clear();
  vek_serv_cpuid_source = fake_cpuid;
}

}  // namespace

// One probe per feature family: the first test that holds gives the type,
// and the wide vector types need their instructions and the saved states.
TEST(CpuType, FeatureFamiliesAndWideVectorStates) {
  EXPECT_EQ(5, vek_serv_cpu_type_of(SSE42, 0));
  EXPECT_EQ(4, vek_serv_cpu_type_of(SSSE3 | SSE3, SSE2));
  EXPECT_EQ(3, vek_serv_cpu_type_of(SSE3, SSE2));
  EXPECT_EQ(2, vek_serv_cpu_type_of(SSE41, SSE2));  // SSE4.1 alone: no type
  EXPECT_EQ(0, vek_serv_cpu_type_of(0, 0));
  const unsigned FMA = 1u << 12, OSXSAVE = 1u << 27, AVX = 1u << 28;
  const unsigned AVX2 = 1u << 5, AVX512F = 1u << 16;
  const unsigned base = SSE42 | SSSE3 | SSE3 | FMA | OSXSAVE | AVX;
  EXPECT_EQ(7, vek_serv_cpu_type_wide(base, SSE2, AVX2 | AVX512F, 0xe7));
  // Upper ZMM states not saved: no AVX-512; YMM not saved: the SSE types.
  EXPECT_EQ(6, vek_serv_cpu_type_wide(base, SSE2, AVX2 | AVX512F, 0x07));
  EXPECT_EQ(5, vek_serv_cpu_type_wide(base, SSE2, AVX2 | AVX512F, 0x03));
  EXPECT_EQ(5, vek_serv_cpu_type_wide(base & ~OSXSAVE, SSE2, AVX2, 0xe7));
  // AVX2 without FMA is no type of its own.
  EXPECT_EQ(5, vek_serv_cpu_type_wide(base & ~FMA, SSE2, AVX2, 0xe7));
}

TEST(CpuType, OverrideTextOutOfRangeOrUnreadableIsNone) {
  EXPECT_EQ(3, vek_serv_cpu_type_override("3"));
  EXPECT_EQ(0, vek_serv_cpu_type_override("1"));
  for (const char *bad : {"8", "-1", "abc", "", static_cast<const char *>(nullptr)})
    EXPECT_EQ(-1, vek_serv_cpu_type_override(bad)) << (bad ? bad : "null");
}

TEST(CpuDetect, OtherVendorTypedByFeatureBitsAndCached) {
  use_fake();
  fake_vendor("AuthenticXYZ", 1);
  fake_features(SSSE3 | SSE41 | SSE3, SSE2);
  EXPECT_EQ(4, vek_serv_cpu_detect());
  EXPECT_EQ(1, vek_serv_has_sse41());
  fake_features(SSE42, SSE2);  // later changes are not seen by the type...
  EXPECT_EQ(4, vek_serv_cpu_detect());
  fake_features(SSE3, SSE2);   // ...but the SSE4.1 test asks each time
  EXPECT_EQ(0, vek_serv_has_sse41());
}

TEST(CpuDetect, RealProcessorHasAtLeastSse2) {
#if defined(__x86_64__)
  unsetenv("VEK_DEBUG_CPU_TYPE");
  EXPECT_GE(vek_serv_cpu_detect(), 2);
#else
  GTEST_SKIP() << "not an x86-64 build";
#endif
}

namespace {
int detect_with(const char *env, unsigned ecx, unsigned edx) {
  setenv("VEK_DEBUG_CPU_TYPE", env, 1);
  use_fake();
  fake_features(ecx, edx);
  return vek_serv_cpu_detect();
}
}  // namespace

TEST(CpuDetect, InvalidEnvironmentLeavesDetectedType) {
  EXPECT_EQ(3, detect_with("00", SSE3, SSE2));
}
TEST(CacheTable, LeafFourWithoutInstructionCaches) {
  use_fake();
  fake_vendor("GenuineCorvo", 0xb);
  fake[{4, 0}] = cache_record(1, 1, 64, 1, 8, 64);     // L1 data, 32 KiB
  fake[{4, 1}] = cache_record(2, 1, 64, 1, 8, 64);     // L1 instruction
  fake[{4, 2}] = cache_record(3, 2, 64, 1, 4, 1024);   // L2, 256 KiB
  fake[{4, 3}] = cache_record(3, 3, 64, 2, 16, 4096);  // L3, 8 MiB
  fake[{4, 4}] = {0, 0, 0, 0};
  fake[{4, 5}] = cache_record(1, 4, 64, 1, 1, 1);      // past the end
  int out[5] = {-7, -7, -7, -7, -7};
  vek_serv_cache_sizes(out);
  EXPECT_EQ((std::vector<int>{3, 32768, 262144, 8388608, 0}), std::vector<int>(out, out + 5));
}

TEST(CacheTable, ExtendedLeafWhenLeafFourIsEmpty) {
  use_fake();
  fake_vendor("AuthenticXYZ", 0x1c);
  fake[{0x80000000u, 0}] = {0x80000021u, 0, 0, 0};
  fake[{0x80000001u, 0}] = {0, 0, TOPOEXT, 0};
  fake[{0x8000001Du, 0}] = cache_record(1, 1, 64, 1, 8, 64);
  fake[{0x8000001Du, 1}] = cache_record(2, 1, 64, 1, 8, 64);
  fake[{0x8000001Du, 2}] = cache_record(3, 2, 64, 1, 8, 2048);
  fake[{0x8000001Du, 3}] = cache_record(3, 3, 64, 1, 16, 32768);
  int out[5];
  vek_serv_cache_sizes(out);
  EXPECT_EQ((std::vector<int>{3, 32768, 1 << 20, 32 << 20}), std::vector<int>(out, out + 4));
}

// ---------------------------------------------------------------------------
// Dispatch stubs, with variants that tell which one ran.
// ---------------------------------------------------------------------------

namespace {

int calls[6];

template <int T>
double variant(const char *side, int *n, double *x, std::size_t side_len) {
  ++calls[T];
  for (int i = 0; i < *n; ++i) x[i] = 10 * T + i;
  *n = static_cast<int>(side_len) + (side[0] == 'L' ? 1000 : 0);
  return T + 0.5;
}

typedef vek_serv_stub<variant<0>, variant<2>, variant<3>, variant<4>,
                      variant<5>>
    test_stub;

// The published form of the operation: a plain function over the stub.
double kernel_op(const char *side, int *n, double *x, std::size_t side_len) {
  return test_stub::call(side, n, x, side_len);
}

double call_once(int *n) {
  double x[3];
  *n = 3;
  double r = kernel_op("Left", n, x, 4);
  EXPECT_EQ(10 * int(r) + 2, x[2]);
  return r;
}

}  // namespace

TEST(DispatchStub, EnvironmentTypeSelectsVariantOnce) {
  setenv("VEK_DEBUG_CPU_TYPE", "3", 1);
  EXPECT_EQ(nullptr, test_stub::routine);
  int n = 0;
  EXPECT_EQ(3.5, call_once(&n));
  EXPECT_EQ(1004, n);  // arguments and the length arrived unchanged
  EXPECT_EQ(&variant<3>, test_stub::routine);
  // Resolved once: the stub calls whatever its pointer holds from now on.
  test_stub::routine = variant<5>;
  EXPECT_EQ(5.5, call_once(&n));
  EXPECT_EQ(1, calls[3]);
  EXPECT_EQ(1, calls[5]);
}

TEST(DispatchStub, DetectedTypeSelectsVariant) {
  unsetenv("VEK_DEBUG_CPU_TYPE");
  use_fake();
  fake_features(SSE3 | SSSE3, SSE2);
  int n = 0;
  EXPECT_EQ(4.5, call_once(&n));
  fake_features(SSE42, SSE2);
  EXPECT_EQ(4.5, call_once(&n));
  EXPECT_EQ(2, calls[4]);
}
