// Tests of thread control: the text rules of the environment values, the
// topology arithmetic, the core count against the affinity mask, and the
// thread count through the environment. Under ctest each TEST runs in a
// process of its own, so a test sets the environment before its first getter.
#include "service/vek_serv_threads.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cpuid.h>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

// Clears the six variables of thread control, then sets the given pairs.
void env(std::initializer_list<std::pair<const char *, std::string>> pairs) {
  for (const char *v : {"VEK_NUM_THREADS", "VEK_DOMAIN_NUM_THREADS", "VEK_DYNAMIC",
                        "OMP_NUM_THREADS", "V_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE",
                        "V_MPI_THREAD_LEVEL"})
    unsetenv(v);
  for (const auto &p : pairs) setenv(p.first, p.second.c_str(), 1);
}

bool vendor_is_corvo() {
  unsigned a, b, c, d;
  if (!__get_cpuid(0, &a, &b, &c, &d)) return false;
  char v[13];
  std::memcpy(v, &b, 4);
  std::memcpy(v + 4, &d, 4);
  std::memcpy(v + 8, &c, 4);
  v[12] = '\0';
  return std::strcmp(v, "GenuineCorvo") == 0;
}

// Cores the count should find: on processors of other vendors every logical
// processor counts as a core, and a process restricted to part of the
// machine counts one.
int expected_cores() {
  if (vendor_is_corvo()) return vek_serv_physical_cores();
  cpu_set_t set;
  CPU_ZERO(&set);
  sched_getaffinity(0, sizeof(set), &set);
  int n = CPU_COUNT(&set);
  return n == sysconf(_SC_NPROCESSORS_ONLN) ? n : 1;
}

std::vector<int> domains(const char *list) {
  int s[4] = {-1, -1, -1, -1};
  int *slots[4] = {&s[0], &s[1], &s[2], &s[3]};
  vek_serv_parse_domain_list(list, slots);
  return std::vector<int>(s, s + 4);
}

}  // namespace

TEST(ThreadRules, NumberAndDynamicText) {
  const std::pair<const char *, int> counts[] = {
      {"12", 12}, {"-2", 1}, {"3x", 1}, {"99999999999999", 2147483647}};
  for (auto c : counts) EXPECT_EQ(vek_serv_thread_count_value(c.first), c.second) << c.first;
  // Only an upper or lower case FALSE, after quotes and blanks, is false.
  const std::pair<const char *, int> dynamic[] = {
      {"FALSE", 0}, {"  \"'false' rest", 0}, {"False", 1}, {"FALSEX", 1}, {"", 1}};
  for (auto d : dynamic) EXPECT_EQ(vek_serv_dynamic_value(d.first), d.second) << d.first;
}

// All four settings of a list: all, BLAS, FFT, VML; -1 where none is set.
TEST(ThreadRules, DomainListForms) {
  const std::pair<const char *, std::vector<int>> cases[] = {
      {"VEK_ALL=2, VEK_BLAS=1", {2, 1, -1, -1}},
      {"VEK_BLAS 4;VEK_FFT 2", {-1, 4, 2, -1}},
      // First mention wins; a value below 1 is passed over and leaves room.
      {"VEK_FFT=0:VEK_FFT=3,VEK_FFT=5", {-1, -1, 3, -1}},
      // An unknown or differently cased name is passed over; an empty or
      // non-digit value means 1.
      {"VEK_GPU=4,vek_blas=5,VEK_BLAS=,VEK_VML=x2", {-1, 1, -1, 1}},
  };
  for (const auto &c : cases) EXPECT_EQ(domains(c.first), c.second) << c.first;
  // A setting already filled is not overwritten.
  int s[4] = {7, -1, -1, -1};
  int *slots[4] = {&s[0], &s[1], &s[2], &s[3]};
  vek_serv_parse_domain_list("VEK_ALL=3", slots);
  EXPECT_EQ(s[0], 7);
}

TEST(ThreadTopology, CoreKeysOfTwoPackages) {
  // Two packages of 4 cores with 2 logical processors each: ids 0..7 and
  // 16..23 hold 8 cores.
  std::set<unsigned> keys;
  for (unsigned id = 0; id < 8; ++id) {
    keys.insert(vek_serv_core_key(id, 8, 2, 4));
    keys.insert(vek_serv_core_key(16 + id, 8, 2, 4));
  }
  EXPECT_EQ(keys.size(), 8u);
  EXPECT_EQ(vek_serv_core_key(6, 8, 2, 4), vek_serv_core_key(7, 8, 2, 4));
  // Without topology every id is a core of its own.
  EXPECT_NE(vek_serv_core_key(4, 1, 1, 1), vek_serv_core_key(5, 1, 1, 1));
}

TEST(ThreadCores, CountMatchesAffinityAndRestoresIt) {
  env({});
  cpu_set_t before, after;
  CPU_ZERO(&before);
  CPU_ZERO(&after);
  sched_getaffinity(0, sizeof(before), &before);
  int cores = vek_serv_physical_cores();
  sched_getaffinity(0, sizeof(after), &after);
  EXPECT_TRUE(CPU_EQUAL(&before, &after));
  EXPECT_EQ(cores, expected_cores());
  // Dynamic mode with no setting  // Dynamic mode with no setting: as many threads as OpenMP offers, at most
  // one a core.
  EXPECT_EQ(vek_serv_get_dynamic(), 1);
  EXPECT_EQ(vek_serv_get_max_threads(), std::min(omp_get_max_threads(), cores));
}

TEST(ThreadCores, NarrowedMaskCountsOneCore) {
  env({});
  if (sysconf(_SC_NPROCESSORS_ONLN) < 2) GTEST_SKIP() << "one processor";
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(0, &one);
  ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
  setenv("VEK_NUM_THREADS", "4", 1);
  EXPECT_EQ(vek_serv_physical_cores(), 1);
  EXPECT_EQ(vek_serv_get_max_threads(), 1);
}

namespace {

// The count that the environment alone gives. Each case is a test of its
// own, which ctest runs in a process of its own.
struct env_case {
  const char *name;
  std::vector<std::pair<const char *, std::string>> vars;
  int dynamic;
  int (*threads)();  // what vek_serv_get_max_threads() must give
};

int omp() { return omp_get_max_threads(); }

const char *const procs = "V_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE";
const env_case env_cases[] = {
    {"NumThreadsZeroIsNotSet", {{"VEK_NUM_THREADS", "0"}, {"VEK_DYNAMIC", "FALSE"}}, 0, omp},
    {"ValueThatFillsTheBufferIsRead",  // 255 characters
     {{"VEK_NUM_THREADS", std::string(254, '0') + "3"}, {"VEK_DYNAMIC", "FALSE"}}, 0,
     [] { return 3; }},
    {"ValueTooLongForTheBufferIsIgnored",  // 256 characters
     {{"VEK_NUM_THREADS", std::string(255, '0') + "3"}, {"VEK_DYNAMIC", "FALSE"}}, 0, omp},
    // Under a message-passing runtime with no explicit count the library
    // runs on one thread, unless the thread level grants a share of the
    // cores.
    {"MpiProcessesPerNodeAloneGiveOne", {{procs, "2"}, {"V_MPI_THREAD_LEVEL", "7"}}, 1,
     [] { return 1; }},  // level out of range: 0
    {"MpiThreadLevelSharesTheCores", {{procs, "2"}, {"V_MPI_THREAD_LEVEL", "2"}}, 1,
     [] { return std::max(expected_cores() / 2, 1); }},
    {"MpiExplicitCountWins", {{procs, "2"}, {"VEK_NUM_THREADS", "3"}}, 1,
     [] { return std::min(3, expected_cores()); }},
};

class ThreadEnv : public testing::TestWithParam<env_case> {};

}  // namespace

TEST_P(ThreadEnv, CountFromTheEnvironment) {
  const env_case &c = GetParam();
  env({});
  for (const auto &v : c.vars) setenv(v.first, v.second.c_str(), 1);
  EXPECT_EQ(vek_serv_get_dynamic(), c.dynamic);
  EXPECT_EQ(vek_serv_get_max_threads(), c.threads());
}

INSTANTIATE_TEST_SUITE_P(Cases, ThreadEnv, testing::ValuesIn(env_cases),
                         [](const testing::TestParamInfo<env_case> &i) { return i.param.name; });

TEST(ThreadEnv, NumThreadsLimitedByCoresOnlyInDynamicMode) {
  env({{"VEK_NUM_THREADS", "8"}});
  EXPECT_EQ(vek_serv_get_max_threads(), std::min(8, expected_cores()));
  vek_serv_set_dynamic(0);
  EXPECT_EQ(vek_serv_get_max_threads(), 8);
}

TEST(ThreadEnv, DomainListAndFallbacks) {
  env({{"VEK_DOMAIN_NUM_THREADS", "VEK_BLAS=2,VEK_BLAS=6"},
       {"VEK_DYNAMIC", "FALSE"}});
  EXPECT_EQ(vek_serv_domain_get_max_threads(1), 2);
  EXPECT_EQ(vek_serv_domain_get_max_threads(2), omp_get_max_threads());
  EXPECT_EQ(vek_serv_get_max_threads(), omp_get_max_threads());
  vek_serv_set_num_threads(5);
  EXPECT_EQ(vek_serv_domain_get_max_threads(2), 5);
  EXPECT_EQ(vek_serv_domain_get_max_threads(1), 2);
  vek_serv_set_num_threads(0);
  EXPECT_EQ(vek_serv_get_max_threads(), 5);
}

TEST(ThreadEnv, NumThreadsWinsOverListAll) {
  env({{"VEK_NUM_THREADS", "5"},
       {"VEK_DOMAIN_NUM_THREADS", "VEK_ALL=3;VEK_FFT 7"},
       {"VEK_DYNAMIC", "FALSE"}});
  EXPECT_EQ(vek_serv_get_max_threads(), 5);
  EXPECT_EQ(vek_serv_domain_get_max_threads(1), 5);
  EXPECT_EQ(vek_serv_domain_get_max_threads(2), 7);
}

TEST(ThreadEnv, SettersBeforeFirstGetterWin) {
  env({{"VEK_NUM_THREADS", "7"}});
  vek_serv_set_num_threads(2);
  vek_serv_set_dynamic(0);
  EXPECT_EQ(vek_serv_get_dynamic(), 0);
  EXPECT_EQ(vek_serv_get_max_threads(), 2);
}

TEST(ThreadParallel, InsideRegionDependsOnDynamic) {
  env({{"VEK_NUM_THREADS", "3"}});
  int outside_dynamic = vek_serv_get_max_threads();
  int inside_dynamic = -1, inside_static = -1, in_parallel = 0;
#pragma omp parallel num_threads(2)
  {
#pragma omp single
    {
      in_parallel = vek_serv_in_parallel();
      inside_dynamic = vek_serv_get_max_threads();
      vek_serv_set_dynamic(0);
      inside_static = vek_serv_get_max_threads();
    }
  }
  if (!in_parallel) GTEST_SKIP() << "the runtime gave the region one thread";
  EXPECT_EQ(vek_serv_in_parallel(), 0);
  EXPECT_EQ(inside_dynamic, 1);
  EXPECT_EQ(outside_dynamic, std::min(3, expected_cores()));
  EXPECT_EQ(inside_static, 3);
}
