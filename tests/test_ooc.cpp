// Factors in files: every matrix type solved with its factors in files
// against the same solve in memory, eviction under a small memory limit,
// the files kept or removed, failures of the files, the choice of mode 1,
// and the record I/O and arena underneath; the settings of the mode
// (defaults, environment, configuration file and their precedence, the
// line grammar of the file, and the traces).
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "telmira_ooc_arena.h"
#include "telmira_ooc_config.h"
#include "telmira_ooc_files.h"
#include "telmira_slots.h"
#include "test_system.h"
#include "vekio.h"

namespace {

using vektest::system;

// Sets the variables of the mode for each test; the files go to a fresh
// temporary directory.
class Ooc : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/vek_ooc_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    base_ = dir_ + "/fac";
    set_env(base_, 2, 1);
  }
  void TearDown() override {
    std::string cmd = "rm -rf '" + dir_ + "'";
    if (std::system(cmd.c_str()) != 0) ADD_FAILURE() << "could not clean " << dir_;
  }
  void set_env(const std::string &path, int core_mb, int keep) {
    setenv("VEK_TELMIRA_OOC_PATH", path.c_str(), 1);
    setenv("VEK_TELMIRA_OOC_MAX_CORE_SIZE", std::to_string(core_mb).c_str(), 1);
    setenv("VEK_TELMIRA_OOC_KEEP_FILE", std::to_string(keep).c_str(), 1);
  }
  bool exists(const std::string &name) const {
    struct stat st;
    return stat(name.c_str(), &st) == 0;
  }
  std::string dir_, base_;
};

// The control array with the defaults of the type, and the mode.
void controls(system &s, int mode) { s.type_defaults().iparam[59] = mode; }

using vektest::every_type;
using vektest::rel_diff;
using vektest::typed_matrix;

TEST_F(Ooc, EveryTypeSolvesInFilesAsInMemory) {
  for (const typed_matrix &c : every_type(19)) {
    SCOPED_TRACE(c.name);
    system core(c.m, c.mtype, 2);
    controls(core, 0);
    ASSERT_EQ(core.call(13), 0);
    // A limit of 2 MB cannot hold the factors: panels leave the arena and
    // are read back from the files.
    system files(c.m, c.mtype, 2);
    controls(files, 2);
    ASSERT_EQ(files.call(13), 0) << files.iparam[29];
    EXPECT_LT(files.residual(files.x), 1e-10);
    EXPECT_LT(rel_diff(files.x, core.x), 1e-8);
    EXPECT_EQ(files.iparam[13], core.iparam[13]);  // perturbed pivots
    EXPECT_EQ(files.iparam[21], core.iparam[21]);  // inertia of type -2
    EXPECT_EQ(files.iparam[22], core.iparam[22]);
    const int *ooc_l = tlm::state_of(files.handle).ooc_l;
    EXPECT_EQ(OOCL(OL_MODE), 2);
    EXPECT_GT(OOCL(OL_BYTES_WRITTEN), 0);
    EXPECT_GT(OOCL(OL_BYTES_READ_SOLVE), 0);
    // Without an arena every update reads its source from the file; with
    // one, the small limit forces panels out and back.
    EXPECT_GT(OOCL(OL_BYTES_READ), 0);
    EXPECT_EQ(files.iparam[56], OOCL(OL_ALGORITHM));
    EXPECT_TRUE(exists(base_ + ".lnz"));
    EXPECT_EQ(exists(base_ + ".unz"), c.mtype == 1 || c.mtype == 3 || c.mtype > 10);
    files.release();
    EXPECT_FALSE(exists(base_ + ".lnz"));
    EXPECT_FALSE(exists(base_ + ".unz"));
  }
}

TEST_F(Ooc, AFactorizationAndSolveInOneCallLeaveTheSolveOnlyTheBackwardSweep) {
  // lap3d:18 has more factor than the 2 MB: the solve reads in runs.
  const vekio::sparse m = vekio::lap3d(18);
  for (int threads : {1, 2})
    for (int nb : {1, 3}) {
      SCOPED_TRACE(std::to_string(threads) + " threads, " + std::to_string(nb) + " rhs");
      vektest::use_threads(threads);
      system core(m, 2, nb);
      controls(core, 0);
      ASSERT_EQ(core.call(13), 0);
      system s(m, 2, nb);
      controls(s, 2);
      ASSERT_EQ(s.call(13), 0);
      const int *ooc_l = tlm::state_of(s.handle).ooc_l;
      const long long written = OOCL(OL_BYTES_WRITTEN);
      // The factorization made the forward sweep: each panel is read once.
      EXPECT_EQ(OOCL(OL_BYTES_READ_SOLVE), written);
      EXPECT_LT(rel_diff(s.x, core.x), 1e-12);
      // A solve of its own runs both sweeps, reading the run at the top
      // once: less than twice the factor.
      ASSERT_EQ(s.call(33), 0);
      EXPECT_GT(OOCL(OL_BYTES_READ_SOLVE), 2 * written);
      EXPECT_LT(OOCL(OL_BYTES_READ_SOLVE), 3 * written);
      EXPECT_LT(rel_diff(s.x, core.x), 1e-12);
      // The solution over b (iparam(6) = 1) from the same fused sweep.
      system o(m, 2, nb);
      controls(o, 2);
      o.iparam[5] = 1;
      ASSERT_EQ(o.call(13), 0);
      EXPECT_EQ(tlm::state_of(o.handle).ooc_l[OL_BYTES_READ_SOLVE - 1], written);
      EXPECT_LT(rel_diff(o.b, core.x), 1e-12);
    }
  vektest::use_threads(1);
}

TEST_F(Ooc, AnUnwritableDirectoryGivesMinus10AndLeavesTheCallerUntouched) {
  set_env(dir_ + "/no/such/dir/fac", 2, 1);
  system s(vekio::lap3d(8), 2, 1);
  controls(s, 2);
  const std::vector<double> b = s.b;
  EXPECT_EQ(s.call(13), -10);
  EXPECT_EQ(s.b, b);
  s.release();  // ido -1 after the failure
  EXPECT_EQ(s.handle[0], 0);
}

TEST_F(Ooc, AFailedWriteGivesMinus11AndNoFileStays) {
  for (int way = 0; way < 2; ++way) {
    SCOPED_TRACE(way);
    struct stat dev;
    if (way == 0 && (stat("/dev/full", &dev) != 0 || !S_ISCHR(dev.st_mode))) continue;
    system s(vekio::lap3d(12), 2, 1);
    controls(s, 2);
    const std::vector<double> b = s.b;
    int error = 0;
    if (way == 0) {
      // A full device: the file of L is a link to one on which every write
      // fails for want of space.
      ASSERT_EQ(symlink("/dev/full", (base_ + ".lnz").c_str()), 0);
      error = s.call(13);
    } else {
      // Writes beyond a small file size limit fail as well.
      struct rlimit old;
      ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
      struct sigaction ignore {}, saved {};
      ignore.sa_handler = SIG_IGN;
      sigaction(SIGXFSZ, &ignore, &saved);
      struct rlimit small = old;
      small.rlim_cur = 64 * 1024;
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
      error = s.call(13);
      setrlimit(RLIMIT_FSIZE, &old);
      sigaction(SIGXFSZ, &saved, nullptr);
    }
    EXPECT_EQ(error, -11);
    EXPECT_EQ(s.b, b);
    s.release();
    struct stat st;
    EXPECT_NE(lstat((base_ + ".lnz").c_str(), &st), 0);
  }
}

TEST_F(Ooc, ModeOneChoosesByTheLimitAndFilesStayWhenAsked) {
  const vekio::sparse cd = vekio::convdiff3d(14, 1.0, 0.6, 0.3);
  for (int limit_mb : {2000, 2}) {
    SCOPED_TRACE(limit_mb);
    set_env(base_, limit_mb, 0);  // the files are to stay
    {
      system s(cd, 11, 1);
      controls(s, 1);
      ASSERT_EQ(s.call(13), 0);
      EXPECT_LT(s.residual(s.x), 1e-10);
      const int *ooc_l = tlm::state_of(s.handle).ooc_l;
      EXPECT_EQ(OOCL(OL_MODE), limit_mb == 2 ? 2 : 0);
      // A second solve reads the same files.
      const std::vector<double> first = s.x;
      ASSERT_EQ(s.call(33), 0);
      EXPECT_LT(rel_diff(s.x, first), 1e-12);
    }
    EXPECT_EQ(exists(base_ + ".lnz"), limit_mb == 2);
    EXPECT_EQ(exists(base_ + ".unz"), limit_mb == 2);
  }
}

// The sweeps' room for a panel: a compaction that frees enough keeps every
// panel; one that frees too little lets panels go until an eighth of the
// arena is free.
TEST_F(Ooc, RoomForAPanelCompactsFirstAndKeepsASlack) {
  for (int kept_rows : {1, 2}) {
    SCOPED_TRACE(kept_rows);
    tlm::ooc_file f{};
    ASSERT_EQ(tlm::telmira_ooc_prepare(&f, 17, 0, 8, 1), 0);
    tlm::telmira_ooc_arena_reset(&f, 96);
    std::vector<double> arena(96, 0.0);
    int pos = 0, e = 0, rows = 0;
    for (int r = 1; r <= 16; ++r) {  // sixteen panels of 2 rows, 3 columns: full
      ASSERT_EQ(tlm::telmira_ooc_place_panel(&f, r, &pos, 2, 3, &e), 0);
      for (int i = 0; i < 6; ++i) arena[pos - 1 + i] = 10 * r + i;
    }
    int cols[18];
    for (int r = 0; r < 18; ++r) cols[r] = 1 + 3 * r;
    const std::vector<int> need(17, kept_rows);
    tlm::telmira_ooc_room_for_panel(&f, need.data(), cols, arena.data(), 3, &e);
    ASSERT_EQ(e, 0);
    EXPECT_TRUE(f.n_freem[0] >= 12 || f.n_freem[1] >= 12);
    // One row kept a panel frees half the arena: every panel stays. With
    // both rows kept the compaction frees nothing and two panels go (an
    // eighth of the arena, not just the 3 entries asked for).
    int present = 0;
    for (int r = 1; r <= 16; ++r)
      present += tlm::telmira_ooc_find_panel(&f, r, kept_rows, &pos, &rows, &e) != 0;
    EXPECT_EQ(present, kept_rows == 1 ? 16 : 14);
    ASSERT_NE(tlm::telmira_ooc_find_panel(&f, 1, kept_rows, &pos, &rows, &e), 0);
    EXPECT_EQ(arena[pos - 1], 10.0 + 2 - kept_rows);  // the last row of its first column
    EXPECT_EQ(e, 0);
    tlm::telmira_ooc_forget(&f);
  }
}

// Record I/O: names, a record written and read whole and by its last
// rows, and the fall-through of a set error cell.
TEST_F(Ooc, RecordsGoToTheNamedFilesAndComeBack) {
  char name[256];
  ASSERT_EQ(tlm::telmira_ooc_file_name("base  \t", tlm::OOC_LNZ, 0, name, sizeof name), 0);
  EXPECT_STREQ(name, "base.lnz");
  ASSERT_EQ(tlm::telmira_ooc_file_name("base", tlm::OOC_SLE, 2, name, sizeof name), 0);
  EXPECT_STREQ(name, "base3.sle");
  tlm::ooc_file ooc[tlm::OOC_FILE_COUNT] = {};
  ASSERT_EQ(tlm::telmira_ooc_prepare(ooc + 1, 2, 80, 8, 0), 0);
  int e = 0;
  tlm::telmira_ooc_open(base_.c_str(), tlm::OOC_LNZ, "w", ooc, &e);
  ASSERT_EQ(e, 0);
  const double rec1[6] = {1, 2, 3, 4, 5, 6}, rec2[2] = {7, 8};
  EXPECT_EQ(tlm::telmira_ooc_write_record(ooc, tlm::OOC_LNZ, 1, 6, rec1, 0, &e), 48);
  EXPECT_EQ(tlm::telmira_ooc_write_record(ooc, tlm::OOC_LNZ, 2, 2, rec2, 0, &e), 16);
  double back[6] = {0};
  // Record 1 as 2 columns of 3 rows: the last 2 rows of each.
  EXPECT_EQ(tlm::telmira_ooc_read_record(ooc, tlm::OOC_LNZ, 1, 2, 3, 2, back, 0, &e), 32);
  EXPECT_EQ((std::vector<double>{2, 3, 5, 6}), std::vector<double>(back, back + 4));
  EXPECT_EQ(tlm::telmira_ooc_read_record(ooc, tlm::OOC_LNZ, 2, 2, 2, 1, back, 0, &e), 16);
  EXPECT_EQ(back[1], 8.0);
  // A write that would leave a gap behind the end fails with code 12.
  EXPECT_EQ(tlm::telmira_write_ooc_file(ooc[1].pt_tof[0], 8, 20, 1, 1, 1, rec2, 0, &e), 0);
  EXPECT_EQ(e, tlm::OOC_WRITE_EOF);
  testing::internal::CaptureStdout();
  EXPECT_EQ(tlm::telmira_read_ooc_file(ooc[1].pt_tof[0], 8, 1, 1, 1, 1, back, 0, &e), 0);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(e, tlm::OOC_ENTERED_WITH_ERROR);
  e = 0;
  tlm::telmira_ooc_close(tlm::OOC_LNZ, ooc, &e);
  tlm::telmira_ooc_delete(base_.c_str(), tlm::OOC_LNZ, ooc, &e);
  EXPECT_EQ(e, 0);
  EXPECT_FALSE(exists(base_ + ".lnz"));
  tlm::telmira_ooc_forget(ooc + 1);
}

// Several matrix numbers over one analysis share the files: factorizing
// one must never leave another's solve reading foreign factors.
TEST_F(Ooc, SeveralMatrixNumbersNeverSolveWithForeignFactors) {
  // Positive definite: the solve does not measure its result unless asked,
  // so that foreign factors would go unnoticed.
  system s(vekio::lap3d(8), 2, 1);
  controls(s, 2);
  s.max_fac_store = 2;
  const std::vector<double> a1 = s.A.a;
  std::vector<double> a2 = a1;
  for (double &v : a2) v *= 3.0;  // another matrix of the same pattern
  for (int i = 0; i < s.n; ++i) a2[s.A.ia[i] - 1] += 1.0 + i % 5;  // stored first: the diagonal
  auto run = [&](int ido, int number, const std::vector<double> &a) {
    s.matrix_number = number;
    s.A.a = a;
    s.set_rhs(1);
    return s.call(ido);
  };
  ASSERT_EQ(0, run(12, 2, a2));
  ASSERT_EQ(0, run(22, 1, a1));
  ASSERT_EQ(0, run(33, 2, a2));
  EXPECT_LE(s.residual(s.x), 1e-14);
  ASSERT_EQ(0, run(33, 1, a1));
  EXPECT_LE(s.residual(s.x), 1e-14);
}

// Type 2 on two threads shares its out-of-core sweep among them: each
// thread makes its targets in slots of its own and takes its sources from
// the shared arena or the file. Under a limit far below the factors, and
// again and again, it must give the answer of memory; a pivot that is not
// positive, or a NaN in A, must fail as in memory.
TEST_F(Ooc, CholeskyOnTwoThreadsGivesTheAnswerOfMemoryRunAfterRun) {
  vektest::use_threads(2);
  const vekio::sparse m = vekio::lap3d(20);
  system core(m, 2, 1);
  controls(core, 0);
  ASSERT_EQ(core.call(13), 0);

  set_env(base_, 3, 1);
  system files(m, 2, 1);
  controls(files, 2);
  ASSERT_EQ(files.call(11), 0);
  ASSERT_EQ(files.iparam[2], 2);
  const int *comi = files.comi();
  const int *ooc_l = tlm::state_of(files.handle).ooc_l;
  const tlm::ooc_file &lfile = tlm::telmira_ooc_blocks(ooc_l).ooc[tlm::OOC_LNZ - 1];
  std::vector<double> first;
  unsigned written = 0, read = 0;
  for (int run = 0; run < 4; ++run) {
    SCOPED_TRACE(run);
    ASSERT_EQ(files.call(23), 0);
    // The slots of the threads came off the arena: the parallel sweep ran.
    EXPECT_LT(lfile.len_arena, OOCL(OL_ARENA_VALUES));
    // Every panel written once; the small arena sent some back to the file.
    // (The counters run on over factorizations into the same block.)
    EXPECT_EQ(static_cast<unsigned>(OOCL(OL_BYTES_WRITTEN)) - written,
              static_cast<unsigned>(COMI(CI_LNZ_LEN)) * 8u);
    EXPECT_GT(static_cast<unsigned>(OOCL(OL_BYTES_READ)), read);
    written = static_cast<unsigned>(OOCL(OL_BYTES_WRITTEN));
    read = static_cast<unsigned>(OOCL(OL_BYTES_READ));
    EXPECT_LT(files.residual(files.x), 1e-13);
    EXPECT_LT(rel_diff(files.x, core.x), 1e-10);
    if (run == 0) first = files.x;
    EXPECT_LT(rel_diff(files.x, first), 1e-12);
  }
  files.release();
  EXPECT_FALSE(exists(base_ + ".lnz"));

  // Failures: a negative diagonal entry deep in the matrix, and a NaN.
  for (int fault = 0; fault < 2; ++fault) {
    SCOPED_TRACE(fault);
    system in_memory(m, 2, 1), in_files(m, 2, 1);
    for (system *s : {&in_memory, &in_files}) {
      const int row = s->n / 2;  // stored first in its row: the diagonal
      s->A.a[s->A.ia[row] - 1] = fault == 0 ? -1.0 : std::nan("");
    }
    controls(in_memory, 0);
    controls(in_files, 2);
    const int expected = in_memory.call(13);
    ASSERT_NE(expected, 0);
    EXPECT_EQ(in_files.call(13), expected);
    EXPECT_EQ(in_files.iparam[29], in_memory.iparam[29]);
  }
  vektest::use_threads(1);
}

}  // namespace

// --- the settings ---------------------------------------------------------

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

const char *const env_names[5] = {
    "VEK_TELMIRA_OOC_PATH", "VEK_TELMIRA_OOC_MAX_CORE_SIZE",
    "VEK_TELMIRA_OOC_KEEP_FILE", "VEK_TELMIRA_OOC_CFG_FILE_NAME",
    "VEK_TELMIRA_OOC_CFG_PATH"};

struct Settings {
  std::string path, printed;
  int core, keep;
};

// Each test gets an empty temporary directory as the configuration path and
// an environment without the other variables.
class OocConfig : public testing::Test {
 protected:
  void SetUp() override {
    for (const char *v : env_names) unsetenv(v);
    char tmpl[] = "/tmp/ooc_cfg_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    setenv("VEK_TELMIRA_OOC_CFG_PATH", dir_.c_str(), 1);
  }
  void TearDown() override {
    for (const std::string &f : files_) unlink(f.c_str());
    rmdir(dir_.c_str());
  }

  void write_file(const std::string &text, const std::string &name = "telmira_ooc.cfg") {
    const std::string full = dir_ + "/" + name;
    std::FILE *f = std::fopen(full.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
    files_.push_back(full);
  }

  // Runs the reading on a blank-filled block with guard bytes behind it and
  // on an ooc_l whose other words must stay as they were.
  Settings read(int level = 0) {
    char block[1024 + 16];
    std::memset(block, ' ', sizeof block);
    int ooc_l[128];
    for (int k = 0; k < 128; ++k) ooc_l[k] = -5;
    CaptureStdout();
    int rc = telmira_ooc_read_config("telmira_ooc.cfg", block, ooc_l, level);
    Settings s{};
    s.printed = GetCapturedStdout();
    EXPECT_EQ(rc, 0);
    const char *end = static_cast<const char *>(std::memchr(block, '\0', 1024));
    EXPECT_NE(end, nullptr) << "path not ended within the block";
    if (end == nullptr) return s;
    // No value is longer than 999 characters: the tail of the block and
    // the guard bytes behind it stay blank, and so do the other words.
    for (const char *p = block + 1000; p < block + sizeof block; ++p)
      EXPECT_EQ(*p, ' ') << "byte " << (p - block) << " written";
    EXPECT_TRUE(OOCL(1) == -5 && OOCL(4) == -5);
    s.path = block;
    s.core = OOCL(2);
    s.keep = OOCL(3);
    return s;
  }

  std::string dir_;
  std::vector<std::string> files_;
};

TEST_F(OocConfig, DefaultsWithoutFileOrEnvironment) {
  Settings s = read(0);
  EXPECT_EQ(s.path, "ooc_temp");
  EXPECT_EQ(s.core, 2000);
  EXPECT_EQ(s.keep, 1);
  EXPECT_EQ(s.printed, "");
  // At level 1 the configuration path is traced and the missing file named,
  // directory and name joined by the platform's separator.
  EXPECT_EQ(read(1).printed,
            "ooc_cfg_path\t\tgot by Env =  " + dir_ + "\n" + "The file " +
                dir_ + "/telmira_ooc.cfg was not opened\n");
}

TEST_F(OocConfig, EnvironmentBeforeFile) {
  write_file("vek_telmira_ooc_path = file_path\n"
             "vek_telmira_ooc_max_core_size = 300\n"
             "vek_telmira_ooc_keep_file = 0\n");
  const char *values[3] = {"/scratch/run 2", "-3", "5"};
  // Two of three from the environment: the third from the file.
  for (int left = 0; left < 3; ++left) {
    for (int i = 0; i < 3; ++i)
      if (i == left) unsetenv(env_names[i]);
      else setenv(env_names[i], values[i], 1);
    Settings s = read(0);
    EXPECT_EQ(s.path, left == 0 ? "file_path" : "/scratch/run 2") << left;
    EXPECT_EQ(s.core, left == 1 ? 300 : -3) << left;  // no range check
    EXPECT_EQ(s.keep, left == 2 ? 0 : 5) << left;
  }
  // A variable with an unreadable number still counts as given: the file
  // doesn't set it, and it keeps its default. An empty one counts as unset.
  setenv(env_names[0], "", 1);
  setenv(env_names[1], "lots", 1);
  setenv(env_names[2], "5", 1);
  const Settings s = read(0);
  EXPECT_TRUE(s.path == "file_path" && s.core == 2000 && s.keep == 5);
}

TEST_F(OocConfig, LineGrammarAndLastLineWins) {
  // Lines that set (the last one of a key wins), then lines that must
  // change nothing; the last line has no newline behind it.
  write_file("vek_telmira_ooc_path=a\n"
             "   VEK_TELMIRA_OOC_PATH\t= d:\\tmp\\run   1   # where\r\n"
             "Vek_Telmira_Ooc_Max_Core_Size = 4000  # four gigabytes\n"
             "vek_telmira_ooc_keep_file 0 = 3\n"        // the word behind the key
             "# vek_telmira_ooc_keep_file = 9\n"
             "vek_telmira_ooc_keep_file 9\n"             // no equals sign
             "=vek_telmira_ooc_keep_file = 9\n"          // starts with '='
             "vek_telmira_ooc_keep_file_x = 9\n"         // not the key
             "vek_telmira_ooc_keep_file =   # no value\n"
             "vek_telmira_ooc_max_core_size = x20\n"     // unreadable
             "vek_telmira_ooc_max_core_size 9 # = 9");   // '=' only in comment
  Settings s = read(0);
  EXPECT_EQ(s.path, "d:\\tmp\\run 1");
  EXPECT_EQ(s.core, 4000);
  EXPECT_EQ(s.keep, 0);
}

TEST_F(OocConfig, OverLongLinesOverrunNothing) {
  // A comment far beyond the buffers: no piece of its tail is read as a
  // line of its own, wherever a reader in pieces would cut it.
  std::string lines = "vek_telmira_ooc_keep_file = 6\n";
  lines += "vek_telmira_ooc_max_core_size = 10 #" + std::string(3000, ' ') +
           "vek_telmira_ooc_keep_file = 0\n";
  // A path value longer than every buffer is cut, and the block is ended.
  lines += "vek_telmira_ooc_path = " + std::string(2500, 'p') + "\n";
  lines += "vek_telmira_ooc_max_core_size = 4000\n";
  write_file(lines);
  Settings s = read(0);
  EXPECT_EQ(s.core, 4000);
  EXPECT_EQ(s.keep, 6);
  EXPECT_EQ(s.path, std::string(999 - 23, 'p'));

  // An environment value too long for its buffer is ignored.
  setenv(env_names[0], std::string(1500, 'e').c_str(), 1);
  EXPECT_EQ(read(0).path, std::string(999 - 23, 'p'));
}

TEST_F(OocConfig, TheFileNamedByTheEnvironmentIsRead) {
  write_file("vek_telmira_ooc_path = wrong\n");
  write_file("vek_telmira_ooc_path = q\n", "x.cfg");
  setenv("VEK_TELMIRA_OOC_CFG_FILE_NAME", "x.cfg", 1);
  Settings s = read(1);
  EXPECT_EQ(s.path, "q");
  EXPECT_NE(s.printed.find("ooc_cfg_file_name\tgot by Env =  x.cfg\n"), std::string::npos);
}

// Where the whole factor (algorithm 0) or the largest branch of the
// partition tree (algorithm 3) fits the limit, type 2 runs branch by branch:
// the panels of a branch stay in memory with their partial sums until their
// last leaf is done, so that nothing is read back while the factorization
// runs and every panel is written once. The answer is that of memory, and
// a pivot that is not positive fails as in memory.
TEST_F(Ooc, TheBranchSweepReadsNothingBackAndGivesTheAnswerOfMemory) {
  const vekio::sparse m = vekio::lap3d(26);  // large enough for 32 parts
  system core(m, 2, 1);
  controls(core, 0);
  ASSERT_EQ(core.call(13), 0);
  // The plan's sizes, from an analysis under a generous limit.
  set_env(base_, 4000, 1);
  system sizes(m, 2, 1);
  controls(sizes, 2);
  ASSERT_EQ(sizes.call(11), 0);
  const int *ooc_l0 = tlm::state_of(sizes.handle).ooc_l;
  ASSERT_EQ(ooc_l0[OL_TREE_LEVELS - 1], 6);
  const double branch_mb = 8.0 * ooc_l0[OL_BRANCH_VALUES - 1] / (1 << 20);
  const double whole_mb =
      (8.0 * sizes.comi()[CI_LNZ_LEN - 1] + 4.0 * sizes.comi()[CI_LINDX_LEN - 1]) / (1 << 20);
  for (int algorithm : {3, 0}) {
    SCOPED_TRACE(algorithm);
    // The smallest limit in megabytes that the plan answers with it.
    int mb = static_cast<int>(algorithm == 3 ? branch_mb : whole_mb) + 1;
    for (int tries = 0; tries < 6; ++tries, ++mb) {
      set_env(base_, mb, 1);
      system probe(m, 2, 1);
      controls(probe, 2);
      if (probe.call(11) == 0 && probe.iparam[56] == algorithm) break;
    }
    ASSERT_EQ(algorithm == 3, mb < whole_mb) << mb;
    // Run 0 and 1 on one thread, the second with a negative pivot; run 2
    // on two threads.
    for (int fault = 0; fault < 3; ++fault) {
      SCOPED_TRACE(fault);
      vektest::use_threads(fault == 2 ? 2 : 1);
      system files(m, 2, 1);
      controls(files, 2);
      if (fault == 1) files.A.a[files.A.ia[files.n / 2] - 1] = -1.0;
      ASSERT_EQ(files.call(11), 0);
      ASSERT_EQ(files.iparam[2], fault == 2 ? 2 : 1);
      const int *comi = files.comi();
      const int *ooc_l = tlm::state_of(files.handle).ooc_l;
      ASSERT_EQ(OOCL(OL_ALGORITHM), algorithm);
      if (algorithm == 3) {
        EXPECT_LT(OOCL(OL_BRANCH_VALUES), COMI(CI_LNZ_LEN));
        EXPECT_GE(OOCL(OL_BRANCH_VALUES), OOCL(OL_NODE_VALUES));
      }
      if (fault == 1) {
        system in_memory(m, 2, 1);
        in_memory.A.a[in_memory.A.ia[in_memory.n / 2] - 1] = -1.0;
        controls(in_memory, 0);
        const int expected = in_memory.call(13);
        ASSERT_NE(expected, 0);
        EXPECT_EQ(files.call(23), expected);
        EXPECT_EQ(files.iparam[29], in_memory.iparam[29]);
        continue;
      }
      ASSERT_EQ(files.call(23), 0);
      // The arena of the plan whole: no thread took slots off it.
      EXPECT_EQ(tlm::telmira_ooc_blocks(ooc_l).ooc[tlm::OOC_LNZ - 1].len_arena,
                OOCL(OL_ARENA_VALUES));
      EXPECT_EQ(OOCL(OL_BYTES_READ), 0);
      EXPECT_EQ(static_cast<unsigned>(OOCL(OL_BYTES_WRITTEN)),
                static_cast<unsigned>(COMI(CI_LNZ_LEN)) * 8u);
      EXPECT_LT(files.residual(files.x), 1e-13);
      EXPECT_LT(rel_diff(files.x, core.x), 1e-10);
      // The branches made the forward sweep: the solve read L once.
      EXPECT_EQ(OOCL(OL_BYTES_READ_SOLVE), OOCL(OL_BYTES_WRITTEN));
    }
  }
  vektest::use_threads(1);
}

}  // namespace
