#include "Tovik/checks/result_day.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/trace.h"
#include "base/format.h"
#include "base/owners.h"
#include "base/text_file.h"
#include "utils/DunraSTTUtils.h"

namespace {

constexpr mode_t MODE = 0644;
constexpr size_t DAY_SIZE = 8;

// The day of a report that was made in its minute but could not be noted in the file.
std::string unkept;

std::string FilePath() {
  const auto host = HostNameInFiles();
  return m_sz_txt_path + (host ? *host + "." : "") + "result.day";
}

std::string DayText(const std::tm& local) {
  return base::Format("%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

// The day in the file; empty when there is none.
std::string KeptDay(const std::string& path) {
  const base::UniqueFd file = base::OpenRegular(path.c_str(), nullptr, O_NOFOLLOW);
  std::array<char, DAY_SIZE> text;
  return file.Valid() ? std::string(text.data(), base::ReadUpTo(file.Get(), text.data(), text.size())) : "";
}

// Writes a new file and renames it. A full disk or a crash leaves either the old or the new file whole.
bool Write(const std::string& path, const std::string& day) {
  const std::string next = path + ".new";
  ::unlink(next.c_str());
  base::UniqueFd file(::open(next.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, MODE));
  if (!file.Valid()) return false;
  const std::string line = day + "\n";
  const bool written = ::write(file.Get(), line.data(), line.size()) == static_cast<ssize_t>(line.size());
  return written && file.Reset() == 0 && ::rename(next.c_str(), path.c_str()) == 0;
}

bool Keep(const std::string& path, const std::string& day) {
  if (Write(path, day)) return true;
  const int error = errno;
  TRACE(TRACE_WARN, "RESULT_CATCH_UP: %s cannot be written: %s", path.c_str(), std::strerror(error));
  return false;
}

}  // namespace

bool TakeResultDay(bool inTime, const std::tm& local) {
  const std::string path = FilePath();
  const std::string day = DayText(local);
  if (day == unkept || day == KeptDay(path)) return false;
  if (Keep(path, day)) {
    if (!inTime) TRACE(TRACE_INFO, "Result check missed its minute and is made up for");
    return true;
  }
  if (inTime) unkept = day;
  return inTime;
}
