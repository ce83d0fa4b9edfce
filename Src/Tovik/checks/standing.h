// How the engine stands, as the checks found it last: for the line in words that a service manager shows.
#ifndef TOVIK_CHECKS_STANDING_H
#define TOVIK_CHECKS_STANDING_H

#include <atomic>
#include <cstdint>
#include <string>

namespace standing {

enum class Engine { UNKNOWN, RUNS, STARTED_AGAIN };

inline std::atomic<Engine> engineSeen{Engine::UNKNOWN};  // of the process check
inline std::atomic<int64_t> hangsInARow{0};              // deaths in a row, of the hang check

// One line of ASCII. channelsWatched: the engine has answered once.
std::string Words(Engine engine, int64_t hangs, bool channelsWatched);

}  // namespace standing

#endif
