// example_sequence.cpp - a time-stepping loop through telmira: the values
// of the matrix change a little from step to step (the pattern stays), and
// the hybrid mode solves each step with conjugate gradients preconditioned
// by the factors of an earlier step, factorizing again only when that no
// longer pays.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "telmira.h"

int main() {
  // A 3D diffusion operator on a 16^3 grid plus a mass term that grows in
  // time: symmetric positive definite (type 2), upper triangle stored,
  // one-based, diagonal first in each row.
  const int N = 16, n = N * N * N;
  std::vector<int> ia(1, 1), ja;
  std::vector<double> a;
  for (int z = 0; z < N; ++z)
    for (int y = 0; y < N; ++y)
      for (int x = 0; x < N; ++x) {
        const int i = (z * N + y) * N + x;
        ja.push_back(i + 1);
        a.push_back(6.0);
        if (x + 1 < N) { ja.push_back(i + 2); a.push_back(-1.0); }
        if (y + 1 < N) { ja.push_back(i + N + 1); a.push_back(-1.0); }
        if (z + 1 < N) { ja.push_back(i + N * N + 1); a.push_back(-1.0); }
        ia.push_back(static_cast<int>(ja.size()) + 1);
      }
  std::vector<double> diag(n);
  for (int i = 0; i < n; ++i) diag[i] = a[ia[i] - 1];

  intptr_t handle[64] = {0};
  int iparam[64] = {0};
  iparam[0] = 1;   // the caller's values:
  iparam[1] = 2;   //   nested dissection
  iparam[3] = 62;  //   CG (2) with a tolerance of 1e-6 (6)
  int mtype = 2, max_fac_store = 1, matrix_number = 1, nrhs = 1, msglvl = 0, error = 0;
  std::vector<int> perm(n);
  std::vector<double> b(n, 1.0), u(n, 0.0);
  for (int step = 0; step < 10; ++step) {
    // The mass term of this step: 1/dt with a time step that shrinks by 1 %.
    const double mass = 0.1 / std::pow(0.99, step);
    for (int i = 0; i < n; ++i) a[ia[i] - 1] = diag[i] + mass;
    int ido = step == 0 ? 13 : 23;  // analysis once, then numbers and solve
    telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &n, a.data(), ia.data(), ja.data(),
            perm.data(), &nrhs, iparam, &msglvl, b.data(), u.data(), &error);
    if (error != 0) {
      std::printf("step %d: error %d\n", step, error);
      break;
    }
    // iparam(20): the passes of the iteration (0 after a fresh factorization
    // that needed none), or a negative code when it gave up.
    std::printf("step %d: iparam(20) = %d\n", step, iparam[19]);
  }
  int release = -1;
  telmira(handle, &max_fac_store, &matrix_number, &mtype, &release, &n, a.data(), ia.data(), ja.data(),
          perm.data(), &nrhs, iparam, &msglvl, b.data(), u.data(), &error);
  return error == 0 ? 0 : 1;
}
