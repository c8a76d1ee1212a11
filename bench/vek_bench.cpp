// vek-bench - times the three phases of a solve through the public entry:
// analysis (ido 11), factorization (22) and solve (33) as separate calls,
// then the release (-1). One header line, then one line per matrix with
// whitespace-separated columns, so that runs can be collected and compared
// by scripts.
//
//   vek-bench [--mtype T] [--nrhs K] [--reps R] [--single] [--threads T]
//             [--steps] [--metis-ref] [FILE.mtx | lap2d:N | lap3d:N | diag:N] ...
#include <metis.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "analysis_profile.h"
#include "dense/vek_dense.h"
#include "ordering.h"
#include "telmira.h"
#include "vekio.h"

namespace {

struct options {
  int mtype = 0;  // 0: from the file's header, 2 for generated matrices
  int nrhs = 1;
  int reps = 1;
  int threads = 1;
  bool single = false;
  int match = -1;  // -1: the type's default; 0 or 1: iparam(13) and iparam(11)
  int ooc = 0;     // iparam(60): 0 in core, 1 by memory, 2 factors in files
  int order = -1;  // iparam(2): -1 the default (2), else 0 to 3
  bool steps = false;      // the analysis by step
  bool metis_ref = false;  // a plain METIS_NodeND order beside ours
  std::vector<std::string> names;
};

// What one matrix gave: the best time of each phase over the repetitions
// and the figures the solver reports.
struct outcome {
  double seconds[3] = {1e30, 1e30, 1e30};  // analysis, factorization, solve
  int lu = -1, mflop = -1, threads = 0;
  int peak_kb = 0, permanent_kb = 0, numeric_kb = 0;
  double residual = -1.0;
  int error = 0, failed_ido = 0;
  int ooc_algorithm = -1;    // iparam(57) behind the analysis in files
  analysis_profile steps{};  // of the fastest analysis, with --steps
  long rss_start[3] = {-1, -1, -1};    // resident as each phase starts
  long rss_peak[3] = {-1, -1, -1};     // the peak within each phase
};

// Resident memory from /proc/self/status: key "VmRSS:" or "VmHWM:", in
// kilobytes; -1 where it cannot be read.
long status_kb(const char *key) {
  std::FILE *f = std::fopen("/proc/self/status", "r");
  if (f == nullptr) return -1;
  char line[256];
  long v = -1;
  const std::size_t klen = std::strlen(key);
  while (std::fgets(line, sizeof line, f) != nullptr)
    if (std::strncmp(line, key, klen) == 0) v = std::atol(line + klen);
  std::fclose(f);
  return v;
}

// Starts a new peak: the kernel sets the high-water mark back to the
// present resident size. Returns false where it refuses.
bool reset_peak() {
  std::FILE *f = std::fopen("/proc/self/clear_refs", "w");
  if (f == nullptr) return false;
  const bool ok = std::fputs("5", f) >= 0;
  return std::fclose(f) == 0 && ok;
}

double now() {
  using clock = std::chrono::steady_clock;
  return std::chrono::duration<double>(clock::now().time_since_epoch()).count();
}

void usage(FILE *f) {
  std::fprintf(f,
      "usage: vek-bench [options] [FILE.mtx | lap2d:N | lap3d:N | cd2d:N | cd3d:N | zcd3d:N | indef3d:N | helm3d:N | herm3d:N | diag:N] ...\n"
      "  --mtype T     matrix type (default: from the file's header; 11 for cd2d\n"
      "                and cd3d, 13 for zcd3d, -2 for indef3d, 6 for helm3d,\n"
      "                -4 for herm3d,\n"
      "                2 for the other\n"
      "                generated matrices; pattern files are made SPD)\n"
      "  --nrhs K      right-hand sides (default 1)\n"
      "  --reps R      repetitions, the best time of each phase counts (default 1)\n"
      "  --single      single precision (iparam(28) = 1)\n"
      "  --threads T   VEK_NUM_THREADS for the run (default 1)\n"
      "  --ooc M       iparam(60): 0 in core, 1 by memory, 2 factors in files\n"
      "                (VEK_TELMIRA_OOC_MAX_CORE_SIZE and the other variables of\n"
      "                the mode apply)\n"
      "  --order M     iparam(2), the ordering: 0 minimum degree, 1 minimum degree\n"
      "                over domains, 2 nested dissection on one thread (the\n"
      "                default), 3 nested dissection on the run's threads\n"
      "  --match M     weighted matching and scaling off (0) or on (1), through\n"
      "                iparam(13) and iparam(11) with the other defaults of the type\n"
      "  --own-level3  products, triangular solves and the factorizations of the\n"
      "                diagonal blocks by the library's own routines instead of\n"
      "                the installed BLAS and LAPACK (the default)\n"
      "  --installed-level3  the installed ones, for comparison\n"
      "  --dgemm N     first measure the dense product rate (N x N, the same\n"
      "                threads) and print it as a comment line\n"
      "  --steps       print the analysis time by step (comment lines \"# steps\")\n"
      "  --metis-ref   also run with a plain METIS_NodeND order passed as the\n"
      "                caller's permutation (iparam(5) = 1) and print its entries\n"
      "                and times next to ours (comment lines \"# metis-ref\")\n"
      "Default matrices: lap3d:30 lap3d:40 lap2d:500 and bcsstk13.mtx from\n"
      "../shared/matrices when it is there.\n");
}

bool parse_int(const char *s, int &v) {
  char *end = nullptr;
  const long r = std::strtol(s, &end, 10);
  if (end == s || *end != '\0' || r < -2147483647L || r > 2147483647L) return false;
  v = static_cast<int>(r);
  return true;
}

bool valid_type(int t) {
  return t == 1 || t == 2 || t == -2 || t == 3 || t == 4 || t == -4 || t == 6 ||
         t == 11 || t == 13;
}

bool exists(const std::string &path) {
  FILE *f = std::fopen(path.c_str(), "r");
  if (f == nullptr) return false;
  std::fclose(f);
  return true;
}

std::string base_name(const std::string &path) {
  const auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Loads a file or a generated matrix into the storage of its type. Returns
// false with a message in err.
bool load(const std::string &name, int given_mtype, vekio::sparse &A,
          int &mtype, std::string &err) {
  vekio::sparse full;
  int suggested = 2;
  const bool generated =
      name.find(':') != std::string::npos && name.find(".mtx") == std::string::npos;
  if (generated) {
    if (!vekio::generate(name, full, err)) return false;
    if (name.compare(0, 5, "cd2d:") == 0 || name.compare(0, 5, "cd3d:") == 0)
      suggested = 11;  // unsymmetric values
    if (name.compare(0, 6, "zcd3d:") == 0) suggested = 13;
    if (name.compare(0, 8, "indef3d:") == 0) suggested = -2;
    if (name.compare(0, 7, "helm3d:") == 0) suggested = 6;
    if (name.compare(0, 7, "herm3d:") == 0) suggested = -4;
  } else {
    vekio::mm_header h;
    if (!vekio::read_matrix_market(name, full, h, err)) return false;
    if (h.pattern) full = vekio::make_spd(full);
    suggested = vekio::suggested_mtype(h);
  }
  mtype = given_mtype != 0 ? given_mtype : suggested;
  const bool cplx_type = !(std::abs(mtype) <= 2 || mtype == 11);
  if (cplx_type && !full.cplx) {
    // A real matrix solved as a complex one: imaginary parts are zero.
    std::vector<double> z(2 * full.a.size(), 0.0);
    for (std::size_t k = 0; k < full.a.size(); ++k) z[2 * k] = full.a[k];
    full.a.swap(z);
    full.cplx = true;
  } else if (!cplx_type && full.cplx) {
    err = name + " is complex; choose a complex --mtype (3, 4, -4, 6, 13)";
    return false;
  }
  A = vekio::storage_for_type(full, mtype);
  return true;
}

// Analysis, factorization and solve as separate calls on a fresh handle,
// R times; each phase keeps its best time.
outcome run(const vekio::sparse &A, int mtype, const options &opt,
            const std::vector<int> *given = nullptr) {
  outcome out;
  int n = A.n, nrhs = opt.nrhs;
  const int w = A.cplx ? 2 : 1;
  const std::size_t side = static_cast<std::size_t>(n) * w;
  const std::size_t len = side * nrhs;

  // b = A * ones for every right-hand side.
  std::vector<double> ones(side, 0.0), b(len), x(len, 0.0);
  for (int i = 0; i < n; ++i) ones[static_cast<std::size_t>(i) * w] = 1.0;
  vekio::multiply(A, mtype, ones.data(), b.data());
  for (int r = 1; r < nrhs; ++r)
    std::copy(b.begin(), b.begin() + static_cast<long>(side),
              b.begin() + static_cast<long>(r * side));

  // The solver gets its own copy of b, fresh for each repetition.
  std::vector<float> af, bf, xf;
  std::vector<double> bd;
  const void *ap = A.a.data();
  void *bp = nullptr, *xp = x.data();
  if (opt.single) {
    af.assign(A.a.begin(), A.a.end());
    xf.assign(len, 0.0f);
    ap = af.data();
    xp = xf.data();
  }
  std::vector<int> perm(n > 0 ? n : 1, 0);
  if (given != nullptr) perm = *given;
  int max_fac_store = 1, matrix_number = 1, msglvl = 0;

  for (int rep = 0; rep < opt.reps && out.error == 0; ++rep) {
    intptr_t handle[TELMIRA_HANDLE_WORDS] = {0};
    int iparam[TELMIRA_IPARAM_WORDS] = {0};
    iparam[0] = 0;    // iparam(1): defaults filled at the analysis
    if (opt.match >= 0 || opt.ooc != 0 || opt.order >= 0) {
      // The caller's values: the defaults of the type, with the matching
      // and the scaling, the storage mode and the ordering as asked.
      iparam[0] = 1;
      iparam[1] = opt.order >= 0 ? opt.order : 2;
      const bool unsym = mtype == 11 || mtype == 13;
      const bool indef = mtype == -2 || mtype == -4 || mtype == 6;
      iparam[9] = unsym || mtype == 1 || mtype == 3 ? 13 : (indef ? 8 : 0);
      iparam[20] = indef ? 1 : 0;
      const int match = opt.match >= 0 ? opt.match : (unsym || indef ? 1 : 0);
      iparam[10] = match;
      iparam[12] = match;
      iparam[59] = opt.ooc;
    }
    if (given != nullptr) {
      if (iparam[0] == 0) {
        iparam[0] = 1;  // the defaults of the type, with the caller's order
        const bool unsym = mtype == 11 || mtype == 13;
        const bool indef = mtype == -2 || mtype == -4 || mtype == 6;
        iparam[1] = 2;
        iparam[9] = unsym || mtype == 1 || mtype == 3 ? 13 : (indef ? 8 : 0);
        iparam[10] = iparam[12] = unsym || indef ? 1 : 0;
        iparam[20] = indef ? 1 : 0;
      }
      iparam[4] = 1;  // iparam(5): take perm
    }
    iparam[17] = -1;  // iparam(18): report the entries of L and U
    iparam[18] = -1;  // iparam(19): report the factorization's work
    iparam[27] = opt.single ? 1 : 0;
    if (opt.single) {
      bf.assign(b.begin(), b.end());
      bp = bf.data();
    } else {
      bd = b;
      bp = bd.data();
    }
    const int phases[3] = {11, 22, 33};
    for (int p = 0; p < 3; ++p) {
      int ido = phases[p], error = 0;
      analysis_profile steps{};
      if (ido == 11 && opt.steps) analysis_profile_attach(&steps);
      const bool peaks = rep == 0 && reset_peak();
      if (peaks) out.rss_start[p] = status_kb("VmRSS:");
      const double t0 = now();
      telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &n, ap, A.ia.data(),
              A.ja.data(), perm.data(), &nrhs, iparam, &msglvl, bp, xp, &error);
      const double took = now() - t0;
      analysis_profile_attach(nullptr);
      if (peaks) out.rss_peak[p] = status_kb("VmHWM:");
      if (ido == 11 && opt.steps && took < out.seconds[p]) out.steps = steps;
      out.seconds[p] = std::min(out.seconds[p], took);
      // The entry stores its thread count in iparam(3) whenever the phase
      // driver runs; the diagonal shortcut leaves it alone.
      if (ido == 11) out.threads = iparam[2];
      if (error != 0) {
        out.error = error;
        out.failed_ido = ido;
        break;
      }
      if (ido == 11) {
        out.lu = iparam[17];
        out.mflop = iparam[18];
        if (opt.ooc != 0) out.ooc_algorithm = iparam[56];
      }
    }
    out.peak_kb = iparam[14];
    out.permanent_kb = iparam[15];
    out.numeric_kb = iparam[16];
    int release = -1, error = 0;
    telmira(handle, &max_fac_store, &matrix_number, &mtype, &release, &n, ap, A.ia.data(),
            A.ja.data(), perm.data(), &nrhs, iparam, &msglvl, bp, xp, &error);
  }
  if (out.error != 0) return out;
  if (opt.single)
    for (std::size_t k = 0; k < len; ++k) x[k] = xf[k];
  out.residual = vekio::relative_residual(A, mtype, x.data(), b.data(), nrhs);
  return out;
}

const char *const header_format =
    "%-22s %5s %4s %9s %10s %4s %7s %12s %10s %10s %10s %9s %10s %10s %10s "
    "%9s %6s %4s\n";

void print_header() {
  std::printf(header_format, "matrix", "mtype", "prec", "n", "nnz", "nrhs",
              "threads", "lu", "analyse_s", "factor_s", "solve_s", "gflops",
              "peak_kb", "perm_kb", "fact_kb", "residual", "error", "ido");
}

// One line; columns that the run didn't reach hold "-".
void print_line(const std::string &name, int mtype, const options &opt,
                const vekio::sparse &A, const outcome &o) {
  auto num = [](char *buf, std::size_t size, const char *f, double v, bool ok) {
    if (ok) std::snprintf(buf, size, f, v);
    else std::snprintf(buf, size, "-");
    return buf;
  };
  char lu[32], ta[32], tf[32], ts[32], gf[32], res[32], ido[16];
  const bool analysed = o.error == 0 || o.failed_ido > 11;
  const bool factorized = o.error == 0 || o.failed_ido > 22;
  const bool reported = analysed && o.lu >= 0;  // the diagonal path reports none
  num(lu, sizeof(lu), "%.0f", o.lu, reported);
  num(ta, sizeof(ta), "%.6f", o.seconds[0], analysed);
  num(tf, sizeof(tf), "%.6f", o.seconds[1], factorized);
  num(ts, sizeof(ts), "%.6f", o.seconds[2], o.error == 0);
  num(gf, sizeof(gf), "%.3f", o.mflop / 1000.0 / o.seconds[1],
      factorized && o.mflop >= 0 && o.seconds[1] > 0.0);
  num(res, sizeof(res), "%.2e", o.residual, o.error == 0);
  num(ido, sizeof(ido), "%.0f", o.failed_ido, o.error != 0);
  const int threads = o.threads > 0 ? o.threads : opt.threads;
  std::printf("%-22s %5d %4s %9d %10d %4d %7d %12s %10s %10s %10s %9s %10d %10d "
              "%10d %9s %6d %4s\n",
              name.c_str(), mtype, opt.single ? "s" : "d", A.n, A.nnz(), opt.nrhs,
              threads, lu, ta, tf, ts, gf, o.peak_kb, o.permanent_kb,
              o.numeric_kb, res, o.error, ido);
  std::fflush(stdout);
}

// The analysis by step, as one comment line.
void print_steps(const std::string &name, const analysis_profile &s) {
  double dissect = 0.0;
  for (int d = 0; d < s.levels && d < analysis_profile_levels; ++d) dissect += s.level[d];
  const double named = s.graph + s.reorder + s.sfinit + s.symbolic + s.scatter + s.lists +
                       s.alloc + s.plan;
  std::printf("# steps %s total %.4f graph %.4f reorder %.4f [compress %.4f dissect %.4f "
              "leaves %.4f bisections %d] sfinit %.4f symbolic %.4f scatter %.4f lists %.4f "
              "alloc %.4f plan %.4f other %.4f\n",
              name.c_str(), s.total, s.graph, s.reorder, s.compress, dissect, s.leaves,
              s.bisections, s.sfinit, s.symbolic, s.scatter, s.lists, s.alloc, s.plan,
              s.total - named);
  if (s.levels > 0) {
    std::printf("# steps %s levels", name.c_str());
    for (int d = 0; d < s.levels && d < analysis_profile_levels; ++d)
      std::printf(" %.4f", s.level[d]);
    std::printf("\n");
  }
}

// A plain METIS_NodeND order of the symmetric pattern of A (one-based perm,
// perm[new] = old) and the seconds it took.
std::vector<int> metis_order(const vekio::sparse &A, double *seconds) {
  int n = A.n, nadj = 0;
  std::vector<int> xadj(n + 1), adjncy(2 * static_cast<std::size_t>(A.nnz()) + 1);
  std::vector<int> work(fulladj_unsym_work(n, A.nnz()));
  fulladj_unsym(&n, const_cast<int *>(A.ia.data()), const_cast<int *>(A.ja.data()), nullptr,
                xadj.data(), adjncy.data(), &nadj, work.data());
  std::vector<idx_t> x(n + 1), a(nadj > 0 ? nadj : 1), perm(n), iperm(n);
  for (int i = 0; i <= n; ++i) x[i] = xadj[i] - 1;
  for (int p = 0; p < nadj; ++p) a[p] = adjncy[p] - 1;
  idx_t nn = n;
  const double t0 = now();
  METIS_NodeND(&nn, x.data(), a.data(), nullptr, nullptr, perm.data(), iperm.data());
  *seconds = now() - t0;
  std::vector<int> order(n);
  for (int k = 0; k < n; ++k) order[k] = static_cast<int>(perm[k]) + 1;
  return order;
}

// Our order against the plain METIS_NodeND order, as one comment line:
// entries of L (and U), analysis time, and the time of METIS_NodeND alone.
void print_metis_ref(const std::string &name, const vekio::sparse &A, int mtype,
                     const options &opt, const outcome &ours) {
  double nodend = 1e30;
  std::vector<int> order;
  for (int r = 0; r < opt.reps; ++r) {
    double s = 0.0;
    order = metis_order(A, &s);
    nodend = std::min(nodend, s);
  }
  options plain = opt;
  plain.steps = false;
  const outcome ref = run(A, mtype, plain, &order);
  if (ref.error != 0) {
    std::printf("# metis-ref %s error %d at ido %d\n", name.c_str(), ref.error, ref.failed_ido);
    return;
  }
  std::printf("# metis-ref %s lu %d ref_lu %d lu_ratio %.4f analyse_s %.4f ref_analyse_s %.4f "
              "ref_nodend_s %.4f factor_s %.4f ref_factor_s %.4f\n",
              name.c_str(), ours.lu, ref.lu,
              ref.lu > 0 ? static_cast<double>(ours.lu) / ref.lu : 0.0, ours.seconds[0],
              ref.seconds[0], nodend, ours.seconds[1], ref.seconds[1]);
}

}  // namespace

// Rate of the solver's dense product C := C - A B on order n, best of
// three, in GFlop/s.
double dgemm_rate(int n, int threads) {
  std::vector<double> a(static_cast<std::size_t>(n) * n), b(a.size()), c(a.size(), 0.0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    a[i] = 1.0 / (1.0 + static_cast<double>(i % 97));
    b[i] = 1.0 / (2.0 + static_cast<double>(i % 89));
  }
  vekd::blas_threads(threads);
  const double one = 1.0, mone = -1.0;
  double best = 1e30;
  for (int r = 0; r < 3; ++r) {
    const auto t0 = std::chrono::steady_clock::now();
    vekd::gemm<double>("N", "N", &n, &n, &n, &mone, a.data(), &n, b.data(), &n, &one,
                       c.data(), &n);
    const double t =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    best = std::min(best, t);
  }
  return 2.0 * n * n * static_cast<double>(n) / best * 1e-9;
}

int main(int argc, char **argv) {
  options opt;
  int dgemm_order = 0;
  for (int k = 1; k < argc; ++k) {
    const std::string arg = argv[k];
    auto value = [&](int &v, int low) {
      if (k + 1 >= argc || !parse_int(argv[k + 1], v) || v < low) {
        std::fprintf(stderr, "vek-bench: %s needs an integer of at least %d\n",
                     arg.c_str(), low);
        std::exit(2);
      }
      ++k;
    };
    if (arg == "--mtype") {
      if (k + 1 >= argc || !parse_int(argv[k + 1], opt.mtype) || !valid_type(opt.mtype)) {
        std::fprintf(stderr, "vek-bench: --mtype must be one of 1, 2, -2, 3, 4, -4, 6, 11, 13\n");
        return 2;
      }
      ++k;
    } else if (arg == "--nrhs") value(opt.nrhs, 1);
    else if (arg == "--reps") value(opt.reps, 1);
    else if (arg == "--threads") value(opt.threads, 1);
    else if (arg == "--dgemm") value(dgemm_order, 1);
    else if (arg == "--match") {
      value(opt.match, 0);
      if (opt.match > 1) {
        std::fprintf(stderr, "vek-bench: --match must be 0 or 1\n");
        return 2;
      }
    }
    else if (arg == "--order") {
      value(opt.order, 0);
      if (opt.order > 3) {
        std::fprintf(stderr, "vek-bench: --order must be 0, 1, 2 or 3\n");
        return 2;
      }
    }
    else if (arg == "--ooc") {
      value(opt.ooc, 0);
      if (opt.ooc > 2) {
        std::fprintf(stderr, "vek-bench: --ooc must be 0, 1 or 2\n");
        return 2;
      }
    }
    else if (arg == "--single") opt.single = true;
    else if (arg == "--steps") opt.steps = true;
    else if (arg == "--metis-ref") opt.metis_ref = true;
    else if (arg == "--own-level3") vekd::use_own_level3(1);
    else if (arg == "--installed-level3") vekd::use_own_level3(0);
    else if (arg == "-h" || arg == "--help") { usage(stdout); return 0; }
    else if (!arg.empty() && arg[0] == '-') {
      std::fprintf(stderr, "vek-bench: unknown option %s\n", arg.c_str());
      usage(stderr);
      return 2;
    } else opt.names.push_back(arg);
  }
  if (opt.names.empty()) {
    // The default set is positive definite throughout.
    if (opt.mtype == 0) opt.mtype = 2;
    opt.names = {"lap3d:30", "lap3d:40", "lap2d:500"};
    const std::string shared = "../shared/matrices/bcsstk13.mtx";
    if (exists(shared)) opt.names.push_back(shared);
  }
  // The thread services read the environment once, at the first call.
  setenv("VEK_NUM_THREADS", std::to_string(opt.threads).c_str(), 1);

  if (dgemm_order > 0)
    std::printf("# dgemm n=%d threads=%d: %.1f GFlop/s\n", dgemm_order, opt.threads,
                dgemm_rate(dgemm_order, opt.threads));
  print_header();
  int failures = 0;
  for (const std::string &name : opt.names) {
    vekio::sparse A;
    int mtype = 0;
    std::string err;
    if (!load(name, opt.mtype, A, mtype, err)) {
      std::fprintf(stderr, "vek-bench: %s\n", err.c_str());
      ++failures;
      continue;
    }
    const outcome o = run(A, mtype, opt);
    print_line(base_name(name), mtype, opt, A, o);
    // Where the process's memory went: resident as each phase starts (the
    // first: the bench's own matrix and vectors) and its peak within it.
    if (o.rss_peak[0] >= 0)
      std::printf("# rss_kb analysis %ld..%ld factorization %ld..%ld solve %ld..%ld\n",
                  o.rss_start[0], o.rss_peak[0], o.rss_start[1], o.rss_peak[1],
                  o.rss_start[2], o.rss_peak[2]);
    // The out-of-core plan: 0 all of L fits its arena, 3 the largest
    // branch of the dissection tree, 2 only a share (iparam(57)).
    if (o.ooc_algorithm >= 0) std::printf("# ooc algorithm %d\n", o.ooc_algorithm);
    if (o.error != 0) ++failures;
    if (opt.steps && o.error == 0) print_steps(base_name(name), o.steps);
    if (opt.metis_ref && o.error == 0) print_metis_ref(base_name(name), A, mtype, opt, o);
  }
  // The peak resident memory of the whole process, for comparing runs of
  // one matrix each.
  struct rusage ru;
  if (getrusage(RUSAGE_SELF, &ru) == 0) std::printf("# peak_rss_kb %ld\n", ru.ru_maxrss);
  return failures == 0 ? 0 : 1;
}
