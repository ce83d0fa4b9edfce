// What the process check tells the administrator (notices/notices.h). Without a journal nothing here does
// anything, and no file is looked at.
#ifndef TOVIK_CHECKS_ENGINE_NOTICES_H
#define TOVIK_CHECKS_ENGINE_NOTICES_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "base/child_process.h"

// The engine's process is missing, and its start script is about to be run. Whether its port listens all the
// same is looked up in /proc.
void TellEngineMissing(const char* name);
// A process of the engine's name is there. Told when its port does not listen and has not for a minute. For
// the thread of the process check.
void TellEngineFound(const char* name, int32_t pid);

// One run of the start script, from its construction on.
class ScriptRun {
 public:
  ScriptRun();
  // For RunShell; null without a journal.
  const base::Overdue* NoticeLimit() const;
  // Its wait status, or -1 with errno; ECANCELED, of a script that a stop no longer waits for, is not told.
  void TellScriptEnd(int scriptStatus, int scriptError) const;

 private:
  std::chrono::steady_clock::time_point scriptBegan_{};
};

// "ended with status 3", "was ended by signal 9 (KILL)". script and basePath are SHELL_FILE and BASE_PATH as
// they are in use.
std::string ScriptNoticeWords(int scriptStatus, const std::string& script, const std::string& basePath);

// Of a port that does not listen: why that is told now; empty when it is not. portSilentSince is kept between
// calls.
std::string SilentPortWords(int64_t noticePort, bool noticePortListens, int64_t noticeTime,
                            std::optional<int64_t>* portSilentSince);

#endif
