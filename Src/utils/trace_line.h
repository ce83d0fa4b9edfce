// Builds trace lines. Pure functions of texts and of a time.
#ifndef UTILS_TRACE_LINE_H
#define UTILS_TRACE_LINE_H

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

namespace trace {

// One second of local time, as text for lines and for the paths of their files.
struct Second {
  char stamp[sizeof "[YYYY/MM/DD hh:mm:ss:"];
  char day[sizeof "YYYYMMDD"];
};

// The source location that a line names.
struct Place {
  const char* file;
  const char* function;
  int line;
};

// A text in a borrowed buffer of fixed size. Whatever does not fit is cut.
class Text {
 public:
  template <size_t Size>
  explicit Text(char (&buffer)[Size]) : Text(buffer, buffer + Size - 1) {}

  Text& Add(std::string_view part) {
    if (part.size() > Room()) return AddCut(part, Room());
    std::memcpy(end_, part.data(), part.size());
    end_ += part.size();
    return *this;
  }
  // Adds a number as printf's "%0<width>ld" does.
  Text& AddNumber(long value, size_t width);
  // Adds what printf makes of it, cut to limit bytes.
  [[gnu::format(printf, 3, 0)]] void AddFormatted(size_t limit, const char* format, va_list arguments);

  size_t Size() const { return static_cast<size_t>(end_ - begin_); }
  std::string_view View() const { return {begin_, Size()}; }
  void CutTo(size_t size) { end_ = begin_ + size; }
  const char* Terminated() {
    *end_ = '\0';
    return begin_;
  }

 private:
  size_t Room() const { return static_cast<size_t>(last_ - end_); }
  Text& AddCut(std::string_view part, size_t room);
  Text(char* begin, char* last) : begin_(begin), end_(begin), last_(last) {}
  // Formats up to the first conversion other than "%s", "%d" and "%ld", or up to a null text. Returns whether
  // it got to the end of the format.
  bool AddSimple(const char* format, va_list arguments);

  char* begin_;
  char* end_;
  char* last_;  // the buffer's last byte, kept for the terminator
};

// The size of the line buffer: the longest message, and 4,000 bytes for what comes before it.
inline constexpr size_t LINE_SIZE = 104'000;

// "FATAL" to "TRACE" for the levels 0 to 5, an empty text for any other.
std::string_view LevelTag(long level);

// Whether a text is pure ASCII without a percent sign, as most are. Such a text is valid UTF-8 and can be its
// own printf format.
bool IsPlain(std::string_view text);

// Returns the message in UTF-8: unchanged when it is valid UTF-8, else converted from code page 949, else
// with '?' for each byte of 0x80 and above.
std::string ToUtf8(std::string message);

// The longest message in an ordinary line and in a line of the hang log, in bytes of UTF-8.
inline constexpr size_t MESSAGE_LIMIT = 100'000;
inline constexpr size_t HANG_LIMIT = 4000;

Second SecondOf(const std::tm& local);
// Begin a line, up to its message. The message and "]\n" follow.
void BeginOrdinaryLine(Text* line, const Second& second, long nanoseconds, long level, long channel,
                       const Place& place);
void BeginHangLine(Text* line, const Second& second, long nanoseconds);

// Returns what printf would make of a line that is its own format and has no arguments: "%%" becomes "%"; any
// other conversion stays as it is, because there is no argument to print.
std::string AsPrintFormat(std::string_view line);

}  // namespace trace

#endif
