// telmira_ooc_config.cpp - reading the settings of the out-of-core mode from
// the environment and the configuration file.
#include "telmira_ooc_config.h"
#include "telmira_slots.h"
#include "telmira_storage.h"

#include "platform/vek_platform.h"
#include "service/vek_serv_message.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Every work buffer of the reading holds this many characters with its end:
// environment values, the configuration path and name, a line of the file
// and the pieces cut from it.
constexpr int WORK_CHARS = 1000;

// The keys of the file in their lower-case form, in the order of the
// settings: path, core size, keep flag.
const char *const file_keys[3] = {"vek_telmira_ooc_path",
                                  "vek_telmira_ooc_max_core_size",
                                  "vek_telmira_ooc_keep_file"};
enum { SET_PATH = 0, SET_CORE = 1, SET_KEEP = 2 };

// Copies text into buf of size characters, cut so that its end fits.
void copy_text(char *buf, const char *text, std::size_t size) {
  std::size_t n = std::strlen(text);
  if (n > size - 1) n = size - 1;
  std::memcpy(buf, text, n);
  buf[n] = '\0';
}

// Reads an environment variable into buf (WORK_CHARS characters). Returns 1
// when it is set; an empty value reads as unset, as through the platform
// call, and a value too long for the buffer is ignored.
int read_env(const char *name, char *buf) {
  buf[0] = '\0';
  unsigned n = vek_os_getenv(name, buf, WORK_CHARS);
  if (n == 0 || n >= static_cast<unsigned>(WORK_CHARS)) {
    buf[0] = '\0';
    return 0;
  }
  return 1;
}

// Reads a decimal integer as the pattern "%d" does: white space, a sign,
// digits; whatever follows the digits is passed over. A value beyond the
// range of int is held at its bound. Returns 1 and stores the value when
// digits were read, 0 with the value untouched otherwise.
int scan_int(const char *text, int *value) {
  char *end = nullptr;
  long long v = std::strtoll(text, &end, 10);
  if (end == text) return 0;
  if (v > INT_MAX) v = INT_MAX;
  if (v < INT_MIN) v = INT_MIN;
  *value = static_cast<int>(v);
  return 1;
}

// The next token of text at *pos, split at equals signs and blanks: its
// start, with its length in *len; null when none is left.
const char *next_token(const char **pos, std::size_t *len) {
  const char *p = *pos + std::strspn(*pos, "= ");
  if (*p == '\0') {
    *pos = p;
    return nullptr;
  }
  *len = std::strcspn(p, "= ");
  *pos = p + *len;
  return p;
}

// Reads one line of the file into line. Of a line longer than the buffer
// the first WORK_CHARS - 1 characters are kept and the rest is passed over.
// A carriage return before the newline belongs to the line end, as text
// mode reads it. The newlines behind the line are consumed. Returns 0 when
// the file ends behind this line, 1 when more follows.
int read_line(std::FILE *f, char *line) {
  int n = 0;
  int c;
  while ((c = std::fgetc(f)) != EOF && c != '\n')
    if (n < WORK_CHARS - 1) line[n++] = static_cast<char>(c);
  if (c == '\n' && n > 0 && line[n - 1] == '\r') --n;
  line[n] = '\0';
  while (c == '\n') c = std::fgetc(f);
  if (c == EOF) return 0;
  std::ungetc(c, f);
  return 1;
}

// Takes one line of the file: "key = value", a comment behind '#'. Settings
// the environment gave (given[setting] set) are not touched.
void take_line(const char *line, const int *given, char *ooc_path,
               int *ooc_l) {
  // The text before the comment; a line that starts with '#' is a comment.
  char text[WORK_CHARS];
  std::size_t n = std::strcspn(line, "#");
  if (n == 0) return;
  if (n > WORK_CHARS - 1) n = WORK_CHARS - 1;
  std::memcpy(text, line, n);
  text[n] = '\0';

  // The key runs to the first equals sign or tab; of that, the first word.
  std::size_t key_end = std::strcspn(text, "=\t");
  if (key_end == 0) return;
  const char *word = text + std::strspn(text, " ");
  if (word >= text + key_end) return;  // blanks only
  std::size_t word_len = std::strcspn(word, " =\t");
  char key[WORK_CHARS];
  for (std::size_t i = 0; i < word_len; ++i) {
    char c = word[i];
    key[i] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  }
  key[word_len] = '\0';

  int setting = -1;
  for (int s = 0; s < 3; ++s)
    if (std::strcmp(key, file_keys[s]) == 0) setting = s;
  if (setting < 0 || given[setting]) return;
  if (std::strchr(text, '=') == nullptr) return;

  // The tokens behind the key's own token are the value.
  const char *pos = text;
  std::size_t len = 0;
  if (next_token(&pos, &len) == nullptr) return;
  const char *tok = next_token(&pos, &len);
  if (tok == nullptr) return;  // an equals sign and no value

  char value[WORK_CHARS];
  if (setting != SET_PATH) {
    std::memcpy(value, tok, len);
    value[len] = '\0';
    scan_int(value, setting == SET_CORE ? &OOCL(OL_CORE_MB) : &OOCL(OL_KEEP_FILES));
    return;
  }
  // The path is joined from the rest of the line, one blank at each split,
  // so that it may hold blanks. The joined text is never longer than text.
  std::size_t used = 0;
  while (tok != nullptr) {
    if (used > 0) value[used++] = ' ';
    std::memcpy(value + used, tok, len);
    used += len;
    tok = next_token(&pos, &len);
  }
  value[used] = '\0';
  std::memcpy(ooc_path, value, used + 1);
}

}  // namespace

int telmira_ooc_read_config(const char *default_file_name, char *ooc_path,
                            int *ooc_l, int message_level) {
  const bool trace = message_level > 0;
  char buf[WORK_CHARS];
  char cfg_path[WORK_CHARS] = ".";
  char cfg_file_name[WORK_CHARS];
  copy_text(cfg_file_name, default_file_name ? default_file_name : "",
            sizeof cfg_file_name);

  std::strcpy(ooc_path, "ooc_temp");
  OOCL(OL_CORE_MB) = 2000;
  OOCL(OL_KEEP_FILES) = 1;

  if (read_env("VEK_TELMIRA_OOC_CFG_PATH", buf)) {
    copy_text(cfg_path, buf, sizeof cfg_path);
    if (trace) vek_serv_print_message(0, 956, 1, cfg_path);
  }
  if (read_env("VEK_TELMIRA_OOC_CFG_FILE_NAME", buf)) {
    copy_text(cfg_file_name, buf, sizeof cfg_file_name);
    if (trace) vek_serv_print_message(0, 957, 1, cfg_file_name);
  }
  char full_name[2 * WORK_CHARS];
  std::snprintf(full_name, sizeof full_name, "%s%c%s", cfg_path,
                vek_os_path_separator(), cfg_file_name);

  int given[3] = {0, 0, 0};
  if (read_env("VEK_TELMIRA_OOC_PATH", buf)) {
    given[SET_PATH] = 1;
    copy_text(ooc_path, buf, WORK_CHARS);
    if (trace) vek_serv_print_message(0, 958, 1, ooc_path);
  }
  if (read_env("VEK_TELMIRA_OOC_MAX_CORE_SIZE", buf)) {
    given[SET_CORE] = 1;
    scan_int(buf, &OOCL(OL_CORE_MB));
    if (trace) vek_serv_print_message(0, 959, 1, OOCL(OL_CORE_MB));
  }
  if (read_env("VEK_TELMIRA_OOC_KEEP_FILE", buf)) {
    given[SET_KEEP] = 1;
    scan_int(buf, &OOCL(OL_KEEP_FILES));
    if (trace) vek_serv_print_message(0, 960, 1, OOCL(OL_KEEP_FILES));
  }
  if (given[SET_PATH] && given[SET_CORE] && given[SET_KEEP]) return 0;

  std::FILE *f = std::fopen(full_name, "r");
  if (f == nullptr) {
    if (trace) vek_serv_print_message(0, 961, 1, full_name);
    return 0;
  }
  char line[WORK_CHARS];
  int more = 1;
  while (more) {
    more = read_line(f, line);
    take_line(line, given, ooc_path, ooc_l);
  }
  std::fclose(f);
  return 0;
}
