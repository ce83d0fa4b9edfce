// The tool's exit statuses: one table for the code, the help and the manual.
#ifndef CTL_EXIT_STATUS_H
#define CTL_EXIT_STATUS_H

namespace ctl {

enum ExitStatus : int { ALL_WELL = 0, TO_LOOK_AT = 1, BROKEN = 2, CANNOT_TELL = 3 };

struct ExitRow {
  ExitStatus status;
  const char* meaning;
};

inline constexpr ExitRow EXIT_STATUSES[] = {
    {ALL_WELL, "all is well"},
    {TO_LOOK_AT, "something to look at"},
    {BROKEN, "broken"},
    {CANNOT_TELL, "cannot tell: usage, permission, unreadable file"},
};

}  // namespace ctl

#endif
