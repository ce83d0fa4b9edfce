#ifndef TOVIK_CHECKS_OUTCOME_H
#define TOVIK_CHECKS_OUTCOME_H

// Traces the result of a check and returns true for a success, which is every result but 0. The line names
// errorCheckProc for the error-log check and for the result check alike.
bool TraceOutcome(int result);

#endif
