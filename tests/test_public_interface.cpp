// The public interface beside the entry: the words of error numbers and
// statuses, and the host's BLAS thread setting, which every public call
// leaves as it found it.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "service/vek_serv_blas.h"
#include "telmira.h"
#include "test_system.h"
#include "vekio.h"

extern "C" {
int openblas_get_num_threads(void);
void openblas_set_num_threads(int);
}

namespace {

TEST(ErrorWords, EveryErrorNumberAndStatusHasWordsOfItsOwn) {
  std::set<std::string> seen;
  for (int e = 0; e >= -11; --e) {
    const std::string w = telmira_error_words(e);
    EXPECT_FALSE(w.empty()) << e;
    EXPECT_NE(w, "unknown error number") << e;
    EXPECT_TRUE(seen.insert(w).second) << "error " << e << " shares its words: " << w;
  }
  EXPECT_STREQ(telmira_error_words(-12), "unknown error number");
  EXPECT_STREQ(telmira_error_words(1), "unknown error number");
  EXPECT_STREQ(telmira_error_words(-2), "not enough memory");
  // The statuses of the analysis (-3) and of the numerics (-4).
  for (int s : {-31, -32})
    EXPECT_STRNE(telmira_status_words(-3, s), "") << s;
  for (int s : {1, 17, -2, -3, -112, -120, -121, -122})
    EXPECT_STRNE(telmira_status_words(-4, s), "") << s;
  // A positive status of -4 is a column: all columns share the words.
  EXPECT_STREQ(telmira_status_words(-4, 1), telmira_status_words(-4, 500));
  EXPECT_STREQ(telmira_status_words(-3, -120), "");
  EXPECT_STREQ(telmira_status_words(-2, -31), "");
  EXPECT_STREQ(telmira_status_words(0, 0), "");
}

TEST(BlasThreads, GuardRestoresTheHostsSettingAndKeepsTheLibrarysForItsNextCall) {
  if (vek_serv_blas_get_threads() == 0) GTEST_SKIP() << "the BLAS has no thread control";
  openblas_set_num_threads(3);
  {
    vek_serv_blas_guard outer;
    openblas_set_num_threads(1);  // the library's own work sets 1
    {
      vek_serv_blas_guard inner;  // nested: does nothing
      EXPECT_EQ(openblas_get_num_threads(), 1);
    }
    EXPECT_EQ(openblas_get_num_threads(), 1);
  }
  EXPECT_EQ(openblas_get_num_threads(), 3);
  openblas_set_num_threads(2);  // the host changes its mind
  {
    vek_serv_blas_guard g;
    // The library finds the setting its own work left, which its dense
    // layer remembers.
    EXPECT_EQ(openblas_get_num_threads(), 1);
  }
  EXPECT_EQ(openblas_get_num_threads(), 2);
}

// One thread or two for the solver: its dense layer holds the BLAS to one
// thread during the call; the host's setting comes back after it.
TEST(BlasThreads, TelmiraLeavesTheHostsSetting) {
  if (vek_serv_blas_get_threads() == 0) GTEST_SKIP() << "the BLAS has no thread control";
  for (int threads : {1, 2}) {
    vektest::use_threads(threads);
    const int host = threads == 1 ? 3 : 1;
    openblas_set_num_threads(host);
    for (int type : {2, -2, 11}) {
      SCOPED_TRACE("threads " + std::to_string(threads) + " type " + std::to_string(type));
      vektest::system s(vekio::lap3d(12), type, 2);
      for (int ido : {11, 22, 33}) {
        ASSERT_EQ(s.call(ido), 0) << ido;
        EXPECT_EQ(openblas_get_num_threads(), host) << ido;
      }
      EXPECT_EQ(s.iparam[2], threads);
      EXPECT_LT(s.residual(s.x), 1e-12);
      s.release();
      EXPECT_EQ(openblas_get_num_threads(), host);
    }
  }
}

}  // namespace
