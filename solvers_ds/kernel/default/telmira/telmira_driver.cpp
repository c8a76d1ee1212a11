// telmira_driver.cpp - phase drivers of the two precisions.
//
// Not built yet: the analysis, factorization and solve phases. Until they
// exist every phase ends with error -7 (internal error); a release of a
// handle that holds no state returns quietly.
#include "telmira_internal.h"

namespace {

template <class R>
void telmira_phase(intptr_t *handle, const int *ido, int *error) {
  if (*ido == -1 && handle[0] == 0) {
    *error = 0;
    return;
  }
  *error = -7;
}

}  // namespace

void telmira_double(intptr_t *handle, const int *, const int *, const int *,
                    const int *ido, const int *, const void *, const int *,
                    const int *, int *, const int *, int *, const int *, void *,
                    void *, int *error, int *) {
  telmira_phase<double>(handle, ido, error);
}

void telmira_single(intptr_t *handle, const int *, const int *, const int *,
                    const int *ido, const int *, const void *, const int *,
                    const int *, int *, const int *, int *, const int *, void *,
                    void *, int *error, int *) {
  telmira_phase<float>(handle, ido, error);
}
