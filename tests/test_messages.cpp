// The message service: printing by number, the word and real forms, the
// solver's internal numbers and their rows, the buffer overflow exit, and
// the lines of xerbla (a handler in its place: test_dense_factor).
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <string>

#include "service/vek_serv_message.h"

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

TEST(MessageService, FormatReturnsTextOrResultBuffer) {
  EXPECT_STREQ(vek_serv_format_message(0, 0), "");
  EXPECT_STREQ(vek_serv_format_message(890, 0), "reorder");
  EXPECT_STREQ(vek_serv_format_message(810, 1, -4), "handle=0 ?? ido= -4");
  // Without arguments the row itself comes back, unformatted.
  EXPECT_STREQ(vek_serv_format_message(784, 0), "  Factorization step (100 (%%)):");
  // The table keeps its numbering: identity is the row number + 1.
  EXPECT_EQ(vek_serv_message_row(808)->identity, 809);
  EXPECT_EQ(vek_serv_message_row(VEK_MESSAGE_ROWS), nullptr);
}

TEST(MessageService, WordAndRealArgumentForms) {
  const std::intptr_t words[2] = {-3, reinterpret_cast<std::intptr_t>("DGEMM")};
  const double reals[1] = {2.5};
  CaptureStdout();
  vek_serv_print_message_words(7, 2, words);
  vek_serv_print_message_reals(951, 1, reals);
  vek_serv_print_message_reals(799, 1, reals);  // width and precision kept
  EXPECT_EQ(GetCapturedStdout(),
            "VEK INTERNAL ERROR: Condition -3 detected in function DGEMM\n"
            "             ||A||                                           2.500000\n"
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
// reports (test_statistics, test_checks); here the rest.
TEST(SolverMessages, InternalNumbersMapToTheirRows) {
  EXPECT_EQ(solver_line(-4), "================  TELMIRA: solving a  Hermitian indef. system  ================\n");
  EXPECT_EQ(solver_line(430), "\n");  // row 836 is not used by this library
  EXPECT_EQ(solver_line(440, 1, 25), " exceeds max. iteration number 25\n");
  EXPECT_EQ(solver_line(452, 2, 1, 2), "*** Input check: j=1, ja(j)=2, ja(j+1)=%d are incompatible\n");
  EXPECT_EQ(solver_line(603, 1, 8), "*** Error in TELMIRA memory allocation: LOC_INT1, size to allocate: 8 bytes\n");
  EXPECT_EQ(solver_line(613, 1, 96), "*** Error in TELMIRA memory allocation: CGS_ARR , size to allocate: 96 bytes\n");
}

TEST(SolverMessages, UnknownNumbersTooManyArgumentsAndOtherPhaseWords) {
  EXPECT_EQ(solver_line(999), "TELMIRA Internationalization error! Message 999 is unknown\n");
  EXPECT_EQ(solver_line(115), "TELMIRA Internationalization error! Message 115 is unknown\n");
  EXPECT_EQ(solver_line(500), "TELMIRA Internationalization error! Message 500 is unknown\n");
  EXPECT_EQ(solver_line(405, 5), "");
  // A phase digit out of range gives an empty word; a count other than 2
  // the one-word form.
  EXPECT_EQ(solver_line(0, 3, 7, 2), "Summary TELMIRA: (  )\n================\n\n");
  const double two[2] = {1.5, 0.25};
  int n150 = 150, count = 1;
  CaptureStdout();
  telmira_message_real(&n150, &count, two);
  telmira_newline();
  EXPECT_EQ(GetCapturedStdout(), "TELMIRA Internationalization error! Message 150 is unknown\n\n");
}

TEST(Xerbla, RowsByInfoAndTheNameCutToTwentyCharacters) {
  const char *name = "ABCDEFGHIJKLMNOPQRSTUVWXY";  // 25 characters
  int info = -3, i1000 = 1000, i1001 = 1001, i1079 = 1079, i5 = 5;
  CaptureStdout();
  xerbla(name, &info, 25);
  xerbla("DGEMM", &i1000, 5);
  xerbla("DTRSM", &i1001, 5);
  xerbla("DPOTRF", &i1079, 6);
  xerbla("DGEMM ", &i5, 3);  // the length limits the name
  EXPECT_EQ(GetCapturedStdout(),
            "\nVEK INTERNAL ERROR: Condition 3 detected in function ABCDEFGHIJKLMNOPQRST\n"
            "\nVEK INTERNAL ERROR: Not enough work memory in function DGEMM\n"
            "\nVEK ERROR: Incompatible optional parameters on entry to DTRSM\n"
            "\nVEK INTERNAL ERROR: Not enough work memory in function DPOTRF\n"
            "\nVEK ERROR: Parameter 5 was incorrect on entry to DGE\n");
}

}  // namespace
