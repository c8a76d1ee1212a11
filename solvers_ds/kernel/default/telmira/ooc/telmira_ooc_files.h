// telmira_ooc_files.h - the work files of the out-of-core mode and their
// record I/O.
//
// Eleven logical files, numbered from 1, hold the factors and the arrays
// that may leave memory. A logical file holds records, one per supernode,
// with no header: where a record lies is known only through the directory
// kept in memory, one ooc_file per logical file. A logical file is split
// over physical files of at most max_bytes bytes each; the first is named
// <path><ext>, the k-th <path>k<ext> ("ooc_temp.lnz", "ooc_temp2.lnz").
//
// Every operation takes the error cell last. Open, close, delete and the raw
// transfers look at it first: entered with a code they print message 954,
// set 15 and do nothing, so that a failing step makes the next ones fall
// through. Codes 1 to 14 are I/O failures (telmira_ooc_report prints them),
// -19 to -21 faults of the directory.
#ifndef TELMIRA_OOC_FILES_H
#define TELMIRA_OOC_FILES_H

#include <cstdint>

#include "platform/vek_platform.h"

namespace tlm {

// The logical files.
constexpr int OOC_IND = 1;   // lindx, the row lists
constexpr int OOC_LNZ = 2;   // the L panels
constexpr int OOC_UNZ = 3;   // the U panels
constexpr int OOC_JAL = 4;   // jalf
constexpr int OOC_JAU = 5;   // jauf
constexpr int OOC_LUP = 6;   // luperm
constexpr int OOC_UUP = 7;   // luperm, second part
constexpr int OOC_LPR = 8;   // luperm_row
constexpr int OOC_UPR = 9;   // luperm_row, second part
constexpr int OOC_SIN = 10;  // slindx
constexpr int OOC_SLE = 11;  // slength
constexpr int OOC_FILE_COUNT = 11;

// The largest physical file, in bytes.
constexpr int OOC_MAX_FILE_BYTES = 0x7FFFFFFF;

// I/O codes.
constexpr int OOC_OPEN_MODE_ERROR = 1;
constexpr int OOC_OPEN_ERROR = 2;
constexpr int OOC_CLOSE_ERROR = 3;
constexpr int OOC_DELETE_ERROR = 4;
constexpr int OOC_READ_ZERO = 5;
constexpr int OOC_READ_SHORT = 6;
constexpr int OOC_READ_EOF = 7;
constexpr int OOC_READ_SEEK = 8;
constexpr int OOC_READ_ARGS = 9;
constexpr int OOC_WRITE_ZERO = 10;
constexpr int OOC_WRITE_SHORT = 11;
constexpr int OOC_WRITE_EOF = 12;
constexpr int OOC_WRITE_SEEK = 13;
constexpr int OOC_WRITE_ARGS = 14;
constexpr int OOC_ENTERED_WITH_ERROR = 15;
constexpr int OOC_RECORD_TOO_LARGE = -19;
constexpr int OOC_TOO_MANY_FILES = -20;
constexpr int OOC_NO_ROOM = -21;

// The directory of one logical file, and for files 1 to 3 its arena in
// memory (telmira_ooc_arena.h). Arrays are zeroed when made.
struct ooc_file {
  int *kfile;           // per record, 0..nrecords: physical file, from 0
  vek_os_file *pt_tof;  // per physical file: the open handle
  int *pt_inf;          // per record: offset in its physical file, elements
  int *ne_inf;          // per physical file: elements used so far
  int nfile;            // physical files; 0: the logical file is empty
  int elem_size;        // bytes per element
  int max_bytes;        // bytes per physical file at most
  int nrecords;         // records the arrays hold (0..nrecords)
  int *pt_inm;          // per record: arena position, 0 absent, < 0 fresh
  int *len_panelm;      // per record: rows kept in the arena
  int *mapm;            // resident records in address order, from 1
  int nsuperm[2];       // [0] count in mapm, [1] records below the hole
  int pt_freem[2];      // [0] start of the tail, [1] start of the hole
  int n_freem[2];       // [0] entries in the tail, [1] in the hole
  int len_arena;        // capacity in entries
};

// Allocation statuses of the directory arrays (error -2 for the caller).
constexpr int ST_OOC_KFILE = -801;
constexpr int ST_OOC_TOF = -802;
constexpr int ST_OOC_INF = -803;
constexpr int ST_OOC_INM = -804;
constexpr int ST_OOC_LENM = -805;
constexpr int ST_OOC_MAPM = -806;

// Prepares the directory of a logical file of bytes bytes in records
// 1..nrecords: the count of physical files, (S / 1024) / 2097152 + 1, one
// more when above 1; the arrays; with arena != 0 the arena arrays (nrecords
// + 2 entries). A size of 0 makes no physical file. Returns 0 or an
// allocation status.
int telmira_ooc_prepare(ooc_file *f, int nrecords, std::int64_t bytes, int elem_size,
                        int arena);
// Frees the arrays of a directory (closing nothing) and zeroes it.
void telmira_ooc_forget(ooc_file *f);

// The name of physical file k (from 0) of logical file `file`: the path with
// its trailing white space cut, the number k+1 when k > 0, the extension.
// Returns 0, or -1 when size does not suffice.
int telmira_ooc_file_name(const char *path, int file, int k, char *buf, int size);

// Opens all physical files of a logical file: mode r or R an existing file,
// w or W a new, empty one.
void telmira_ooc_open(const char *path, int file, const char *mode, ooc_file *ooc,
                      int *error);
// Closes them in order; a failed close prints message 955, sets 3 and goes
// on with the next.
void telmira_ooc_close(int file, ooc_file *ooc, int *error);
// Removes them; stops at the first failure with code 4.
void telmira_ooc_delete(const char *path, int file, ooc_file *ooc, int *error);
// Prints the line of an I/O code with the text; with stop != 0 ends the
// process with exit code 2. Nothing for 0; message 978 outside 1..14.
void telmira_ooc_report(const int *error, int stop, const char *text);

// Raw transfers at element position nfirst (from 1) of one physical file:
// blocks blocks of count elements, block i at nfirst + i stride, gathered
// into (or scattered from) a dense buffer. Return the bytes moved.
std::int64_t telmira_read_ooc_file(vek_os_file f, int elem_size, std::int64_t nfirst,
                                   int count, int stride, int blocks, void *buffer,
                                   int message_level, int *error);
std::int64_t telmira_write_ooc_file(vek_os_file f, int elem_size, std::int64_t nfirst,
                                    int count, int stride, int blocks, const void *buffer,
                                    int message_level, int *error);

// Appends record `record` of count elements to the first physical file with
// room; a count of 0 writes nothing. For files 1 to 3 the sign of pt_inm of
// the record flips. Returns the bytes written; on entry with a code set, 0.
std::int64_t telmira_ooc_write_record(ooc_file *ooc, int file, int record, int count,
                                      const void *data, int message_level, int *error);
// The two halves of a write, for writers on several threads: the place of
// the record in the directory (the caller serializes these), then the
// transfer, which reads the directory only and may start behind the end
// of the file, where a record reserved before is still on its way. Neither
// touches the arena
// state. Return the code set in the error cell, the bytes written.
int telmira_ooc_reserve_record(ooc_file *ooc, int file, int record, int count, int *error);
std::int64_t telmira_ooc_write_reserved(const ooc_file *ooc, int file, int record, int count,
                                        const void *data, int message_level, int *error);
// Reads the last count rows of each of the columns columns (length rows
// each) of a record, densely into buffer. count below 1 reads nothing.
std::int64_t telmira_ooc_read_record(ooc_file *ooc, int file, int record, int count,
                                     int length, int columns, void *buffer,
                                     int message_level, int *error);
// The same without touching the arena state of the record: the directory
// is only read, so that threads may read records written before at once.
std::int64_t telmira_ooc_read_rows(const ooc_file *ooc, int file, int record, int count,
                                   int length, int columns, void *buffer, int message_level,
                                   int *error);
// Reads the records first..last (supernodes, record J spanning the
// elements xstore(xsup(J)) to xstore(xsup(J+1)) - 1 of the store) densely
// into buffer, merging neighbours that lie end to start in one physical
// file into one transfer.
std::int64_t telmira_ooc_read_records(ooc_file *ooc, int file, int first, int last,
                                      const int *xsup, const int *xstore, void *buffer,
                                      int message_level, int *error);

// The four blocks of the mode. ooc_l(38) and ooc_l(39) hold the address of
// all_ooc_adr, so that a routine that is handed ooc_l finds the others.
// The forward substitution of a factorization and solve in one call, done
// on each panel of L while it is in memory, so that the solve reads the
// factors once, for its backward sweep only. x holds the permuted
// right-hand sides (n rows, nrhs columns, of the factor's value type) and
// receives L^-1 of them; b is the caller's array they were gathered from.
// done is set when every panel has made its step.
struct ooc_forward {
  void *x;
  const void *b;
  int n, nrhs;
  int done;
};

struct ooc_blocks {
  char *path;
  int *ooc_l;
  void *ooc_r;     // doubles, floats in the single precision copy
  ooc_file *ooc;   // the eleven directories
  ooc_forward *forward;  // the call's fused forward step, null when none
};
void telmira_ooc_attach(int *ooc_l, void **all_ooc_adr);
ooc_blocks telmira_ooc_blocks(const int *ooc_l);
// Offers (or, with null, withdraws) the fused forward step to the
// factorization and the first solve of the call.
void telmira_ooc_set_forward(const int *ooc_l, ooc_forward *forward);

// Adds bytes to the byte counter ooc_l(byte_slot), which wraps as an
// unsigned 32-bit number, and seconds to ooc_r(time_slot).
void telmira_ooc_count(int *ooc_l, void *ooc_r, int precision, int byte_slot,
                       std::int64_t bytes, int time_slot, double seconds);

// Closes every open physical file of the eleven, and with remove != 0
// removes the files. Returns the first code that failed, 0 when none.
int telmira_ooc_finish(const char *path, ooc_file *ooc, int remove);

}  // namespace tlm

#endif
