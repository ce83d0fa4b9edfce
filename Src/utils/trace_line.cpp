#include "utils/trace_line.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "base/format.h"
#include "base/unique_handles.h"
#include "charset/cp949.h"
#include "charset/is_utf8.h"

namespace trace {
namespace {

constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr std::array<std::string_view, 6> LEVEL_TAGS = {"FATAL", "ERROR", "WARN", "INFO", "DEBUG", "TRACE"};

constexpr uint64_t EACH_BYTE = 0x0101010101010101;
constexpr uint64_t HIGH_BITS = 0x80 * EACH_BYTE;

// Lines are put together by hand: every trace line passes here, and printf would take most of the time.

// Adds the time stamp; the rest of it is "mmm]".
void AddTimeStamp(TraceText* traceLine, const TraceSecond& second, long nanoseconds) {
  traceLine->Add({second.stamp, sizeof second.stamp - 1});
  traceLine->AddNumber(nanoseconds / NANOSECONDS_PER_MILLISECOND, 3).Add("]");
}

size_t DigitsOf(unsigned long value) {
  size_t digits = 1;
  while (value >= 10) {
    value /= 10;
    ++digits;
  }
  return digits;
}

void AddTraceChannel(TraceText* traceLine, long channel) {
  if (channel == TRACE_MAIN_CHANNEL) {
    traceLine->Add(" MAIN");
  } else {
    traceLine->AddNumber(channel, 5);
  }
}

}  // namespace

TraceText& TraceText::AddCut(std::string_view traced, size_t room) {
  return Add(traced.substr(0, room));
}

TraceText& TraceText::AddNumber(long value, size_t width) {
  const bool negative = value < 0;
  unsigned long rest = negative ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
  const size_t size = std::max(width, DigitsOf(rest) + (negative ? 1 : 0));
  if (size > Room()) return AddCut(base::Format("%0*ld", static_cast<int>(width), value), Room());
  for (char* at = traceEnd_ + size; at != traceEnd_; rest /= 10) *--at = static_cast<char>('0' + rest % 10);
  if (negative) *traceEnd_ = '-';
  traceEnd_ += size;
  return *this;
}

bool TraceText::AddSimplyFormatted(const char* format, va_list arguments) {
  while (true) {
    const char* const percent = ::strchrnul(format, '%');
    Add({format, static_cast<size_t>(percent - format)});
    if (*percent == '\0') return true;
    format = percent + 1;
    if (*format == 's') {
      const char* const argument = va_arg(arguments, const char*);
      if (argument == nullptr) return false;
      Add(argument);
    } else if (*format == 'd') {
      AddNumber(va_arg(arguments, int), 1);
    } else if (*format == 'l' && format[1] == 'd') {
      AddNumber(va_arg(arguments, long), 1);
      ++format;
    } else {
      return false;
    }
    ++format;
  }
}

// Most lines use only a few conversions, for which printf takes three times as long.
void TraceText::AddFormatted(size_t limit, const char* format, va_list arguments) {
  TraceText message(traceEnd_, traceEnd_ + std::min(limit, Room()));
  va_list argumentsAgain;
  va_copy(argumentsAgain, arguments);
  if (!message.AddSimplyFormatted(format, argumentsAgain)) {
    const auto room = static_cast<size_t>(message.traceLast_ - message.traceBegin_);
    if (std::vsnprintf(message.traceBegin_, room + 1, format, arguments) < 0) *message.traceBegin_ = '\0';
    message.CutTo(std::strlen(message.traceBegin_));
  }
  va_end(argumentsAgain);
  traceEnd_ = message.traceEnd_;
}

bool IsPlainMessage(std::string_view message) {
  uint64_t notPlain = 0;  // has a high bit set if any byte is a '%' or at least 0x80
  while (message.size() >= sizeof notPlain) {
    uint64_t eight = 0;
    std::memcpy(&eight, message.data(), sizeof eight);
    notPlain |= eight | ((eight ^ ('%' * EACH_BYTE)) - EACH_BYTE);
    message.remove_prefix(sizeof eight);
  }
  for (const char byte : message) notPlain |= byte == '%' ? HIGH_BITS : static_cast<unsigned char>(byte);
  return (notPlain & HIGH_BITS) == 0;
}

std::string_view TraceLevelTag(long level) {
  if (level < 0 || level >= static_cast<long>(LEVEL_TAGS.size())) return "";
  return LEVEL_TAGS[static_cast<size_t>(level)];
}

std::string MessageToUtf8(std::string message) {
  if (is_UTF8(message.c_str()) == 1) return message;
  char* utf8 = nullptr;
  uint32_t utf8Length = 0;
  if (encode_UTF8(message.c_str(), static_cast<uint32_t>(message.size()), &utf8, &utf8Length) == 0) {
    const base::UniqueText owner(utf8);
    return {utf8, utf8Length};
  }
  for (char& messageByte : message) {
    if (static_cast<unsigned char>(messageByte) >= 0x80) messageByte = '?';
  }
  return message;
}

TraceSecond TraceSecondOf(const std::tm& local) {
  TraceSecond second{};
  std::strftime(second.stamp, sizeof second.stamp, "[%Y/%m/%d %H:%M:%S:", &local);
  std::strftime(second.day, sizeof second.day, "%Y%m%d", &local);
  return second;
}

void BeginOrdinaryLine(TraceText* traceLine, const TraceSecond& second, long nanoseconds, long level,
                       long channel, const TracePlace& place) {
  AddTimeStamp(traceLine, second, nanoseconds);
  traceLine->Add("[").Add(TraceLevelTag(level)).Add("][");
  AddTraceChannel(traceLine, channel);
  traceLine->Add("][").Add(place.file).Add("/").Add(place.function).Add(":").AddNumber(place.line, 1);
  traceLine->Add("] : [");
}

void BeginHangLine(TraceText* traceLine, const TraceSecond& second, long nanoseconds) {
  traceLine->Add("[HANG]");
  AddTimeStamp(traceLine, second, nanoseconds);
  traceLine->Add(" : [");
}

std::string AsPrintFormat(std::string_view traceLine) {
  std::string printed;
  printed.reserve(traceLine.size());
  for (size_t i = 0; i < traceLine.size(); ++i) {
    printed += traceLine[i];
    if (traceLine[i] == '%' && i + 1 < traceLine.size() && traceLine[i + 1] == '%') ++i;
  }
  return printed;
}

}  // namespace trace
