// telmira_ooc_files.cpp - the logical files of the out-of-core mode: names,
// directory, open, close, delete, and the record transfers.
#include "telmira_ooc_files.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "service/vek_serv_memory.h"
#include "service/vek_serv_message.h"

namespace tlm {

namespace {

const char *const extension[OOC_FILE_COUNT + 1] = {"",     ".ind", ".lnz", ".unz",
                                                    ".jal", ".jau", ".lup", ".uup",
                                                    ".lpr", ".upr", ".sin", ".sle"};

// A block of count ints (or handles), zeroed; null for 0.
template <class V> V *zeroed(std::int64_t count) {
  if (count <= 0) return nullptr;
  const std::int64_t bytes = count * static_cast<std::int64_t>(sizeof(V));
  if (bytes > 0x7FFFFFFF) return nullptr;
  return static_cast<V *>(vek_serv_calloc(static_cast<int>(bytes), 1, 128));
}

template <class V> void release(V *&p) {
  if (p != nullptr) {
    void *q = p;
    vek_serv_free_list(&q, static_cast<void **>(nullptr));
  }
  p = nullptr;
}

// Entered with a code already set: message 954, code 15.
bool entered_failed(int *error) {
  if (*error == 0) return false;
  vek_serv_print_message(0, 954, 1, *error);
  *error = OOC_ENTERED_WITH_ERROR;
  return true;
}

// Flips the sign of the arena position of a record of files 1 to 3.
inline void flip_resident(ooc_file *f, int file, int record) {
  if (file <= OOC_UNZ && f->pt_inm != nullptr) f->pt_inm[record] = -f->pt_inm[record];
}

}  // namespace

int telmira_ooc_prepare(ooc_file *f, int nrecords, std::int64_t bytes, int elem_size,
                        int arena) {
  telmira_ooc_forget(f);
  f->elem_size = elem_size;
  f->max_bytes = OOC_MAX_FILE_BYTES;
  f->nrecords = nrecords;
  if (bytes > 0) {
    int nfile = static_cast<int>((bytes / 1024) / 2097152 + 1);
    if (nfile > 1) ++nfile;
    f->nfile = nfile;
  }
  f->kfile = zeroed<int>(nrecords + 1);
  if (f->kfile == nullptr) return ST_OOC_KFILE;
  if (f->nfile > 0) {
    f->pt_tof = zeroed<vek_os_file>(f->nfile);
    f->ne_inf = zeroed<int>(f->nfile);
    if (f->pt_tof == nullptr || f->ne_inf == nullptr) return ST_OOC_TOF;
  }
  f->pt_inf = zeroed<int>(nrecords + 1);
  if (f->pt_inf == nullptr) return ST_OOC_INF;
  if (arena) {
    f->pt_inm = zeroed<int>(nrecords + 2);
    if (f->pt_inm == nullptr) return ST_OOC_INM;
    f->len_panelm = zeroed<int>(nrecords + 2);
    if (f->len_panelm == nullptr) return ST_OOC_LENM;
    f->mapm = zeroed<int>(nrecords + 2);
    if (f->mapm == nullptr) return ST_OOC_MAPM;
  }
  return 0;
}

void telmira_ooc_forget(ooc_file *f) {
  release(f->kfile);
  release(f->pt_tof);
  release(f->pt_inf);
  release(f->ne_inf);
  release(f->pt_inm);
  release(f->len_panelm);
  release(f->mapm);
  std::memset(static_cast<void *>(f), 0, sizeof(ooc_file));
}

int telmira_ooc_file_name(const char *path, int file, int k, char *buf, int size) {
  int len = 0;
  while (len < 1023 && path[len] != '\0') ++len;
  while (len > 0 && std::strchr(" \t\n\v\f\r", path[len - 1]) != nullptr) --len;
  char number[16] = "";
  if (k > 0) std::snprintf(number, sizeof number, "%d", k + 1);
  const int need = len + static_cast<int>(std::strlen(number)) + 4 + 1;
  if (file < 1 || file > OOC_FILE_COUNT || need > size) return -1;
  std::memcpy(buf, path, static_cast<std::size_t>(len));
  std::snprintf(buf + len, static_cast<std::size_t>(size - len), "%s%s", number,
                extension[file]);
  return 0;
}

void telmira_ooc_open(const char *path, int file, const char *mode, ooc_file *ooc,
                      int *error) {
  if (entered_failed(error)) return;
  const char m = mode[0];
  if (m != 'r' && m != 'R' && m != 'w' && m != 'W') {
    *error = OOC_OPEN_MODE_ERROR;
    return;
  }
  ooc_file *f = ooc + (file - 1);
  char name[1100];
  for (int k = 0; k < f->nfile; ++k) {
    if (telmira_ooc_file_name(path, file, k, name, sizeof name) != 0) {
      *error = OOC_OPEN_ERROR;
      return;
    }
    f->pt_tof[k] = vek_os_file_open(name, m == 'w' || m == 'W');
    if (f->pt_tof[k] == nullptr) {
      *error = OOC_OPEN_ERROR;
      return;
    }
  }
}

void telmira_ooc_close(int file, ooc_file *ooc, int *error) {
  if (entered_failed(error)) return;
  ooc_file *f = ooc + (file - 1);
  for (int k = 0; k < f->nfile; ++k) {
    if (f->pt_tof[k] == nullptr) continue;
    if (vek_os_file_close(f->pt_tof[k]) != 0) {
      vek_serv_print_message(0, 955, 0);
      *error = OOC_CLOSE_ERROR;
    }
    f->pt_tof[k] = nullptr;
  }
}

void telmira_ooc_delete(const char *path, int file, ooc_file *ooc, int *error) {
  if (entered_failed(error)) return;
  ooc_file *f = ooc + (file - 1);
  char name[1100];
  for (int k = 0; k < f->nfile; ++k) {
    if (telmira_ooc_file_name(path, file, k, name, sizeof name) != 0 ||
        vek_os_file_remove(name) != 0) {
      *error = OOC_DELETE_ERROR;
      return;
    }
  }
}

void telmira_ooc_report(const int *error, int stop, const char *text) {
  const int e = *error;
  if (e == 0) return;
  if (e >= 1 && e <= 14) {
    vek_serv_print_message(0, 963 + e, 1, text);
    if (stop != 0) std::exit(2);
    return;
  }
  vek_serv_print_message(0, 978, 2, e, text);
}

std::int64_t telmira_read_ooc_file(vek_os_file f, int elem_size, std::int64_t nfirst,
                                   int count, int stride, int blocks, void *buffer,
                                   int message_level, int *error) {
  if (entered_failed(error)) return 0;
  if (nfirst < 0 || count < 0 || stride < 0 || blocks < 0 || (blocks > 1 && stride < count)) {
    *error = OOC_READ_ARGS;
    return 0;
  }
  if (message_level > 1) vek_serv_print_message(0, 979, 1, elem_size);
  std::int64_t total = 0;
  char *out = static_cast<char *>(buffer);
  const std::size_t bytes = static_cast<std::size_t>(count) * elem_size;
  for (int i = 0; i < blocks; ++i) {
    const std::int64_t pos = (nfirst - 1 + static_cast<std::int64_t>(i) * stride) * elem_size;
    if (pos < 0) {
      vek_serv_print_message(0, 982, 0);
      *error = OOC_READ_SEEK;
      return total;
    }
    const std::int64_t got = vek_os_file_read(f, pos, out + i * bytes, bytes);
    if (got < 0) {
      vek_serv_print_message(0, 981, 0);
      *error = OOC_READ_EOF;
      return total;
    }
    if (got == 0 && bytes > 0) {
      vek_serv_print_message(0, 981, 0);
      *error = OOC_READ_ZERO;
      return total;
    }
    if (static_cast<std::size_t>(got) != bytes) {
      vek_serv_print_message(0, 981, 0);
      *error = OOC_READ_SHORT;
      return total + got;
    }
    total += got;
  }
  if (message_level > 1) vek_serv_print_message(0, 980, 1, static_cast<int>(total / elem_size));
  return total;
}

namespace {

// The raw write; with gaps the start may lie behind the end of the file:
// a writer on another thread fills what lies between.
std::int64_t write_blocks(vek_os_file f, int elem_size, std::int64_t nfirst, int count,
                          int stride, int blocks, const void *buffer, int message_level,
                          bool gaps, int *error) {
  if (entered_failed(error)) return 0;
  if (nfirst < 0 || count < 0 || stride < 0 || blocks < 0 || (blocks > 1 && stride < count)) {
    *error = OOC_WRITE_ARGS;
    return 0;
  }
  if (message_level > 1) vek_serv_print_message(0, 983, 1, elem_size);
  std::int64_t total = 0;
  const char *in = static_cast<const char *>(buffer);
  const std::size_t bytes = static_cast<std::size_t>(count) * elem_size;
  for (int i = 0; i < blocks; ++i) {
    const std::int64_t pos = (nfirst - 1 + static_cast<std::int64_t>(i) * stride) * elem_size;
    // A start behind the end of the file would leave a gap.
    const std::int64_t size = gaps ? 0 : vek_os_file_size(f);
    if (size < 0 || pos < 0) {
      vek_serv_print_message(0, 963, 0);
      *error = OOC_WRITE_SEEK;
      return total;
    }
    if (!gaps && pos > size) {
      vek_serv_print_message(0, 984, 0);
      *error = OOC_WRITE_EOF;
      return total;
    }
    const std::int64_t put = vek_os_file_write(f, pos, in + i * bytes, bytes);
    if (put < 0) {
      vek_serv_print_message(0, 986, 0);
      *error = OOC_WRITE_EOF;
      return total;
    }
    if (put == 0 && bytes > 0) {
      vek_serv_print_message(0, 986, 0);
      *error = OOC_WRITE_ZERO;
      return total;
    }
    if (static_cast<std::size_t>(put) != bytes) {
      vek_serv_print_message(0, 986, 0);
      *error = OOC_WRITE_SHORT;
      return total + put;
    }
    total += put;
  }
  if (message_level > 1) vek_serv_print_message(0, 985, 1, static_cast<int>(total / elem_size));
  return total;
}

}  // namespace

std::int64_t telmira_write_ooc_file(vek_os_file f, int elem_size, std::int64_t nfirst,
                                    int count, int stride, int blocks, const void *buffer,
                                    int message_level, int *error) {
  return write_blocks(f, elem_size, nfirst, count, stride, blocks, buffer, message_level, false,
                      error);
}

int telmira_ooc_reserve_record(ooc_file *ooc, int file, int record, int count, int *error) {
  if (*error != 0) return *error;
  ooc_file *f = ooc + (file - 1);
  if (count == 0) {
    f->kfile[record] = 0;
    f->pt_inf[record] = 0;
    return 0;
  }
  const std::uint64_t need = static_cast<std::uint64_t>(count) * f->elem_size;
  if (need > static_cast<std::uint64_t>(f->max_bytes)) return *error = OOC_RECORD_TOO_LARGE;
  int k = 0;
  while (k < f->nfile &&
         static_cast<std::uint64_t>(f->elem_size) *
                 (static_cast<std::uint64_t>(f->ne_inf[k]) + static_cast<std::uint64_t>(count)) >
             static_cast<std::uint64_t>(f->max_bytes))
    ++k;
  if (k >= f->nfile) return *error = OOC_NO_ROOM;
  f->kfile[record] = k;
  f->pt_inf[record] = f->ne_inf[k];
  f->ne_inf[k] += count;
  return 0;
}

std::int64_t telmira_ooc_write_reserved(const ooc_file *ooc, int file, int record, int count,
                                        const void *data, int message_level, int *error) {
  if (*error != 0 || count == 0) return 0;
  const ooc_file *f = ooc + (file - 1);
  return write_blocks(f->pt_tof[f->kfile[record]], f->elem_size,
                      static_cast<std::int64_t>(f->pt_inf[record]) + 1, count, count, 1, data,
                      message_level, true, error);
}

std::int64_t telmira_ooc_write_record(ooc_file *ooc, int file, int record, int count,
                                      const void *data, int message_level, int *error) {
  if (*error != 0) return 0;
  flip_resident(ooc + (file - 1), file, record);
  if (telmira_ooc_reserve_record(ooc, file, record, count, error) != 0 || count == 0) return 0;
  const ooc_file *f = ooc + (file - 1);
  return telmira_write_ooc_file(f->pt_tof[f->kfile[record]], f->elem_size,
                                static_cast<std::int64_t>(f->pt_inf[record]) + 1, count, count,
                                1, data, message_level, error);
}

std::int64_t telmira_ooc_read_rows(const ooc_file *ooc, int file, int record, int count,
                                   int length, int columns, void *buffer, int message_level,
                                   int *error) {
  if (*error != 0) return 0;
  if (count < 1) return 0;
  const ooc_file *f = ooc + (file - 1);
  const int k = f->kfile[record];
  const std::int64_t first = static_cast<std::int64_t>(f->pt_inf[record]) + (length - count) + 1;
  if (count == length)  // the whole record in one transfer
    return telmira_read_ooc_file(f->pt_tof[k], f->elem_size, first, count * columns,
                                 count * columns, 1, buffer, message_level, error);
  return telmira_read_ooc_file(f->pt_tof[k], f->elem_size, first, count, length, columns,
                               buffer, message_level, error);
}

std::int64_t telmira_ooc_read_record(ooc_file *ooc, int file, int record, int count,
                                     int length, int columns, void *buffer,
                                     int message_level, int *error) {
  if (*error != 0) return 0;
  if (count < 1) return 0;
  const std::int64_t got = telmira_ooc_read_rows(ooc, file, record, count, length, columns,
                                                 buffer, message_level, error);
  flip_resident(ooc + (file - 1), file, record);
  return got;
}

std::int64_t telmira_ooc_read_records(ooc_file *ooc, int file, int first, int last,
                                      const int *xsup, const int *xstore, void *buffer,
                                      int message_level, int *error) {
  if (*error != 0) return 0;
  ooc_file *f = ooc + (file - 1);
  auto size_of = [&](int J) {
    return std::abs(xstore[xsup[J] - 1]) - std::abs(xstore[xsup[J - 1] - 1]);
  };
  char *out = static_cast<char *>(buffer);
  std::int64_t total = 0;
  int J = first;
  while (J <= last && *error == 0) {
    // A stretch of records that lie end to start in one physical file.
    const int k = f->kfile[J];
    const int start = f->pt_inf[J];
    std::int64_t count = size_of(J);
    int J2 = J;
    while (J2 < last && size_of(J2 + 1) > 0 && f->kfile[J2 + 1] == k &&
           f->pt_inf[J2 + 1] == start + count && count + size_of(J2 + 1) <= 0x7FFFFFFF) {
      ++J2;
      count += size_of(J2);
    }
    if (count > 0)
      total += telmira_read_ooc_file(f->pt_tof[k], f->elem_size,
                                     static_cast<std::int64_t>(start) + 1,
                                     static_cast<int>(count), static_cast<int>(count), 1,
                                     out + total, message_level, error);
    J = J2 + 1;
  }
  return total;
}

void telmira_ooc_attach(int *ooc_l, void **all_ooc_adr) {
  const std::uint64_t a = reinterpret_cast<std::uintptr_t>(all_ooc_adr);
  ooc_l[37] = static_cast<int>(static_cast<std::uint32_t>(a));
  ooc_l[38] = static_cast<int>(static_cast<std::uint32_t>(a >> 32));
}

// The address that telmira_ooc_attach put in ooc_l.
static void **attached_blocks(const int *ooc_l) {
  const std::uint64_t a = static_cast<std::uint64_t>(static_cast<std::uint32_t>(ooc_l[37])) |
                          (static_cast<std::uint64_t>(static_cast<std::uint32_t>(ooc_l[38])) << 32);
  return reinterpret_cast<void **>(static_cast<std::uintptr_t>(a));
}

ooc_blocks telmira_ooc_blocks(const int *ooc_l) {
  void **blocks = attached_blocks(ooc_l);
  ooc_blocks b{};
  if (blocks == nullptr) return b;
  b.path = static_cast<char *>(blocks[0]);
  b.ooc_l = static_cast<int *>(blocks[1]);
  b.ooc_r = blocks[2];
  b.ooc = static_cast<ooc_file *>(blocks[3]);
  b.forward = static_cast<ooc_forward *>(blocks[4]);
  return b;
}

void telmira_ooc_set_forward(const int *ooc_l, ooc_forward *forward) {
  void **blocks = attached_blocks(ooc_l);
  if (blocks != nullptr) blocks[4] = forward;
}

void telmira_ooc_count(int *ooc_l, void *ooc_r, int precision, int byte_slot,
                       std::int64_t bytes, int time_slot, double seconds) {
  const std::uint32_t v = static_cast<std::uint32_t>(ooc_l[byte_slot - 1]) +
                          static_cast<std::uint32_t>(bytes);
  ooc_l[byte_slot - 1] = static_cast<int>(v);
  if (precision != 0)
    static_cast<float *>(ooc_r)[time_slot - 1] += static_cast<float>(seconds);
  else
    static_cast<double *>(ooc_r)[time_slot - 1] += seconds;
}

int telmira_ooc_finish(const char *path, ooc_file *ooc, int remove) {
  int first = 0;
  for (int file = 1; file <= OOC_FILE_COUNT; ++file) {
    ooc_file *f = ooc + (file - 1);
    if (f->nfile == 0 || f->pt_tof == nullptr) continue;
    int e = 0;
    telmira_ooc_close(file, ooc, &e);
    if (first == 0) first = e;
    if (!remove) continue;
    // Files that were never made (an open that failed half-way) are no
    // failure here.
    char name[1100];
    for (int k = 0; k < f->nfile; ++k) {
      if (telmira_ooc_file_name(path, file, k, name, sizeof name) != 0) continue;
      vek_os_file h = vek_os_file_open(name, 0);
      if (h == nullptr) continue;
      vek_os_file_close(h);
      if (vek_os_file_remove(name) != 0 && first == 0) first = OOC_DELETE_ERROR;
    }
  }
  return first;
}

}  // namespace tlm
