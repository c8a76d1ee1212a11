// vek_serv_message.cpp - the message table, the print and format routines
// of the message service, and the error handler of the dense layer.
#include "service/vek_serv_message.h"

#include "platform/vek_platform.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// ---------------------------------------------------------------------------
// The built-in table. Only the rows this library prints are filled; the
// numbers of all other rows are kept free for the domains that share the
// table, and hold an empty text.
// ---------------------------------------------------------------------------

struct numbered_text {
  int number;
  const char *text;
};

constexpr numbered_text used_rows[] = {
    {0, "\n"},
    {6, "VEK ERROR: Parameter %d was incorrect on entry to %s"},
    {7, "VEK INTERNAL ERROR: Condition %d detected in function %s"},
    {8, "VEK INTERNAL ERROR: Not enough work memory in function %s"},
    {9, "VEK ERROR: Incompatible optional parameters on entry to %s"},
    {773, "System error in TELMIRA"},
    {774, "*** TELMIRA error: internal error"},
    {778, "Trying to free NULL matrix."},
    {779, "      Factorization:\tTime for writing to files : %f"},
    {780, "      Factorization:\tTime for reading from files : %f"},
    {781, "      Solution:\tTime for reading from files : %f"},
    {782, " =============================================================="},
    {783, " ----------- Out of core time (in percent (%%)) --------------"},
    {784, "  Factorization step (100 (%%)):"},
    {785, "      write to files : %d %%"},
    {786, "      read from files: %d %%"},
    {787, "      factorization - write&read : %d %%"},
    {791, "  Solution step (100 (%%)):"},
    {792, "      solve - write&read: %d %%"},
    {794, "  Total time (100 (%%)):"},
    {795, "      total - write&read: %d %%"},
    {797, " ----------- Out of core Mb --------------"},
    {798, "  Factorization step:"},
    {799, "      write to files : %10.3f Mb "},
    {800, "      read from files: %10.3f Mb "},
    {801, "  Solution step:"},
    {802, "  Total size of data transferred :"},
    {803, "      write&read        : %10.3f Mb "},
    {804, " Percentage of computed non-zeros for LL^T factorization"},
    {805, " Number of unknowns computed in forward solving step"},
    {806, " Number of unknowns computed in backward solving step"},
    {808, "TELMIRA Internationalization error! Message %d is unknown"},
    {809, "*** Error in TELMIRA  (contradictory input, initialization failed)"},
    {810, "handle=0 ?? ido= %d"},
    {811, "*** Error in TELMIRA: clean impossible (ido?)"},
    {812, "*** Error in TELMIRA: ido < -1"},
    {815, "*** Error in TELMIRA: wrong matrix number, clean %d"},
    {817, "*** Input check: ido_new %d (out of bounds)"},
    {818, "*** Input check: max_fac_store_new %d _old %d are incompatible"},
    {819, "*** Input check: max_fac_store_in %d matrix_number_in %d"},
    {820, "*** Input check: matrix_number_new %d ido %d are incompatible"},
    {821, "*** Input check: matrix_type_new %d _old %d are incompatible"},
    {822, "*** Input check: matrix_type_new %d (out of bounds)"},
    {823, "*** Input check: neqns_new %d _old %d are incompatible"},
    {824, "*** Input check: neqns_new %d "},
    {825, "*** Input check: ia(neqns+1)_new %d _old %d are incompatible"},
    {826, "*** Input check: nb_new  %d  ido %d are incompatible"},
    {827, "*** Input check: iparam(6) %d (out of bounds)"},
    {828, "*** Input check: preprocessing %d (out of bounds)"},
    {831, "*** Input parameters: inconsistent error= %d max_fac_store_in: %d"},
    {832, "          matrix_number_in : %d matrix_type_in   : %d"},
    {833, "          ido_in           : %d neqns_in         : %d"},
    {834, "          ia(neqns_in+1)-1 : %d nb_in            : %d"},
    {835, "*** wrong control step parameter ido %d"},
    {837, "total memory wanted here: %d kbyte"},
    {838, "symbolic (max): %d symbolic (permanent): %d"},
    {839, " real(including 1 factor): %d"},
    {840, "*** error TELMIRA: reordering, symb. factorization"},
    {841, "*** error TELMIRA: iterative refinement"},
    {842, " contraction rate is greater than 0.9, interrupt"},
    {843, " exceeds max. iteration number %d"},
    {844, "*** Error in TELMIRA: cgs error iparam(20) %d"},
    {845, "*** Error in TELMIRA: internal error, insufficient memory factorization"},
    {846, "*** Error in TELMIRA: zero or negative pivot, A is not SPD-matrix"},
    {847, "*** Error in TELMIRA: zero pivot"},
    {848, "*** Error in TELMIRA: unclassified error"},
    {849, "*** Error in TELMIRA: preordering failed after %d neqns out of %d"},
    {850, "structure singular or input/parameter problem (matrixtype 11,13)"},
    {851, "*** Input check: i=%d, ia(i)=%d, ia(i+1)=%d are incompatible"},
    {852, "*** Input check: i=%d, ja(i)=%d, neqns=%d are incompatible"},
    {853, "*** Input check: i=%d, j=ia(i)=%d, ja(j)=%d are incompatible"},
    {854, "*** Input check: j=%d, ja(j)=%d, ja(j+1)=%d are incompatible"},
    {855, "*** Error in TELMIRA  ( sequence_ido,parameters) error_num= %d"},
    {856, "*** Error in TELMIRA  (     insufficient_memory) error_num= %d"},
    {857, "*** Error in TELMIRA  (        reordering_phase) error_num= %d"},
    {858, "*** Error in TELMIRA  ( numerical_factorization) error_num= %d"},
    {859, "*** Error in TELMIRA  ( internal_error,unclass.) error_num= %d"},
    {860, "*** Error in TELMIRA  (prereordering_mtype11,13) error_num= %d"},
    {861, "*** Error in TELMIRA  ( internal_error,unclass.) error_num= %d"},
    {862, "*** Error in TELMIRA  (32-bit overflow problem.) error_num= %d"},
    {863, "*** Error in TELMIRA  ( not enough mem. for OOC) error_num= %d"},
    {864, "*** Error in TELMIRA  (      open OOC tmp files) error_num= %d"},
    {865, "*** Error in TELMIRA  (read/write OOC data file) error_num= %d"},
    {866, "*** Error in TELMIRA  (incorrect input matrix  ) error_num= %d"},
    {867, "*** Error in TELMIRA memory allocation: BASIC   , size to allocate: %d bytes"},
    {868, "*** Error in TELMIRA memory allocation: FACT_ADR, size to allocate: %d bytes"},
    {869, "*** Error in TELMIRA memory allocation: LOC_INT1, size to allocate: %d bytes"},
    {870, "*** Error in TELMIRA memory allocation: STRUC_S0, size to allocate: %d bytes"},
    {871, "*** Error in TELMIRA memory allocation: WORK_I0 , size to allocate: %d bytes"},
    {872, "*** Error in TELMIRA memory allocation: STRUC_S1, size to allocate: %d bytes"},
    {873, "*** Error in TELMIRA memory allocation: STRUC_S2, size to allocate: %d bytes"},
    {874, "*** Error in TELMIRA memory allocation: STRUC_FI, size to allocate: %d bytes"},
    {875, "*** Error in TELMIRA memory allocation: LOC_INT2, size to allocate: %d bytes"},
    {876, "*** Error in TELMIRA memory allocation: UP_UPLEN, size to allocate: %d bytes"},
    {877, "*** Error in TELMIRA memory allocation: FACT_L&U, size to allocate: %d bytes"},
    {878, "*** Error in TELMIRA memory allocation: WORK_R0 , size to allocate: %d bytes"},
    {879, "*** Error in TELMIRA memory allocation: CGS_ARR , size to allocate: %d bytes"},
    {880, "================  TELMIRA: solving a symm. posit. def. system  ================"},
    {881, "================  TELMIRA: solving a  symmetric indef. system  ================"},
    {882, "================  TELMIRA: solving a   Herm. pos. def. system  ================"},
    {883, "================  TELMIRA: solving a  Hermitian indef. system  ================"},
    {884, "================  TELMIRA: solving a  complex symmetr. system  ================"},
    {885, "================  TELMIRA: solving a real struct. sym. system  ================"},
    {886, "================  TELMIRA: solving a  compl. str. sym. system  ================"},
    {887, "================  TELMIRA: solving a real nonsymmetric system  ================"},
    {888, "================  TELMIRA: solving a   complex nonsym. system  ================"},
    {889, "Summary TELMIRA: ( "},
    {890, "reorder"},
    {891, "factorize"},
    {892, "solve"},
    {893, "clean"},
    {894, " to "},
    {895, " )"},
    {896, "================"},
    {897, "==========="},
    {898, "======"},
    {899, "Times:"},
    {900, "      Time fulladj:"},
    {901, "      Time reorder:"},
    {902, "      Time symbfct:"},
    {903, "      Time parlist:"},
    {904, "      Time A to LU:"},
    {905, "      Time numfct :"},
    {906, "      Time solve  :"},
    {907, "      Time cgs    :"},
    {908, "      Time malloc :"},
    {909, "      Time total  :"},
    {910, " %f s cgx iterations %d"},
    {911, " %f s total - sum: %f s"},
    {912, " %f s"},
    {913, "Statistics:"},
    {914, " < Parallel Direct Factorization with #processors: >         %d"},
    {915, " < Hybrid Solver TELMIRA with CGS/CG Iteration >"},
    {916, " < Numerical Factorization with BLAS3 and O(n) synchronization >"},
    {917, " < Numerical Factorization with Level-3 BLAS performance >"},
    {918, " < Linear system Ax = b> "},
    {919, " < Linear system Ax = b> <transpose> "},
    {921, "             #equations:                                     %d"},
    {923, "             #non-zeros in A:                                %d"},
    {924, "             non-zeros in A (%%):                            %f"},
    {926, "             #right-hand sides:                              %d"},
    {927, " < Factors L and U > "},
    {928, "< Preprocessing with multiple minimum degree, tree height >"},
    {929, "< Reduction for efficient parallel factorization >"},
    {931, "             #columns for each panel:                        %d"},
    {933, "             #independent subgraphs:                         %d"},
    {934, " < Preprocessing with multiple minimum degree with constraints >"},
    {935, " < with multiple minimum degree on the separator nodes         >"},
    {936, " <   no multiple minimum degree on the separator nodes         >"},
    {937, " < Preprocessing with state of the art partitioning metis>"},
    {938, " < Preprocessing with input permutation >"},
    {940, "             #supernodes:                                    %d"},
    {942, "             size of largest supernode:                      %d"},
    {944, "             number of nonzeros in L                         %d"},
    {946, "             number of nonzeros in U                         %d"},
    {948, "             number of nonzeros in L+U                       %d"},
    {949, "             gflop   for the numerical factorization:        %f"},
    {950, "             gflop/s for the numerical factorization:        %f"},
    {951, "             ||A||                                           %f"},
    {952, " L&U for matrix number %d deleted"},
    {954, "Input error is not equal to ZERO, error = %d"},
    {955, "The file was not closed"},
    {956, "ooc_cfg_path\t\tgot by Env =  %s"},
    {957, "ooc_cfg_file_name\tgot by Env =  %s"},
    {958, "ooc_path\t\t\tgot by Env =  %s"},
    {959, "ooc_max_core_size\tgot by Env =  %d"},
    {960, "ooc_keep_file\t\tgot by Env =  %d"},
    {961, "The file %s was not opened"},
    {962, "Read failed"},
    {963, "Fseek failed"},
    {964, " TELMIRA_OOC_OPEN_MODE_FILE_ERROR occured: %s"},
    {965, " TELMIRA_OOC_OPEN_FILE_ERROR occured: %s"},
    {966, " TELMIRA_OOC_CLOSE_FILE_ERROR occured: %s"},
    {967, " TELMIRA_OOC_DELETE_FILE_ERROR occured: %s"},
    {968, " TELMIRA_OOC_NUMBER_OF_READ_EQUAL_ZERO occured: %s"},
    {969, " TELMIRA_OOC_NUMBER_OF_READ_NOT_EQUAL_COUNT occured: %s"},
    {970, " TELMIRA_OOC_READ_EOF_ERROR occured: %s"},
    {971, " TELMIRA_OOC_READ_SEEK_ERROR occured: %s"},
    {972, " TELMIRA_OOC_READ_INPUT_PARAMETERS_INCORRECT occured: %s"},
    {973, " TELMIRA_OOC_NUMBER_OF_WRITE_EQUAL_ZERO occured: %s"},
    {974, " TELMIRA_OOC_NUMBER_OF_WRITE_NOT_EQUAL_COUNT occured: %s"},
    {975, " TELMIRA_OOC_WRITE_EOF_ERROR occured: %s"},
    {976, " TELMIRA_OOC_WRITE_SEEK_ERROR occured: %s"},
    {977, " TELMIRA_OOC_WRITE_INPUT_PARAMETERS_INCORRECT occured: %s"},
    {978, "Error is not in the area of OOC I/O, please check it manualy, error = %d , %s"},
    {979, "Read type = %d"},
    {980, "Number of items read = %d"},
    {981, "telmira_read_ooc_file: Read error"},
    {982, "telmira_read_ooc_file: Fseek error"},
    {983, "Write type = %d"},
    {984, "telmira_write_ooc_file: nfirst is EOF"},
    {985, "Wrote %d items"},
    {986, "telmira_write_ooc_file: Write error"},
    {987, "=== TELMIRA is running in In-Core mode, because iparam(60)=1 and there is enough RAM for In-Core ==="},
    {988, "=== TELMIRA is running in Out-Of-Core mode, because iparam(60)=1 and there is not enough RAM for In-Core ==="},
    {989, "=== TELMIRA is running in In-Core mode, because iparam(60)=0 ==="},
    {990, "=== TELMIRA is running in Out-Of-Core mode, because iparam(60)=2 ==="},
    {1001, "*** Error in TELMIRA: no factorization kernel for matrix type %d in this version"},
    {1002, "*** Error in TELMIRA: a pivot of the factorization is not a finite number (NaN or Inf)"},
    {1003, "*** Error in TELMIRA: the solution is not a finite number (NaN or Inf)"},
    {1004, "*** Error in TELMIRA: the solution does not satisfy the system: its backward error stays above the square root of the rounding unit after refinement"},
    {1005, "=== TELMIRA factorizes on %d of the %d threads: the address-space limit leaves no room for the dense routines' buffers of more ==="},
    {1006, "=== TELMIRA factorizes again with pivot perturbation 1e-%d: the solution of the first factorization was not accurate ==="},
    {1007, "=== TELMIRA analyses and factorizes again %s the weighted matching: the solution was still not accurate ==="},
    {1008, "=== TELMIRA uses its own dense routines from now on: the address-space limit leaves no room for the installed BLAS's buffers ==="},
    {1079, "VEK INTERNAL ERROR: Not enough work memory in function %s"},
};

constexpr std::array<vek_message_row, VEK_MESSAGE_ROWS> build_table() {
  std::array<vek_message_row, VEK_MESSAGE_ROWS> t{};
  for (int i = 0; i < VEK_MESSAGE_ROWS; ++i) t[i] = {"", i + 1, 4};
  for (const numbered_text &r : used_rows) t[r.number].text = r.text;
  return t;
}

constexpr std::array<vek_message_row, VEK_MESSAGE_ROWS> message_table =
    build_table();

// ---------------------------------------------------------------------------
// State of the service. The catalogue is looked for once per process.
// ---------------------------------------------------------------------------

int catalogue_pending = 1;
int catalogue_missing = 1;
void *catalogue_module = nullptr;

// The buffers hold VEK_MESSAGE_BUFFER characters and their end; the format
// buffer takes one more so that a text of exactly the limit still fits and
// only a longer one is an overflow.
char raw_buffer[VEK_MESSAGE_BUFFER + 1];
char format_buffer[VEK_MESSAGE_BUFFER + 2];
char result_buffer[VEK_MESSAGE_BUFFER + 1];

const char catalogue_name[] = "vek_msg.dll";
// Message resources of the catalogue carry this offset on their number.
const unsigned catalogue_id_base = 2147483648u;

vek_serv_xerbla_fn xerbla_handler = nullptr;

// Text of a message number above 0: the catalogue's when it has one, the
// built-in row otherwise.
const char *fetch_text(int number) {
  if (catalogue_pending == 1) {
    catalogue_pending = 0;
    catalogue_module = vek_os_catalogue_open(catalogue_name);
    if (catalogue_module != nullptr) catalogue_missing = 0;
  }
  const char *text = "";
  if (number >= 0 && number < VEK_MESSAGE_ROWS)
    text = message_table[number].text;
  if (catalogue_missing == 0) {
    unsigned len = vek_os_catalogue_format(
        catalogue_module, catalogue_id_base + static_cast<unsigned>(number),
        raw_buffer, VEK_MESSAGE_BUFFER);
    if (len > 0) {
      if (len > VEK_MESSAGE_BUFFER) len = VEK_MESSAGE_BUFFER;
      raw_buffer[len] = '\0';
      if (len >= 2 && raw_buffer[len - 2] == '\r' && raw_buffer[len - 1] == '\n')
        raw_buffer[len - 2] = '\0';
      text = raw_buffer;
    }
  }
  return text;
}

// Prints a formatted text of total length len (the length it has, not what
// the buffer kept), or ends the process when it did not fit.
void print_formatted(int number, int len) {
  if (len - 1 > VEK_MESSAGE_BUFFER) {
    std::printf("\nVEK INTERNAL ERROR: message buffer overflow.");
    std::fflush(nullptr);
    std::printf("\n       Message N %d   Lenght: %d   Buffer size: %d\n",
                number, len - 1, VEK_MESSAGE_BUFFER);
    std::fflush(nullptr);
    std::exit(8);
  }
  std::printf("%s\n", format_buffer);
  std::fflush(nullptr);
}

// One conversion of a format text: its text (with the '%') and the letter.
struct conversion {
  char conv[32];
  char letter;
  int length;  // characters of the text it takes
};

// Reads the conversion at text (which points at '%', not "%%").
bool read_conversion(const char *text, conversion *c) {
  int i = 1;
  while (text[i] && std::strchr("-+ #0", text[i])) ++i;
  while (text[i] >= '0' && text[i] <= '9') ++i;
  if (text[i] == '.') {
    ++i;
    while (text[i] >= '0' && text[i] <= '9') ++i;
  }
  while (text[i] && std::strchr("hlLqjzt", text[i])) ++i;
  if (text[i] == '\0' || i >= static_cast<int>(sizeof(c->conv)) - 1)
    return false;
  c->letter = text[i];
  c->length = i + 1;
  std::memcpy(c->conv, text, c->length);
  c->conv[c->length] = '\0';
  return true;
}

// Appends at most the room left; keeps counting the full length.
void append(char *buf, int size, int *pos, const char *s, int n) {
  if (*pos < size - 1) {
    int room = size - 1 - *pos;
    int k = n < room ? n : room;
    std::memcpy(buf + *pos, s, k);
    buf[*pos + k] = '\0';
  }
  *pos += n;
}

// Formats text, one conversion at a time; arg(k, c, piece, room) formats
// argument k by conversion c into piece and returns its length.
template <class ArgFn>
int format_each(char *buf, int size, const char *text, int count, ArgFn arg) {
  int pos = 0;
  int k = 0;
  if (size > 0) buf[0] = '\0';
  char piece[VEK_MESSAGE_BUFFER + 64];
  for (const char *p = text; *p;) {
    if (*p != '%') {
      const char *q = std::strchr(p, '%');
      int n = q ? static_cast<int>(q - p) : static_cast<int>(std::strlen(p));
      append(buf, size, &pos, p, n);
      p += n;
      continue;
    }
    if (p[1] == '%') {
      append(buf, size, &pos, "%", 1);
      p += 2;
      continue;
    }
    conversion c;
    if (!read_conversion(p, &c) || k >= count) {
      // A conversion without an argument is copied as it stands.
      int n = read_conversion(p, &c) ? c.length : 1;
      append(buf, size, &pos, p, n);
      p += n;
      continue;
    }
    int n = arg(k, c, piece, static_cast<int>(sizeof(piece)));
    if (n < 0) n = 0;
    int kept = n < static_cast<int>(sizeof(piece)) - 1
                   ? n
                   : static_cast<int>(sizeof(piece)) - 1;
    append(buf, size, &pos, piece, kept);
    pos += n - kept;
    ++k;
    p += c.length;
  }
  return pos;
}

}  // namespace

const vek_message_row *vek_serv_message_row(int number) {
  if (number < 0 || number >= VEK_MESSAGE_ROWS) return nullptr;
  return &message_table[number];
}

int vek_serv_format_words(char *buf, int size, const char *text, int count,
                          const std::intptr_t *words) {
  return format_each(buf, size, text, count,
                     [words](int k, const conversion &c, char *piece,
                             int room) {
                       if (c.letter == 's' || c.letter == 'p')
                         return std::snprintf(
                             piece, room, c.conv,
                             reinterpret_cast<const char *>(words[k]));
                       if (std::strchr("fFeEgGaA", c.letter))
                         return std::snprintf(piece, room, c.conv,
                                              static_cast<double>(words[k]));
                       if (std::strstr(c.conv, "l"))
                         return std::snprintf(piece, room, c.conv,
                                              static_cast<long>(words[k]));
                       return std::snprintf(piece, room, c.conv,
                                            static_cast<int>(words[k]));
                     });
}

int vek_serv_format_reals(char *buf, int size, const char *text, int count,
                          const double *values) {
  return format_each(buf, size, text, count,
                     [values](int k, const conversion &c, char *piece,
                              int room) {
                       if (std::strchr("fFeEgGaA", c.letter))
                         return std::snprintf(piece, room, c.conv, values[k]);
                       return std::snprintf(piece, room, c.conv,
                                            static_cast<int>(values[k]));
                     });
}

void vek_serv_print_message(int mode, int number, int count, ...) {
  (void)mode;
  if (number == 0) {
    std::printf("\n");
    std::fflush(nullptr);
    return;
  }
  const char *text = fetch_text(number);
  va_list ap;
  va_start(ap, count);
  int len = std::vsnprintf(format_buffer, sizeof(format_buffer), text, ap);
  va_end(ap);
  print_formatted(number, len < 0 ? 0 : len);
}

const char *vek_serv_format_message(int number, int count, ...) {
  if (number == 0) return "";
  const char *text = fetch_text(number);
  if (count <= 0) return text;
  va_list ap;
  va_start(ap, count);
  std::vsnprintf(result_buffer, sizeof(result_buffer), text, ap);
  va_end(ap);
  return result_buffer;
}

void vek_serv_print_message_words(int number, int count,
                                  const std::intptr_t *words) {
  if (number == 0) {
    std::printf("\n");
    std::fflush(nullptr);
    return;
  }
  const char *text = fetch_text(number);
  int len = vek_serv_format_words(format_buffer, sizeof(format_buffer), text,
                                  count, words);
  print_formatted(number, len);
}

void vek_serv_print_message_reals(int number, int count, const double *values) {
  if (number == 0) {
    std::printf("\n");
    std::fflush(nullptr);
    return;
  }
  const char *text = fetch_text(number);
  int len = vek_serv_format_reals(format_buffer, sizeof(format_buffer), text,
                                  count, values);
  print_formatted(number, len);
}

// ---------------------------------------------------------------------------
// xerbla
// ---------------------------------------------------------------------------

extern "C" void vek_serv_set_xerbla(vek_serv_xerbla_fn handler) {
  xerbla_handler = handler;
}

extern "C" void xerbla(const char *name, const int *info, int name_length) {
  char routine[21];
  int n = 0;
  while (n < 20 && n < name_length && name[n] != '\0') {
    routine[n] = name[n];
    ++n;
  }
  routine[n] = '\0';
  if (xerbla_handler != nullptr) {
    xerbla_handler(name, info, name_length);
    return;
  }
  vek_serv_print_message(0, 0, 0);
  switch (*info) {
    case 1000: vek_serv_print_message(0, 8, 1, routine); break;
    case 1001: vek_serv_print_message(0, 9, 1, routine); break;
    case 1079: vek_serv_print_message(0, 1079, 1, routine); break;
    default:
      if (*info < 1)
        vek_serv_print_message(0, 7, 2, -*info, routine);
      else
        vek_serv_print_message(0, 6, 2, *info, routine);
  }
}
