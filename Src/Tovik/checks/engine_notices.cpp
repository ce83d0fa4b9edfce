#include "Tovik/checks/engine_notices.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstring>

#include "Tovik/config/config.h"
#include "Tovik/notices/notices.h"
#include "base/format.h"
#include "base/steady_time.h"
#include "sysinfo/listening_port.h"

namespace {

using notices::Notice;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int64_t SCRIPT_LASTS_SECONDS = 30;
constexpr int64_t SILENT_PORT_SECONDS = 60;  // that an engine may take to come up
constexpr int64_t LAST_ENGINE_PORT = 65535;
constexpr size_t LONGEST_PROCESS_NAME = 15;  // what the kernel keeps of a process's name
constexpr int SCRIPT_NOT_EXECUTABLE = 126;
constexpr int SCRIPT_NOT_FOUND = 127;
constexpr int SCRIPT_BY_SIGNAL = 128;  // and above: what a shell says of a signal

bool IsEnginePort(int64_t port) {
  return port > 0 && port <= LAST_ENGINE_PORT;
}

// unknown: what counts where /proc says nothing.
bool EngineListens(int64_t port, bool unknown) {
  sysinfo::ListeningPort engine;
  if (!IsEnginePort(port)) return false;
  return sysinfo::ReadListeningPort(static_cast<uint16_t>(port), &engine) == 1 ? engine.listening : unknown;
}

void TellScriptLasts() {
  notices::Tell<Notice::SCRIPT_LASTS>(m_sz_shell_file, std::to_string(SCRIPT_LASTS_SECONDS));
}
constexpr base::Overdue SCRIPT_LIMIT = {SCRIPT_LASTS_SECONDS * 1000, TellScriptLasts};

std::string SignalWords(int number) {
  const char* const name = ::sigabbrev_np(number);
  return base::Format("signal %d (%s)", number, name == nullptr ? "?" : name);
}

}  // namespace

void TellEngineMissing(const char* name) {
  if (!notices::On()) return;
  std::string shownName = name;
  if (shownName.size() > LONGEST_PROCESS_NAME) shownName += ", longer than the 15 bytes of a process's name";
  if (EngineListens(m_PROC_PORT, false)) {
    notices::Tell<Notice::NAME_MISSING>(shownName, std::to_string(m_PROC_PORT), m_sz_shell_file);
  } else {
    notices::Tell<Notice::ENGINE_DEAD>(shownName, m_sz_shell_file);
  }
}

void TellEngineFound(const char* name, int32_t pid) {
  static std::optional<int64_t> since;
  if (!notices::On()) return;
  const std::string silence =
      SilentPortWords(m_PROC_PORT, EngineListens(m_PROC_PORT, true), base::SteadySeconds(), &since);
  if (silence.empty()) return;
  notices::Tell<Notice::PORT_SILENT>(std::to_string(pid), name, std::to_string(m_PROC_PORT), silence);
}

ScriptRun::ScriptRun() {
  if (notices::On()) scriptBegan_ = steady_clock::now();
}

const base::Overdue* ScriptRun::Limit() const {
  return notices::On() ? &SCRIPT_LIMIT : nullptr;
}

void ScriptRun::TellEnd(int status, int error) const {
  if (!notices::On() || (status < 0 && error == ECANCELED)) return;
  const auto scriptTook = std::chrono::duration_cast<milliseconds>(steady_clock::now() - scriptBegan_);
  const std::string seconds = base::Format("%.1f", static_cast<double>(scriptTook.count()) / 1000);
  if (status == 0) {
    notices::Tell<Notice::SCRIPT_DONE>(m_sz_shell_file, seconds);
    return;
  }
  const std::string scriptEnd = status < 0 ? std::string("could not be run: ") + std::strerror(error)
                                           : ScriptWords(status, m_sz_shell_file, m_sz_base_path);
  notices::Tell<Notice::SCRIPT_FAILED>(m_sz_shell_file, scriptEnd, seconds);
}

std::string ScriptWords(int status, const std::string& script, const std::string& basePath) {
  if (WIFSIGNALED(status)) return "was ended by " + SignalWords(WTERMSIG(status));
  const int exitStatus = WEXITSTATUS(status);
  std::string ended = base::Format("ended with status %d", exitStatus);
  if (script == basePath) {
    ended += R"( (that is BASE_PATH: SHELL_FILE has no value, or one without "./" or "/" at its beginning))";
  } else if (exitStatus == SCRIPT_NOT_FOUND) {
    ended += " (the shell did not find it, or a command in it)";
  } else if (exitStatus == SCRIPT_NOT_EXECUTABLE) {
    ended += " (the shell could not execute it)";
  } else if (exitStatus > SCRIPT_BY_SIGNAL && ::sigabbrev_np(exitStatus - SCRIPT_BY_SIGNAL) != nullptr) {
    ended += " (128 and " + SignalWords(exitStatus - SCRIPT_BY_SIGNAL) + ")";
  }
  return ended;
}

std::string SilentPortWords(int64_t port, bool listens, int64_t now, std::optional<int64_t>* silentSince) {
  if (listens) {
    silentSince->reset();
    return {};
  }
  if (!IsEnginePort(port)) return "is no port from 1 to 65535";
  if (!*silentSince) *silentSince = now;
  return now - **silentSince < SILENT_PORT_SECONDS ? "" : "has not listened for a minute";
}
