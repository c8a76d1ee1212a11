// telmira_ooc_config.h - the settings of the out-of-core mode.
//
// Three settings that the control array does not carry: the base name of the
// work files, the memory the mode may use, and whether the files are removed
// when the matrix is released. They are read once per handle, at its first
// call, from the environment, from a configuration file and from defaults,
// in that order of precedence.
//
// Environment variables:
//   VEK_TELMIRA_OOC_CFG_PATH       directory of the configuration file (".")
//   VEK_TELMIRA_OOC_CFG_FILE_NAME  its name (the caller's default)
//   VEK_TELMIRA_OOC_PATH           base name of the work files ("ooc_temp")
//   VEK_TELMIRA_OOC_MAX_CORE_SIZE  memory in megabytes (2000)
//   VEK_TELMIRA_OOC_KEEP_FILE      0 keeps the files, other values remove
//                                  them (1)
// The file holds lines "key = value", keys in any case of letters, comments
// after '#': vek_telmira_ooc_path, vek_telmira_ooc_max_core_size,
// vek_telmira_ooc_keep_file. A key the environment set is not taken from the
// file; when the environment set all three, the file is not opened.
#ifndef TELMIRA_OOC_CONFIG_H
#define TELMIRA_OOC_CONFIG_H

// Fills ooc_path, OOCL(2) (maximal core size in megabytes) and OOCL(3) (the
// keep-file flag). ooc_path is the handle's block of 1024 characters; the
// value is written from its start and ended by a zero byte, and the rest of
// the block is left as it stands. default_file_name names the configuration
// file when the environment names none. With message_level above 0 the
// values taken from the environment are traced and a file that cannot be
// opened is reported; a missing file is no error. Returns 0 in all cases.
int telmira_ooc_read_config(const char *default_file_name, char *ooc_path,
                            int *ooc_l, int message_level);

#endif
