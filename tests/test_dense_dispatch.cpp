// The processor type forced by VEK_DEBUG_CPU_TYPE reaches the level-3
// routines: a product through the published frame is bit for bit the one of
// the forced type's kernel set, and differs from the other sets' rounding.
// The type is read once per process; each TEST runs in a process of its own.
#include <gtest/gtest.h>

#include <cstdlib>

#include "dense/vek_dense_level3.h"
#include "dense_reference.h"
#include "service/vek_serv_cpu.h"

namespace {

void expect_kernels_of(const char *text, int type) {
  bool runnable = false;
  for (int t : runnable_types()) runnable = runnable || t == type;
  if (!runnable) GTEST_SKIP() << "this processor can't run type " << type;
  setenv("VEK_DEBUG_CPU_TYPE", text, 1);
  ASSERT_EQ(type, vek_serv_cpu_detect());
  vekd::dense_thread_limit(1);
  const int m = 45, n = 38, k = 300;
  const auto a = random_matrix<double>(std::size_t(m) * k, 1);
  const auto b = random_matrix<double>(std::size_t(k) * n, 2);
  const auto c0 = random_matrix<double>(std::size_t(m) * n, 3);
  auto c = c0;
  const double alpha = 0.75, beta = -1;
  vekd::dgemm("N", "T", &m, &n, &k, &alpha, a.data(), &m, b.data(), &n, &beta, c.data(), &m,
              1, 1);
  for (int other : runnable_types()) {
    auto d = c0;
    vekd::gemm_whole(vekd::kernel_set_of<double>(other), 'N', 'T', m, n, k, alpha, a.data(), m,
                     b.data(), n, beta, d.data(), m);
    const auto &mine = vekd::kernel_set_of<double>(type);
    const auto &theirs = vekd::kernel_set_of<double>(other);
    if (mine.kernel == theirs.kernel && mine.kc == theirs.kc) {
      EXPECT_EQ(c, d) << "type " << other;
    } else {
      EXPECT_NE(c, d) << "type " << other;
    }
  }
}

}  // namespace

TEST(DenseDispatch, ForcedPlainType) { expect_kernels_of("0", 0); }
TEST(DenseDispatch, TypeOneMeansPlain) { expect_kernels_of("1", 0); }
TEST(DenseDispatch, ForcedSse2Type) { expect_kernels_of("2", 2); }
TEST(DenseDispatch, ForcedSse42Type) { expect_kernels_of("5", 5); }
TEST(DenseDispatch, ForcedAvx2Type) { expect_kernels_of("6", 6); }
TEST(DenseDispatch, ForcedAvx512Type) { expect_kernels_of("7", 7); }
