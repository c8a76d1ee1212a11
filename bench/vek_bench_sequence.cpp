// vek-bench-sequence - a sequence of similar matrices, solved once with a
// factorization in every step and once in the hybrid mode, where the
// factors of an earlier matrix precondition an iteration.
//
// Each matrix of the sequence is the first with its values scaled entry by
// entry by 1 + c u, u a pseudo-random number in [-1, 1] and c the change
// (default 0.01). Step 0 analyses, factorizes and solves (ido 13); every
// later step is one ido 23 call. Printed per step of the hybrid run: the
// iteration's result iparam(20), the refinement steps, the time and the
// backward error against the current matrix; then the times of the later
// steps of both runs and their ratio.
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "telmira.h"
#include "vekio.h"

namespace {

struct options {
  int steps = 10;
  double change = 0.01;
  int iteration = 0;  // 0: 122 for the positive definite types, 121 else
  int mtype = 0;      // 0: from the generator (2 lap3d, 11 cd3d), 13 makes complex
  int threads = 1;
  std::vector<std::string> names;
};

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// The whole sequence with one selection iparam(4); returns the time of the
// steps after the first. verbose prints one line per step.
double run(const vekio::sparse &start, int mtype, int iteration, const options &opt,
           bool verbose, int *failures) {
  vekio::sparse A = start;
  int n = A.n, nb = 1, max_fac_store = 1, matrix_number = 1, msglvl = 0, error = 0;
  const int w = A.cplx ? 2 : 1;
  const bool unsym = mtype == 11 || mtype == 13;
  std::vector<int> perm(n);
  intptr_t handle[TELMIRA_HANDLE_WORDS] = {0};
  int iparam[TELMIRA_IPARAM_WORDS] = {0};
  iparam[0] = 1;
  iparam[1] = 2;
  iparam[3] = iteration;
  iparam[9] = unsym ? 13 : (mtype == 2 || mtype == 4 ? 0 : 8);
  iparam[10] = unsym ? 1 : 0;
  iparam[12] = unsym ? 1 : 0;
  iparam[20] = mtype == -2 || mtype == -4 || mtype == 6 ? 1 : 0;
  const std::vector<double> a0 = A.a;
  unsigned seed = 12345u;
  auto uniform = [&seed]() {
    seed = seed * 1103515245u + 12345u;
    return 2.0 * ((seed >> 8) & 0xffffu) / 65535.0 - 1.0;
  };
  double later = 0.0;
  for (int step = 0; step < opt.steps; ++step) {
    if (step > 0)
      for (std::size_t k = 0; k < A.a.size(); k += w) {
        const double f = 1.0 + opt.change * uniform();
        for (int q = 0; q < w; ++q) A.a[k + q] = a0[k + q] * f;
      }
    std::vector<double> xref(static_cast<std::size_t>(n) * w, 0.0), b(xref.size()),
        x(xref.size(), 0.0);
    for (int i = 0; i < n; ++i) xref[static_cast<std::size_t>(i) * w] = 1.0 + 0.001 * (i % 97);
    vekio::multiply(A, mtype, xref.data(), b.data());
    int ido = step == 0 ? 13 : 23;
    const double t0 = now();
    telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &n, A.a.data(), A.ia.data(), A.ja.data(),
            perm.data(), &nb, iparam, &msglvl, b.data(), x.data(), &error);
    const double t = now() - t0;
    if (step > 0) later += t;
    const double res = vekio::relative_residual(A, mtype, x.data(), b.data(), 1);
    if (error != 0) ++*failures;
    if (verbose)
      std::printf("  step %2d  error %3d  iparam(20) %5d  refinement %2d  %9.4f s  residual %.2e\n",
                  step, error, iparam[19], iparam[6], t, res);
  }
  int release = -1;
  telmira(handle, &max_fac_store, &matrix_number, &mtype, &release, &n, A.a.data(), A.ia.data(), A.ja.data(),
          perm.data(), &nb, iparam, &msglvl, nullptr, nullptr, &error);
  return later;
}

}  // namespace

int main(int argc, char **argv) {
  options opt;
  for (int k = 1; k < argc; ++k) {
    const std::string arg = argv[k];
    auto next = [&]() -> const char * {
      if (k + 1 >= argc) {
        std::fprintf(stderr, "vek-bench-sequence: %s needs a value\n", arg.c_str());
        std::exit(2);
      }
      return argv[++k];
    };
    if (arg == "--steps") opt.steps = std::atoi(next());
    else if (arg == "--change") opt.change = std::atof(next());
    else if (arg == "--iparam4") opt.iteration = std::atoi(next());
    else if (arg == "--mtype") opt.mtype = std::atoi(next());
    else if (arg == "--threads") opt.threads = std::atoi(next());
    else if (arg == "-h" || arg == "--help") {
      std::printf(
          "usage: vek-bench-sequence [--steps S] [--change C] [--iparam4 K] [--mtype T]\n"
          "                          [--threads T] [KIND:N ...]\n"
          "  a sequence of S matrices (default 10), each the first with its values\n"
          "  changed by up to C (default 0.01), solved with a factorization per step\n"
          "  and in the hybrid mode with iparam(4) = K (default 122 for types 2 and 4,\n"
          "  121 otherwise); --mtype 13 solves a generated real matrix as complex.\n"
          "  Default matrices: lap3d:40 (type 2) and cd3d:40 (type 11).\n");
      return 0;
    } else opt.names.push_back(arg);
  }
  if (opt.names.empty()) opt.names = {"lap3d:40", "cd3d:40"};
  setenv("VEK_NUM_THREADS", std::to_string(opt.threads).c_str(), 1);
  int failures = 0;
  for (const std::string &name : opt.names) {
    vekio::sparse full;
    std::string err;
    if (!vekio::generate(name, full, err)) {
      std::fprintf(stderr, "vek-bench-sequence: %s\n", err.c_str());
      return 2;
    }
    int mtype = opt.mtype != 0 ? opt.mtype : (name.compare(0, 5, "lap3d") == 0 ? 2 : 11);
    if (mtype == 13 && !full.cplx) {
      std::vector<double> z(2 * full.a.size());
      for (std::size_t k = 0; k < full.a.size(); ++k) {
        z[2 * k] = full.a[k];
        z[2 * k + 1] = 0.2 * full.a[k];
      }
      full.a.swap(z);
      full.cplx = true;
    }
    const vekio::sparse A = vekio::storage_for_type(full, mtype);
    const int iteration = opt.iteration != 0 ? opt.iteration : (mtype == 2 || mtype == 4 ? 122 : 121);
    std::printf("%s (type %d, n %d), %d steps, change %.3g, iparam(4) = %d:\n", name.c_str(),
                mtype, A.n, opt.steps, opt.change, iteration);
    const double hybrid = run(A, mtype, iteration, opt, true, &failures);
    const double direct = run(A, mtype, 0, opt, false, &failures);
    std::printf("  steps 1-%d: hybrid %.4f s, factorization in every step %.4f s, ratio %.3f\n",
                opt.steps - 1, hybrid, direct, direct > 0.0 ? hybrid / direct : 0.0);
  }
  return failures == 0 ? 0 : 1;
}
