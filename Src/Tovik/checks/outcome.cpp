#include "Tovik/checks/outcome.h"

#include "Tovik/trace.h"

bool TraceOutcome(int result) {
  if (result == 0) {
    TRACE(TRACE_WARN, "errorCheckProc fail");
    return false;
  }
  TRACE(TRACE_INFO, "errorCheckProc success");
  return true;
}
