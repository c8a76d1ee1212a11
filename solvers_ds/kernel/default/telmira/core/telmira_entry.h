// telmira_entry.h - what the entry decides before any phase runs.
#ifndef TELMIRA_ENTRY_H
#define TELMIRA_ENTRY_H

// The not-allocated marks, one per precision, at fixed addresses: a handle
// slot or factor entry holding the value 777777 owns no memory.
extern int telmira_not_allocated_double;
extern int telmira_not_allocated_single;

// The thread count the entry runs with: reduced to one thread for each 50
// equations when there is one right-hand side and dynamic adjustment is on.
int telmira_threads_for(int threads, int neqns, int nb, int dynamic);

#endif
