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

constexpr int64_t SCRIPT_NOTICE_SECONDS = 30;
constexpr int64_t SILENT_PORT_NOTICE_SECONDS = 60;  // that an engine may take to come up
constexpr int64_t LAST_NOTICE_PORT = 65535;
constexpr size_t LONGEST_NAME_NOTICED = 15;  // what the kernel keeps of a process's name
constexpr int SCRIPT_NOT_EXECUTABLE = 126;
constexpr int SCRIPT_NOT_FOUND = 127;
constexpr int SCRIPT_BY_SIGNAL = 128;  // and above: what a shell says of a signal

bool IsNoticePort(int64_t noticePort) {
  return noticePort > 0 && noticePort <= LAST_NOTICE_PORT;
}

// unknown: what counts where /proc says nothing.
bool NoticePortListens(int64_t noticePort, bool whenUnknown) {
  sysinfo::ListeningPort noticedEngine;
  if (!IsNoticePort(noticePort)) return false;
  return sysinfo::ReadListeningPort(static_cast<uint16_t>(noticePort), &noticedEngine) == 1
             ? noticedEngine.listening
             : whenUnknown;
}

void TellScriptLasts() {
  notices::Tell<Notice::SCRIPT_LASTS>(m_sz_shell_file, std::to_string(SCRIPT_NOTICE_SECONDS));
}
constexpr base::Overdue SCRIPT_NOTICE_LIMIT = {SCRIPT_NOTICE_SECONDS * 1000, TellScriptLasts};

std::string SignalNoticeWords(int signalNumber) {
  const char* const signalName = ::sigabbrev_np(signalNumber);
  return base::Format("signal %d (%s)", signalNumber, signalName == nullptr ? "?" : signalName);
}

}  // namespace

void TellEngineMissing(const char* name) {
  if (!notices::On()) return;
  std::string noticedName = name;
  if (noticedName.size() > LONGEST_NAME_NOTICED)
    noticedName += ", longer than the 15 bytes of a process's name";
  if (NoticePortListens(m_PROC_PORT, false)) {
    notices::Tell<Notice::NAME_MISSING>(noticedName, std::to_string(m_PROC_PORT), m_sz_shell_file);
  } else {
    notices::Tell<Notice::ENGINE_DEAD>(noticedName, m_sz_shell_file);
  }
}

void TellEngineFound(const char* name, int32_t pid) {
  static std::optional<int64_t> portSilentSince;
  if (!notices::On()) return;
  const std::string silentPortWords = SilentPortWords(m_PROC_PORT, NoticePortListens(m_PROC_PORT, true),
                                                      base::SteadySeconds(), &portSilentSince);
  if (silentPortWords.empty()) return;
  notices::Tell<Notice::PORT_SILENT>(std::to_string(pid), name, std::to_string(m_PROC_PORT), silentPortWords);
}

ScriptRun::ScriptRun() {
  if (notices::On()) scriptBegan_ = steady_clock::now();
}

const base::Overdue* ScriptRun::NoticeLimit() const {
  return notices::On() ? &SCRIPT_NOTICE_LIMIT : nullptr;
}

void ScriptRun::TellScriptEnd(int scriptStatus, int scriptError) const {
  if (!notices::On() || (scriptStatus < 0 && scriptError == ECANCELED)) return;
  const auto scriptTook = std::chrono::duration_cast<milliseconds>(steady_clock::now() - scriptBegan_);
  const std::string noticeSeconds = base::Format("%.1f", static_cast<double>(scriptTook.count()) / 1000);
  if (scriptStatus == 0) {
    notices::Tell<Notice::SCRIPT_DONE>(m_sz_shell_file, noticeSeconds);
    return;
  }
  const std::string scriptNotice = scriptStatus < 0
                                       ? std::string("could not be run: ") + std::strerror(scriptError)
                                       : ScriptNoticeWords(scriptStatus, m_sz_shell_file, m_sz_base_path);
  notices::Tell<Notice::SCRIPT_FAILED>(m_sz_shell_file, scriptNotice, noticeSeconds);
}

std::string ScriptNoticeWords(int scriptStatus, const std::string& script, const std::string& basePath) {
  if (WIFSIGNALED(scriptStatus)) return "was ended by " + SignalNoticeWords(WTERMSIG(scriptStatus));
  const int scriptExit = WEXITSTATUS(scriptStatus);
  std::string scriptNotice = base::Format("ended with status %d", scriptExit);
  if (script == basePath) {
    scriptNotice +=
        R"( (that is BASE_PATH: SHELL_FILE has no value, or one without "./" or "/" at its beginning))";
  } else if (scriptExit == SCRIPT_NOT_FOUND) {
    scriptNotice += " (the shell did not find it, or a command in it)";
  } else if (scriptExit == SCRIPT_NOT_EXECUTABLE) {
    scriptNotice += " (the shell could not execute it)";
  } else if (scriptExit > SCRIPT_BY_SIGNAL && ::sigabbrev_np(scriptExit - SCRIPT_BY_SIGNAL) != nullptr) {
    scriptNotice += " (128 and " + SignalNoticeWords(scriptExit - SCRIPT_BY_SIGNAL) + ")";
  }
  return scriptNotice;
}

std::string SilentPortWords(int64_t noticePort, bool noticePortListens, int64_t noticeTime,
                            std::optional<int64_t>* portSilentSince) {
  if (noticePortListens) {
    portSilentSince->reset();
    return {};
  }
  if (!IsNoticePort(noticePort)) return "is no port from 1 to 65535";
  if (!*portSilentSince) *portSilentSince = noticeTime;
  return noticeTime - **portSilentSince < SILENT_PORT_NOTICE_SECONDS ? "" : "has not listened for a minute";
}
