#include "ctl/agent_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/format.h"
#include "base/owners.h"
#include "ctl/small_file.h"
#include "utils/DunraSTTUtils.h"
#include "utils/trace_line.h"

namespace ctl {
namespace {

std::string Host() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

DayFile TraceFile(const AgentConfig& config, char type, const std::string& prefix, time_t day) {
  std::tm local{};
  localtime_r(&day, &local);
  return {prefix, trace::FileName(type, TRACE_MAIN_CHANNEL, trace::DatedFolder("", local), local,
                                  config.host_in_names, config.host_in_names ? Host() : "")};
}

}  // namespace

DayFile MainLog(const AgentConfig& config, time_t day) {
  return TraceFile(config, TRACE_ORDINARY, config.watch_path, day);
}

DayFile HangLog(const AgentConfig& config, time_t day) {
  return TraceFile(config, TRACE_HANG, config.hang_path, day);
}

DayFile EngineErrorLog(const AgentConfig& config, time_t day) {
  std::tm local{};
  localtime_r(&day, &local);
  const std::string host = config.host_in_names ? Host() + "." : "";
  return {config.engine_path, base::Format("%s%s%02d%02d.ERR.LOG", trace::DatedFolder("", local).c_str(),
                                           host.c_str(), local.tm_mon + 1, local.tm_mday)};
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
