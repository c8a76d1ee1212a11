// The message service: printing by number, the word and real forms, the
// solver's internal numbers and their rows, the buffer overflow exit, and
// the lines of xerbla (a handler in its place: test_dense_factor). The
// report at the end of a call: the time lines of the analysis, the gflop
// lines of a factorization, the solve and iteration lines, the clean form,
// the silent level, and the out-of-core lines and table.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "service/vek_serv_clock.h"
#include "service/vek_serv_message.h"
#include "telmira_statistics.h"
#include "telmira_storage.h"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

std::string solver_line(int number, int count = 0, std::intptr_t a0 = 0,
                        std::intptr_t a1 = 0) {
  const std::intptr_t args[2] = {a0, a1};
  CaptureStdout();
  telmira_message(&number, &count, args);
  return GetCapturedStdout();
}

TEST(MessageService, PrintsRowsWithArgumentsAndOnePassOfFormatting) {
  CaptureStdout();
  vek_serv_print_message(0, 0, 3, 1, 2, 3);  // number 0: only the newline
  vek_serv_print_message(1, 824, 1, 17);
  vek_serv_print_message(0, 783, 0);        // "%%" without arguments
  vek_serv_print_message(0, 785, 1, 42);    // "%%" with arguments
  EXPECT_EQ(GetCapturedStdout(),
            "\n"
            "*** Input check: neqns_new 17 \n"
            " ----------- Out of core time (in percent (%)) --------------\n"
            "      write to files : 42 %\n");
}

TEST(MessageService, WordAndRealArgumentForms) {
  const std::intptr_t words[2] = {-3, reinterpret_cast<std::intptr_t>("DGEMM")};
  const double reals[1] = {2.5};
  CaptureStdout();
  vek_serv_print_message_words(7, 2, words);
  vek_serv_print_message_reals(799, 1, reals);  // width and precision kept
  EXPECT_EQ(GetCapturedStdout(),
            "VEK INTERNAL ERROR: Condition -3 detected in function DGEMM\n"
            "      write to files :      2.500 Mb \n");
}

TEST(MessageService, TextUpToTheBufferPrintsLongerEndsTheProcess) {
  // Row 961 is "The file %s was not opened": 24 characters of its own. A
  // result of 513 characters still prints (its length less one is 512).
  const std::string fits(513 - 24, 'x');
  CaptureStdout();
  vek_serv_print_message(0, 961, 1, fits.c_str());
  EXPECT_EQ(GetCapturedStdout(), "The file " + fits + " was not opened\n");

  const std::string too_long(600, 'y');
  EXPECT_EXIT(
      {
        dup2(2, 1);
        vek_serv_print_message(0, 961, 1, too_long.c_str());
      },
      testing::ExitedWithCode(8),
      "\nVEK INTERNAL ERROR: message buffer overflow\\.\n"
      "       Message N 961   Lenght: 623   Buffer size: 512\n");
}

// The lines that the reports of the solver print are checked with the
// reports (the Statistics tests below, test_checks); here the rest.
TEST(SolverMessages, NumbersMapToRowsUnknownOnesAreNamed) {
  EXPECT_EQ(solver_line(440, 1, 25), " exceeds max. iteration number 25\n");
  EXPECT_EQ(solver_line(603, 1, 8), "*** Error in TELMIRA memory allocation: LOC_INT1, size to allocate: 8 bytes\n");
  EXPECT_EQ(solver_line(430), "\n");  // row 836 is not used by this library
  EXPECT_EQ(solver_line(999), "TELMIRA Internationalization error! Message 999 is unknown\n");
  EXPECT_EQ(solver_line(405, 5), "");
  // A phase digit out of range gives an empty word; a count other than 2
  // the one-word form.
  EXPECT_EQ(solver_line(0, 3, 7, 2), "Summary TELMIRA: (  )\n================\n\n");
  const double two[2] = {1.5, 0.25};
  int n150 = 150, count = 1;
  CaptureStdout();
  telmira_message_real(&n150, &count, two);
  EXPECT_EQ(GetCapturedStdout(), "TELMIRA Internationalization error! Message 150 is unknown\n");
}

TEST(Xerbla, RowsByInfoAndTheNameCutToTwentyCharacters) {
  const char *name = "ABCDEFGHIJKLMNOPQRSTUVWXY";  // 25 characters
  int info = -3, i1000 = 1000, i1001 = 1001, i5 = 5;
  CaptureStdout();
  xerbla(name, &info, 25);
  xerbla("DGEMM", &i1000, 5);
  xerbla("DTRSM", &i1001, 5);
  xerbla("DGEMM ", &i5, 3);  // the length limits the name
  EXPECT_EQ(GetCapturedStdout(),
            "\nVEK INTERNAL ERROR: Condition 3 detected in function ABCDEFGHIJKLMNOPQRST\n"
            "\nVEK INTERNAL ERROR: Not enough work memory in function DGEMM\n"
            "\nVEK ERROR: Incompatible optional parameters on entry to DTRSM\n"
            "\nVEK ERROR: Parameter 5 was incorrect on entry to DGE\n");
}

// --- the report of a call -------------------------------------------------

std::string fmt(const char *format, double a, double b = 0.0) {
  char buf[256];
  std::snprintf(buf, sizeof(buf), format, a, b);
  return buf;
}

// The text from the line holding `first` to the end of the line holding
// `last`; empty when either is missing.
std::string between(const std::string &out, const std::string &first,
                     const std::string &last) {
  const auto a = out.find(first);
  if (a == std::string::npos) return "";
  const auto b = out.find(last, a);
  if (b == std::string::npos) return "";
  return out.substr(out.rfind('\n', a) + 1, out.find('\n', b) + 1 - (out.rfind('\n', a) + 1));
}

// State of a call that reached the report: an analysed 10 x 10 SPD system.
template <class R> struct call_state {
  int comi[100] = {}, iparam[64] = {}, flags[10] = {}, ooc_l[128] = {};
  double comr[20] = {};
  R ooc_r[128] = {};
  int neqns = 10, nb = 1, entries = 25, matrix_number = 3;
  bool ooc = false;
  call_state() {
    COMI(11) = 1; COMI(12) = 2; COMI(14) = 2; COMI(15) = 1; COMI(16) = 128;
    COMI(17) = 1; COMI(20) = 1; COMI(31) = 4; COMI(32) = 5; COMI(34) = 30;
    COMI(90) = sizeof(R) == 4 ? 1 : 0;
    for (int k = 0; k < 8; ++k) comr[k] = 0.125 * (k + 1);
    comr[8] = 0.0625;
    comr[14] = 2000.0;  // Mflop
    comr[16] = 3.5;
  }
  std::string run(int phase, std::initializer_list<int> set) {
    for (int f : set) flags[f - 1] = 1;
    telmira_clock(&comr[15]);  // as the check does at the start of a call
    comr[9] = comr[15];
    CaptureStdout();
    telmira_statistics(&phase, &matrix_number, &neqns, &nb, &entries, iparam,
                       comi, comr, flags, ooc ? ooc_l : nullptr, ooc ? ooc_r : nullptr);
    return GetCapturedStdout();
  }
};
using doubles = call_state<double>;

const char *const banner =
    "================  TELMIRA: solving a symm. posit. def. system  ================\n";

TEST(Statistics, AnalysisReportLineByLine) {
  doubles s;
  const double before_malloc = s.comr[8];
  const std::string out = s.run(11, {1, 2, 3, 9});
  EXPECT_EQ(s.flags[9], 1);
  EXPECT_GE(s.comr[9], 0.0);
  EXPECT_DOUBLE_EQ(s.comr[8], before_malloc + s.comr[9]);  // one clock read closes both
  const double sum = 0.125 + 0.25 + 0.375 + s.comr[8];
  EXPECT_EQ(between(out, "Summary", "Time total"),
            "Summary TELMIRA: ( reorder to reorder )\n================\n\n"
            "Times:\n======\n"
            "      Time fulladj: 0.125000 s\n"
            "      Time reorder: 0.250000 s\n"
            "      Time symbfct: 0.375000 s\n"
            "      Time malloc :" + fmt(" %f s", s.comr[8]) + "\n"
            "      Time total  :" + fmt(" %f s total - sum: %f s", s.comr[9], s.comr[9] - sum) + "\n");
  EXPECT_EQ(out.find("\n" + std::string(banner)), 0u);
  for (const char *line : {"             non-zeros in A (%):                            25.000000\n",
                           "             number of nonzeros in L+U                       30\n"})
    EXPECT_NE(out.find(line), std::string::npos) << line;
}

TEST(Statistics, FactorizationGflopLinesAndTheirConditions) {
  doubles s;
  std::string out = s.run(13, {1, 2, 3, 5, 6, 7, 9});
  EXPECT_NE(out.find("Summary TELMIRA: ( reorder to solve )\n"), std::string::npos);
  EXPECT_NE(out.find("      Time numfct : 0.750000 s\n      Time solve  : 0.875000 s\n"),
            std::string::npos);
  EXPECT_EQ(out.find("Time cgs"), std::string::npos);
  EXPECT_EQ(out.substr(out.find("L+U")),
            "L+U                       30\n"
            "             gflop   for the numerical factorization:        2.000000\n\n"
            "             gflop/s for the numerical factorization:        2.666667\n\n"
            "             ||A||                                           3.500000\n\n");

  doubles t;  // no factorization time, no norm: only the gflop line
  t.comr[5] = 0.0;
  t.comr[16] = 0.0;
  out = t.run(12, {5, 6, 9});
  EXPECT_NE(out.find("gflop   for"), std::string::npos);
  EXPECT_EQ(out.find("gflop/s"), std::string::npos);
  EXPECT_EQ(out.find("||A||"), std::string::npos);
}

TEST(Statistics, SolveWithIterationAndTransposedSystem) {
  doubles s;
  s.COMI(18) = 1;
  s.COMI(68) = 1;
  s.CTRL(20) = 7;
  const std::string out = s.run(33, {7, 8, 9});
  const double sum = 0.875 + 1.0 + s.comr[8];
  EXPECT_EQ(between(out, "Summary", "Time total"),
            "Summary TELMIRA: ( solve to solve )\n================\n\nTimes:\n======\n"
            "      Time solve  : 0.875000 s\n"
            "      Time cgs    : 1.000000 s cgx iterations 7\n\n"
            "      Time malloc :" + fmt(" %f s", s.comr[8]) + "\n"
            "      Time total  :" + fmt(" %f s total - sum: %f s", s.comr[9], s.comr[9] - sum) + "\n");
  EXPECT_NE(out.find(">         1\n < Hybrid Solver TELMIRA with CGS/CG Iteration >\n\n"
                     " < Linear system Ax = b> <transpose> \n"),
            std::string::npos);
}

TEST(Statistics, CleanAndSilentCalls) {
  doubles s;
  EXPECT_EQ(s.run(0, {}), "\n" + std::string(banner) +
                              "\n\nSummary TELMIRA: ( clean )\n================\n\n"
                              " L&U for matrix number 3 deleted\n\n");

  doubles quiet;  // level 0: nothing printed, the timers are still closed
  quiet.COMI(11) = 0;
  quiet.ooc = true;
  quiet.OOCL(1) = 2;
  quiet.ooc_r[3] = 100.0;
  const double malloc_before = quiet.comr[8];
  EXPECT_EQ(quiet.run(13, {1, 9}), "");
  EXPECT_EQ(quiet.flags[9], 1);
  EXPECT_GE(quiet.comr[9], 0.0);
  EXPECT_LT(quiet.comr[9], 1e6) << "comr[9] must hold a duration, not the clock";
  EXPECT_DOUBLE_EQ(quiet.comr[8], malloc_before + quiet.comr[9]);
  EXPECT_DOUBLE_EQ(quiet.ooc_r[3], 100.0 + quiet.comr[9]);
}

// Out-of-core mode 2: the I/O lines inside the time table, the percentages
// in ooc_l(13) to ooc_l(16) and, when the call ends with a solve, the table.
template <class R> void check_out_of_core() {
  call_state<R> s;
  s.ooc = true;
  s.OOCL(1) = 2;
  s.OOCL(8) = -1294967296;  // 3000000000 bytes, past the signed range
  s.OOCL(9) = 1500000;
  s.OOCL(10) = 250000;
  s.ooc_r[0] = 20.0f;   // writing, factorization
  s.ooc_r[1] = 10.25f;  // reading, factorization
  s.ooc_r[2] = 10.25f;  // reading, solve
  s.ooc_r[3] = 100.0f;  // whole time so far
  s.comr[5] = 80.0;
  s.comr[6] = 20.0;
  const std::string out = s.run(23, {5, 6, 7, 9});
  EXPECT_EQ(between(out, "Time A to LU", "Time solve"),
            "      Time A to LU: 0.625000 s\n"
            "      Factorization:\tTime for writing to files : 20.000000\n"
            "      Factorization:\tTime for reading from files : 10.250000\n"
            "      Time numfct : 80.000000 s\n"
            "      Solution:\tTime for reading from files : 10.250000\n"
            "      Time solve  : 20.000000 s\n");
  // 40.5 s of I/O in the whole time: 100 s so far and this call's time.
  EXPECT_EQ((std::vector<int>{25, 12, 51, 40}), std::vector<int>(&s.OOCL(13), &s.OOCL(17)));
  const double sum = 0.625 + 80.0 + 20.0 + s.comr[8];
  EXPECT_EQ(between(out, "Time total", "Statistics:"),
            "      Time total  :" + fmt(" %f s total - sum: %f s", s.comr[9], s.comr[9] - sum) + "\n" +
                " ==============================================================\n"
                " ----------- Out of core time (in percent (%)) --------------\n"
                "  Factorization step (100 (%)):\n"
                "      write to files : 25 %\n"
                "      read from files: 12 %\n"
                "      factorization - write&read : 63 %\n"
                "  Solution step (100 (%)):\n"
                "      read from files: 51 %\n"
                "      solve - write&read: 49 %\n"
                "  Total time (100 (%)):\n"
                "      read from files: 40 %\n"
                "      total - write&read: 60 %\n"
                " ----------- Out of core Mb --------------\n"
                "  Factorization step:\n"
                "      write to files :   3000.000 Mb \n"
                "      read from files:      1.500 Mb \n"
                "  Solution step:\n"
                "      read from files:      0.250 Mb \n"
                "  Total size of data transferred :\n"
                "      write&read        :   3001.750 Mb \n"
                " ==============================================================\n"
                "\nStatistics:\n");

  call_state<R> f = s;  // ends with the factorization: I/O lines, no table
  f.flags[6] = 0;
  const std::string fact = f.run(22, {5, 6, 9});
  EXPECT_NE(fact.find("Factorization:\tTime for writing"), std::string::npos);
  EXPECT_EQ(fact.find("Out of core"), std::string::npos);
}

TEST(Statistics, OutOfCoreLinesAndTable) {
  check_out_of_core<double>();
  check_out_of_core<float>();
}

}  // namespace
