// The out-of-core settings: defaults, environment, configuration file and
// their precedence, the line grammar of the file, and the traces.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "telmira_ooc_config.h"
#include "telmira_storage.h"

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
  // All three: the file's values are not taken, and a configuration path
  // that does not exist draws no message, since no file is opened.
  setenv(env_names[2], "5", 1);
  Settings s = read(0);
  EXPECT_TRUE(s.path == "/scratch/run 2" && s.core == -3 && s.keep == 5);
  setenv("VEK_TELMIRA_OOC_CFG_PATH", "/nonexistent/ooc", 1);
  EXPECT_EQ(read(1).printed.find("was not opened"), std::string::npos);

  // A variable with an unreadable number still counts as given: the file
  // doesn't set it, and it keeps its default. An empty one counts as unset.
  setenv("VEK_TELMIRA_OOC_CFG_PATH", dir_.c_str(), 1);
  setenv(env_names[0], "", 1);
  setenv(env_names[1], "lots", 1);
  s = read(0);
  EXPECT_TRUE(s.path == "file_path" && s.core == 2000 && s.keep == 5);
}

TEST_F(OocConfig, LineGrammarAndLastLineWins) {
  // Lines that set, then lines that must change nothing; the last line
  // has no newline behind it.
  write_file("\n\n"
             "vek_telmira_ooc_path=a\n"
             "vek_telmira_ooc_max_core_size = 10\r\n"
             "   VEK_TELMIRA_OOC_PATH\t= d:\\tmp\\run   1   # where\r\n"
             "Vek_Telmira_Ooc_Max_Core_Size = 4000  # four gigabytes\n"
             "\n"
             "# vek_telmira_ooc_keep_file = 9\n"
             "vek_telmira_ooc_keep_file 9\n"             // no equals sign
             "vek_telmira_ooc_path elsewhere\n"
             "vek_telmira_ooc_keep_file\t9\n"
             "=vek_telmira_ooc_keep_file = 9\n"          // starts with '='
             "\tvek_telmira_ooc_keep_file = 9\n"         // starts with a tab
             "vek_telmira_ooc_keep_file_x = 9\n"         // not the key
             "VEK_TELMIRA_OOC_FLAG = 9\n"
             "   \t\n"
             "vek_telmira_ooc_keep_file =   # no value\n"
             "vek_telmira_ooc_max_core_size = x20\n"     // unreadable
             "vek_telmira_ooc_max_core_size 9 # = 9\n"   // '=' only in comment
             "\n\n"
             "  vek_telmira_ooc_keep_file 0 = 3");       // the word behind the key
  Settings s = read(0);
  EXPECT_EQ(s.path, "d:\\tmp\\run 1");
  EXPECT_EQ(s.core, 4000);
  EXPECT_EQ(s.keep, 0);

  write_file("vek_telmira_ooc_path=b=c\n");  // '=' splits as a blank does
  EXPECT_EQ(read(0).path, "b c");
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

TEST_F(OocConfig, TracesOfTheEnvironmentAtLevelOne) {
  write_file("vek_telmira_ooc_path = wrong\n");
  write_file("vek_telmira_ooc_path = q\n", "x.cfg");
  setenv("VEK_TELMIRA_OOC_CFG_FILE_NAME", "x.cfg", 1);
  setenv(env_names[1], "512 MB", 1);
  setenv(env_names[2], "0", 1);
  Settings s = read(1);
  EXPECT_EQ(s.printed, "ooc_cfg_path\t\tgot by Env =  " + dir_ + "\n"
                       "ooc_cfg_file_name\tgot by Env =  x.cfg\n"
                       "ooc_max_core_size\tgot by Env =  512\n"
                       "ooc_keep_file\t\tgot by Env =  0\n");
  EXPECT_EQ(s.path, "q");

  setenv(env_names[0], "w", 1);
  EXPECT_NE(read(1).printed.find("ooc_cfg_file_name\tgot by Env =  x.cfg\n"
                                 "ooc_path\t\t\tgot by Env =  w\n"
                                 "ooc_max_core_size"),
            std::string::npos);
}

}  // namespace
