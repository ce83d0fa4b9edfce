// What a trace line and its file are made of: functions of texts and of a moment.
#ifndef UTILS_TRACE_LINE_H
#define UTILS_TRACE_LINE_H

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

namespace trace {

// A second of local time, as lines and paths tell it.
struct Second {
  char stamp[sizeof "[YYYY/MM/DD hh:mm:ss:"];
  char day[sizeof "YYYYMMDD"];
};

// Where a line was traced.
struct Place {
  const char* file;
  const char* function;
  int line;
};

// A text that grows in a buffer of fixed size, which it borrows. What does not fit is cut.
class Text {
 public:
  template <size_t Size>
  explicit Text(char (&buffer)[Size]) : Text(buffer, buffer + Size - 1) {}

  Text& Add(std::string_view part) {
    const auto room = static_cast<size_t>(last_ - end_);
    if (part.size() > room) return AddCut(part, room);
    std::memcpy(end_, part.data(), part.size());
    end_ += part.size();
    return *this;
  }
  // As "%0<width>ld".
  Text& AddNumber(long value, size_t width);
  // What printf makes of it, cut to limit bytes.
  [[gnu::format(printf, 3, 0)]] void AddFormatted(size_t limit, const char* format, va_list arguments);

  size_t Size() const { return static_cast<size_t>(end_ - begin_); }
  std::string_view View() const { return {begin_, Size()}; }
  void CutTo(size_t size) { end_ = begin_ + size; }
  const char* Terminated() {
    *end_ = '\0';
    return begin_;
  }

 private:
  Text& AddCut(std::string_view part, size_t room);
  Text(char* begin, char* last) : begin_(begin), end_(begin), last_(last) {}
  // Up to the first conversion that is none of "%s", "%d" and "%ld", or whose text is null. Returns whether
  // there was none such.
  bool AddSimple(const char* format, va_list arguments);

  char* begin_;
  char* end_;
  char* last_;  // kept for the terminator
};

// Bytes of the longest line: a message, and 4,000 for what stands before it.
inline constexpr size_t LINE_SIZE = 104'000;
// Beyond what the kernel takes as a path, so that no cut one names another file.
inline constexpr size_t PATH_SIZE = 12'288;

// "FATAL" to "TRACE" for the levels 0 to 5, empty for any other.
std::string_view LevelTag(long level);

// Whether a text is made of ASCII alone and has no percent sign, as nearly all have: it is UTF-8 then, and
// its own print format.
bool IsPlain(std::string_view text);

// The message in UTF-8: as it is when it is valid, else converted from code page 949, else with a '?' for
// each byte of 0x80 and above.
std::string ToUtf8(std::string message);

// Bytes that a message may have, once it is UTF-8, in an ordinary line and in the hang log.
inline constexpr size_t MESSAGE_LIMIT = 100'000;
inline constexpr size_t HANG_LIMIT = 4000;

Second SecondOf(const std::tm& local);
// The lines up to their message, which is followed by "]\n".
void BeginOrdinaryLine(Text* line, const Second& second, long nanoseconds, long level, long channel,
                       const Place& place);
void BeginHangLine(Text* line, const Second& second, long nanoseconds);

// The text that printf would make of a line that is its own format and has no arguments: "%%" becomes "%",
// and every other conversion stands as it is, since there is nothing that it could print.
std::string AsPrintFormat(std::string_view line);

// "<folder>YYYYMMDD/".
void AddDatedFolder(Text* path, const char* folder, const Second& second);

// The file of an ordinary line ('A') or a hang line ('H'). The host stands in its name unless it is null.
void AddFileName(Text* path, char type, long channel, const Second& second, const char* host);

}  // namespace trace

#endif
