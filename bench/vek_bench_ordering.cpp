// vek_bench_ordering - fill, operation count and time of each ordering
// method against the graph partitioner's own nested dissection.
//
// Usage: vek-bench-ordering [--methods LIST] [--reps R] [matrix ...]
//   --methods  the methods to run, e.g. "2,3" (default 0,1,2,3; the
//              reference always runs, as the measure of the others)
//   --reps     runs per timing, the best counts (default 3)
//   a generated matrix is "lap2d:N" or "lap3d:N"; a name is a Matrix Market file of the
//   shared collection (without ".mtx"), or a path to one. Unsymmetric
//   patterns are symmetrised as A + A^T.
// Times are the best of three runs.
// Methods: 0 minimum degree, 1 constrained minimum degree over 2 domains,
// 2 nested dissection (1 thread), 3 nested dissection (2 threads), and
// "ref" the partitioner's METIS_NodeND with default options.

#include <metis.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ordering.h"
#include "service/vek_serv_clock.h"
#include "vekio.h"

namespace {

struct graph {
  int n = 0;
  std::vector<int> xadj, adjncy;  // one-based
};

// The shared collection lies beside the source tree.
std::string matrices_dir() {
  std::string here = __FILE__;
  here = here.substr(0, here.rfind('/'));  // bench
  here = here.substr(0, here.rfind('/'));  // source root
  return here + "/../shared/matrices";
}

double now() {
  double t = 0;
  telmira_clock(&t);
  return t;
}

bool load(const std::string &name, graph &g) {
  vekio::sparse a;
  std::string err;
  if (name.find(':') != std::string::npos) {
    if (!vekio::generate(name, a, err)) {
      std::fprintf(stderr, "%s\n", err.c_str());
      return false;
    }
  } else {
    std::string path = name;
    if (path.find('/') == std::string::npos)
      path = matrices_dir() + "/" + name + ".mtx";
    vekio::mm_header h;
    if (!vekio::read_matrix_market(path, a, h, err)) {
      std::fprintf(stderr, "%s\n", err.c_str());
      return false;
    }
  }
  g.n = a.n;
  g.xadj.assign(a.n + 1, 0);
  g.adjncy.assign(2 * static_cast<size_t>(a.nnz()) + 1, 0);
  std::vector<int> work(fulladj_unsym_work(a.n, a.nnz()));
  int n = a.n, nadj = 0;
  fulladj_unsym(&n, a.ia.data(), a.ja.data(), nullptr, g.xadj.data(),
                g.adjncy.data(), &nadj, work.data());
  g.adjncy.resize(nadj > 0 ? nadj : 1);
  return true;
}

struct result {
  double nnzl = 0, ops = 0, seconds = 0;
  int nparts = 0;
};

void measure(graph &g, std::vector<int> &perm, std::vector<int> &invp,
             result &r) {
  std::vector<int> cc(g.n), work(2 * g.n);
  ordering_fill(&g.n, g.xadj.data(), g.adjncy.data(), perm.data(),
                invp.data(), cc.data(), work.data(), &r.nnzl, &r.ops);
}

result run_reference(graph &g) {
  const int n = g.n;
  std::vector<idx_t> x(n + 1), a(g.adjncy.size());
  for (int i = 0; i <= n; ++i) x[i] = g.xadj[i] - 1;
  for (size_t p = 0; p < a.size(); ++p) a[p] = g.adjncy[p] - 1;
  std::vector<idx_t> perm(n), iperm(n);
  idx_t nn = n;
  result r;
  double t0 = now();
  METIS_NodeND(&nn, x.data(), a.data(), nullptr, nullptr, perm.data(),
               iperm.data());
  r.seconds = now() - t0;
  std::vector<int> p1(n), i1(n);
  for (int k = 0; k < n; ++k) {
    p1[k] = perm[k] + 1;
    i1[k] = iperm[k] + 1;
  }
  measure(g, p1, i1, r);
  return r;
}

result run_method(graph &g, int method) {
  const int n = g.n;
  std::vector<int> perm(n), invp(n);
  result r;
  int status = 0;
  double t0 = now();
  if (method == 0 || method == 1) {
    const int nnz = g.xadj[n] - 1;
    std::vector<int> copy(g.adjncy.begin(), g.adjncy.begin() + nnz);
    copy.push_back(0);
    std::vector<int> work(5 * n);
    int delta = 0, maxint = 2147483647, nofsub = 0, nn = n;
    int nparts = method == 1 ? 2 : 1, ncon = 0, sepflag = 1;
    if (method == 1)
      ddecomp(&nparts, &nn, g.xadj.data(), g.adjncy.data(), perm.data(),
              invp.data(), &ncon, &status);
    genmmd_constrained(&nn, g.xadj.data(), copy.data(), invp.data(),
                       perm.data(), &delta, work.data(), work.data() + n,
                       work.data() + 2 * n, work.data() + 3 * n, &maxint,
                       &nofsub, &ncon, work.data() + 4 * n, &sepflag);
    r.nparts = 1;
  } else {
    int threads = method == 3 ? 2 : 1, nn = n, form = method == 3 ? 1 : 0;
    int nparts = 32;
    while (nparts > 1 && nparts > n) nparts /= 2;
    std::vector<int> parts(4 * nparts + 1024);
    metis_nd(&nn, g.xadj.data(), g.adjncy.data(), &threads, perm.data(),
             invp.data(), &nparts, parts.data(), &status, &form);
    r.nparts = nparts;
  }
  r.seconds = now() - t0;
  if (status != 0) std::fprintf(stderr, "method %d: status %d\n", method, status);
  measure(g, perm, invp, r);
  return r;
}

}  // namespace

int main(int argc, char **argv) {
  std::vector<std::string> names;
  bool run[4] = {true, true, true, true};
  int reps = 3;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--methods" && i + 1 < argc) {
      const std::string list = argv[++i];
      for (int m = 0; m < 4; ++m) run[m] = list.find(static_cast<char>('0' + m)) != std::string::npos;
    } else if (a == "--reps" && i + 1 < argc) {
      reps = std::max(1, std::atoi(argv[++i]));
    } else {
      names.push_back(a);
    }
  }
  if (names.empty())
    names = {"lap2d:300", "lap3d:30", "bcsstk13", "zenios", "dwt_992",
             "watt_2",    "cryg2500", "lap3d:40"};
  std::printf("%-10s %7s %6s %12s %10s %9s %6s %6s\n", "matrix", "n",
              "method", "|L|", "ops", "time[s]", "fill/r", "time/r");
  for (const std::string &name : names) {
    graph g;
    if (!load(name, g)) return 1;
    // Each timing is the best of several runs, against the noise of a
    // shared machine; the fill is the same in every run.
    result ref = run_reference(g);
    for (int rep = 1; rep < reps; ++rep)
      ref.seconds = std::min(ref.seconds, run_reference(g).seconds);
    std::printf("%-10s %7d %6s %12.0f %10.3e %9.4f %6.3f %6.2f\n",
                name.c_str(), g.n, "ref", ref.nnzl, ref.ops, ref.seconds,
                1.0, 1.0);
    for (int method = 0; method <= 3; ++method) {
      if (!run[method]) continue;
      result r = run_method(g, method);
      for (int rep = 1; rep < reps; ++rep)
        r.seconds = std::min(r.seconds, run_method(g, method).seconds);
      std::printf("%-10s %7d %6d %12.0f %10.3e %9.4f %6.3f %6.2f\n",
                  name.c_str(), g.n, method, r.nnzl, r.ops, r.seconds,
                  r.nnzl / ref.nnzl, r.seconds / ref.seconds);
    }
    std::fflush(stdout);
  }
  return 0;
}
