// analysis_profile.h - where the time of an analysis goes, step by step.
//
// The record is off unless a thread asks for it: analysis_profile_attach(p)
// makes the analyses that this thread starts fill *p (cleared at the start
// of each analysis); attach(nullptr) switches it off again. The steps read
// the pointer on the calling thread; the dissection hands it to its own
// threads, which add their shares atomically. Times in seconds.
#ifndef TELMIRA_ANALYSIS_PROFILE_H
#define TELMIRA_ANALYSIS_PROFILE_H

constexpr int analysis_profile_levels = 24;

struct analysis_profile {
  double graph;       // adjacency of the pattern
  double reorder;     // the whole fill-reducing ordering (wall)
  double compress;    // pruning of dense rows, compression, and expansion
  // The bisections and splits of each depth of the dissection (the root is
  // depth 0), summed over the threads: with two threads a level can count
  // more than its wall time.
  double level[analysis_profile_levels];
  int levels;         // depths reached
  int bisections;     // bisections made
  double leaves;      // minimum degree on the leaves, summed over threads
  double sfinit;      // elimination tree, column counts, supernodes
  double symbolic;    // the structure of the factor
  double scatter;     // where the entries of A go in the factor
  double lists;       // the lists of the parallel numeric phase
  double alloc;       // the allocations of the plan
  double plan;        // the memory forecast and the numeric plan
  double total;       // the whole analysis (wall)
};

// The calling thread's record, or null when none is attached.
analysis_profile *analysis_profile_sink();
void analysis_profile_attach(analysis_profile *p);

// Adds seconds to *slot, safely from several threads.
void analysis_profile_add(double *slot, double seconds);

#endif
