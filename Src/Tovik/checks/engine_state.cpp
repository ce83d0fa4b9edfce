#include "Tovik/checks/engine_state.h"

#include "base/format.h"

std::string EngineStateWords(EngineState state, int64_t engineHangs, bool channelsWatched) {
  std::string stateWords;
  switch (state) {
    case EngineState::UNKNOWN:
      stateWords = "Watching";
      break;
    case EngineState::RUNS:
      stateWords = "The engine runs";
      break;
    case EngineState::STARTED_AGAIN:
      stateWords = "The engine was found dead and is started again";
      break;
  }
  if (engineHangs > 0)
    stateWords += base::Format("; hang check: dead, %lld in a row", static_cast<long long>(engineHangs));
  if (!channelsWatched) stateWords += "; its channels are not watched: it has not answered yet";
  return stateWords;
}
