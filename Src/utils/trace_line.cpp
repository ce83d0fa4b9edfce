#include "utils/trace_line.h"

#include <array>
#include <charconv>
#include <utility>

#include "base/owners.h"
#include "charset/cp949.h"
#include "utils/DunraSTTUtils.h"

namespace trace {
namespace {

constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr size_t MESSAGE_LIMIT = 100'000;
constexpr size_t HANG_LIMIT = 4000;
constexpr std::array<const char*, 6> TAGS = {"FATAL", "ERROR", "WARN", "INFO", "DEBUG", "TRACE"};

int Year(const std::tm& local) {
  return local.tm_year + 1900;
}
int Month(const std::tm& local) {
  return local.tm_mon + 1;
}

// What a line or a path needs beside its texts, so that nearly each is allocated once.
constexpr size_t FRAME_SIZE = 128;

// Lines are put together by hand, since every one of the agent comes this way and printf would take most of
// its time.

// As "%0<width>ld".
void AddNumber(std::string* text, long value, size_t width) {
  std::array<char, 24> buffer;
  const char* const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
  std::string_view digits(buffer.data(), static_cast<size_t>(end - buffer.data()));
  if (value < 0) {
    *text += '-';
    digits.remove_prefix(1);
    --width;
  }
  if (digits.size() < width) text->append(width - digits.size(), '0');
  *text += digits;
}

void PutTwoDigits(char* at, int value) {
  at[0] = static_cast<char>('0' + value / 10);
  at[1] = static_cast<char>('0' + value % 10);
}

// "YYYYMMDD".
void AddDay(std::string* text, const std::tm& local) {
  std::array<char, 8> day;
  PutTwoDigits(&day[0], Year(local) / 100);
  PutTwoDigits(&day[2], Year(local) % 100);
  PutTwoDigits(&day[4], Month(local));
  PutTwoDigits(&day[6], local.tm_mday);
  text->append(day.data(), day.size());
}

// "[YYYY/MM/DD hh:mm:ss:mmm]".
void AddMoment(std::string* text, const Moment& moment) {
  const std::tm& local = moment.local;
  const auto milliseconds = static_cast<int>(moment.nanoseconds / NANOSECONDS_PER_MILLISECOND);
  std::array<char, 26> form = {"[0000/00/00 00:00:00:000]"};
  PutTwoDigits(&form[1], Year(local) / 100);
  PutTwoDigits(&form[3], Year(local) % 100);
  PutTwoDigits(&form[6], Month(local));
  PutTwoDigits(&form[9], local.tm_mday);
  PutTwoDigits(&form[12], local.tm_hour);
  PutTwoDigits(&form[15], local.tm_min);
  PutTwoDigits(&form[18], local.tm_sec);
  PutTwoDigits(&form[21], milliseconds / 10);
  form[23] = static_cast<char>('0' + milliseconds % 10);
  text->append(form.data(), form.size() - 1);
}

void AddChannel(std::string* text, long channel) {
  if (channel == TRACE_MAIN_CHANNEL) {
    *text += " MAIN";
  } else {
    AddNumber(text, channel, 5);
  }
}

}  // namespace

const char* LevelTag(long level) {
  return level >= 0 && level < static_cast<long>(TAGS.size()) ? TAGS[static_cast<size_t>(level)] : "";
}

std::string ToUtf8(std::string message) {
  if (is_UTF8(message.c_str()) == 1) return message;
  char* converted = nullptr;
  uint32_t length = 0;
  if (encode_UTF8(message.c_str(), static_cast<uint32_t>(message.size()), &converted, &length) == 0) {
    const base::UniqueText owner(converted);
    return {converted, length};
  }
  for (char& byte : message) {
    if (static_cast<unsigned char>(byte) >= 0x80) byte = '?';
  }
  return message;
}

std::string OrdinaryLine(const Moment& moment, long level, long channel, const Place& place,
                         std::string_view message) {
  const std::string_view text = message.substr(0, MESSAGE_LIMIT);
  std::string line;
  line.reserve(FRAME_SIZE + text.size());
  AddMoment(&line, moment);
  line.append("[").append(LevelTag(level)).append("][");
  AddChannel(&line, channel);
  line.append("][").append(place.file).append("/").append(place.function).append(":");
  AddNumber(&line, place.line, 1);
  return std::move(line.append("] : [").append(text).append("]\n"));
}

std::string HangLine(const Moment& moment, std::string_view message) {
  std::string line = "[HANG]";
  AddMoment(&line, moment);
  return std::move(line.append(" : [").append(message.substr(0, HANG_LIMIT)).append("]\n"));
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
  std::string dated;
  dated.reserve(FRAME_SIZE);
  dated += folder;
  AddDay(&dated, local);
  dated += '/';
  return dated;
}

std::string FileName(char type, long channel, std::string datedFolder, const std::tm& local, bool withHost,
                     const std::string& host) {
  std::string name = std::move(datedFolder);
  const auto addHost = [&] {
    if (withHost) name.append(host).append(".");
  };
  if (type == TRACE_HANG) {
    name += "hang.";
    addHost();
    AddDay(&name, local);
    name += ".log";
    return name;
  }
  if (type != TRACE_ORDINARY) return {};
  if (channel == TRACE_MAIN_CHANNEL) {
    name += "MAIN.";
    addHost();
    name += "LOG";
    return name;
  }
  AddNumber(&name, channel, 5);
  name += '.';
  addHost();
  AddNumber(&name, Month(local), 2);
  AddNumber(&name, local.tm_mday, 2);
  name += ".LOG";
  return name;
}

}  // namespace trace
