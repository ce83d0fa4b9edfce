#include "ctl/agent_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/unique_handles.h"
#include "ctl/small_file.h"
#include "utils/trace_log.h"

namespace ctl {
namespace {

std::string Host() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

trace::TraceSecond SecondAt(time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  return trace::TraceSecondOf(local);
}

DayFile TraceFile(const AgentConfig& config, char type, long channel, const std::string& prefix, time_t day) {
  const trace::TraceSecond second = SecondAt(day);
  const std::string host = Host();
  char path[trace::LOG_PATH_SIZE];
  trace::TraceText text(path);
  trace::AddDatedLogFolder(&text, "", second);
  trace::AddLogFileName(&text, type, channel, second, config.host_in_names ? host.c_str() : nullptr);
  return {prefix, std::string(text.View())};
}

}  // namespace

DayFile MainLog(const AgentConfig& config, time_t day) {
  return TraceFile(config, TRACE_ORDINARY, TRACE_MAIN_CHANNEL, config.watch_path, day);
}

DayFile ServerLog(const AgentConfig& config, long server, time_t day) {
  return TraceFile(config, TRACE_ORDINARY, server, config.watch_path, day);
}

DayFile HangLog(const AgentConfig& config, time_t day) {
  return TraceFile(config, TRACE_HANG, TRACE_MAIN_CHANNEL, config.hang_path, day);
}

DayFile EngineErrorLog(const AgentConfig& config, time_t day) {
  const std::string date = SecondAt(day).day;
  const std::string host = config.host_in_names ? Host() + "." : "";
  return {config.engine_path, date + "/" + host + date.substr(4) + ".ERR.LOG"};
}

std::optional<std::string> ReadDayFile(const DayFile& file, size_t limit) {
  // The folder is a prefix: what stands behind its last "/" begins the dated folder's name.
  const size_t slash = file.folder.rfind('/') + 1;
  const std::string folder = slash == 0 ? "." : file.folder.substr(0, slash);
  const std::string below = file.folder.substr(slash) + file.below;
  const size_t split = below.find('/');
  const base::UniqueFd top(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!top.Valid()) return std::nullopt;
  const base::UniqueFd day(
      ::openat(top.Get(), below.substr(0, split).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!day.Valid()) return std::nullopt;
  const base::UniqueFd log(::openat(day.Get(), below.substr(split + 1).c_str(),
                                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!log.Valid()) return std::nullopt;
  return ReadTail(log.Get(), limit);
}

}  // namespace ctl
