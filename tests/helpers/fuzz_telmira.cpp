// fuzz_telmira.cpp - the seeded random driver of fuzz_telmira.h.
//
// A case is one handle: a small matrix of a random type (the nine types and
// the undefined codes that the type check lets through), built well posed
// and then perhaps mutated (row starts, columns, values, the wrong
// triangle, a missing diagonal entry), and a random sequence of calls on it
// with garbage in the control array, several stored factorizations, all
// message levels, the matrix check on and off, double and single
// precision. The case ends with ido -1, after which every heap block the
// library took must be back.
//
// What a call may do: return a negative error, or return 0. A 0 from a call
// that solves must come with a solution whose normwise backward error is
// small against the matrix as stored (duplicates summed, one-triangle types
// mirrored); a 0 from a single sub-step must leave finite numbers.
#include "fuzz_telmira.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

#include "service/vek_serv_memory.h"
#include "telmira.h"
#include "test_heap.h"

namespace vektest {

namespace {

// --- A hang is a failure too ------------------------------------------------

std::atomic<long> call_started_ms{0};  // 0: no call running
std::atomic<bool> watchdog_stop{false};
long now_ms() {
  using namespace std::chrono;
  return static_cast<long>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}
char hang_note[256];

// --- Matrices ---------------------------------------------------------------

struct kind {
  bool complex_values, triangle, hermitian;
  bool operator==(const kind &o) const {
    return complex_values == o.complex_values && triangle == o.triangle && hermitian == o.hermitian;
  }
};
int magnitude(int v) { return v == INT_MIN ? INT_MAX : (v < 0 ? -v : v); }
kind kind_of(int mtype) {
  const int m = magnitude(mtype);
  kind k;
  k.complex_values = !(m < 3 || mtype == 11);
  k.triangle = m % 2 == 0;
  k.hermitian = mtype == 4 || mtype == -4;
  return k;
}

struct matrix {
  int n = 0;
  std::vector<int> ia, ja;
  std::vector<double> a;  // two words a value, whatever the type says
};

using rng = std::mt19937_64;
int pick(rng &r, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(r); }
double uniform(rng &r, double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(r); }
bool chance(rng &r, double p) { return uniform(r, 0, 1) < p; }

const int known_types[] = {1, 2, -2, 3, 4, -4, 6, 11, 13};
const int odd_types[] = {-1, -3, 5, -5, -6, -11, 0, 7, 12, -13, 14, INT_MIN, INT_MAX};

int garbage(rng &r) {
  static const int values[] = {-1, 0, 1, 2, 3, 4, 5, 10, 13, 31, 62, 100, -100, INT_MIN, INT_MAX};
  if (chance(r, 0.2)) return pick(r, -1000, 1000);
  return values[pick(r, 0, static_cast<int>(sizeof values / sizeof values[0]) - 1)];
}

// A matrix of the kind, well posed when `tame` (diagonally dominant, and so
// positive definite for the symmetric kinds), else with a random diagonal.
matrix make_matrix(rng &r, int n, kind k, bool structurally_symmetric, bool tame) {
  matrix m;
  m.n = n;
  const double density = uniform(r, 0.0, n < 8 ? 0.6 : 6.0 / n);
  std::vector<std::vector<int>> cols(n);
  for (int i = 0; i < n; ++i) cols[i].push_back(i);
  for (int i = 0; i < n; ++i)
    for (int j = (structurally_symmetric || k.triangle) ? i + 1 : 0; j < n; ++j)
      if (j != i && chance(r, density)) {
        cols[i].push_back(j);
        if (structurally_symmetric && !k.triangle) cols[j].push_back(i);
      }
  std::vector<double> rowsum(n, 0.0);
  m.ia.push_back(1);
  for (int i = 0; i < n; ++i) {
    std::sort(cols[i].begin(), cols[i].end());
    for (int j : cols[i]) {
      m.ja.push_back(j + 1);
      double re = uniform(r, -1, 1), im = k.complex_values ? uniform(r, -1, 1) : 0.0;
      if (j == i) re = im = 0;  // set below
      m.a.push_back(re);
      m.a.push_back(im);
      const double mag = std::hypot(re, im);
      rowsum[i] += mag;
      if (k.triangle && j != i) rowsum[j] += mag;
    }
    m.ia.push_back(static_cast<int>(m.ja.size()) + 1);
  }
  for (int i = 0; i < n; ++i)
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p)
      if (m.ja[p] == i + 1) {
        m.a[2 * p] = tame ? rowsum[i] + 1.0 : uniform(r, -2, 2);
        m.a[2 * p + 1] = (k.complex_values && !k.hermitian && !tame) ? uniform(r, -1, 1) : 0.0;
      }
  return m;
}

// Mutations that keep every read of a careful solver inside the arrays:
// ia(neqns+1) never grows beyond the entries there are.
void mutate(rng &r, matrix &m, kind k, std::string *what) {
  const int n = m.n;
  const int nnz = static_cast<int>(m.ja.size());
  // The mutations that walk the rows need rows to walk.
  bool walkable = m.ia[0] == 1;
  for (int i = 0; i < n && walkable; ++i) walkable = m.ia[i] <= m.ia[i + 1];
  walkable = walkable && m.ia[n] - 1 <= nnz;
  for (int p = 0; p < nnz && walkable; ++p) walkable = m.ja[p] >= 1 && m.ja[p] <= n;
  int which = pick(r, 0, 10);
  if (!walkable && which >= 7 && which <= 9) which = 3;
  std::ostringstream note;
  switch (which) {
    case 0: {  // a row start
      const int i = pick(r, 1, n > 1 ? n - 1 : 1);
      if (n > 1) m.ia[i] = chance(r, 0.5) ? pick(r, -3, nnz + 3) : garbage(r);
      note << "ia(" << i + 1 << ")";
      break;
    }
    case 1:
      m.ia[0] = chance(r, 0.5) ? 0 : 2;
      note << "ia(1)";
      break;
    case 2:
      if (m.ia[n] > 2) m.ia[n] -= pick(r, 1, m.ia[n] - 2 < 3 ? m.ia[n] - 2 : 3);
      note << "ia(n+1)";
      break;
    case 3: {  // a column
      const int p = pick(r, 0, nnz - 1);
      static const int bad[] = {0, -1, INT_MIN, INT_MAX};
      m.ja[p] = chance(r, 0.5) ? n + pick(r, 1, 3) : chance(r, 0.5) ? bad[pick(r, 0, 3)] : pick(r, 1, n);
      note << "ja(" << p + 1 << ")";
      break;
    }
    case 4: {  // two columns of a row swapped, or one repeated
      const int p = pick(r, 0, nnz > 1 ? nnz - 2 : 0);
      if (nnz > 1) {
        if (chance(r, 0.5)) std::swap(m.ja[p], m.ja[p + 1]);
        else m.ja[p + 1] = m.ja[p];
      }
      note << "ja order at " << p + 1;
      break;
    }
    case 5:
    case 6: {  // a value
      const int p = pick(r, 0, nnz - 1);
      static const double bad[] = {NAN, INFINITY, -INFINITY, 0.0, 1e308, 1e-310, -1e300};
      m.a[2 * p + pick(r, 0, 1)] = bad[pick(r, 0, 6)];
      note << "a(" << p + 1 << ")";
      break;
    }
    case 7: {  // a zero diagonal
      const int i = pick(r, 0, n - 1);
      for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p)
        if (m.ja[p] == i + 1) m.a[2 * p] = m.a[2 * p + 1] = 0.0;
      note << "zero diagonal " << i + 1;
      break;
    }
    case 8: {  // the other triangle, or a pattern made unsymmetric
      matrix t;
      t.n = n;
      std::vector<std::vector<std::pair<int, int>>> rows(n);
      for (int i = 0; i < n; ++i)
        for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) rows[m.ja[p] - 1].push_back({i + 1, p});
      t.ia.push_back(1);
      for (int i = 0; i < n; ++i) {
        for (auto &e : rows[i]) {
          if (!k.triangle && e.first != i + 1 && chance(r, 0.3)) continue;  // dropped
          t.ja.push_back(e.first);
          t.a.push_back(m.a[2 * e.second]);
          t.a.push_back(m.a[2 * e.second + 1]);
        }
        t.ia.push_back(static_cast<int>(t.ja.size()) + 1);
      }
      m = t;
      note << (k.triangle ? "lower triangle" : "unsymmetric pattern");
      break;
    }
    case 9: {  // a diagonal entry gone (its place taken by a neighbour)
      const int i = pick(r, 0, n - 1);
      for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p)
        if (m.ja[p] == i + 1) {
          if (p + 1 < m.ia[i + 1] - 1) m.ja[p] = m.ja[p + 1];
          else if (p > m.ia[i] - 1) m.ja[p] = m.ja[p - 1];
        }
      note << "diagonal " << i + 1 << " gone";
      break;
    }
    default: {  // a random row start pattern: some rows empty
      for (int i = 1; i < n; ++i)
        if (chance(r, 0.2)) m.ia[i] = m.ia[i - 1];
      note << "empty rows";
      break;
    }
  }
  *what += note.str() + " ";
}

// Whether the stored structure names only places inside the matrix.
bool structure_in_range(const matrix &m, int n) {
  if (n < 1 || n > m.n || m.ia[0] != 1) return false;
  for (int i = 0; i < n; ++i)
    if (m.ia[i + 1] < m.ia[i]) return false;
  if (m.ia[n] - 1 > static_cast<int>(m.ja.size())) return false;
  for (int p = 0; p < m.ia[n] - 1; ++p)
    if (m.ja[p] < 1 || m.ja[p] > n) return false;
  return true;
}

using cplx = std::complex<double>;

// Normwise backward error of x for A x = b, A as stored and read by kind;
// `transposed` takes A^T (A^H for Hermitian kinds).
double backward_error(const matrix &m, int n, kind k, bool transposed, const cplx *x, const cplx *b) {
  std::vector<cplx> y(n, 0.0);
  std::vector<double> rowabs(n, 0.0);
  auto add = [&](int i, int j, cplx v) {
    y[i] += v * x[j];
    rowabs[i] += std::abs(v);
  };
  for (int i = 0; i < n; ++i)
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      const int j = m.ja[p] - 1;
      // (a Hermitian matrix has a real diagonal: its imaginary parts are not read)
      const cplx v(m.a[2 * p], k.complex_values && !(k.hermitian && i == j) ? m.a[2 * p + 1] : 0.0);
      if (k.triangle) {
        add(i, j, v);
        if (i != j) add(j, i, k.hermitian ? std::conj(v) : v);
      } else if (transposed) {
        add(j, i, v);
      } else {
        add(i, j, v);
      }
    }
  double r = 0, anorm = 0, xnorm = 0, bnorm = 0;
  for (int i = 0; i < n; ++i) {
    r = std::max(r, std::abs(b[i] - y[i]));
    anorm = std::max(anorm, rowabs[i]);
    xnorm = std::max(xnorm, std::abs(x[i]));
    bnorm = std::max(bnorm, std::abs(b[i]));
  }
  const double scale = anorm * xnorm + bnorm;
  if (!(r == r) || !(scale == scale)) return INFINITY;
  return scale > 0 ? r / scale : r;
}

// --- One case ---------------------------------------------------------------

struct case_runner {
  rng r;
  long index;
  const fuzz_options &opt;
  fuzz_result *res;
  long calls_left;
  std::string story;

  case_runner(std::uint64_t seed, long i, const fuzz_options &o, fuzz_result *rs, long left)
      : r(seed), index(i), opt(o), res(rs), calls_left(left) {}

  void fail(const std::string &why) {
    ++res->failures;
    if (res->first_failure.empty()) {
      std::ostringstream s;
      s << "case " << index << " (seed " << opt.seed << "): " << why << " | " << story;
      res->first_failure = s.str();
    }
    if (opt.verbose) std::fprintf(stderr, "FAIL case %ld: %s | %s\n", index, why.c_str(), story.c_str());
  }

  void run() {
    const bool odd = chance(r, 0.12);
    const int type0 = odd ? odd_types[pick(r, 0, 12)]
                          : known_types[pick(r, 0, 8)];
    kind k = kind_of(type0);
    int n = chance(r, 0.08) ? 1 : chance(r, 0.1) ? pick(r, 60, 4 * opt.max_n) : pick(r, 2, opt.max_n);
    const bool symmetric_pattern = magnitude(type0) < 10 || chance(r, 0.3);
    const bool tame = chance(r, 0.7);
    matrix m = make_matrix(r, n, k, symmetric_pattern, tame);
    if (chance(r, 0.05)) {  // diagonal: the shortcut
      matrix d;
      d.n = n;
      d.ia.push_back(1);
      for (int i = 0; i < n; ++i) {
        d.ja.push_back(i + 1);
        d.a.push_back(uniform(r, 0.5, 2));
        d.a.push_back(k.complex_values ? uniform(r, -1, 1) : 0.0);
        d.ia.push_back(i + 2);
      }
      m = d;
    }
    std::ostringstream s;
    s << "type " << type0 << " n " << n << (tame ? " tame" : " wild") << "; ";
    story = s.str();
    const int mutations = chance(r, 0.35) ? pick(r, 1, 3) : 0;
    for (int q = 0; q < mutations; ++q) mutate(r, m, k, &story);

    // Buffers: values always room for complex pairs; three right-hand sides.
    const int nbmax = 3;
    const std::size_t nnz_room = m.ja.size() + 1;
    std::vector<float> af(2 * nnz_room), bf(2 * n * nbmax), xf(2 * n * nbmax);
    std::vector<double> ad(2 * nnz_room), bd(2 * n * nbmax), xd(2 * n * nbmax);
    std::vector<cplx> bref(n * nbmax);
    for (auto &v : bref) v = cplx(uniform(r, -1, 1), k.complex_values ? uniform(r, -1, 1) : 0.0);
    std::vector<int> perm(n);
    for (int i = 0; i < n; ++i) perm[i] = i + 1;
    std::shuffle(perm.begin(), perm.end(), r);
    if (chance(r, 0.1)) perm[pick(r, 0, n - 1)] = garbage(r);

    intptr_t handle[64] = {0};
    int iparam[64] = {0};
    if (chance(r, 0.4)) {
      iparam[0] = 1;
      iparam[1] = pick(r, 0, 3);
      iparam[9] = pick(r, 0, 13);
      iparam[10] = pick(r, 0, 1);
      iparam[12] = pick(r, 0, 1);
      iparam[20] = pick(r, 0, 1);
      iparam[7] = pick(r, -3, 3);
      if (chance(r, 0.25)) iparam[59] = pick(r, 1, 2);  // factors in files
      if (chance(r, 0.15))  // the hybrid mode: CG or CGS on earlier factors
        iparam[3] = (chance(r, 0.5) ? 1 : -1) * (10 * pick(r, 0, 12) + pick(r, 1, 2));
    }
    if (chance(r, 0.15)) iparam[27] = 1;  // single precision
    const int garbage_slots = chance(r, 0.4) ? pick(r, 1, 4) : 0;
    for (int q = 0; q < garbage_slots; ++q) {
      const int slot = pick(r, 0, 63);
      iparam[slot] = garbage(r);
      story += "iparam(" + std::to_string(slot + 1) + ")=" + std::to_string(iparam[slot]) + " ";
    }
    int max_fac_store = chance(r, 0.8) ? pick(r, 1, 3) : garbage(r);

    // The calls.
    static const int phases[] = {11, 12, 13, 22, 23, 33, 33, 23, 331, 332, 333, 0, -1};
    const int length = pick(r, 1, 7);
    std::vector<int> seq;
    const int preset = pick(r, 0, 4);
    if (preset == 0) seq = {13};
    else if (preset == 1) seq = {11, 22, 33};
    else if (preset == 2) seq = {12, 33, 23};
    for (int q = 0; q < length; ++q)
      seq.push_back(chance(r, 0.05) ? garbage(r) : phases[pick(r, 0, 12)]);

    bool single = false, same_kind = true, transposed_seen = false;
    int factorized_type = 0;
    for (std::size_t q = 0; q <= seq.size(); ++q) {
      if (calls_left <= 1) q = seq.size();  // the release is always made
      const bool last = q == seq.size();
      int ido = last ? -1 : seq[q];
      int mtype = (!last && chance(r, 0.06)) ? (chance(r, 0.5) ? (type0 == INT_MIN ? type0 : -type0) : odd_types[pick(r, 0, 12)]) : type0;
      int matrix_number = chance(r, 0.9) ? pick(r, 1, max_fac_store > 0 && max_fac_store < 4 ? max_fac_store : 1)
                                         : garbage(r);
      if (last) matrix_number = 1;
      int neqns = chance(r, 0.04) ? (chance(r, 0.5) ? pick(r, 0, n) : garbage(r)) : n;
      if (neqns > n) neqns = n;
      int nb = chance(r, 0.9) ? pick(r, 1, nbmax) : pick(r, -2, 0);
      int msglvl = chance(r, 0.9) ? 0 : chance(r, 0.9) ? pick(r, 1, 2) : garbage(r);
      if (!last && chance(r, 0.2)) iparam[26] = 1;  // matrix check
      if (!last && chance(r, 0.05)) iparam[pick(r, 0, 63)] = garbage(r);
      if (handle[0] == 0) single = iparam[27] == 1;
      const bool shortcut_leftover = iparam[11] == -1;
      if (iparam[11] != 0) transposed_seen = true;

      // Now and then the values move a little, as in a sequence of time
      // steps, which the hybrid mode iterates on: at a factorization that
      // keeps the analysis, on a handle of one stored factorization (a solve
      // alone works with the factors it has, made from the values before;
      // a call refused before it factorizes keeps them, and so do the
      // values).
      std::vector<double> values_before;
      if ((ido == 22 || ido == 23) && max_fac_store == 1 && matrix_number == 1 && chance(r, 0.3)) {
        values_before = m.a;
        for (double &v : m.a) v *= 1.0 + uniform(r, -0.01, 0.01);
      }
      // Values and right-hand sides for this call, in its precision.
      // A matrix with as many entries as rows takes the diagonal shortcut,
      // which reads every type code as real or complex by its own rule.
      const bool shortcut = ido > 0 && neqns >= 1 && m.ia[neqns] - 1 == neqns;
      kind ck = kind_of(mtype);
      if (shortcut) {
        int mm = magnitude(mtype);
        if (mm > 10) mm -= 10;
        ck = kind{mm > 2, false, false};
      }
      const int w = ck.complex_values ? 2 : 1;
      for (std::size_t p = 0; p < m.ja.size(); ++p)
        for (int q2 = 0; q2 < w; ++q2) ad[w * p + q2] = m.a[2 * p + q2];
      for (int p = 0; p < n * nbmax; ++p) {
        bd[w * p] = bref[p].real();
        if (w == 2) bd[2 * p + 1] = bref[p].imag();
      }
      std::copy(ad.begin(), ad.end(), af.begin());
      std::copy(bd.begin(), bd.end(), bf.begin());
      for (auto &v : xd) v = 12345.0;
      for (auto &v : xf) v = 12345.0f;

      int error = 99;
      void *a = single ? static_cast<void *>(af.data()) : ad.data();
      void *b = single ? static_cast<void *>(bf.data()) : bd.data();
      void *x = single ? static_cast<void *>(xf.data()) : xd.data();
      std::snprintf(hang_note, sizeof hang_note, "case %ld call %zu ido %d mtype %d n %d", index, q, ido,
                    mtype, neqns);
      if (opt.verbose) std::fprintf(stderr, "  %s | %s\n", hang_note, story.c_str());
      call_started_ms = now_ms();
      telmira(handle, &max_fac_store, &matrix_number, &mtype, &ido, &neqns, a, m.ia.data(), m.ja.data(),
              perm.data(), &nb, iparam, &msglvl, b, x, &error);
      call_started_ms = 0;
      if ((error == -1 || error == -3 || error == -7) && !values_before.empty()) m.a = values_before;
      ++res->calls;
      --calls_left;
      story += "[" + std::to_string(ido) + "/" + std::to_string(mtype) + "/m" + std::to_string(matrix_number) +
               "/nb" + std::to_string(nb) + ":" + std::to_string(error) +
               (error == -3 || error == -4 ? "," + std::to_string(iparam[29]) : std::string()) + "] ";

      if (last) {
        if (error != 0) fail("release returned " + std::to_string(error));
        continue;
      }
      // The probes: ido -2 answers 16 (and iparam(1) = 23), -3 answers 300000.
      if ((ido == -2 && error == 16) || (ido == -3 && error == 300000)) continue;
      if (error > 0 || error < -15) {
        fail("error number " + std::to_string(error));
        continue;
      }
      if (error < 0) {
        ++res->errors[-error];
        continue;
      }
      ++res->successes;
      if (!(ck == k) && !shortcut) same_kind = false;
      if (ido == 12 || ido == 13 || ido == 22 || ido == 23) factorized_type = mtype;
      const bool solves = ido == 13 || ido == 23 || ido == 33;
      const bool substep = ido >= 331 && ido <= 333;
      if (shortcut_leftover || (!solves && !substep) || nb < 1) continue;
      // The numbers the call left: in x, or in b with iparam(6) = 1.
      const bool over_b = iparam[5] == 1;
      const void *out = over_b ? b : x;
      auto word = [&](std::size_t k) {
        return single ? static_cast<const float *>(out)[k] : static_cast<const double *>(out)[k];
      };
      std::vector<cplx> sol(n * nb);
      bool finite = true;
      for (std::size_t at = 0; at < static_cast<std::size_t>(neqns) * nb; ++at) {
        sol[at] = cplx(word(w * at), w == 2 ? word(w * at + 1) : 0.0);
        if (!std::isfinite(sol[at].real()) || !std::isfinite(sol[at].imag())) finite = false;
      }
      if (!finite) {
        fail("error 0 with a solution that is not finite, ido " + std::to_string(ido));
        continue;
      }
      if (substep || (!shortcut && !same_kind) || (!shortcut && factorized_type != 0 && !(kind_of(factorized_type) == k))) continue;
      if (!structure_in_range(m, neqns)) {
        fail("error 0 on a structure out of range, ido " + std::to_string(ido));
        continue;
      }
      // Against the values the call saw (single precision: rounded).
      matrix seen = m;
      if (single)
        for (auto &v : seen.a) v = static_cast<float>(v);
      // A Hermitian matrix's diagonal is real: the solver does not read the
      // imaginary part of a stored diagonal value.
      if (!shortcut && k.hermitian)
        for (int i = 0; i < neqns; ++i)
          for (int p = seen.ia[i] - 1; p < seen.ia[i + 1] - 1; ++p)
            if (seen.ja[p] == i + 1) seen.a[2 * p + 1] = 0.0;
      const double tol = single ? 1e-3 : 1e-6;
      for (int col = 0; col < nb; ++col) {
        // b as the call read it (column `col` of a neqns-by-nb block),
        // before a solution over it: the reference rounded to the call's
        // precision.
        std::vector<cplx> bcol(neqns);
        for (int i = 0; i < neqns; ++i) {
          const cplx v = bref[static_cast<std::size_t>(col) * neqns + i];
          const double re = v.real(), im = w == 2 ? v.imag() : 0.0;
          bcol[i] = single ? cplx(static_cast<float>(re), static_cast<float>(im)) : cplx(re, im);
        }
        double eta = backward_error(seen, neqns, shortcut ? ck : k, false, &sol[static_cast<std::size_t>(col) * neqns], bcol.data());
        if (eta > tol && transposed_seen)
          eta = std::min(eta, backward_error(seen, neqns, shortcut ? ck : k, true, &sol[static_cast<std::size_t>(col) * neqns],
                                             bcol.data()));
        if (!(eta <= tol)) {
          std::ostringstream e;
          e << "error 0 with backward error " << eta << " (column " << col + 1 << ", ido " << ido << ")";
          fail(e.str());
          break;
        }
      }
      ++res->verified;
    }
  }
};

}  // namespace

ooc_scratch::ooc_scratch() {
  if (std::getenv("VEK_TELMIRA_OOC_PATH") != nullptr) return;
  char tmpl[] = "/tmp/vek_fuzz_XXXXXX";
  if (mkdtemp(tmpl) == nullptr) return;
  dir_ = tmpl;
  setenv("VEK_TELMIRA_OOC_PATH", (dir_ + "/ooc").c_str(), 1);
}

ooc_scratch::~ooc_scratch() {
  if (dir_.empty()) return;
  unsetenv("VEK_TELMIRA_OOC_PATH");
  rmdir(dir_.c_str());  // empty: every handle released its files
}

long fuzz_telmira(const fuzz_options &opt, fuzz_result *res) {
  *res = fuzz_result();
  const ooc_scratch scratch;
  counted_heap heap;

  watchdog_stop = false;
  std::thread watchdog([&opt] {
    while (!watchdog_stop) {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      const long start = call_started_ms;
      if (start != 0 && now_ms() - start > static_cast<long>(opt.call_limit_s * 1000)) {
        std::fprintf(stderr, "fuzz: a call runs for more than %g s: %s (seed %llu)\n", opt.call_limit_s,
                     hang_note, static_cast<unsigned long long>(opt.seed));
        std::fflush(stderr);
        std::abort();
      }
    }
  });

  int saved_stdout = -1;
  if (opt.quiet_output) {
    std::fflush(stdout);
    saved_stdout = dup(1);
    const int null_fd = open("/dev/null", O_WRONLY);
    if (null_fd >= 0) {
      dup2(null_fd, 1);
      close(null_fd);
    }
  }

  long left = opt.calls;
  for (long c = opt.first_case; left > 0; ++c) {
    if (opt.only_cases >= 0 && c >= opt.first_case + opt.only_cases) break;
    vek_serv_free_buffers();
    const long before = counted_heap::live;
    // Each case's generator starts from a mix of the seed and the case
    // number, so that runs with different seeds share no cases.
    std::uint64_t z = opt.seed * 0x9E3779B97F4A7C15ull + static_cast<std::uint64_t>(c);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    case_runner cr(z ^ (z >> 31), c, opt, res, left);
    cr.run();
    left = cr.calls_left;
    ++res->cases;
    vek_serv_free_buffers();
    const long after = counted_heap::live;
    if (after > before) cr.fail("heap blocks not given back: " + std::to_string(after - before));
    if (opt.verbose) std::fprintf(stderr, "case %ld: %s\n", c, cr.story.c_str());
  }

  if (saved_stdout >= 0) {
    std::fflush(stdout);
    dup2(saved_stdout, 1);
    close(saved_stdout);
  }
  watchdog_stop = true;
  watchdog.join();
  return res->failures;
}

std::string fuzz_summary(const fuzz_result &r) {
  std::ostringstream s;
  s << r.calls << " calls in " << r.cases << " cases: " << r.successes << " returned 0 (" << r.verified
    << " solutions verified)";
  for (int e = 1; e < 16; ++e)
    if (r.errors[e]) s << ", " << r.errors[e] << " x -" << e;
  s << "; " << r.failures << " failures";
  return s.str();
}

}  // namespace vektest
