// The state of the engine as the checks last found it, for the status line that the service manager shows.
#ifndef TOVIK_CHECKS_ENGINE_STATE_H
#define TOVIK_CHECKS_ENGINE_STATE_H

#include <atomic>
#include <cstdint>
#include <string>

enum class EngineState { UNKNOWN, RUNS, STARTED_AGAIN };

inline std::atomic<EngineState> engineState{EngineState::UNKNOWN};  // set by the process check
inline std::atomic<int64_t> engineHangsInARow{0};  // dead verdicts in a row, set by the hang check

// The status line, ASCII, without a line end. channelsWatched: the engine could be connected at least once.
std::string EngineStateWords(EngineState state, int64_t engineHangs, bool channelsWatched);

#endif
