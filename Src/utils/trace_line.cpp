#include "utils/trace_line.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "base/format.h"
#include "base/unique_handles.h"
#include "charset/cp949.h"
#include "utils/DunraSTTUtils.h"

namespace trace {
namespace {

constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr std::array<std::string_view, 6> LEVEL_TAGS = {"FATAL", "ERROR", "WARN", "INFO", "DEBUG", "TRACE"};

constexpr uint64_t EACH_BYTE = 0x0101010101010101;
constexpr uint64_t HIGH_BITS = 0x80 * EACH_BYTE;

// Lines are put together by hand: every trace line passes here, and printf would take most of the time.

// Adds the time stamp; the rest of it is "mmm]".
void AddMoment(Text* line, const Second& second, long nanoseconds) {
  line->Add({second.stamp, sizeof second.stamp - 1});
  line->AddNumber(nanoseconds / NANOSECONDS_PER_MILLISECOND, 3).Add("]");
}

size_t DigitsOf(unsigned long value) {
  size_t digits = 1;
  while (value >= 10) {
    value /= 10;
    ++digits;
  }
  return digits;
}

void AddChannel(Text* text, long channel) {
  if (channel == TRACE_MAIN_CHANNEL) {
    text->Add(" MAIN");
  } else {
    text->AddNumber(channel, 5);
  }
}

}  // namespace

Text& Text::AddCut(std::string_view part, size_t room) {
  return Add(part.substr(0, room));
}

Text& Text::AddNumber(long value, size_t width) {
  const bool negative = value < 0;
  unsigned long rest = negative ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
  const size_t size = std::max(width, DigitsOf(rest) + (negative ? 1 : 0));
  if (size > Room()) return AddCut(base::Format("%0*ld", static_cast<int>(width), value), Room());
  for (char* at = end_ + size; at != end_; rest /= 10) *--at = static_cast<char>('0' + rest % 10);
  if (negative) *end_ = '-';
  end_ += size;
  return *this;
}

bool Text::AddSimple(const char* format, va_list arguments) {
  while (true) {
    const char* const percent = ::strchrnul(format, '%');
    Add({format, static_cast<size_t>(percent - format)});
    if (*percent == '\0') return true;
    format = percent + 1;
    if (*format == 's') {
      const char* const word = va_arg(arguments, const char*);
      if (word == nullptr) return false;
      Add(word);
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
void Text::AddFormatted(size_t limit, const char* format, va_list arguments) {
  Text part(end_, end_ + std::min(limit, Room()));
  va_list again;
  va_copy(again, arguments);
  if (!part.AddSimple(format, again)) {
    const auto room = static_cast<size_t>(part.last_ - part.begin_);
    if (std::vsnprintf(part.begin_, room + 1, format, arguments) < 0) *part.begin_ = '\0';
    part.CutTo(std::strlen(part.begin_));
  }
  va_end(again);
  end_ = part.end_;
}

bool IsPlain(std::string_view text) {
  uint64_t found = 0;  // has a high bit set if any byte is a '%' or at least 0x80
  while (text.size() >= sizeof found) {
    uint64_t word = 0;
    std::memcpy(&word, text.data(), sizeof word);
    found |= word | ((word ^ ('%' * EACH_BYTE)) - EACH_BYTE);
    text.remove_prefix(sizeof word);
  }
  for (const char byte : text) found |= byte == '%' ? HIGH_BITS : static_cast<unsigned char>(byte);
  return (found & HIGH_BITS) == 0;
}

std::string_view LevelTag(long level) {
  if (level < 0 || level >= static_cast<long>(LEVEL_TAGS.size())) return "";
  return LEVEL_TAGS[static_cast<size_t>(level)];
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

Second SecondOf(const std::tm& local) {
  Second second{};
  std::strftime(second.stamp, sizeof second.stamp, "[%Y/%m/%d %H:%M:%S:", &local);
  std::strftime(second.day, sizeof second.day, "%Y%m%d", &local);
  return second;
}

void BeginOrdinaryLine(Text* line, const Second& second, long nanoseconds, long level, long channel,
                       const Place& place) {
  AddMoment(line, second, nanoseconds);
  line->Add("[").Add(LevelTag(level)).Add("][");
  AddChannel(line, channel);
  line->Add("][").Add(place.file).Add("/").Add(place.function).Add(":").AddNumber(place.line, 1);
  line->Add("] : [");
}

void BeginHangLine(Text* line, const Second& second, long nanoseconds) {
  line->Add("[HANG]");
  AddMoment(line, second, nanoseconds);
  line->Add(" : [");
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

}  // namespace trace
