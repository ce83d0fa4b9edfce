// The agent's own trace lines: main log, written to a file when WATCH_SAVE is set.
#ifndef TOVIK_TRACE_H
#define TOVIK_TRACE_H

#include <cstdint>

#include "utils/trace_log.h"

extern int64_t m_txt_save;  // WATCH_SAVE: most who trace need no other key

#define TRACE(level, ...) \
  DUNRA_NAMED_TRACE(TRACE_ORDINARY, level, TRACE_MAIN_CHANNEL, m_txt_save, __VA_ARGS__)

#endif
