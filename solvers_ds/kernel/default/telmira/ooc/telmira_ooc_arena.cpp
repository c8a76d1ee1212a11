// telmira_ooc_arena.cpp - the memory plan of the out-of-core mode and the
// placement, eviction and compaction of panels in an arena.
#include "telmira_ooc_arena.h"
#include "telmira_slots.h"
#include "telmira_storage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace tlm {

namespace {

std::int64_t kb(std::int64_t x) { return x / 1024; }

int columns_of(const int *pointers, int record) {
  return pointers == nullptr ? 1 : pointers[record] - pointers[record - 1];
}

int fail(int *error, int code) {
  *error = code;
  return code;
}

}  // namespace

void telmira_ooc_panel_bounds(int *ooc_l, int nsuper, const int *xsup, const int *xlnz,
                              const int *xlindx) {
  int panel = 0, list = 0, widest = 0;
  for (int s = 1; s <= nsuper; ++s) {
    const int f = xsup[s - 1], l = xsup[s];
    panel = std::max(panel, std::abs(xlnz[l - 1]) - std::abs(xlnz[f - 1]));
    list = std::max(list, xlindx[s] - xlindx[s - 1]);
    widest = std::max(widest, l - f);
  }
  OOCL(OL_PANEL_VALUES) = panel;
  OOCL(OL_ROW_LIST) = list;
  OOCL(OL_WIDEST) = widest;
}

int telmira_ooc_plan(int *ooc_l, const ooc_plan_input &in) {
  const std::int64_t I = OOCL(OL_INT_BYTES), E = OOCL(OL_VALUE_BYTES), w = in.words;
  const std::int64_t T = std::max(1, in.threads);
  const std::int64_t o5 = OOCL(OL_PANEL_VALUES), o6 = OOCL(OL_ROW_LIST);
  const std::int64_t Ll = std::abs(in.xlnz[in.xsup[in.nsuper] - 1]) - 1;
  const std::int64_t Li = in.xlindx[in.nsuper] - 1;
  // The tree: with 32 parts, the leaves and above them the supernodes that
  // follow the parts; a branch is one leaf and that top, the largest one
  // sized by the largest leaf.
  const bool tree = in.nparts == 32 && in.parts != nullptr;
  std::int64_t Bv = 0, Bi = 0;
  if (tree) {
    auto span_v = [&](int first, int last) -> std::int64_t {
      if (last < first) return 0;
      return std::abs(in.xlnz[in.xsup[last] - 1]) - std::abs(in.xlnz[in.xsup[first - 1] - 1]);
    };
    auto span_i = [&](int first, int last) -> std::int64_t {
      return last < first ? 0 : in.xlindx[last] - in.xlindx[first - 1];
    };
    const int top = in.parts[2 * (in.nparts - 1) + 1] + 1;
    std::int64_t nv = span_v(top, in.nsuper), ni = span_i(top, in.nsuper);
    std::int64_t lv = 0, li = 0;
    for (int p = 0; p < in.nparts; ++p) {
      lv = std::max(lv, span_v(in.parts[2 * p], in.parts[2 * p + 1]));
      li = std::max(li, span_i(in.parts[2 * p], in.parts[2 * p + 1]));
    }
    OOCL(OL_NODE_VALUES) = static_cast<int>(std::max(nv, lv));
    OOCL(OL_NODE_INDEX) = static_cast<int>(std::max(ni, li));
    Bv = lv + nv;
    Bi = li + ni;
    OOCL(OL_BRANCH_VALUES) = static_cast<int>(Bv);
    OOCL(OL_BRANCH_INDEX) = static_cast<int>(Bi);
    OOCL(OL_TREE_LEVELS) = 6;
  }
  // Budget, then the floor: one panel and its row list for each thread and
  // for the main flow.
  const std::int64_t B = 1024 * static_cast<std::int64_t>(OOCL(OL_CORE_MB)) -
                         (kb(in.int_words * I) + 1) - 1;
  const std::int64_t M = kb(o6 * (T + 1)) * I + I + (kb(o5 * (T + 1)) * E + E) * w;
  if (M > B) {
    OOCL(OL_STATUS) = -9;
    return -9;
  }
  const std::int64_t SI = kb(Li) * I + I, SL = (kb(Ll) + 1) * E * w;
  if (tree && SI + SL <= B) {
    OOCL(OL_ALGORITHM) = 0;
    OOCL(OL_ARENA_VALUES) = static_cast<int>(Ll);
    OOCL(OL_ARENA_INDEX) = static_cast<int>(Li);
    return 0;
  }
  if (tree && kb(Bi) * I + I + (kb(Bv) * E + E) * w <= B) {
    OOCL(OL_ALGORITHM) = 3;
    OOCL(OL_ARENA_VALUES) = static_cast<int>(Bv);
    OOCL(OL_ARENA_INDEX) = static_cast<int>(Bi);
    return 0;
  }
  const double r = static_cast<double>(SL) / static_cast<double>(SI);
  const double ni = 1024.0 * B / (I * (1.0 + r));
  const double nv = 1024.0 * r * B / ((1.0 + r) * E * w);
  const std::int64_t index_cap = std::max<std::int64_t>(
      std::min<std::int64_t>(Li, static_cast<std::int64_t>(ni)), o6 * T);
  const std::int64_t value_cap = std::max<std::int64_t>(
      std::min<std::int64_t>(Ll, static_cast<std::int64_t>(nv)), o5 * T);
  OOCL(OL_ALGORITHM) = 2;
  OOCL(OL_ARENA_VALUES) = static_cast<int>(std::min<std::int64_t>(value_cap, 0x7FFFFFFF));
  OOCL(OL_ARENA_INDEX) = static_cast<int>(std::min<std::int64_t>(index_cap, 0x7FFFFFFF));
  return 0;
}

void telmira_ooc_arena_reset(ooc_file *f, int capacity) {
  if (f->pt_inm != nullptr) {
    const std::size_t bytes = sizeof(int) * static_cast<std::size_t>(f->nrecords + 2);
    std::memset(f->pt_inm, 0, bytes);
    std::memset(f->len_panelm, 0, bytes);
    std::memset(f->mapm, 0, bytes);
  }
  f->len_arena = capacity;
  f->n_freem[0] = capacity;
  f->n_freem[1] = 0;
  f->pt_freem[0] = 1;
  f->pt_freem[1] = 1;
  f->nsuperm[0] = 0;
  f->nsuperm[1] = 0;
  if (f->pt_inm != nullptr) f->pt_inm[0] = 1;
}

int telmira_ooc_place_panel(ooc_file *f, int record, int *position, int rows, int columns,
                            int *error) {
  const int need = rows * columns;
  int pos;
  if (f->n_freem[0] >= need) {
    pos = f->pt_freem[0];
    f->pt_freem[0] += need;
    f->n_freem[0] -= need;
    f->mapm[++f->nsuperm[0]] = record;
    f->pt_inm[0] = f->pt_freem[0];
  } else {
    f->n_freem[1] -= need;
    if (f->n_freem[1] < 0) {
      f->n_freem[1] += need;
      return fail(error, -12);
    }
    pos = f->pt_freem[1] + f->n_freem[1];
    // Behind the panels below the hole; the later ones move up one place.
    const int at = f->nsuperm[1] + 1;
    for (int i = f->nsuperm[0]; i >= at; --i) f->mapm[i + 1] = f->mapm[i];
    f->mapm[at] = record;
    ++f->nsuperm[0];
  }
  f->pt_inm[record] = -pos;
  f->len_panelm[record] = rows;
  *position = pos;
  return 0;
}

int telmira_ooc_find_panel(const ooc_file *f, int record, int rows_wanted, int *position,
                           int *rows, int *error) {
  const int p = std::abs(f->pt_inm[record]);
  if (p == 0) return 0;
  const int kept = f->len_panelm[record];
  if (kept <= 0) {
    fail(error, -16);
    return 0;
  }
  if (rows_wanted > kept) {
    fail(error, -17);
    return 0;
  }
  *rows = kept;
  *position = p + (kept - rows_wanted);
  return p;
}

namespace {

// Eviction: the hole grows in address order from where it stands, over the
// panels above it and then, if need be, over those below it.
int evict(ooc_file *f, const int *pointers, int need, int *error) {
  if (need <= f->n_freem[0] || need <= f->n_freem[1]) return fail(error, -3);
  const int count = f->nsuperm[0];
  if (count <= 0) return fail(error, -2);
  int g = f->nsuperm[1];
  if (g < 0 || g > count) return fail(error, -1);
  auto start = [&](int i) { return std::abs(f->pt_inm[f->mapm[i]]); };
  auto end = [&](int i) {
    const int rec = f->mapm[i];
    return start(i) + f->len_panelm[rec] * columns_of(pointers, rec);
  };
  // The hole runs from lo to the panel hi (exclusive), or to the end of
  // the arena when hi passes the last panel.
  int lo = g == 0 ? 1 : end(g);
  int hi = g + 1;  // first panel above the hole that stays
  auto top = [&]() { return hi <= count ? start(hi) : f->len_arena + 1; };
  while (top() - lo < need && hi <= count) ++hi;
  int below = g;  // panels below the hole that stay: 1..below
  while (top() - lo < need && below > 0) {
    --below;
    lo = below == 0 ? 1 : end(below);
  }
  if (top() - lo < need) return fail(error, -6);
  const int hole_end = top();
  // Clear the evicted records: below+1 .. hi-1.
  const int evicted = (hi - 1) - below;
  for (int i = below + 1; i < hi; ++i) {
    const int rec = f->mapm[i];
    if (rec <= 0) return fail(error, -4);
    f->pt_inm[rec] = 0;
    f->len_panelm[rec] = 0;
  }
  for (int i = hi; i <= count; ++i) f->mapm[i - evicted] = f->mapm[i];
  for (int i = count - evicted + 1; i <= count; ++i) f->mapm[i] = 0;
  f->nsuperm[0] = count - evicted;
  f->nsuperm[1] = below;
  if (hi > count) {
    // The tail joins the hole.
    f->n_freem[0] = 0;
    f->pt_freem[0] = f->len_arena + 1;
    f->pt_inm[0] = f->pt_freem[0];
  }
  f->pt_freem[1] = lo;
  f->n_freem[1] = hole_end - lo;
  for (int i = 1; i <= f->nsuperm[0]; ++i)
    if (f->mapm[i] <= 0) return fail(error, -9);
  return 0;
}

// Compaction: every panel keeps its last rows_kept rows, moved down to a
// running target; panels with none drop out.
int compact(ooc_file *f, const int *rows_kept, const int *pointers, void *arena, int *error) {
  char *base = static_cast<char *>(arena);
  const std::size_t es = static_cast<std::size_t>(f->elem_size);
  const int count = f->nsuperm[0];
  const std::int64_t free_before =
      static_cast<std::int64_t>(f->n_freem[0]) + f->n_freem[1];
  std::int64_t freed = 0;
  int target = 1, kept = 0;
  for (int i = 1; i <= count; ++i) {
    const int rec = f->mapm[i];
    if (rec <= 0) return fail(error, -14);
    const int p = std::abs(f->pt_inm[rec]), L = f->len_panelm[rec];
    const int C = columns_of(pointers, rec);
    const int n = std::min(std::max(rows_kept[rec - 1], 0), L);
    freed += static_cast<std::int64_t>(L - n) * C;
    if (n == 0) {
      f->pt_inm[rec] = 0;
      f->len_panelm[rec] = 0;
      continue;
    }
    if (target != p || n != L) {
      if (n == L) {
        std::memmove(base + (target - 1) * es, base + (p - 1) * es,
                     static_cast<std::size_t>(L) * C * es);
      } else {
        for (int c = 0; c < C; ++c)
          std::memmove(base + (target - 1 + static_cast<std::size_t>(c) * n) * es,
                       base + (p - 1 + static_cast<std::size_t>(c) * L + (L - n)) * es,
                       static_cast<std::size_t>(n) * es);
      }
    }
    f->pt_inm[rec] = f->pt_inm[rec] < 0 ? -target : target;
    f->len_panelm[rec] = n;
    target += n * C;
    f->mapm[++kept] = rec;
  }
  for (int i = kept + 1; i <= count; ++i) f->mapm[i] = 0;
  f->nsuperm[0] = kept;
  f->pt_freem[0] = target;
  f->n_freem[0] = f->len_arena - target + 1;
  f->pt_inm[0] = target;
  if (free_before + freed != f->n_freem[0]) return fail(error, -15);
  f->nsuperm[1] = kept;
  f->pt_freem[1] = target;
  f->n_freem[1] = 0;
  return 0;
}

}  // namespace

int telmira_ooc_make_room(ooc_file *f, const int *rows_kept, const int *pointers,
                          void *arena, int need, int *error) {
  if (need < 0) return (-need <= f->n_freem[0] || -need <= f->n_freem[1]) ? 0 : 1;
  if (need == 0) return compact(f, rows_kept, pointers, arena, error);
  return evict(f, pointers, need, error);
}

void telmira_ooc_room_for_panel(ooc_file *f, const int *rows_kept, const int *pointers,
                                void *arena, int need, int *error) {
  if (telmira_ooc_make_room(f, nullptr, nullptr, arena, -need, error) == 0) return;
  telmira_ooc_make_room(f, rows_kept, pointers, arena, 0, error);
  if (*error != 0) return;
  const int slack = std::min(f->len_arena, std::max(need, f->len_arena / 8));
  if (telmira_ooc_make_room(f, nullptr, nullptr, arena, -slack, error) != 0)
    telmira_ooc_make_room(f, nullptr, pointers, arena, slack, error);
}

}  // namespace tlm
