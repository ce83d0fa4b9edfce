// The tool's clocks: wall time for people; time since the boot (suspend included) for everything that is
// counted, as wall time can be set.
#ifndef CTL_CLOCK_H
#define CTL_CLOCK_H

#include <cstdint>
#include <ctime>
#include <string>

namespace ctl {

// A moment on both clocks.
struct Moment {
  time_t wall = 0;
  int64_t boot_ms = 0;  // milliseconds since the boot
  std::string boot_id;  // which boot; empty when it cannot be read
};
Moment Now();
int64_t BootMilliseconds();

// "2026-11-21T03:14:07+09:00", and for people "2026-11-21 03:14:07", in local time.
std::string IsoTime(time_t wall);
std::string WallTime(time_t wall);
// By strftime(3), in local time.
std::string LocalTime(time_t wall, const char* format);

}  // namespace ctl

#endif
