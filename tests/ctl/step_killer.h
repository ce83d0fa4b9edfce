// Kills the tool at a chosen system call, as a tracer.
#ifndef TESTS_CTL_STEP_KILLER_H
#define TESTS_CTL_STEP_KILLER_H

#include <string>
#include <vector>

// The process that becomes the command, or the one that decides and records for it.
enum class Victim { STARTER, HELPER };

// Runs these words and kills the victim at the step-th time that a system call of it begins or ends; waits
// until both processes have ended. False when the victim had fewer steps and nothing was killed: for the
// starter those until it becomes the command.
bool RunKilledAt(std::vector<std::string> words, Victim victim, int step);

#endif
