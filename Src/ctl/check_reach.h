// Whether the alarms' destinations can be reached.
#ifndef CTL_CHECK_REACH_H
#define CTL_CHECK_REACH_H

#include <string>
#include <vector>

#include "ctl/check_rules.h"

namespace ctl {

struct Destination {
  const char* key;
  size_t line;
  std::string host;
  std::string port;
};
// Of every channel that is switched on.
std::vector<Destination> DestinationsOf(const Facts& facts);

// Looks up and connects to each destination, all at the same time, and sends nothing. Returns an error for
// each that did not answer within five seconds; looking up a name takes as long as the host's resolver.
std::vector<CheckFinding> Reach(const Facts& facts);

}  // namespace ctl

#endif
