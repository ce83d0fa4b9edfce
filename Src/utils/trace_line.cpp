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

constexpr long TRACE_NANOSECONDS_PER_MS = 1'000'000;
constexpr std::array<std::string_view, 6> TRACE_LEVEL_TAGS = {"FATAL", "ERROR", "WARN",
                                                              "INFO",  "DEBUG", "TRACE"};

constexpr uint64_t EACH_TRACE_BYTE = 0x0101010101010101;
constexpr uint64_t HIGH_TRACE_BITS = 0x80 * EACH_TRACE_BYTE;

// Lines are put together by hand: every trace line passes here, and printf would take most of the time.

// Adds the time stamp; the rest of it is "mmm]".
void AddTimeStamp(TraceText* traceLine, const TraceSecond& second, long nanoseconds) {
  traceLine->Add({second.stamp, sizeof second.stamp - 1});
  traceLine->AddNumber(nanoseconds / TRACE_NANOSECONDS_PER_MS, 3).Add("]");
}

size_t TraceDigits(unsigned long traceNumber) {
  size_t traceDigits = 1;
  while (traceNumber >= 10) {
    traceNumber /= 10;
    ++traceDigits;
  }
  return traceDigits;
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

TraceText& TraceText::AddNumber(long traceNumber, size_t width) {
  const bool negativeNumber = traceNumber < 0;
  unsigned long traceRest = negativeNumber ? 0UL - static_cast<unsigned long>(traceNumber)
                                           : static_cast<unsigned long>(traceNumber);
  const size_t numberSize = std::max(width, TraceDigits(traceRest) + (negativeNumber ? 1 : 0));
  if (numberSize > Room()) return AddCut(base::Format("%0*ld", static_cast<int>(width), traceNumber), Room());
  for (char* at = traceEnd_ + numberSize; at != traceEnd_; traceRest /= 10)
    *--at = static_cast<char>('0' + traceRest % 10);
  if (negativeNumber) *traceEnd_ = '-';
  traceEnd_ += numberSize;
  return *this;
}

bool TraceText::AddSimplyFormatted(const char* traceFormat, va_list traceArguments) {
  while (true) {
    const char* const tracePercent = ::strchrnul(traceFormat, '%');
    Add({traceFormat, static_cast<size_t>(tracePercent - traceFormat)});
    if (*tracePercent == '\0') return true;
    traceFormat = tracePercent + 1;
    if (*traceFormat == 's') {
      const char* const traceArgument = va_arg(traceArguments, const char*);
      if (traceArgument == nullptr) return false;
      Add(traceArgument);
    } else if (*traceFormat == 'd') {
      AddNumber(va_arg(traceArguments, int), 1);
    } else if (*traceFormat == 'l' && traceFormat[1] == 'd') {
      AddNumber(va_arg(traceArguments, long), 1);
      ++traceFormat;
    } else {
      return false;
    }
    ++traceFormat;
  }
}

// Most lines use only a few conversions, for which printf takes three times as long.
void TraceText::AddFormatted(size_t traceLimit, const char* traceFormat, va_list traceArguments) {
  TraceText formattedTrace(traceEnd_, traceEnd_ + std::min(traceLimit, Room()));
  va_list argumentsAgain;
  va_copy(argumentsAgain, traceArguments);
  if (!formattedTrace.AddSimplyFormatted(traceFormat, argumentsAgain)) {
    const auto traceRoom = static_cast<size_t>(formattedTrace.traceLast_ - formattedTrace.traceBegin_);
    if (std::vsnprintf(formattedTrace.traceBegin_, traceRoom + 1, traceFormat, traceArguments) < 0)
      *formattedTrace.traceBegin_ = '\0';
    formattedTrace.CutTo(std::strlen(formattedTrace.traceBegin_));
  }
  va_end(argumentsAgain);
  traceEnd_ = formattedTrace.traceEnd_;
}

bool IsPlainMessage(std::string_view traceMessage) {
  uint64_t notPlainTrace = 0;  // has a high bit set if any byte is a '%' or at least 0x80
  while (traceMessage.size() >= sizeof notPlainTrace) {
    uint64_t traceBytes = 0;
    std::memcpy(&traceBytes, traceMessage.data(), sizeof traceBytes);
    notPlainTrace |= traceBytes | ((traceBytes ^ ('%' * EACH_TRACE_BYTE)) - EACH_TRACE_BYTE);
    traceMessage.remove_prefix(sizeof traceBytes);
  }
  for (const char traceByte : traceMessage)
    notPlainTrace |= traceByte == '%' ? HIGH_TRACE_BITS : static_cast<unsigned char>(traceByte);
  return (notPlainTrace & HIGH_TRACE_BITS) == 0;
}

std::string_view TraceLevelTag(long level) {
  if (level < 0 || level >= static_cast<long>(TRACE_LEVEL_TAGS.size())) return "";
  return TRACE_LEVEL_TAGS[static_cast<size_t>(level)];
}

std::string MessageToUtf8(std::string traceMessage) {
  if (is_UTF8(traceMessage.c_str()) == 1) return traceMessage;
  char* utf8Trace = nullptr;
  uint32_t utf8TraceLength = 0;
  if (encode_UTF8(traceMessage.c_str(), static_cast<uint32_t>(traceMessage.size()), &utf8Trace,
                  &utf8TraceLength) == 0) {
    const base::UniqueText utf8TraceOwner(utf8Trace);
    return {utf8Trace, utf8TraceLength};
  }
  for (char& traceByte : traceMessage) {
    if (static_cast<unsigned char>(traceByte) >= 0x80) traceByte = '?';
  }
  return traceMessage;
}

TraceSecond TraceSecondOf(const std::tm& local) {
  TraceSecond traceSecond{};
  std::strftime(traceSecond.stamp, sizeof traceSecond.stamp, "[%Y/%m/%d %H:%M:%S:", &local);
  std::strftime(traceSecond.day, sizeof traceSecond.day, "%Y%m%d", &local);
  return traceSecond;
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
