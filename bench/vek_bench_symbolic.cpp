// vek-bench-symbolic - time of the symbolic factorization against the time of
// the fill-reducing order it starts from.
//
//   vek-bench-symbolic [--panel P] [--reps R] [FILE.mtx | KIND:N] ...
//
// For each matrix (default: lap3d:40 lap3d:30 lap2d:400) the pattern of
// A + A^T is ordered by METIS_NodeND; then sfinit and symbfct run on that
// order, as a single part. Times are the best of R runs (default 3).
#include <metis.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "service/vek_serv_clock.h"
#include "service/vek_serv_threads.h"
#include "symbolic.h"
#include "vekio.h"

namespace {

// One-based adjacency of A + A^T without the diagonal.
void adjacency(const vekio::sparse &a, std::vector<int> &xadj,
               std::vector<int> &adjncy) {
  const int n = a.n;
  std::vector<int> deg(n + 1, 0);
  for (int i = 0; i < n; ++i)
    for (int p = a.ia[i] - 1; p < a.ia[i + 1] - 1; ++p) {
      const int j = a.ja[p] - 1;
      if (j == i) continue;
      ++deg[i];
      ++deg[j];
    }
  std::vector<int> start(n + 1, 0);
  for (int i = 0; i < n; ++i) start[i + 1] = start[i] + deg[i];
  std::vector<int> all(start[n]);
  std::vector<int> fill(start.begin(), start.end() - 1);
  for (int i = 0; i < n; ++i)
    for (int p = a.ia[i] - 1; p < a.ia[i + 1] - 1; ++p) {
      const int j = a.ja[p] - 1;
      if (j == i) continue;
      all[fill[i]++] = j + 1;
      all[fill[j]++] = i + 1;
    }
  xadj.assign(n + 1, 1);
  adjncy.clear();
  for (int i = 0; i < n; ++i) {
    std::sort(all.begin() + start[i], all.begin() + start[i + 1]);
    const auto end = std::unique(all.begin() + start[i], all.begin() + start[i + 1]);
    adjncy.insert(adjncy.end(), all.begin() + start[i], end);
    xadj[i + 1] = static_cast<int>(adjncy.size()) + 1;
  }
  if (adjncy.empty()) adjncy.push_back(0);
}

bool load(const std::string &name, vekio::sparse &m) {
  std::string err;
  if (name.find(':') != std::string::npos && name.find(".mtx") == std::string::npos)
    return vekio::generate(name, m, err) || (std::fprintf(stderr, "%s\n", err.c_str()), false);
  vekio::mm_header h;
  if (!vekio::read_matrix_market(name, m, h, err)) {
    std::fprintf(stderr, "%s\n", err.c_str());
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  int panel = 128, reps = 3;
  std::vector<std::string> names;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--panel") && i + 1 < argc)
      panel = std::atoi(argv[++i]);
    else if (!std::strcmp(argv[i], "--reps") && i + 1 < argc)
      reps = std::max(1, std::atoi(argv[++i]));
    else
      names.push_back(argv[i]);
  }
  if (names.empty()) names = {"lap3d:40", "lap3d:30", "lap2d:400"};

  std::printf("threads %d, panel %d, best of %d\n", vek_serv_get_max_threads(),
              panel, reps);
  std::printf("%-22s %9s %10s %9s %9s %9s %12s %8s %12s\n", "matrix", "n",
              "nnz", "order s", "sfinit s", "symbfct s", "|L|", "nsuper",
              "Mflop");
  for (const std::string &name : names) {
    vekio::sparse m;
    if (!load(name, m)) return 2;
    std::vector<int> xadj, adjncy;
    adjacency(m, xadj, adjncy);
    const int n = m.n;

    // The order.
    std::vector<idx_t> x0(xadj.begin(), xadj.end()), a0(adjncy.begin(), adjncy.end());
    for (auto &v : x0) --v;
    for (auto &v : a0) --v;
    std::vector<idx_t> mperm(n), miperm(n);
    double t_order = 1e30;
    for (int r = 0; r < reps; ++r) {
      idx_t nn = n;
      const double t0 = vek_serv_seconds();
      METIS_NodeND(&nn, x0.data(), a0.data(), nullptr, nullptr, mperm.data(),
                   miperm.data());
      t_order = std::min(t_order, vek_serv_seconds() - t0);
    }
    std::vector<int> perm(n), invp(n);
    for (int i = 0; i < n; ++i) {
      perm[i] = mperm[i] + 1;
      invp[i] = miperm[i] + 1;
    }

    double t_sfinit = 1e30, t_symbfct = 1e30, mflop = 0.0;
    long long lcount = 0;
    int nsuper = 0, error = 0;
    for (int r = 0; r < reps && error == 0; ++r) {
      std::vector<int> comi(100, 0), parts(1024, 0);
      comi[0] = n;
      comi[15] = panel;
      comi[18] = 1;
      comi[59] = 1;
      parts[0] = 1;
      parts[1] = n - 1;
      parts[2] = parts[3] = n;
      std::vector<int> colcnt(n), snode(n), xsup(n + 1),
          work(tlm::sfinit_work_length(n));
      double t0 = vek_serv_seconds();
      tlm::sfinit(&n, xadj.data(), adjncy.data(), perm.data(), invp.data(),
                  parts.data(), colcnt.data(), snode.data(), xsup.data(),
                  work.data(), comi.data(), &error);
      t_sfinit = std::min(t_sfinit, vek_serv_seconds() - t0);
      if (error != 0) break;

      // Sized between the two stages, as the driver does.
      const int ns = comi[30];
      std::vector<int> xlindx(ns + 1), lindx(comi[35]), xlnz(n + 1),
          xunz(n + 1), sparent(ns), pnlsch(ns), nmod(ns), st1(ns), st2(ns),
          topcnt(ns), work2(tlm::symbfct_work_length(n, ns));
      double seconds = 0.0;
      t0 = vek_serv_seconds();
      tlm::symbfct(&n, comi.data(), &seconds, perm.data(), invp.data(),
                   xadj.data(), adjncy.data(), colcnt.data(), xsup.data(),
                   snode.data(), parts.data(), xlindx.data(), lindx.data(),
                   xlnz.data(), xunz.data(), sparent.data(), pnlsch.data(),
                   nmod.data(), st1.data(), st2.data(), topcnt.data(),
                   work2.data(), &error);
      t_symbfct = std::min(t_symbfct, vek_serv_seconds() - t0);
      if (error != 0) break;

      std::vector<int> length(ns), link(ns);
      const int sym = 1, mtype = 2;
      tlm::flops_estimate(&ns, xsup.data(), snode.data(), xlindx.data(),
                          lindx.data(), length.data(), link.data(), &sym,
                          &mtype, &mflop);
      lcount = comi[29];
      nsuper = ns;
    }
    if (error != 0) {
      std::printf("%-22s error %d\n", name.c_str(), error);
      continue;
    }
    std::printf("%-22s %9d %10d %9.4f %9.4f %9.4f %12lld %8d %12.1f\n",
                name.c_str(), n, m.nnz(), t_order, t_sfinit, t_symbfct, lcount,
                nsuper, mflop);
    std::printf("%-22s sfinit + symbfct = %.1f%% of the order\n", "",
                100.0 * (t_sfinit + t_symbfct) / t_order);
  }
  return 0;
}
