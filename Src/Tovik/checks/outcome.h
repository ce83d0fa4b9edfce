#ifndef TOVIK_CHECKS_OUTCOME_H
#define TOVIK_CHECKS_OUTCOME_H

// Traces the result of the error-log check, and of the result check under the same name: every result but 0
// counts as a success. Whether it did.
bool TraceOutcome(int result);

#endif
