// analysis_profile.cpp - the calling thread's profile record of the analysis.

#include "analysis_profile.h"

namespace {
thread_local analysis_profile *profile_sink = nullptr;
}  // namespace

analysis_profile *analysis_profile_sink() { return profile_sink; }

void analysis_profile_attach(analysis_profile *p) { profile_sink = p; }

void analysis_profile_add(double *slot, double seconds) {
#pragma omp atomic
  *slot += seconds;
}
