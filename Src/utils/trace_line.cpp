#include "utils/trace_line.h"

#include <array>

#include "base/format.h"
#include "base/owners.h"
#include "charset/cp949.h"
#include "utils/DunraSTTUtils.h"

namespace trace {
namespace {

constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr std::array<const char*, 6> TAGS = {"FATAL", "ERROR", "WARN", "INFO", "DEBUG", "TRACE"};

int Year(const std::tm& local) {
  return local.tm_year + 1900;
}
int Month(const std::tm& local) {
  return local.tm_mon + 1;
}

std::string ChannelField(long channel) {
  return channel == TRACE_MAIN_CHANNEL ? " MAIN" : base::Format("%05ld", channel);
}

}  // namespace

const char* LevelTag(long level) {
  return level >= 0 && level < static_cast<long>(TAGS.size()) ? TAGS[static_cast<size_t>(level)] : "";
}

std::string ToUtf8(const char* message) {
  std::string text = message;
  if (is_UTF8(message) == 1) return text;
  char* converted = nullptr;
  uint32_t length = 0;
  if (encode_UTF8(message, static_cast<uint32_t>(text.size()), &converted, &length) == 0) {
    const base::UniqueText owner(converted);
    return {converted, length};
  }
  for (char& byte : text) {
    if (static_cast<unsigned char>(byte) >= 0x80) byte = '?';
  }
  return text;
}

std::string OrdinaryLine(const Moment& moment, long level, long channel, const Place& place,
                         const std::string& message) {
  const std::tm& t = moment.local;
  return base::Format("[%04d/%02d/%02d %02d:%02d:%02d:%03ld][%.05s][%s][%s/%s:%d] : [%.100000s]\n", Year(t),
                      Month(t), t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec,
                      moment.nanoseconds / NANOSECONDS_PER_MILLISECOND, LevelTag(level),
                      ChannelField(channel).c_str(), place.file, place.function, place.line, message.c_str());
}

std::string HangLine(const Moment& moment, const std::string& message) {
  const std::tm& t = moment.local;
  return base::Format("[HANG][%04d/%02d/%02d %02d:%02d:%02d:%03ld] : [%.4000s]\n", Year(t), Month(t),
                      t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec,
                      moment.nanoseconds / NANOSECONDS_PER_MILLISECOND, message.c_str());
}

std::string AsPrintFormat(std::string_view line) {
  std::string text;
  text.reserve(line.size());
  for (size_t i = 0; i < line.size(); ++i) {
    text += line[i];
    if (line[i] == '%' && i + 1 < line.size() && line[i + 1] == '%') ++i;
  }
  return text;
}

std::string DatedFolder(const char* folder, const std::tm& local) {
  return base::Format("%s%04d%02d%02d/", folder, Year(local), Month(local), local.tm_mday);
}

std::string FileName(char type, long channel, const std::string& datedFolder, const std::tm& local,
                     bool withHost, const std::string& host) {
  const std::string hostPart = withHost ? host + "." : "";
  const char* folder = datedFolder.c_str();
  const char* middle = hostPart.c_str();
  if (type == TRACE_HANG) {
    return base::Format("%shang.%s%04d%02d%02d.log", folder, middle, Year(local), Month(local),
                        local.tm_mday);
  }
  if (type != TRACE_ORDINARY) return {};
  if (channel == TRACE_MAIN_CHANNEL) return base::Format("%sMAIN.%sLOG", folder, middle);
  return base::Format("%s%05ld.%s%02d%02d.LOG", folder, channel, middle, Month(local), local.tm_mday);
}

}  // namespace trace
