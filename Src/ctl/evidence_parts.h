// The parts of the evidence, in the order in which they are gathered: what may hang comes last.
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

// The last lines of a log, each fit to be shown and indented: at most count.
std::string LastLines(const std::string& text, size_t count);
// Of a main log's text: the newest line of each figure that the agent compares with a threshold.
std::string LastFigures(const std::string& text);

}  // namespace ctl

#endif
