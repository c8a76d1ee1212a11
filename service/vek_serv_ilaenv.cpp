// vek_serv_ilaenv.cpp - the block-size oracle.
#include "service/vek_serv_ilaenv.h"

#include <cstring>

#include "service/vek_serv_cpu.h"

namespace {

char upper(char c) { return (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c; }

// The processor on which the largest LU blocks do not pay: type 2 with
// SSE4.1 and a known second-level cache of at most 3 MiB.
bool small_l2_processor() {
  if (vek_serv_cpu_detect() != 2 || !vek_serv_has_sse41()) return false;
  int sizes[5] = {0, 0, 0, 0, 0};
  vek_serv_cache_sizes(sizes);
  return sizes[0] >= 2 && sizes[2] > 0 && sizes[2] < 0x300001;
}

// --- LU: n columns, T threads, p the precision letter -------------------

int getrf_block(char p, int n, int t, char opt) {
  if (t < 2) {
    if (p != 'D') return 64;
    if (n < 9) return 1;
    if (n <= 32) return 8;
    if (n <= 128) return 32;
    if (n <= 256 || opt != 'S') return 128;
    // Halves at the next power of two.
    int half = 256;
    while (half < 32768 && n > 2 * half) half *= 2;
    return n > 32768 ? 32768 : half;
  }
  if (t <= 4) {
    switch (p) {
      case 'D': return n < 901 ? 24 : n <= 3100 ? 64 : 200;
      case 'S': return n < 1101 ? 24 : n <= 4000 ? 64 : n <= 6000 ? 200 : 400;
      case 'C': return n <= 1300 ? 32 : 128;
      default: return n <= 900 ? 24 : 128;
    }
  }
  if (t <= 8) {
    switch (p) {
      case 'D':
        if (n < 701) return 16;
        if (n < 1701) return 24;
        if (n < 2401) return 80;
        if (n <= 2800) return 128;
        if (n < 10001) return 200;
        return small_l2_processor() ? 200 : 400;
      case 'S':
        if (n < 1101) return 16;
        if (n < 2001) return 32;
        if (n < 3601) return 64;
        if (n <= 4000) return 128;
        return n <= 9000 ? 200 : 400;
      case 'C': return n < 1001 ? 16 : n <= 2100 ? 32 : 128;
      default: return n < 1501 ? 16 : n <= 1800 ? 64 : n <= 10000 ? 128 : 200;
    }
  }
  if (n < 1501) return 16;
  if (n < 2501) return 24;
  if (n < 3501) return 32;
  if (n < 4501) return 96;
  if (n < 5501) return 120;
  if (n < 6501) return 140;
  if (n < 8501) return 128;
  if (n <= 20000) return 200;
  if (p == 'Z') return 200;
  if (p == 'C') return 240;
  return n <= 35000 ? 240 : 300;
}

int getrf_group_width(char p, int n, int t) {
  if (t < 2) return 1;
  if (t <= 4) {
    switch (p) {
      case 'D': return n < 901 ? 4 : n <= 3100 ? 3 : n <= 3600 ? 2 : 3;
      case 'S': return n < 4001 ? 3 : n <= 6000 ? 2 : 1;
      case 'C': return n < 1301 ? 3 : n <= 7000 ? 2 : 3;
      default: return n < 901 ? 2 : n <= 4000 ? 1 : 3;
    }
  }
  if (t <= 8) {
    switch (p) {
      case 'D': return n < 2401 ? 2 : n < 10001 ? 1 : small_l2_processor() ? 1 : 2;
      case 'S': return n < 3601 ? 2 : n <= 4000 ? 1 : 2;
      case 'C': return n < 2101 ? 2 : n <= 3200 ? 1 : n <= 6000 ? 2 : 4;
      default: return n < 1801 ? 2 : n <= 3400 ? 1 : n <= 10000 ? 3 : 4;
    }
  }
  return 1;
}

int getrf_tail(char p, int n, int t) {
  if (t < 2) return 0;
  if (t <= 4) {
    switch (p) {
      case 'D': return n < 3101 ? 4 : n <= 3600 ? 16 : 4;
      case 'S': return n <= 4000 ? 4 : 8;
      case 'C': return n <= 7000 ? 4 : 16;
      default: return n <= 1200 ? 4 : n <= 4000 ? 8 : 4;
    }
  }
  if (t <= 8) {
    switch (p) {
      case 'D':
        if (n < 1701) return 0;
        if (n < 2801) return 4;
        if (n < 10001) return 8;
        return small_l2_processor() ? 100000 : 16;
      case 'S': return n <= 3600 ? 4 : 8;
      case 'C':
        if (n < 1001) return 0;
        if (n < 2101) return 4;
        if (n < 3201) return 16;
        return n <= 6000 ? 8 : 16;
      default:
        if (n < 1501) return 4;
        if (n < 1801) return 8;
        if (n < 2801) return 1000000;
        return n <= 3400 ? 8 : 16;
    }
  }
  return n < 6501 ? 0 : 1000000;
}

int getrf_query(int ispec, char p, char opt, int n, int t) {
  switch (ispec) {
    case 1: return getrf_block(p, n, t, opt);
    case 3: return (p == 'D' && t == 8 && n > 2800) ? 4000 : 64;
    case 12: return 16;
    case 17: return getrf_group_width(p, n, t);
    case 18: return getrf_tail(p, n, t);
    default: return -2;  // not one of these queries
  }
}

// --- Cholesky: n columns, T threads, n3 picks the answer ----------------

int potrf_block(int n, int t) {
  if (t < 2) {
    if (n < 129) return 128;
    if (n < 451) return 24;
    if (n < 701) return 32;
    if (n < 901) return 56;
    if (n < 1051) return 96;
    if (n < 1401) return 128;
    if (n < 1801) return 192;
    if (n < 2001) return 256;
    return n <= 3000 ? 384 : 512;
  }
  if (n < 129) return 128;
  if (n >= 1950) return 12;
  if (n >= 900) return 16;
  if (n >= 700) return 8;
  const int tt = t < 32 ? t : 32;
  int x = int((0.078 - 0.002 * tt) * n + 16);
  x = x / 8 * 8;
  return x < 4 ? 4 : x > 256 ? 256 : x;
}

int potrf_query(int ispec, int n, int t, int n3) {
  if (ispec == 3) return 128;
  if (ispec != 1) return -2;
  if (n3 == -2) {
    if (n < 1950 || t <= 1) return n;
    const int nb = potrf_block(n, t);
    const int w = n / (t * nb + nb);
    return w < 8 ? 8 : w;
  }
  if (n3 == -3) {
    if (vek_serv_cpu_detect() > 4) return n;
    return t <= 8 ? 768 : 384;
  }
  return potrf_block(n, t);
}

// --- The published answers for everything else -------------------------

int published(int ispec, const char *nm, int n1, int n2) {
  const char *c3 = nm + 3;
  switch (ispec) {
    case 1:
      if (!std::strncmp(c3, "TRF", 3) || !std::strncmp(c3, "TRI", 3)) return 64;
      if (!std::strncmp(c3, "QRF", 3) || !std::strncmp(c3, "RQF", 3) ||
          !std::strncmp(c3, "LQF", 3) || !std::strncmp(c3, "QLF", 3) ||
          !std::strncmp(c3, "HRD", 3) || !std::strncmp(c3, "BRD", 3) ||
          !std::strncmp(c3, "TRD", 3))
        return 32;
      return 1;
    case 2: return 2;
    case 3: return 128;
    case 4: return 6;
    case 5: return 2;
    case 6: return int(1.6f * float(n1 < n2 ? n1 : n2));
    case 7: return 1;
    case 8: return 50;
    case 9: return 25;
    case 10:
    case 11: return 1;  // arithmetic by the IEEE rules
    default: return -1;
  }
}

}  // namespace

int vek_serv_ilaenv(const int *ispec, const char *name, const char *opts, const int *n1,
                    const int *n2, const int *n3, const int *n4, std::size_t name_len,
                    std::size_t opts_len) {
  (void)n4;
  if (*ispec == 19) return vek_serv_cpu_detect();
  char nm[7] = {' ', ' ', ' ', ' ', ' ', ' ', '\0'};
  for (std::size_t i = 0; i < 6 && i < name_len && name[i] != '\0'; ++i) nm[i] = upper(name[i]);
  const char opt = opts_len > 0 ? upper(opts[0]) : ' ';
  const char p = nm[0];
  const bool known_precision = p == 'S' || p == 'D' || p == 'C' || p == 'Z';
  if (known_precision && !std::strncmp(nm + 1, "GETRF", 5)) {
    const int r = getrf_query(*ispec, p, opt, *n2, *n3);
    if (r != -2) return r;
  }
  if (known_precision && !std::strncmp(nm + 1, "POTRF", 5)) {
    const int r = potrf_query(*ispec, *n1, *n2, *n3);
    if (r != -2) return r;
  }
  if (*ispec == 12 || *ispec == 17 || *ispec == 18) return 1;
  return published(*ispec, nm, *n1, *n2);
}
