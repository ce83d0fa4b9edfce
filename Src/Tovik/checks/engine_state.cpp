#include "Tovik/checks/engine_standing.h"

#include "base/format.h"

namespace standing {

std::string Words(Engine engine, int64_t hangs, bool channelsWatched) {
  std::string words;
  switch (engine) {
    case Engine::UNKNOWN:
      words = "Watching";
      break;
    case Engine::RUNS:
      words = "The engine runs";
      break;
    case Engine::STARTED_AGAIN:
      words = "The engine was found dead and is started again";
      break;
  }
  if (hangs > 0) words += base::Format("; hang check: dead, %lld in a row", static_cast<long long>(hangs));
  if (!channelsWatched) words += "; its channels are not watched: it has not answered yet";
  return words;
}

}  // namespace standing
