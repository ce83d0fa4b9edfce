// The parts of the evidence, in the order of gathering: parts that may hang come last.
#ifndef CTL_EVIDENCE_PARTS_H
#define CTL_EVIDENCE_PARTS_H

#include <functional>
#include <span>
#include <string>

#include "ctl/agent_config.h"
#include "ctl/verdict.h"

namespace ctl {

struct EvidencePart {
  const char* title;
  // Adds to the facts what the verdict needs; returns lines of UTF-8, fit to be shown.
  std::string (*gather)(const AgentConfig& config, const RestartState& before, DeathFacts* facts);
};
std::span<const EvidencePart> EvidenceParts();

// The last lines of a log, at most count, each fit to be shown and indented.
std::string LastLines(const std::string& text, size_t count);
// From the text of a main log: the newest line of each figure that the agent compares with a threshold.
std::string LastFigures(const std::string& text);

}  // namespace ctl

#endif
