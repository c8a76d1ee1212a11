// vek-solve: solves A X = B for a Matrix Market file or a generated matrix
// through the solver's entry, phase by phase (analysis, factorization, solve,
// release), and prints a summary: the outcome in words, the times of the
// phases, perturbed pivots, refinement steps, the inertia of a symmetric
// indefinite matrix, memory, and the relative residual
// ||b - A x|| / (||A|| ||x|| + ||b||). B is A * ones unless --rhs gives it.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <new>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "telmira.h"
#include "vekio.h"

namespace {

// Exit codes.
const int kExitSolverError = 1;
const int kExitBadInput = 2;
const int kExitInaccurate = 3;

const char *type_words(int t) {
  switch (t) {
    case 1: return "real, structurally symmetric";
    case 2: return "real symmetric positive definite";
    case -2: return "real symmetric indefinite";
    case 3: return "complex, structurally symmetric";
    case 4: return "complex Hermitian positive definite";
    case -4: return "complex Hermitian indefinite";
    case 6: return "complex symmetric";
    case 11: return "real unsymmetric";
    case 13: return "complex unsymmetric";
    default: return nullptr;
  }
}

void usage(FILE *f) {
  std::fprintf(f,
      "usage: vek-solve [FILE.mtx | --gen KIND:N] [options]\n"
      "  FILE.mtx        Matrix Market coordinate file (real, complex, integer or\n"
      "                  pattern; general, symmetric or Hermitian); pattern files get\n"
      "                  values that make them symmetric positive definite\n"
      "  --gen KIND:N    generated matrix: lap2d:N (5-point, N x N grid),\n"
      "                  lap3d:N (7-point, N^3 grid), cd2d:N (convection-diffusion\n"
      "                  on an N x N grid, type 11), cd3d:N (on N^3, first-order\n"
      "                  upwind, type 11), zcd3d:N (cd3d made complex, type 13),\n"
      "                  indef3d:N (lap3d minus a shift near 1,\n"
      "                  type -2), helm3d:N (the same plus 0.1 i, type 6),\n"
      "                  herm3d:N (Hermitian indefinite, type -4),\n"
      "                  diag:N (diagonal 1..N)\n"
      "  --mtype T       matrix type 1, 2, -2, 3, 4, -4, 6, 11, 13 (default: from\n"
      "                  the file's header; 2 for generated matrices)\n"
      "  --rhs FILE      right-hand sides from a Matrix Market file (array or\n"
      "                  coordinate, n rows, one column per side; default b = A * ones)\n"
      "  --out FILE      write the solution as a Matrix Market array file\n"
      "  --nrhs K        number of right-hand sides b = A * ones (default 1)\n"
      "  --threads T     threads of the solver (sets VEK_NUM_THREADS; default: the\n"
      "                  environment's setting)\n"
      "  --single        single precision\n"
      "  --check         run the solver's check of the input matrix (iparam(27))\n"
      "  --max-residual R  the largest relative residual that counts as solved\n"
      "                  (default 1e-8; 1e-4 with --single)\n"
      "  --msglvl L      solver message level 0, 1 or 2 (default 0)\n"
      "  --version       print the version and exit\n"
      "With no matrix given, solves the built-in example --gen lap3d:30 (27000\n"
      "equations, symmetric positive definite) at message level 1.\n"
      "On a terminal, a progress line on the standard error shows the running phase\n"
      "(not at message levels above 0, nor when the standard error is not a terminal).\n"
      "Exit codes: 0 solved; 1 the solver reported an error; 2 bad arguments or input\n"
      "file; 3 solved, but the relative residual is above the --max-residual limit\n"
      "(a warning line says so).\n");
}

bool parse_int(const char *s, int &v) {
  char *end = nullptr;
  long r = std::strtol(s, &end, 10);
  if (end == s || *end != '\0' || r < -2147483647L || r > 2147483647L) return false;
  v = static_cast<int>(r);
  return true;
}

bool parse_double(const char *s, double &v) {
  char *end = nullptr;
  v = std::strtod(s, &end);
  return end != s && *end == '\0';
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// One line on the standard error, rewritten in place while a phase runs:
// "vek-solve: factorization 3.2 s". Silent unless the standard error is a
// terminal; cleared before anything else is printed.
class progress_line {
 public:
  explicit progress_line(bool on) : on_(on) {
    if (on_) worker_ = std::thread([this] { run(); });
  }
  ~progress_line() { stop(); }

  void phase(const char *name) {
    if (!on_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    phase_ = name;
    start_ = std::chrono::steady_clock::now();
    draw_locked();
  }

  // Clears the line and ends the display.
  void stop() {
    if (!on_) return;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    wake_.notify_all();
    worker_.join();
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    on_ = false;
  }

 private:
  void run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!done_) {
      wake_.wait_for(lock, std::chrono::milliseconds(200));
      if (!done_) draw_locked();
    }
  }

  void draw_locked() {
    if (phase_ == nullptr) return;
    std::fprintf(stderr, "\r\033[Kvek-solve: %s %.1f s", phase_, seconds_since(start_));
    std::fflush(stderr);
  }

  bool on_;
  bool done_ = false;
  const char *phase_ = nullptr;
  std::chrono::steady_clock::time_point start_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::thread worker_;
};

struct options {
  std::string file, gen, rhs_file, out_file;
  int mtype = 0, nrhs = 1, msglvl = 0;
  bool single = false, mtype_given = false, level_given = false, nrhs_given = false;
  bool check = false;
  double max_residual = -1.0;
};

// Reads the command line; returns -1 to go on, or an exit code.
int parse_options(int argc, char **argv, options &o) {
  for (int k = 1; k < argc; ++k) {
    std::string arg = argv[k];
    auto need = [&](const char *what) -> const char * {
      if (k + 1 >= argc) {
        std::fprintf(stderr, "vek-solve: %s needs a value\n", what);
        std::exit(kExitBadInput);
      }
      return argv[++k];
    };
    if (arg == "--gen") o.gen = need("--gen");
    else if (arg == "--mtype") {
      if (!parse_int(need("--mtype"), o.mtype) || !type_words(o.mtype)) {
        std::fprintf(stderr, "vek-solve: --mtype must be one of 1, 2, -2, 3, 4, -4, 6, 11, 13\n");
        return kExitBadInput;
      }
      o.mtype_given = true;
    } else if (arg == "--nrhs") {
      if (!parse_int(need("--nrhs"), o.nrhs) || o.nrhs < 1) {
        std::fprintf(stderr, "vek-solve: --nrhs must be a positive integer\n");
        return kExitBadInput;
      }
      o.nrhs_given = true;
    } else if (arg == "--msglvl") {
      if (!parse_int(need("--msglvl"), o.msglvl) || o.msglvl < 0 || o.msglvl > 2) {
        std::fprintf(stderr, "vek-solve: --msglvl must be 0, 1 or 2\n");
        return kExitBadInput;
      }
      o.level_given = true;
    } else if (arg == "--threads") {
      int t = 0;
      const char *value = need("--threads");
      if (!parse_int(value, t) || t < 1) {
        std::fprintf(stderr, "vek-solve: --threads must be a positive integer\n");
        return kExitBadInput;
      }
      // Read by the library once, at its first call: set before any.
      setenv("VEK_NUM_THREADS", value, 1);
    } else if (arg == "--max-residual") {
      if (!parse_double(need("--max-residual"), o.max_residual) || !(o.max_residual > 0.0)) {
        std::fprintf(stderr, "vek-solve: --max-residual must be a positive number\n");
        return kExitBadInput;
      }
    } else if (arg == "--rhs") o.rhs_file = need("--rhs");
    else if (arg == "--out") o.out_file = need("--out");
    else if (arg == "--single") o.single = true;
    else if (arg == "--check") o.check = true;
    else if (arg == "--version") {
      std::printf("vek-solve (libvekutils) %s\n", vekutils_version());
      return 0;
    } else if (arg == "-h" || arg == "--help") {
      usage(stdout);
      return 0;
    } else if (!arg.empty() && arg[0] == '-') {
      std::fprintf(stderr, "vek-solve: unknown option %s\n", arg.c_str());
      usage(stderr);
      return kExitBadInput;
    } else if (o.file.empty()) o.file = arg;
    else {
      std::fprintf(stderr, "vek-solve: more than one matrix file given\n");
      return kExitBadInput;
    }
  }
  if (!o.file.empty() && !o.gen.empty()) {
    std::fprintf(stderr, "vek-solve: give a file or --gen, not both\n");
    return kExitBadInput;
  }
  if (o.file.empty() && o.gen.empty()) {
    o.gen = "lap3d:30";
    if (!o.level_given) o.msglvl = 1;
  }
  if (o.max_residual < 0.0) o.max_residual = o.single ? 1e-4 : 1e-8;
  return -1;
}

// The phases, each timed; the handle is released at the end whatever
// happened.
struct run_result {
  int error = 0;
  int failed_ido = 0;
  double t_analysis = -1, t_factor = -1, t_solve = -1;
};

}  // namespace

int solve_main(int argc, char **argv) {
  options o;
  const int parsed = parse_options(argc, argv, o);
  if (parsed >= 0) return parsed;

  const auto t_start = std::chrono::steady_clock::now();
  progress_line progress(o.msglvl == 0 && isatty(fileno(stderr)) == 1);
  progress.phase("reading");

  vekio::sparse full;
  std::string err, name;
  int suggested = 2;
  if (!o.file.empty()) {
    vekio::mm_header h;
    if (!vekio::read_matrix_market(o.file, full, h, err)) {
      progress.stop();
      std::fprintf(stderr, "vek-solve: %s\n", err.c_str());
      return kExitBadInput;
    }
    if (h.pattern) full = vekio::make_spd(full);
    suggested = vekio::suggested_mtype(h);
    name = o.file;
  } else {
    if (!vekio::generate(o.gen, full, err)) {
      progress.stop();
      std::fprintf(stderr, "vek-solve: %s\n", err.c_str());
      return kExitBadInput;
    }
    name = o.gen;
    if (o.gen.compare(0, 5, "cd2d:") == 0 || o.gen.compare(0, 5, "cd3d:") == 0)
      suggested = 11;  // unsymmetric values
    if (o.gen.compare(0, 6, "zcd3d:") == 0) suggested = 13;
    if (o.gen.compare(0, 8, "indef3d:") == 0) suggested = -2;
    if (o.gen.compare(0, 7, "helm3d:") == 0) suggested = 6;
    if (o.gen.compare(0, 7, "herm3d:") == 0) suggested = -4;
  }
  int mtype = o.mtype_given ? o.mtype : suggested;
  const bool cplx_type = !(std::abs(mtype) <= 2 || mtype == 11);
  if (cplx_type && !full.cplx) {
    // A real matrix solved as a complex one: imaginary parts are zero.
    std::vector<double> z(2 * full.a.size(), 0.0);
    for (std::size_t k = 0; k < full.a.size(); ++k) z[2 * k] = full.a[k];
    full.a.swap(z);
    full.cplx = true;
  } else if (!cplx_type && full.cplx) {
    progress.stop();
    std::fprintf(stderr, "vek-solve: %s is complex; choose a complex --mtype (3, 4, -4, 6, 13)\n",
                 name.c_str());
    return kExitBadInput;
  }
  const vekio::sparse A = vekio::storage_for_type(full, mtype);
  int n = A.n;
  const int w = A.cplx ? 2 : 1;

  // The right-hand sides: from --rhs, or b = A * ones.
  int nrhs = o.nrhs;
  std::vector<double> b;
  if (!o.rhs_file.empty()) {
    vekio::dense_block rb;
    if (!vekio::read_matrix_market_dense(o.rhs_file, rb, err)) {
      progress.stop();
      std::fprintf(stderr, "vek-solve: %s\n", err.c_str());
      return kExitBadInput;
    }
    if (rb.n != n) {
      progress.stop();
      std::fprintf(stderr, "vek-solve: %s has %d rows, the matrix %d\n", o.rhs_file.c_str(),
                   rb.n, n);
      return kExitBadInput;
    }
    if (o.nrhs_given && rb.k != o.nrhs) {
      progress.stop();
      std::fprintf(stderr, "vek-solve: %s has %d columns, --nrhs says %d\n",
                   o.rhs_file.c_str(), rb.k, o.nrhs);
      return kExitBadInput;
    }
    if (rb.cplx && !A.cplx) {
      progress.stop();
      std::fprintf(stderr, "vek-solve: %s is complex; choose a complex --mtype (3, 4, -4, 6, 13)\n",
                   o.rhs_file.c_str());
      return kExitBadInput;
    }
    nrhs = rb.k;
    if (A.cplx && !rb.cplx) {
      b.assign(2 * rb.v.size(), 0.0);
      for (std::size_t k = 0; k < rb.v.size(); ++k) b[2 * k] = rb.v[k];
    } else {
      b.swap(rb.v);
    }
  } else {
    const std::size_t len = static_cast<std::size_t>(n) * w * nrhs;
    std::vector<double> ones(static_cast<std::size_t>(n) * w, 0.0);
    for (int i = 0; i < n; ++i) ones[static_cast<std::size_t>(i) * w] = 1.0;
    b.assign(len, 0.0);
    vekio::multiply(A, mtype, ones.data(), b.data());
    for (int r = 1; r < nrhs; ++r)
      std::copy(b.begin(), b.begin() + static_cast<long>(n) * w,
                b.begin() + static_cast<long>(r) * n * w);
  }
  const std::size_t len = static_cast<std::size_t>(n) * w * nrhs;
  std::vector<double> x(len, 0.0);
  const double t_read = seconds_since(t_start);

  // The solver's arguments.
  intptr_t handle[TELMIRA_HANDLE_WORDS] = {0};
  int iparam[TELMIRA_IPARAM_WORDS] = {0};
  iparam[26] = o.check ? 1 : 0;
  iparam[27] = o.single ? 1 : 0;
  std::vector<int> perm(n > 0 ? n : 1, 0);
  int max_fac_store = 1, matrix_number = 1;
  std::vector<float> af, bf, xf;
  const void *ap = A.a.data();
  void *bp = b.data(), *xp = x.data();
  if (o.single) {
    af.assign(A.a.begin(), A.a.end());
    bf.assign(b.begin(), b.end());
    xf.assign(len, 0.0f);
    ap = af.data();
    bp = bf.data();
    xp = xf.data();
  }
  // The report of the solver (msglvl 1) goes to the standard output: the
  // header lines come first.
  if (o.msglvl > 0) progress.stop();
  if (o.msglvl > 0) {
    std::printf("vek-solve (libvekutils %s)\n", vekutils_version());
    std::printf("matrix  : %s, n = %d, %d stored entries, type %d\n", name.c_str(), n,
                A.nnz(), mtype);
    std::fflush(stdout);
  }

  run_result r;
  auto call = [&](int ido, const char *what, double &seconds) {
    progress.phase(what);
    int error = 0;
    const auto t0 = std::chrono::steady_clock::now();
    telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &n, ap, A.ia.data(),
            A.ja.data(), perm.data(), &nrhs, iparam, &o.msglvl, bp, xp, &error);
    seconds = seconds_since(t0);
    if (error != 0 && r.error == 0) {
      r.error = error;
      r.failed_ido = ido;
    }
    return error == 0;
  };
  if (call(11, "analysis", r.t_analysis) && call(22, "factorization", r.t_factor))
    call(33, "solve", r.t_solve);
  // The figures of the calls, before the release.
  const int perturbed = iparam[13], steps = iparam[6], npos = iparam[21], nneg = iparam[22];
  const int kb_peak = iparam[14], kb_permanent = iparam[15], kb_numeric = iparam[16];
  const int factor_entries = iparam[17], status = iparam[29], threads = iparam[2];
  const bool diagonal = iparam[11] == -1;
  int release = -1, err2 = 0;
  telmira(handle, &max_fac_store, &matrix_number, &mtype, &release, &n, ap, A.ia.data(),
          A.ja.data(), perm.data(), &nrhs, iparam, &o.msglvl, bp, xp, &err2);
  progress.stop();

  struct rusage usage_self;
  std::memset(&usage_self, 0, sizeof usage_self);
  getrusage(RUSAGE_SELF, &usage_self);

  if (o.msglvl == 0) std::printf("vek-solve (libvekutils %s)\n", vekutils_version());
  std::printf("matrix  : %s\n", name.c_str());
  std::printf("n       : %d\nentries : %d stored (%s storage)\n", n, A.nnz(),
              vekio::symmetric_type(mtype) ? "upper triangle" : "full");
  std::printf("mtype   : %d (%s)%s\n", mtype, type_words(mtype), o.single ? ", single precision" : "");
  std::printf("rhs     : %d%s\n", nrhs, o.rhs_file.empty() ? " (b = A * ones)" : "");
  std::printf("error   : %d (%s)\n", r.error, telmira_error_words(r.error));
  if (r.error != 0) {
    std::printf("failed  : at ido %d\n", r.failed_ido);
    if (r.error == -3 || r.error == -4) {
      const char *detail = telmira_status_words(r.error, status);
      std::printf("status  : iparam(30) = %d%s%s\n", status, *detail ? ", " : "", detail);
    }
  }
  if (diagonal) std::printf("path    : diagonal matrix, solved without analysis\n");
  if (diagonal && r.error == -7)
    std::printf("note    : one entry per row: a zero value, an empty row or a column named twice "
                "makes such a matrix singular\n");
  std::printf("threads : %d\n", threads);
  std::printf("times   : read %.3f s, analysis %.3f s, factorization %.3f s, solve %.3f s\n",
              t_read, std::max(r.t_analysis, 0.0), std::max(r.t_factor, 0.0),
              std::max(r.t_solve, 0.0));
  const bool analysed = r.error == 0 || r.failed_ido > 11;
  if (!diagonal && analysed) {
    std::printf("factor  : %d entries in L and U, %d perturbed pivots\n", factor_entries,
                perturbed);
    if (mtype == -2 && r.t_factor >= 0 && (r.error == 0 || r.failed_ido == 33))
      std::printf("inertia : %d positive, %d negative eigenvalues\n", npos, nneg);
    if (r.t_solve >= 0) std::printf("refine  : %d steps\n", steps);
    std::printf("memory  : solver peak %d kB (analysis %d kB; factors and solve %d kB), process peak %ld kB\n",
                std::max(kb_peak, kb_permanent + kb_numeric), kb_peak, kb_permanent + kb_numeric,
                static_cast<long>(usage_self.ru_maxrss));
  } else {
    std::printf("memory  : process peak %ld kB\n", static_cast<long>(usage_self.ru_maxrss));
  }
  if (err2 != 0) std::printf("release : error %d (%s)\n", err2, telmira_error_words(err2));
  if (r.error != 0) return kExitSolverError;

  if (o.single) x.assign(xf.begin(), xf.end());
  const double res = vekio::relative_residual(A, mtype, x.data(), b.data(), nrhs);
  std::printf("residual: %.3e (relative, ||b - A x|| / (||A|| ||x|| + ||b||))\n", res);
  if (!o.out_file.empty()) {
    vekio::dense_block sol;
    sol.n = n;
    sol.k = nrhs;
    sol.cplx = A.cplx;
    sol.v = x;
    if (!vekio::write_matrix_market_dense(o.out_file, sol, err)) {
      std::fprintf(stderr, "vek-solve: %s\n", err.c_str());
      return kExitBadInput;
    }
    std::printf("output  : %s\n", o.out_file.c_str());
  }
  if (!(res <= o.max_residual)) {
    std::printf("warning : the relative residual %.3e is above %.1e: the solution is not accurate\n",
                res, o.max_residual);
    return kExitInaccurate;
  }
  return 0;
}

int main(int argc, char **argv) {
  // A matrix too large for this machine's memory ends with a message, not
  // with an abort.
  try {
    return solve_main(argc, argv);
  } catch (const std::bad_alloc &) {
    std::fprintf(stderr, "vek-solve: not enough memory for the matrix and its vectors\n");
    return kExitBadInput;
  }
}
