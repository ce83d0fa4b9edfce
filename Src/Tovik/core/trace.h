// The agent's own trace lines: main log, written to a file when WATCH_SAVE is set.
#ifndef TOVIK_CORE_TRACE_H
#define TOVIK_CORE_TRACE_H

#include "Tovik/core/config.h"
#include "utils/DunraSTTUtils.h"

#define TRACE(level, ...) \
  DUNRA_NAMED_TRACE(TRACE_ORDINARY, level, TRACE_MAIN_CHANNEL, m_txt_save, __VA_ARGS__)

#endif
