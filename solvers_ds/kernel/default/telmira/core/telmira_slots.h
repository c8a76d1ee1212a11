// telmira_slots.h - names of the words of the solver's state and control
// arrays that the code reads and writes.
//
// The layout itself is fixed: comi is 100 integers and iparam 64, both
// numbered from 1 as the solver's traces and messages number them
// (COMI(CI_MTYPE) is comi[11]); ooc_l, the integer block of the
// out-of-core mode, likewise (OOCL(OL_MODE)). The names are for the reader
// only, and stand beside the COMI, CTRL and OOCL macros (telmira_storage.h)
// outside any namespace, as those do.
#ifndef TELMIRA_SLOTS_H
#define TELMIRA_SLOTS_H

// --- comi: the integer state of a handle ------------------------------------
constexpr int CI_N = 1;               // neqns
constexpr int CI_N_PLUS_1 = 2;        // neqns + 1
constexpr int CI_OFFDIAG = 3;         // off-diagonal entries of one triangle
constexpr int CI_ADJ_LEN = 4;         // length of the ordering's adjacency
constexpr int CI_WORDS = 5;           // words per value, 1 or 2
constexpr int CI_INLIST_END = 6;      // one past the incoming update lists
constexpr int CI_WORK_LEN = 7;        // values of handle[WORK_R0]
constexpr int CI_OVER_B = 8;          // iparam(6): the solution overwrites b
constexpr int CI_MAXINT = 9;          // largest integer of the minimum degree code
constexpr int CI_LIVE = 10;           // 6 from an analysis on; -1 a refused first call
constexpr int CI_MSGLVL = 11;         // message level, 0 or 1
constexpr int CI_MTYPE = 12;          // matrix type
constexpr int CI_DELTA = 13;          // tolerance of multiple elimination
constexpr int CI_METHOD = 14;         // ordering method, iparam(2)
constexpr int CI_THREADS = 15;        // thread count
constexpr int CI_PANEL = 16;          // supernode panel width limit
constexpr int CI_SEPFLAG = 17;        // minimum degree on the separators (method 1)
constexpr int CI_ITERATION = 18;      // iteration selection from iparam(4)
constexpr int CI_TRIANGLE = 19;       // 1: one triangle of a symmetric matrix stored
constexpr int CI_ONE_THREAD = 20;     // 1 exactly when one thread runs
constexpr int CI_PERM_MODE = 21;      // iparam(5)
constexpr int CI_SYMBOLIC_DONE = 22;  // 1 once the symbolic stage has run
constexpr int CI_LONGEST_COL = 23;    // longest column of L
constexpr int CI_SET24 = 24;          // 1 from an analysis on
constexpr int CI_SET25 = 25;          // 1 from an analysis on
constexpr int CI_LIST_END = 28;       // running end of slindx and slength
constexpr int CI_L_ENTRIES = 30;      // entries of L from the column counts
constexpr int CI_NSUPER = 31;         // number of supernodes
constexpr int CI_WIDEST = 32;         // width of the widest supernode
constexpr int CI_LNZ_LEN = 34;        // non-zeros in L
constexpr int CI_UNZ_LEN = 35;        // non-zeros in U
constexpr int CI_LINDX_LEN = 36;      // length of lindx
constexpr int CI_TMPSIZE = 37;        // work length per thread
constexpr int CI_WORK_FACTOR = 38;    // work factor per value
constexpr int CI_SET40 = 40;          // 10000 from an analysis on
constexpr int CI_MAXIT = 41;          // pass limit of the iteration
constexpr int CI_CHECK_PASS = 42;     // pass of the iteration's progress check
constexpr int CI_FORCE = 43;          // 1: the plan forces a factorization
constexpr int CI_BUFFER_LEN = 44;     // staging values of the final scatter
constexpr int CI_WORK_I0_LEN = 45;    // length of handle[WORK_I0]
constexpr int CI_SUBGRAPHS = 46;      // independent subgraphs of the report
constexpr int CI_ITERATION_LEN = 47;  // values of handle[CGS_ARR]
constexpr int CI_FACTOR_FAILED = 48;  // -1 after a kernel's error
constexpr int CI_MAX_FAC_STORE = 49;  // entries of all_fact_adr
constexpr int CI_STATUS = 50;         // status of the last stage
constexpr int CI_PIVOTING = 51;       // iparam(21): 0 diagonal, else Bunch-Kaufman
constexpr int CI_ENTRIES = 54;        // stored entries of the matrix
constexpr int CI_SUBSTEP = 55;        // 1, 2, 3 for ido 331 to 333, else 0
constexpr int CI_NPARTS = 60;         // parts of the parallel plan
constexpr int CI_PARTS_LEN = 61;      // length of the separator work list
constexpr int CI_NPERT = 62;          // perturbed pivots
constexpr int CI_NPOS = 63;           // positive eigenvalues (type -2)
constexpr int CI_NNEG = 64;           // negative eigenvalues (type -2)
constexpr int CI_REFINE_STEPS = 65;   // refinement steps done
constexpr int CI_PERTURBATION = 66;   // iparam(10): exponent of the perturbation
constexpr int CI_MATCHING = 67;       // matching mode
constexpr int CI_TRANSPOSED = 68;     // transposed flag
constexpr int CI_SCALING = 69;        // scaling flag
constexpr int CI_POOL = 70;           // subtree-and-pool scheme of type 11
constexpr int CI_NTOP = 72;           // top supernodes of the parallel list
constexpr int CI_NO_REFINEMENT = 73;  // iparam(26)
constexpr int CI_SET74 = 74;          // 0 from an analysis on
constexpr int CI_SUM_ANALYSIS = 75;   // memory sums in kilobytes
constexpr int CI_SUM_PERMANENT = 76;
constexpr int CI_SUM_NUMERIC = 77;
constexpr int CI_OOC_VALUES = 80;    // values of an out-of-core factor block, 0 in core
constexpr int CI_PRECISION = 90;      // 0 double, 1 single

// --- iparam: the caller's control array --------------------------------------
constexpr int IP_DEFAULTS = 1;        // 0: defaults at the analysis
constexpr int IP_METHOD = 2;          // ordering method
constexpr int IP_THREADS = 3;         // threads (written by the entry)
constexpr int IP_ITERATION = 4;       // CGS/CG selection and tolerance
constexpr int IP_PERM_MODE = 5;       // caller's permutation in (1) or out (2, < 0)
constexpr int IP_OVER_B = 6;          // 1: the solution overwrites b
constexpr int IP_REFINE_STEPS = 7;    // out: refinement steps done
constexpr int IP_REFINE = 8;          // refinement steps wanted; sign: precision
constexpr int IP_MEMORY_REPORT = 9;   // below 0: the factors are not counted
constexpr int IP_PERTURBATION = 10;   // exponent of the pivot perturbation
constexpr int IP_SCALING = 11;        // scaling on or off
constexpr int IP_TRANSPOSED = 12;     // transposed flag; -1 after the diagonal shortcut
constexpr int IP_MATCHING = 13;       // matching on or off
constexpr int IP_NPERT = 14;          // perturbed pivots
constexpr int IP_PEAK_KB = 15;        // memory of the analysis, peak
constexpr int IP_PERMANENT_KB = 16;   // memory kept after the analysis
constexpr int IP_NUMERIC_KB = 17;     // memory of factors and work
constexpr int IP_LU_ENTRIES = 18;     // entries of L and U
constexpr int IP_MFLOP = 19;          // operation count of the factorization
constexpr int IP_CGS = 20;            // CGS diagnostics
constexpr int IP_PIVOTING = 21;       // 0 diagonal pivoting, else Bunch-Kaufman
constexpr int IP_NPOS = 22;           // positive eigenvalues
constexpr int IP_NNEG = 23;           // negative eigenvalues
constexpr int IP_NO_REFINEMENT = 26;  // non-zero: no refinement at all
constexpr int IP_CHECK_MATRIX = 27;   // 1: check the matrix
constexpr int IP_SINGLE = 28;         // 1: single precision
constexpr int IP_STATUS = 30;         // status behind errors -3 and -4
constexpr int IP_CHECK_PLACE1 = 31;   // 31 to 33: the three numbers of the place
constexpr int IP_CHECK_PLACE2 = 32;   // where the matrix check failed
constexpr int IP_CHECK_PLACE3 = 33;
constexpr int IP_PHASE_STATUS = 50;   // cleared at each call
constexpr int IP_OOC_LEVEL = 57;      // out-of-core algorithm used
constexpr int IP_OOC = 60;            // out-of-core mode wanted
constexpr int IP_FORECAST_PEAK = 61;  // forecast of the memory, megabytes
constexpr int IP_FORECAST_IC = 62;
constexpr int IP_FORECAST_FACTOR = 63;
constexpr int IP_VERSION = 64;        // version of the solver

// --- ooc_l: the integer block of the out-of-core mode -------------------------
constexpr int OL_MODE = 1;             // 0 in core, 1 choose by memory, 2 out of core
constexpr int OL_CORE_MB = 2;          // memory limit in megabytes
constexpr int OL_KEEP_FILES = 3;       // 0: keep the files
constexpr int OL_MSGLVL = 4;           // message level
constexpr int OL_PANEL_VALUES = 5;     // largest value entries of one panel
constexpr int OL_ROW_LIST = 6;         // largest row list of one supernode
constexpr int OL_WIDEST = 7;           // widest supernode
constexpr int OL_BYTES_WRITTEN = 8;    // bytes written during the factorization
constexpr int OL_BYTES_READ = 9;       // bytes read during the factorization
constexpr int OL_BYTES_READ_SOLVE = 10;
constexpr int OL_STATUS = 11;          // 0, -9, -10, -11
constexpr int OL_INT_BYTES = 12;       // bytes per integer
constexpr int OL_WRITE_PCT = 13;       // time shares of the report, per cent
constexpr int OL_READ_PCT = 14;
constexpr int OL_READ_SOLVE_PCT = 15;
constexpr int OL_IO_PCT = 16;
constexpr int OL_ARENA_VALUES = 23;    // capacity of the value arena, entries
constexpr int OL_ARENA_INDEX = 24;     // capacity of the index arena, entries
constexpr int OL_TREE_LEVELS = 25;     // levels of the partition tree
constexpr int OL_NODE_VALUES = 26;     // largest tree node, value entries
constexpr int OL_NODE_INDEX = 27;      // largest tree node, index entries
constexpr int OL_BRANCH_VALUES = 28;   // largest leaf-to-root branch, value entries
constexpr int OL_BRANCH_INDEX = 29;    // largest leaf-to-root branch, index entries
constexpr int OL_PHASE = 35;           // phase code of the call
constexpr int OL_REFINE = 36;          // iparam(8) of the call
constexpr int OL_FILE_LIMIT = 37;      // bytes of one physical file at most
constexpr int OL_RECORDS = 38;         // address word of the file records
constexpr int OL_CONFIG_READ = 40;     // 1 once the settings have been read
constexpr int OL_VALUE_BYTES = 42;     // bytes per value
constexpr int OL_COUNTER43 = 43;       // counters cleared with the byte counts
constexpr int OL_COUNTER44 = 44;
constexpr int OL_SCATTER_LIST = 45;    // largest scatter list of one supernode
constexpr int OL_ALGORITHM = 47;       // out-of-core algorithm: 0, 3 or 2

#endif
