// telmira_ooc_arena.cpp - the memory plan of the out-of-core mode and the
// placement, eviction and compaction of panels in an arena.
#include "telmira_ooc_arena.h"
#include "telmira_slots.h"
#include "telmira_storage.h"
#include "telmira_ooc_tree.h"
#include "service/vek_serv_memory.h"

#include <algorithm>
#include <cstdio>
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

bool ooc_plan_tree(int *ooc_l, const ooc_plan_input &in, std::int64_t *Bv, std::int64_t *Bi) {
  if (in.nparts != OOC_TREE_LEAVES || in.parts == nullptr || in.lindx == nullptr ||
      in.snode == nullptr)
    return false;
  int *owner = static_cast<int *>(
      vek_serv_malloc(sizeof(int) * 2 * static_cast<std::size_t>(in.nsuper), 128));
  if (owner == nullptr) return false;
  ooc_tree t;
  const bool built = ooc_tree_build(in.nparts, in.parts, in.nsuper, in.xsup, in.xlindx,
                                    in.lindx, in.snode, owner, owner + in.nsuper, &t);
  if (built) {
    std::int64_t node_v = 0, node_i = 0, v[OOC_TREE_PAIRS], i[OOC_TREE_PAIRS];
    for (int k = 0; k < OOC_TREE_PAIRS; ++k) {
      ooc_tree_node_size(t, k, in.xsup, in.xlnz, in.xlindx, v + k, i + k);
      node_v = std::max(node_v, v[k]);
      node_i = std::max(node_i, i[k]);
    }
    *Bv = *Bi = 0;
    for (int leaf = 0; leaf < OOC_TREE_LEAVES; ++leaf) {
      int path[OOC_TREE_LEVELS];
      ooc_tree_path(t, leaf, path);
      std::int64_t bv = 0, bi = 0;
      for (int l = 0; l < OOC_TREE_LEVELS; ++l) {
        bv += v[path[l]];
        bi += i[path[l]];
      }
      *Bv = std::max(*Bv, bv);
      *Bi = std::max(*Bi, bi);
    }
    const std::int64_t cap = 0x7FFFFFFF;
    OOCL(OL_NODE_VALUES) = static_cast<int>(std::min(node_v, cap));
    OOCL(OL_NODE_INDEX) = static_cast<int>(std::min(node_i, cap));
    OOCL(OL_BRANCH_VALUES) = static_cast<int>(std::min(*Bv, cap));
    OOCL(OL_BRANCH_INDEX) = static_cast<int>(std::min(*Bi, cap));
    OOCL(OL_TREE_LEVELS) = OOC_TREE_LEVELS;
  }
  vek_serv_free(owner);
  return built;
}

int telmira_ooc_plan(int *ooc_l, const ooc_plan_input &in) {
  const std::int64_t I = OOCL(OL_INT_BYTES), E = OOCL(OL_VALUE_BYTES), w = in.words;
  const std::int64_t T = std::max(1, in.threads);
  const std::int64_t o5 = OOCL(OL_PANEL_VALUES), o6 = OOCL(OL_ROW_LIST);
  const std::int64_t Ll = std::abs(in.xlnz[in.xsup[in.nsuper] - 1]) - 1;
  const std::int64_t Li = in.xlindx[in.nsuper] - 1;
  // The tree: the branch of a leaf is its nodes up to the root; the
  // largest node and branch size the arenas of the branch sweep.
  std::int64_t Bv = 0, Bi = 0;
  const bool tree = ooc_plan_tree(ooc_l, in, &Bv, &Bi);
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

int ooc_set_branch(ooc_file *f, const ooc_tree &tree, int leaf, const int *xsup,
                   const int *xlindx, int msglvl, int *error) {
  int path[OOC_TREE_LEVELS];
  ooc_tree_path(tree, leaf, path);
  auto rows = [&](int J) { return xlindx[J] - xlindx[J - 1]; };
  auto cols = [&](int J) { return xsup[J] - xsup[J - 1]; };
  // The nodes that the branch of the previous leaf shares stay where they
  // are, root first at the low addresses; the new ones lie below them.
  int fresh = 0;
  while (fresh < OOC_TREE_LEVELS && tree.lo[path[fresh]] == leaf) ++fresh;
  int cut = 1;
  for (int l = OOC_TREE_LEVELS - 1; l >= fresh; --l)
    for (int m = tree.start[path[l]]; m < tree.start[path[l] + 1]; ++m) {
      const int J = tree.members[m];
      if (std::abs(f->pt_inm[J]) != cut) {
        if (msglvl > 0)
          std::printf("ooc_set_branch: error: pt_tst=%d,ooc[ii1].pt_freem[0]=%d\n",
                      std::abs(f->pt_inm[J]), cut);
        return fail(error, -39);
      }
      cut += rows(J) * cols(J);
    }
  // The panels behind the cut belonged to the finished lower part.
  while (f->nsuperm[0] > 0 && std::abs(f->pt_inm[f->mapm[f->nsuperm[0]]]) >= cut) {
    const int rec = f->mapm[f->nsuperm[0]];
    f->pt_inm[rec] = 0;
    f->len_panelm[rec] = 0;
    f->mapm[f->nsuperm[0]--] = 0;
  }
  f->pt_freem[0] = f->pt_freem[1] = cut;
  f->n_freem[0] = f->len_arena - cut + 1;
  f->n_freem[1] = 0;
  f->nsuperm[1] = f->nsuperm[0];
  f->pt_inm[0] = cut;
  for (int l = fresh - 1; l >= 0; --l)
    for (int m = tree.start[path[l]]; m < tree.start[path[l] + 1]; ++m) {
      const int J = tree.members[m], need = rows(J) * cols(J);
      if (f->n_freem[0] < need) {
        if (msglvl > 0)
          std::printf("ooc_set_branch: error: ooc[ii1].n_freem[0] - size_jpanel=%d\n",
                      f->n_freem[0] - need);
        return fail(error, -34);
      }
      int pos = 0;
      if (telmira_ooc_place_panel(f, J, &pos, rows(J), cols(J), error) != 0) return *error;
    }
  return 0;
}

}  // namespace tlm

