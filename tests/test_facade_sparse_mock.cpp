// Tests of the sparse path of muLinearSolver against a recording stand-in
// for telmira: the calls it makes (one with ido 13, the retry as type 11,
// the release with its own error cell), the arguments it hands over, and
// the mapping of the error numbers. The stand-in defined here takes the
// place of the library's telmira for the whole test program, as does the
// thread count below.
#include <gtest/gtest.h>

#include <stdint.h>

#include <vector>

#include "host_arrays.h"
#include "muLinearSolver.h"
#include "service/vek_serv_threads.h"
#include "telmira.h"

namespace {

struct Call {
  const intptr_t *handle;
  bool handle_zero;
  int matrix_type, ido, nb;
  const int *error_cell;
  std::vector<int> ia, ja, iparam;
};

std::vector<Call> calls;
std::vector<int> script;  // error numbers of the working calls, in turn
int release_error = -5;   // what the release writes to its error cell

const int kThreads = 3;

}  // namespace

int vek_serv_get_max_threads() { return kThreads; }

extern "C" void telmira(intptr_t *handle, const int *, const int *, const int *matrix_type,
                        const int *ido, const int *neqns, const void *a, const int *ia,
                        const int *ja, int *, const int *nb, int *iparam, const int *,
                        void *b, void *x, int *error) {
  Call c;
  c.handle = handle;
  c.handle_zero = true;
  for (int k = 0; k < TELMIRA_HANDLE_WORDS; ++k)
    if (handle[k] != 0) c.handle_zero = false;
  c.matrix_type = *matrix_type;
  c.ido = *ido;
  c.nb = *nb;
  c.error_cell = error;
  c.ia.assign(ia, ia + *neqns + 1);
  c.ja.assign(ja, ja + (ia[*neqns] - 1));
  c.iparam.assign(iparam, iparam + TELMIRA_IPARAM_WORDS);
  calls.push_back(c);
  handle[0] = 1;  // some state, as the solver leaves it
  if (*ido == -1) {
    *error = release_error;
    return;
  }
  std::size_t working = 0;
  for (const Call &k : calls) working += (k.ido != -1);
  *error = working <= script.size() ? script[working - 1] : 0;
  // Divides by the first entry of each row: enough to see the result
  // arrive in x.
  if (*error == 0)
    for (int j = 0; j < *nb; ++j)
      for (int i = 0; i < *neqns; ++i)
        static_cast<double *>(x)[j * *neqns + i] =
            static_cast<const double *>(b)[j * *neqns + i] /
            static_cast<const double *>(a)[ia[i] - 1];
}

namespace {

using vektest::contents;
using vektest::make;

// [[2,1,0],[1,4,0],[0,0,5]] in full storage (the stand-in reads only the
// first entry of each row).
struct Sparse {
  std::vector<int> rs = {0, 2, 4, 5}, ci = {0, 1, 0, 1, 2};
  intcoDynArr row_start = make<intcoDynArr>(rs), col_index = make<intcoDynArr>(ci);
  doublecoDynArr coeffs = make<doublecoDynArr>(std::vector<double>{2, 1, 1, 4, 5});
  doublecoDynArr rhs = make<doublecoDynArr>(std::vector<double>{2, 4, 10, 4, 8, 20});
  doublecoDynArr solution;
  muSolveError error = muSolveFailed;

  muSolveError run(muMatrixSym sym, std::vector<int> errors, int restore = 1) {
    calls.clear();
    script = std::move(errors);
    muLinearSolver::solve_equations(sym, 3, 2, restore, row_start, col_index,
                                    coeffs, rhs, solution, error);
    return error;
  }
};

std::vector<int> idos() {
  std::vector<int> v;
  for (const Call &c : calls) v.push_back(c.ido);
  return v;
}

}  // namespace

TEST(FacadeSparseMock, OneWorkingCallThenReleaseOnItsOwnErrorCell) {
  Sparse s;
  EXPECT_EQ(s.run(muMatrixUnsym, {0}), muSolveOk);
  ASSERT_EQ(idos(), (std::vector<int>{13, -1}));
  const Call &work = calls[0], &rel = calls[1];
  EXPECT_TRUE(work.handle_zero);
  EXPECT_EQ(rel.handle, work.handle);
  EXPECT_EQ(work.matrix_type, 11);
  EXPECT_EQ(rel.matrix_type, 11);
  EXPECT_EQ(work.nb, 2);
  // The release's error (-5 here) does not reach the result.
  EXPECT_NE(rel.error_cell, work.error_cell);
  // The solution array was grown before the call, and holds the result.
  EXPECT_EQ(contents(s.solution), (std::vector<double>{1, 4, 2, 2, 8, 4}));
  // The indices one-based for the solver, and restored.
  EXPECT_EQ(work.ia, (std::vector<int>{1, 3, 5, 6}));
  EXPECT_EQ(work.ja, (std::vector<int>{1, 2, 1, 2, 3}));
  EXPECT_EQ(contents(s.row_start), s.rs);
  EXPECT_EQ(contents(s.col_index), s.ci);
  // The type asked for, with the library's thread count.
  Sparse p;
  p.run(muMatrixSymPosDef, {0});
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls[0].matrix_type, 2);
  EXPECT_EQ(calls[0].iparam[2], kThreads);
}

TEST(FacadeSparseMock, IndicesKeptOneBasedWhenAskedAlsoAfterAFailure) {
  Sparse k;
  k.run(muMatrixUnsym, {-4}, 0);
  EXPECT_EQ(contents(k.row_start), (std::vector<int>{1, 3, 5, 6}));
  EXPECT_EQ(contents(k.col_index), (std::vector<int>{1, 2, 1, 2, 3}));
}

TEST(FacadeSparseMock, ReorderingFailureOfTypeOneIsRetriedOnceAsTypeEleven) {
  Sparse s;
  EXPECT_EQ(s.run(muMatrixStructSym, {-3, 0}), muSolveOk);
  ASSERT_EQ(idos(), (std::vector<int>{13, 13, -1}));
  EXPECT_EQ(calls[0].matrix_type, 1);
  EXPECT_EQ(calls[1].matrix_type, 11);
  EXPECT_EQ(calls[2].matrix_type, 11);
  EXPECT_EQ(calls[1].handle, calls[0].handle);
  EXPECT_FALSE(calls[1].handle_zero);  // the same handle, as left

  // The second error number stands, -3 included.
  Sparse t;
  EXPECT_EQ(t.run(muMatrixStructSym, {-3, -9}), muSolveNoMemory);
  Sparse u;
  EXPECT_EQ(u.run(muMatrixStructSym, {-3, -3}), muSolveFailed);
  EXPECT_EQ(idos(), (std::vector<int>{13, 13, -1}));

  // Only type 1 is retried, and only after -3.
  for (muMatrixSym sym : {muMatrixUnsym, muMatrixSymPosDef}) {
    Sparse o;
    EXPECT_EQ(o.run(sym, {-3, 0}), muSolveFailed);
    EXPECT_EQ(idos(), (std::vector<int>{13, -1}));
  }
  Sparse v;
  EXPECT_EQ(v.run(muMatrixStructSym, {-4, 0}), muSolveFailed);
  EXPECT_EQ(idos(), (std::vector<int>{13, -1}));
}

TEST(FacadeSparseMock, ErrorNumbersMapToThreeResults) {
  const struct { int error; muSolveError want; } table[] = {
      {0, muSolveOk},        {-2, muSolveNoMemory}, {-9, muSolveNoMemory},
      {-1, muSolveFailed},   {-4, muSolveFailed},   {-7, muSolveFailed},
      {-10, muSolveFailed},  {16, muSolveFailed}};
  for (const auto &row : table) {
    Sparse s;
    EXPECT_EQ(s.run(muMatrixUnsym, {row.error}), row.want) << "error " << row.error;
    EXPECT_EQ(idos().back(), -1) << "released after error " << row.error;
  }
}

