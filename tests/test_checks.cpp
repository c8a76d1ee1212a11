// Input checks and the report of a refused call, through the public entry:
// every status of the checks with its printed lines, the matrix check with
// its last-offending-place rule, and the silent form at message level 0.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "test_system.h"

namespace {

vekio::sparse tridiagonal3() {
  vekio::sparse m;
  m.n = 3;
  m.ia = {1, 3, 6, 8};
  m.ja = {1, 2, 1, 2, 3, 2, 3};
  m.a.assign(7, 1.0);
  return m;
}

// A caller of the solver with its own handle, on the 3 x 3 tridiagonal
// matrix in full storage, at message level 1; the arrays have room for
// what the tests claim of them.
struct solver : vektest::system {
  solver() : system(tridiagonal3(), 11) {
    msglvl = 1;
    A.a.resize(64, 1.0);
    b.resize(64, 1.0);
    x.resize(64, 0.0);
    perm.resize(64, 0);
    vektest::use_threads(1);
  }
  void upper_triangle() {  // the same matrix as an upper triangle
    A.ia = {1, 3, 5, 6};
    A.ja = {1, 2, 2, 3, 3};
  }
  void size4() {
    n = 4;
    A.ia = {1, 3, 6, 9, 11};
    A.ja = {1, 2, 1, 2, 3, 2, 3, 4, 3, 4};
  }
  std::string printed(int ido) {  // at the level set
    testing::internal::CaptureStdout();
    call(ido);
    return testing::internal::GetCapturedStdout();
  }
  // An analysis at level 0, so that the handle holds a state.
  void analyse() {
    msglvl = 0;
    call(11);
    msglvl = 1;
    ASSERT_NE(handle[0], 0);
  }
};

std::string header(int status) {
  return "*** Error in TELMIRA  ( sequence_ido,parameters) error_num= " +
         std::to_string(status) + "\n";
}

std::string summary(int status, int max_fac_store, int matrix_number, int mtype, int ido, int n,
                    int entries, int nb) {
  auto d = [](int v) { return std::to_string(v); };
  return "*** Input parameters: inconsistent error= " + d(status) +
         " max_fac_store_in: " + d(max_fac_store) + "\n" +
         "          matrix_number_in : " + d(matrix_number) + " matrix_type_in   : " + d(mtype) + "\n" +
         "          ido_in           : " + d(ido) + " neqns_in         : " + d(n) + "\n" +
         "          ia(neqns_in+1)-1 : " + d(entries) + " nb_in            : " + d(nb) + "\n";
}

// The report comes first; the statistics of the call may follow it.
::testing::AssertionResult starts_with(const std::string &out, const std::string &want) {
  if (out.compare(0, want.size(), want) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "printed:\n" << out << "\nwanted first:\n" << want;
}

TEST(SequenceChecks, RefusedSequencesOfIdo) {
  {
    solver s;  // factorization with no analysis
    EXPECT_TRUE(starts_with(s.printed(23), header(100000) +
                                               "*** Error in TELMIRA: clean impossible (ido?)\n"));
    EXPECT_EQ(s.error, -1);
    EXPECT_EQ(s.iparam[63], 110);
  }
  {
    solver s;  // release of one factor on an empty handle: no header line
    EXPECT_EQ(s.printed(0),
              "*** Error in TELMIRA  (contradictory input, initialization failed)\n"
              "handle=0 ?? ido= 0\n");
    EXPECT_EQ(s.error, -1);
    for (intptr_t w : s.handle) EXPECT_EQ(w, 0);  // the refused call keeps nothing
  }
  {
    solver s;  // a code below -1 that is not a probe
    EXPECT_EQ(s.printed(-5), "*** TELMIRA error: internal error\n");
    EXPECT_EQ(s.error, -1);
  }
  {
    solver s;
    s.analyse();
    s.matrix_number = 2;  // beyond the one stored factorization
    EXPECT_TRUE(starts_with(s.printed(0),
                            header(100) + "*** Error in TELMIRA: wrong matrix number, clean 2\n"));
    EXPECT_EQ(s.error, -1);
  }
  {
    solver s;
    EXPECT_TRUE(starts_with(s.printed(14),
                            header(20) + "*** wrong control step parameter ido 14\n"));
    EXPECT_EQ(s.error, -1);
  }
}

TEST(ParameterChecks, EachRefusedParameterWithItsStatus) {
  {  // the report in full: status, the line of the check, the summary
    solver s;
    s.matrix_number = 2;
    EXPECT_TRUE(starts_with(s.printed(11), header(3) +
                                               "*** Input check: max_fac_store_in 1 matrix_number_in 2\n" +
                                               summary(3, 1, 2, 11, 11, 3, 7, 1)));
    EXPECT_EQ(s.error, -1);
  }
  // The set-up of a refused call, its ido and its status.
  struct item {
    std::function<void(solver &)> setup;
    int ido, status;
  };
  const item cases[] = {
      {[](solver &) {}, 34, 1},
      {[](solver &s) { s.matrix_number = 0; }, 22, 4},
      // -11, -5 or 5 would pass: only the range is tested here
      {[](solver &s) { s.mtype = 7; }, 11, 15},
      {[](solver &s) { s.n = 0, s.A.ia = {1}; }, 12, 7},
      {[](solver &s) { s.A.ia = {1, 2, 2, 2}; }, 11, 8},  // fewer entries than equations
      {[](solver &s) {
         s.analyse();
         s.nb = 0;
         // nb is not looked at below phase 33.
         EXPECT_EQ(s.printed(12).find("nb_new"), std::string::npos);
       },
       33, 9},
      {[](solver &s) { s.iparam[0] = 1, s.iparam[1] = 2, s.iparam[5] = 2; }, 11, 10},
      {[](solver &s) { s.iparam[0] = 1, s.iparam[1] = 4; }, 11, 11},
      // against the stored state
      {[](solver &s) { s.analyse(), s.max_fac_store = 2; }, 22, 2},
      {[](solver &s) {  // 4 / 2 differs from 2 / 2
         s.mtype = 2, s.upper_triangle(), s.analyse(), s.mtype = 4;
       },
       22, 5},
      {[](solver &s) {  // 3 pairs with 2: the type passes, so the size is the next test
         s.mtype = 2, s.upper_triangle(), s.analyse(), s.mtype = 3, s.size4();
       },
       22, 6},
  };
  for (const item &c : cases) {
    SCOPED_TRACE(c.status);
    solver s;
    c.setup(s);
    EXPECT_TRUE(starts_with(s.printed(c.ido), header(c.status) + "*** Input check: "));
    EXPECT_EQ(s.error, -1);
  }
  solver s;  // a new analysis may change the size
  s.analyse();
  s.size4();
  EXPECT_EQ(s.printed(11).find("Input check"), std::string::npos);
  EXPECT_NE(s.error, -1);
}

TEST(ParameterChecks, LevelZeroIsSilentAndTurnsMinusOneIntoMinusSeven) {
  solver s;
  s.msglvl = 0;
  s.n = 0;
  s.A.ia = {1};
  EXPECT_EQ(s.printed(11), "");
  EXPECT_EQ(s.error, -7);
  EXPECT_EQ(s.iparam[63], 110);
  solver t;
  t.msglvl = -1;  // acts as level 1
  EXPECT_TRUE(starts_with(t.printed(34), header(1)));
  EXPECT_EQ(t.error, -1);
}

TEST(MatrixCheck, EachTestNamesItsLastOffendingPlace) {
  // The set-up, what is printed, and the place in iparam(31).
  struct item {
    const char *what;
    std::function<void(solver &)> setup;
    std::string printed;
    int place;
  };
  const std::string head = "*** Error in TELMIRA  (incorrect input matrix  ) error_num= ";
  const item cases[] = {
      {"rows 1 and 3 empty; the report names row 3",
       [](solver &s) { s.n = 4, s.A.ia = {1, 1, 3, 3, 6}, s.A.ja = {1, 2, 1, 2, 4}; },
       head + "21\n*** Input check: i=3, ia(i)=3, ia(i+1)=3 are incompatible\n", 3},
      {"columns 0 and 5 out of range", [](solver &s) { s.A.ja = {1, 0, 1, 2, 3, 2, 5}; },
       head + "22\n*** Input check: i=7, ja(i)=5, neqns=3 are incompatible\n", 7},
      {"an upper triangle whose row 2 starts left of the diagonal",
       [](solver &s) { s.mtype = -2, s.A.ia = {1, 3, 5, 6}, s.A.ja = {1, 2, 1, 3, 3}; },
       head + "23\n*** Input check: i=2, j=ia(i)=3, ja(j)=1 are incompatible\n", 2},
      {"the same pattern as a full matrix passes test 3",
       [](solver &s) { s.A.ja = {1, 2, 2, 1, 3, 3, 2}; },
       head + "24\n*** Input check: j=6, ja(j)=3, ja(j+1)=2 are incompatible\n", 6},
      {"a row longer than the matrix is wide (a garbage row start) is refused unread",
       [](solver &s) { s.msglvl = 0, s.A.ia = {1, 3, 2000000000, 2000000001}; }, "", 2},
      {"at level 0 the refusal is silent (row 1 empty, row 3 four long)",
       [](solver &s) { s.msglvl = 0, s.A.ia = {1, 1, 4, 8}; }, "", 3},
  };
  for (const item &c : cases) {
    SCOPED_TRACE(c.what);
    solver s;
    s.iparam[26] = 1;
    c.setup(s);
    EXPECT_EQ(s.printed(11), c.printed);
    EXPECT_EQ(s.error, s.msglvl == 0 ? -7 : -1);
    EXPECT_EQ(s.iparam[30], c.place);
    EXPECT_EQ(s.iparam[26], 1);  // a failed check leaves the request standing
  }
  solver s;  // a passed check clears the request
  s.iparam[26] = 1;
  s.msglvl = 0;
  s.call(11);
  EXPECT_EQ(s.iparam[26], 0);
}

}  // namespace
