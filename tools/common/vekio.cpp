// vekio.cpp - Matrix Market input, model problems, storage forms, residuals.
#include "vekio.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <type_traits>

namespace vekio {

namespace {

struct triplet {
  int i, j;
  double re, im;
};

std::string lower(std::string s) {
  for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string where(const std::string &path, long line) {
  return path + ":" + std::to_string(line) + ": ";
}

// Builds compressed rows from triplets (one-based indices); duplicates are
// summed and columns sorted.
sparse from_triplets(int n, bool cplx, std::vector<triplet> &t) {
  std::sort(t.begin(), t.end(), [](const triplet &x, const triplet &y) {
    return x.i != y.i ? x.i < y.i : x.j < y.j;
  });
  sparse m;
  m.n = n;
  m.cplx = cplx;
  m.ia.assign(n + 1, 0);
  m.ja.reserve(t.size());
  m.a.reserve(t.size() * (cplx ? 2 : 1));
  int row = 0;
  for (std::size_t k = 0; k < t.size(); ++k) {
    if (!m.ja.empty() && t[k].i == row && m.ja.back() == t[k].j) {
      if (cplx) {
        m.a[m.a.size() - 2] += t[k].re;
        m.a.back() += t[k].im;
      } else {
        m.a.back() += t[k].re;
      }
      continue;
    }
    while (row < t[k].i) m.ia[row++] = static_cast<int>(m.ja.size()) + 1;
    m.ja.push_back(t[k].j);
    m.a.push_back(t[k].re);
    if (cplx) m.a.push_back(t[k].im);
  }
  while (row <= n) m.ia[row++] = static_cast<int>(m.ja.size()) + 1;
  // ia[r] for r in 0..n: the first entry of row r+1; rows with no entry get
  // the start of the next one.
  return m;
}

}  // namespace

bool read_matrix_market(const std::string &path, sparse &full,
                        mm_header &header, std::string &err) {
  std::ifstream in(path);
  if (!in) {
    err = path + ": cannot open the file";
    return false;
  }
  std::string line;
  long lineno = 0;
  if (!std::getline(in, line)) {
    err = where(path, 1) + "empty file";
    return false;
  }
  lineno = 1;
  {
    std::istringstream hs(line);
    std::string banner, object, format, field, symmetry;
    hs >> banner >> object >> format >> field >> symmetry;
    if (banner != "%%MatrixMarket") {
      err = where(path, 1) + "not a Matrix Market file (no %%MatrixMarket banner)";
      return false;
    }
    object = lower(object); format = lower(format);
    field = lower(field); symmetry = lower(symmetry);
    if (object != "matrix") {
      err = where(path, 1) + "object '" + object + "' is not a matrix";
      return false;
    }
    if (format != "coordinate") {
      err = where(path, 1) + "format '" + format + "' is not supported (coordinate only)";
      return false;
    }
    header = mm_header();
    if (field == "real" || field == "double") {
    } else if (field == "integer") {
      header.integer = true;
    } else if (field == "complex") {
      header.cplx = true;
    } else if (field == "pattern") {
      header.pattern = true;
    } else {
      err = where(path, 1) + "unknown field '" + field + "'";
      return false;
    }
    if (symmetry == "general") header.sym = mm_symmetry::general;
    else if (symmetry == "symmetric") header.sym = mm_symmetry::symmetric;
    else if (symmetry == "hermitian") header.sym = mm_symmetry::hermitian;
    else if (symmetry == "skew-symmetric") header.sym = mm_symmetry::skew;
    else {
      err = where(path, 1) + "unknown symmetry '" + symmetry + "'";
      return false;
    }
    if (header.sym == mm_symmetry::hermitian && !header.cplx) {
      err = where(path, 1) + "a hermitian matrix must be complex";
      return false;
    }
  }
  long rows = -1, cols = -1, entries = -1;
  while (std::getline(in, line)) {
    ++lineno;
    std::size_t p = line.find_first_not_of(" \t\r");
    if (p == std::string::npos || line[p] == '%') continue;
    std::istringstream ss(line);
    if (!(ss >> rows >> cols >> entries) || rows < 0 || cols < 0 || entries < 0) {
      err = where(path, lineno) + "bad size line (want: rows columns entries)";
      return false;
    }
    break;
  }
  if (rows < 0) {
    err = where(path, lineno) + "missing size line";
    return false;
  }
  if (rows != cols) {
    err = where(path, lineno) + "matrix is not square (" + std::to_string(rows) +
          " x " + std::to_string(cols) + ")";
    return false;
  }
  if (rows > 2147483646L) {
    err = where(path, lineno) + "too many rows for 32-bit indices";
    return false;
  }
  const int n = static_cast<int>(rows);
  // The header's counts are checked before anything is allocated from them.
  const bool one_triangle = header.sym != mm_symmetry::general;
  const long double places = one_triangle ? 0.5L * rows * (rows + 1.0L) : 1.0L * rows * rows;
  if (entries > 2147483646L || static_cast<long double>(entries) > places) {
    err = where(path, lineno) + std::to_string(entries) + " entries do not fit a matrix of " +
          std::to_string(rows) + " rows" +
          (entries > 2147483646L ? " with 32-bit indices" : "");
    return false;
  }
  // Every row needs an entry (a pattern gets its diagonal added later).
  if (!header.pattern && rows > (one_triangle ? 2 : 1) * entries) {
    err = where(path, lineno) + std::to_string(rows) + " rows but only " +
          std::to_string(entries) + " entries: some row is empty, the matrix is singular";
    return false;
  }
  std::vector<triplet> t;
  // Reserved by the header up to a bound; a lying header costs nothing.
  const long expect = std::min(entries, 1L << 20);
  t.reserve(static_cast<std::size_t>(expect) * (one_triangle ? 2 : 1));
  long got = 0;
  while (got < entries && std::getline(in, line)) {
    ++lineno;
    std::size_t p = line.find_first_not_of(" \t\r");
    if (p == std::string::npos || line[p] == '%') continue;
    const char *s = line.c_str();
    char *end = nullptr;
    long i = std::strtol(s, &end, 10);
    if (end == s) { err = where(path, lineno) + "bad row index"; return false; }
    s = end;
    long j = std::strtol(s, &end, 10);
    if (end == s) { err = where(path, lineno) + "bad column index"; return false; }
    s = end;
    double re = 1.0, im = 0.0;
    if (!header.pattern) {
      re = std::strtod(s, &end);
      if (end == s) { err = where(path, lineno) + "missing value"; return false; }
      s = end;
      if (header.cplx) {
        im = std::strtod(s, &end);
        if (end == s) { err = where(path, lineno) + "missing imaginary part"; return false; }
        s = end;
      }
    }
    while (*s == ' ' || *s == '\t' || *s == '\r') ++s;
    if (*s != '\0') { err = where(path, lineno) + "unexpected text after the entry"; return false; }
    if (!std::isfinite(re) || !std::isfinite(im)) {
      err = where(path, lineno) + "the value is not a finite number";
      return false;
    }
    if (i < 1 || i > n || j < 1 || j > n) {
      err = where(path, lineno) + "index (" + std::to_string(i) + ", " + std::to_string(j) +
            ") outside 1.." + std::to_string(n);
      return false;
    }
    if (header.sym != mm_symmetry::general && j > i) {
      err = where(path, lineno) + "entry above the diagonal in a file that stores the lower triangle";
      return false;
    }
    t.push_back({static_cast<int>(i), static_cast<int>(j), re, im});
    if (i != j) {
      switch (header.sym) {
        case mm_symmetry::general: break;
        case mm_symmetry::symmetric: t.push_back({(int)j, (int)i, re, im}); break;
        case mm_symmetry::hermitian: t.push_back({(int)j, (int)i, re, -im}); break;
        case mm_symmetry::skew: t.push_back({(int)j, (int)i, -re, -im}); break;
      }
    } else if (header.sym == mm_symmetry::skew) {
      err = where(path, lineno) + "diagonal entry in a skew-symmetric file";
      return false;
    }
    ++got;
  }
  if (got < entries) {
    err = where(path, lineno) + "file ends after " + std::to_string(got) + " of " +
          std::to_string(entries) + " entries";
    return false;
  }
  full = from_triplets(n, header.cplx, t);
  return true;
}

int suggested_mtype(const mm_header &h) {
  if (h.cplx) {
    if (h.sym == mm_symmetry::hermitian) return -4;
    if (h.sym == mm_symmetry::symmetric) return 6;
    return 13;
  }
  if (h.pattern) return h.sym == mm_symmetry::symmetric ? 2 : 11;
  return h.sym == mm_symmetry::symmetric ? -2 : 11;
}

sparse make_spd(const sparse &p) {
  std::vector<triplet> t;
  t.reserve(p.nnz() + p.n);
  for (int i = 1; i <= p.n; ++i) {
    int off = 0;
    for (int k = p.ia[i - 1]; k < p.ia[i]; ++k) {
      int j = p.ja[k - 1];
      if (j == i) continue;
      ++off;
      t.push_back({i, j, -1.0, 0.0});
    }
    t.push_back({i, i, off + 1.0, 0.0});
  }
  sparse m = from_triplets(p.n, false, t);
  return m;
}

sparse storage_for_type(const sparse &full, int mtype) {
  int a = mtype < 0 ? -mtype : mtype;
  if (a % 2 != 0) return full;
  const int w = full.cplx ? 2 : 1;
  std::vector<triplet> t;
  t.reserve(full.nnz() / 2 + full.n);
  for (int i = 1; i <= full.n; ++i) {
    bool diag = false;
    for (int k = full.ia[i - 1]; k < full.ia[i]; ++k) {
      int j = full.ja[k - 1];
      if (j < i) continue;
      if (j == i) diag = true;
      double re = full.a[(k - 1) * w], im = w == 2 ? full.a[(k - 1) * w + 1] : 0.0;
      t.push_back({i, j, re, im});
    }
    if (!diag) t.push_back({i, i, 0.0, 0.0});
  }
  return from_triplets(full.n, full.cplx, t);
}

sparse lap2d(int N) {
  const int n = N * N;
  std::vector<triplet> t;
  t.reserve(static_cast<std::size_t>(n) * 5);
  for (int y = 0; y < N; ++y)
    for (int x = 0; x < N; ++x) {
      int i = y * N + x + 1;
      if (y > 0) t.push_back({i, i - N, -1.0, 0.0});
      if (x > 0) t.push_back({i, i - 1, -1.0, 0.0});
      t.push_back({i, i, 4.0, 0.0});
      if (x < N - 1) t.push_back({i, i + 1, -1.0, 0.0});
      if (y < N - 1) t.push_back({i, i + N, -1.0, 0.0});
    }
  return from_triplets(n, false, t);
}

sparse lap3d(int N) {
  const int n = N * N * N;
  const int NN = N * N;
  std::vector<triplet> t;
  t.reserve(static_cast<std::size_t>(n) * 7);
  for (int z = 0; z < N; ++z)
    for (int y = 0; y < N; ++y)
      for (int x = 0; x < N; ++x) {
        int i = z * NN + y * N + x + 1;
        if (z > 0) t.push_back({i, i - NN, -1.0, 0.0});
        if (y > 0) t.push_back({i, i - N, -1.0, 0.0});
        if (x > 0) t.push_back({i, i - 1, -1.0, 0.0});
        t.push_back({i, i, 6.0, 0.0});
        if (x < N - 1) t.push_back({i, i + 1, -1.0, 0.0});
        if (y < N - 1) t.push_back({i, i + N, -1.0, 0.0});
        if (z < N - 1) t.push_back({i, i + NN, -1.0, 0.0});
      }
  return from_triplets(n, false, t);
}

sparse diagonal(int n, double first, double step) {
  sparse m;
  m.n = n;
  m.ia.resize(n + 1);
  m.ja.resize(n);
  m.a.resize(n);
  for (int i = 0; i < n; ++i) {
    m.ia[i] = i + 1;
    m.ja[i] = i + 1;
    m.a[i] = first + step * i;
  }
  m.ia[n] = n + 1;
  return m;
}

sparse convdiff2d(int N, double beta) {
  // -Laplace u + beta (u_x + u_y) on an N x N grid, central differences
  // with mesh width h = 1 / (N + 1), scaled by h^2.
  const int n = N * N;
  const double c = 0.5 * beta / (N + 1);
  std::vector<triplet> t;
  t.reserve(static_cast<std::size_t>(n) * 5);
  for (int y = 0; y < N; ++y)
    for (int x = 0; x < N; ++x) {
      int i = y * N + x + 1;
      if (y > 0) t.push_back({i, i - N, -1.0 - c, 0.0});
      if (x > 0) t.push_back({i, i - 1, -1.0 - c, 0.0});
      t.push_back({i, i, 4.0, 0.0});
      if (x < N - 1) t.push_back({i, i + 1, -1.0 + c, 0.0});
      if (y < N - 1) t.push_back({i, i + N, -1.0 + c, 0.0});
    }
  return from_triplets(n, false, t);
}

sparse convdiff3d(int N, double px, double py, double pz) {
  // -Laplace u + (bx, by, bz) . grad u on an N^3 grid, 7-point, first-order
  // upwind for the convection, scaled by h^2 / epsilon: the upstream
  // neighbour in direction d carries -1 - P_d, the downstream one -1, the
  // diagonal 6 + P_x + P_y + P_z, with P_d the cell Peclet number b_d h /
  // epsilon.
  const int n = N * N * N;
  std::vector<triplet> t;
  t.reserve(static_cast<std::size_t>(n) * 7);
  for (int z = 0; z < N; ++z)
    for (int y = 0; y < N; ++y)
      for (int x = 0; x < N; ++x) {
        const int i = (z * N + y) * N + x + 1;
        if (z > 0) t.push_back({i, i - N * N, -1.0 - pz, 0.0});
        if (y > 0) t.push_back({i, i - N, -1.0 - py, 0.0});
        if (x > 0) t.push_back({i, i - 1, -1.0 - px, 0.0});
        t.push_back({i, i, 6.0 + px + py + pz, 0.0});
        if (x < N - 1) t.push_back({i, i + 1, -1.0, 0.0});
        if (y < N - 1) t.push_back({i, i + N, -1.0, 0.0});
        if (z < N - 1) t.push_back({i, i + N * N, -1.0, 0.0});
      }
  return from_triplets(n, false, t);
}

sparse convdiff3d_complex(int N, double px, double py, double pz, double theta,
                          double omega) {
  // convdiff3d with the upstream couplings in x turned by the phase
  // exp(i theta) and i omega added to the diagonal: a complex unsymmetric
  // matrix whose rows stay strictly diagonally dominant in magnitude.
  sparse m = convdiff3d(N, px, py, pz);
  sparse z;
  z.n = m.n;
  z.cplx = true;
  z.ia = m.ia;
  z.ja = m.ja;
  z.a.assign(2 * m.a.size(), 0.0);
  const double c = std::cos(theta), s = std::sin(theta);
  for (int i = 1; i <= m.n; ++i)
    for (int p = m.ia[i - 1]; p < m.ia[i]; ++p) {
      const double v = m.a[p - 1];
      double re = v, im = 0.0;
      if (m.ja[p - 1] == i) im = omega;
      else if (m.ja[p - 1] == i - 1) re = v * c, im = v * s;
      z.a[2 * (p - 1)] = re;
      z.a[2 * (p - 1) + 1] = im;
    }
  return z;
}

double shift_near_one(int N) {
  // The eigenvalues of the 7-point Laplacian (scaled by h^2) are the sums of
  // three of mu_k = 4 sin^2(k pi / (2 (N + 1))), k = 1..N. Of the shifts
  // 0.95, 0.951, ..., 1.05 take the one farthest from all of them.
  std::vector<double> mu(N);
  for (int k = 1; k <= N; ++k) {
    const double sk = std::sin(k * 3.14159265358979323846 / (2.0 * (N + 1)));
    mu[k - 1] = 4.0 * sk * sk;
  }
  std::vector<double> pair;
  pair.reserve(static_cast<std::size_t>(N) * N);
  for (double a : mu)
    for (double b : mu) pair.push_back(a + b);
  std::sort(pair.begin(), pair.end());
  double best = 1.0, best_gap = -1.0;
  for (int j = -50; j <= 50; ++j) {
    const double sigma = 1.0 + 0.001 * j;
    double gap = 1e300;
    for (double c : mu) {
      // nearest sum of two to sigma - c
      const double want = sigma - c;
      auto it = std::lower_bound(pair.begin(), pair.end(), want);
      if (it != pair.end()) gap = std::min(gap, std::fabs(*it - want));
      if (it != pair.begin()) gap = std::min(gap, std::fabs(*(it - 1) - want));
    }
    if (gap > best_gap) {
      best_gap = gap;
      best = sigma;
    }
  }
  return best;
}

sparse shifted_laplacian3d(int N, std::complex<double> shift, double theta) {
  // The 7-point Laplacian minus shift I. With theta not 0 the couplings in
  // x carry the phase exp(i theta) in the upper and exp(-i theta) in the
  // lower triangle (a Hermitian matrix); complex values whenever the shift
  // or theta is.
  const int n = N * N * N;
  const bool cplx = shift.imag() != 0.0 || theta != 0.0;
  const double c = std::cos(theta), s = std::sin(theta);
  std::vector<triplet> t;
  t.reserve(static_cast<std::size_t>(n) * 7);
  for (int z = 0; z < N; ++z)
    for (int y = 0; y < N; ++y)
      for (int x = 0; x < N; ++x) {
        const int i = (z * N + y) * N + x + 1;
        if (z > 0) t.push_back({i, i - N * N, -1.0, 0.0});
        if (y > 0) t.push_back({i, i - N, -1.0, 0.0});
        if (x > 0) t.push_back({i, i - 1, -c, s});
        t.push_back({i, i, 6.0 - shift.real(), -shift.imag()});
        if (x < N - 1) t.push_back({i, i + 1, -c, -s});
        if (y < N - 1) t.push_back({i, i + N, -1.0, 0.0});
        if (z < N - 1) t.push_back({i, i + N * N, -1.0, 0.0});
      }
  return from_triplets(n, cplx, t);
}

bool generate(const std::string &what, sparse &full, std::string &err) {
  std::size_t c = what.find(':');
  std::string kind = what.substr(0, c);
  long N = -1;
  if (c != std::string::npos) {
    char *end = nullptr;
    N = std::strtol(what.c_str() + c + 1, &end, 10);
    if (*end != '\0') N = -1;
  }
  if (N < 1) {
    err = "generated matrix '" + what +
          "': want KIND:N with N >= 1 (lap2d:N, lap3d:N, cd2d:N, cd3d:N, zcd3d:N, indef3d:N, helm3d:N, herm3d:N, diag:N)";
    return false;
  }
  if (kind == "lap2d" && N <= 46340) { full = lap2d((int)N); return true; }
  if (kind == "lap3d" && N <= 1290) { full = lap3d((int)N); return true; }
  if (kind == "cd2d" && N <= 46340) { full = convdiff2d((int)N, 50.0 * (N + 1) / 10.0); return true; }
  if (kind == "cd3d" && N <= 1290) { full = convdiff3d((int)N, 1.0, 0.6, 0.3); return true; }
  if (kind == "zcd3d" && N <= 1290) {
    full = convdiff3d_complex((int)N, 1.0, 0.6, 0.3, 0.5, 0.4);
    return true;
  }
  if ((kind == "indef3d" || kind == "helm3d" || kind == "herm3d") && N <= 1290) {
    const double sigma = shift_near_one((int)N);
    if (kind == "indef3d") full = shifted_laplacian3d((int)N, sigma, 0.0);
    if (kind == "helm3d") full = shifted_laplacian3d((int)N, {sigma, -0.1}, 0.0);
    if (kind == "herm3d") full = shifted_laplacian3d((int)N, sigma, 0.3);
    return true;
  }
  if (kind == "diag") { full = diagonal((int)N); return true; }
  err = "generated matrix '" + what +
        "': unknown kind or size too large (lap2d:N, lap3d:N, cd2d:N, cd3d:N, zcd3d:N, indef3d:N, helm3d:N, herm3d:N, diag:N)";
  return false;
}

namespace {

bool hermitian_type(int mtype) { return mtype == 4 || mtype == -4; }

template <class V>
void multiply_t(const sparse &A, int mtype, const V *x, V *y) {
  const V *av = reinterpret_cast<const V *>(A.a.data());
  const bool sym = symmetric_type(mtype);
  const bool herm = hermitian_type(mtype);
  for (int i = 0; i < A.n; ++i) y[i] = V(0);
  for (int i = 1; i <= A.n; ++i) {
    V s = V(0);
    for (int k = A.ia[i - 1]; k < A.ia[i]; ++k) {
      int j = A.ja[k - 1];
      V v = av[k - 1];
      s += v * x[j - 1];
      if (sym && j != i) {
        V vt = v;
        if constexpr (!std::is_same<V, double>::value) {
          if (herm) vt = std::conj(v);
        }
        y[j - 1] += vt * x[i - 1];
      }
    }
    y[i - 1] += s;
  }
}

}  // namespace

bool symmetric_type(int mtype) {
  int a = mtype < 0 ? -mtype : mtype;
  return a % 2 == 0;
}

void multiply(const sparse &A, int mtype, const double *x, double *y) {
  if (A.cplx)
    multiply_t(A, mtype, reinterpret_cast<const std::complex<double> *>(x),
               reinterpret_cast<std::complex<double> *>(y));
  else
    multiply_t(A, mtype, x, y);
}

double norm_inf(const sparse &A, int mtype) {
  std::vector<double> rs(A.n, 0.0);
  const bool sym = symmetric_type(mtype);
  const int w = A.cplx ? 2 : 1;
  for (int i = 1; i <= A.n; ++i)
    for (int k = A.ia[i - 1]; k < A.ia[i]; ++k) {
      int j = A.ja[k - 1];
      double m = w == 2 ? std::hypot(A.a[2 * (k - 1)], A.a[2 * (k - 1) + 1])
                        : std::fabs(A.a[k - 1]);
      rs[i - 1] += m;
      if (sym && j != i) rs[j - 1] += m;
    }
  double r = 0.0;
  for (double v : rs) r = std::max(r, v);
  return r;
}

double relative_residual(const sparse &A, int mtype, const double *x,
                         const double *b, int nrhs) {
  const int w = A.cplx ? 2 : 1;
  const std::size_t len = static_cast<std::size_t>(A.n) * w;
  std::vector<double> ax(len);
  const double an = norm_inf(A, mtype);
  double worst = 0.0;
  for (int r = 0; r < nrhs; ++r) {
    const double *xr = x + r * len;
    const double *br = b + r * len;
    multiply(A, mtype, xr, ax.data());
    double rn = 0.0, xn = 0.0, bn = 0.0;
    for (int i = 0; i < A.n; ++i) {
      double ri, xi, bi;
      if (w == 2) {
        ri = std::hypot(br[2 * i] - ax[2 * i], br[2 * i + 1] - ax[2 * i + 1]);
        xi = std::hypot(xr[2 * i], xr[2 * i + 1]);
        bi = std::hypot(br[2 * i], br[2 * i + 1]);
      } else {
        ri = std::fabs(br[i] - ax[i]);
        xi = std::fabs(xr[i]);
        bi = std::fabs(br[i]);
      }
      // NaN wins: a solution with a NaN has no small residual.
      if (!(ri <= rn)) rn = ri;
      if (!(xi <= xn)) xn = xi;
      if (!(bi <= bn)) bn = bi;
    }
    double den = an * xn + bn;
    double rel = den > 0.0 ? rn / den : rn;
    if (!(rel <= worst)) worst = rel;  // a NaN residual wins
  }
  return worst;
}

}  // namespace vekio
