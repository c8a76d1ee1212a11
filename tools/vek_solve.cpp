// vek-solve: solves A x = b for a Matrix Market file or a generated matrix
// through the solver's entry, with b = A * ones, and prints the outcome, the
// times and the relative residual ||b - A x|| / (||A|| ||x|| + ||b||).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "service/vek_serv_clock.h"
#include "telmira.h"
#include "vekio.h"

namespace {

const char *error_words(int e) {
  switch (e) {
    case 0: return "success";
    case -1: return "wrong sequence of phases, wrong parameters or refused input matrix";
    case -2: return "not enough memory";
    case -3: return "reordering or symbolic factorization failed";
    case -4: return "numerical factorization, solve or refinement failed";
    case -5: return "unclassified error";
    case -6: return "matching before reordering failed";
    case -7: return "internal error";
    case -8: return "32-bit integer overflow in a size computation";
    case -9: return "not enough memory for the out-of-core mode";
    case -10: return "an out-of-core temporary file could not be opened";
    case -11: return "read or write of an out-of-core data file failed";
    default: return "unknown error";
  }
}

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
      "                  upwind, type 11), indef3d:N (lap3d minus a shift near 1,\n"
      "                  type -2), helm3d:N (the same plus 0.1 i, type 6),\n"
      "                  herm3d:N (Hermitian indefinite, type -4),\n"
      "                  diag:N (diagonal 1..N)\n"
      "  --mtype T       matrix type 1, 2, -2, 3, 4, -4, 6, 11, 13 (default: from\n"
      "                  the file's header; 2 for generated matrices)\n"
      "  --nrhs K        number of right-hand sides (default 1)\n"
      "  --single        single precision\n"
      "  --msglvl L      solver message level 0, 1 or 2 (default 0)\n"
      "With no matrix given, solves the built-in example --gen lap3d:30 (27000\n"
      "equations, symmetric positive definite) at message level 1.\n");
}

bool parse_int(const char *s, int &v) {
  char *end = nullptr;
  long r = std::strtol(s, &end, 10);
  if (end == s || *end != '\0' || r < -2147483647L || r > 2147483647L) return false;
  v = static_cast<int>(r);
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  std::string file, gen;
  int mtype = 0, nrhs = 1, msglvl = 0;
  bool single = false, mtype_given = false, level_given = false;
  for (int k = 1; k < argc; ++k) {
    std::string arg = argv[k];
    auto need = [&](const char *what) -> const char * {
      if (k + 1 >= argc) {
        std::fprintf(stderr, "vek-solve: %s needs a value\n", what);
        std::exit(2);
      }
      return argv[++k];
    };
    if (arg == "--gen") gen = need("--gen");
    else if (arg == "--mtype") {
      if (!parse_int(need("--mtype"), mtype) || !type_words(mtype)) {
        std::fprintf(stderr, "vek-solve: --mtype must be one of 1, 2, -2, 3, 4, -4, 6, 11, 13\n");
        return 2;
      }
      mtype_given = true;
    } else if (arg == "--nrhs") {
      if (!parse_int(need("--nrhs"), nrhs) || nrhs < 1) {
        std::fprintf(stderr, "vek-solve: --nrhs must be a positive integer\n");
        return 2;
      }
    } else if (arg == "--msglvl") {
      if (!parse_int(need("--msglvl"), msglvl) || msglvl < 0 || msglvl > 2) {
        std::fprintf(stderr, "vek-solve: --msglvl must be 0, 1 or 2\n");
        return 2;
      }
      level_given = true;
    } else if (arg == "--single") single = true;
    else if (arg == "-h" || arg == "--help") { usage(stdout); return 0; }
    else if (!arg.empty() && arg[0] == '-') {
      std::fprintf(stderr, "vek-solve: unknown option %s\n", arg.c_str());
      usage(stderr);
      return 2;
    } else if (file.empty()) file = arg;
    else {
      std::fprintf(stderr, "vek-solve: more than one matrix file given\n");
      return 2;
    }
  }
  if (!file.empty() && !gen.empty()) {
    std::fprintf(stderr, "vek-solve: give a file or --gen, not both\n");
    return 2;
  }
  if (file.empty() && gen.empty()) {
    gen = "lap3d:30";
    if (!level_given) msglvl = 1;
  }

  vekio::sparse full;
  std::string err, name;
  int suggested = 2;
  if (!file.empty()) {
    vekio::mm_header h;
    if (!vekio::read_matrix_market(file, full, h, err)) {
      std::fprintf(stderr, "vek-solve: %s\n", err.c_str());
      return 2;
    }
    if (h.pattern) full = vekio::make_spd(full);
    suggested = vekio::suggested_mtype(h);
    name = file;
  } else {
    if (!vekio::generate(gen, full, err)) {
      std::fprintf(stderr, "vek-solve: %s\n", err.c_str());
      return 2;
    }
    name = gen;
    if (gen.compare(0, 5, "cd2d:") == 0 || gen.compare(0, 5, "cd3d:") == 0)
      suggested = 11;  // unsymmetric values
    if (gen.compare(0, 8, "indef3d:") == 0) suggested = -2;
    if (gen.compare(0, 7, "helm3d:") == 0) suggested = 6;
    if (gen.compare(0, 7, "herm3d:") == 0) suggested = -4;
  }
  if (!mtype_given) mtype = suggested;
  const bool cplx_type = !(std::abs(mtype) <= 2 || mtype == 11);
  if (cplx_type && !full.cplx) {
    // A real matrix solved as a complex one: imaginary parts are zero.
    std::vector<double> z(2 * full.a.size(), 0.0);
    for (std::size_t k = 0; k < full.a.size(); ++k) z[2 * k] = full.a[k];
    full.a.swap(z);
    full.cplx = true;
  } else if (!cplx_type && full.cplx) {
    std::fprintf(stderr, "vek-solve: %s is complex; choose a complex --mtype (3, 4, -4, 6, 13)\n",
                 name.c_str());
    return 2;
  }
  const vekio::sparse A = vekio::storage_for_type(full, mtype);
  const int n = A.n;
  const int w = A.cplx ? 2 : 1;
  const std::size_t len = static_cast<std::size_t>(n) * w * nrhs;

  // b = A * ones, for every right-hand side.
  std::vector<double> ones(static_cast<std::size_t>(n) * w, 0.0), b(len), x(len, 0.0);
  for (int i = 0; i < n; ++i) ones[static_cast<std::size_t>(i) * w] = 1.0;
  vekio::multiply(A, mtype, ones.data(), b.data());
  for (int r = 1; r < nrhs; ++r)
    std::copy(b.begin(), b.begin() + static_cast<long>(n) * w, b.begin() + static_cast<long>(r) * n * w);

  std::printf("matrix  : %s\n", name.c_str());
  std::printf("n       : %d\nentries : %d stored (%s storage)\n", n, A.nnz(),
              vekio::symmetric_type(mtype) ? "upper triangle" : "full");
  std::printf("mtype   : %d (%s)%s\n", mtype, type_words(mtype), single ? ", single precision" : "");

  intptr_t handle[TELMIRA_HANDLE_WORDS] = {0};
  int iparam[TELMIRA_IPARAM_WORDS] = {0};
  iparam[27] = single ? 1 : 0;
  std::vector<int> perm(n > 0 ? n : 1, 0);
  int max_fac_store = 1, matrix_number = 1, ido = 13, error = 0;
  std::vector<float> af, bf, xf;
  const void *ap = A.a.data();
  void *bp = b.data(), *xp = x.data();
  if (single) {
    af.assign(A.a.begin(), A.a.end());
    bf.assign(b.begin(), b.end());
    xf.assign(len, 0.0f);
    ap = af.data(); bp = bf.data(); xp = xf.data();
  }
  double t0, t1;
  telmira_clock(&t0);
  telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &n, ap, A.ia.data(), A.ja.data(),
          perm.data(), &nrhs, iparam, &msglvl, bp, xp, &error);
  telmira_clock(&t1);
  const bool diagonal = n > 0 && A.ia[n] - 1 == n;
  std::printf("error   : %d (%s)\n", error, error_words(error));
  std::printf("time    : %.6f s (analysis, factorization and solve, ido 13)\n", t1 - t0);
  if (diagonal) std::printf("path    : diagonal matrix, solved without analysis\n");
  int release = -1, err2 = 0;
  telmira(handle, &max_fac_store, &matrix_number, &mtype, &release, &n, ap, A.ia.data(), A.ja.data(),
          perm.data(), &nrhs, iparam, &msglvl, bp, xp, &err2);
  if (err2 != 0) std::printf("release : error %d (%s)\n", err2, error_words(err2));
  if (error != 0) {
    if (!diagonal && error == -7)
      std::printf("note    : this build solves diagonal matrices only; the sparse analysis,\n"
                  "          factorization and solve are not available yet\n");
    return 1;
  }
  if (single) x.assign(xf.begin(), xf.end());
  const double res = vekio::relative_residual(A, mtype, x.data(), b.data(), nrhs);
  std::printf("residual: %.3e (relative, ||b - A x|| / (||A|| ||x|| + ||b||))\n", res);
  return 0;
}
