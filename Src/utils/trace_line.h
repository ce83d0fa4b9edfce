// Builds trace lines. Pure functions of texts and of a time.
#ifndef UTILS_TRACE_LINE_H
#define UTILS_TRACE_LINE_H

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

inline constexpr long TRACE_FATAL = 0;
inline constexpr long TRACE_ERROR = 1;
inline constexpr long TRACE_WARN = 2;
inline constexpr long TRACE_INFO = 3;
inline constexpr long TRACE_DEBUG = 4;
inline constexpr long TRACE_TRACE = 5;

inline constexpr char TRACE_ORDINARY = 'A';
inline constexpr char TRACE_HANG = 'H';
inline constexpr long TRACE_MAIN_CHANNEL = -1;

namespace trace {

// One second of local time, as text for lines and for the paths of their files.
struct TraceSecond {
  char stamp[sizeof "[YYYY/MM/DD hh:mm:ss:"];
  char day[sizeof "YYYYMMDD"];
};

// The source location that a line names.
struct TracePlace {
  const char* file;
  const char* function;
  int line;
};

// A text in a borrowed buffer of fixed size. Whatever does not fit is cut.
class TraceText {
 public:
  template <size_t Size>
  explicit TraceText(char (&buffer)[Size]) : TraceText(buffer, buffer + Size - 1) {}

  TraceText& Add(std::string_view traced) {
    if (traced.size() > Room()) return AddCut(traced, Room());
    std::memcpy(traceEnd_, traced.data(), traced.size());
    traceEnd_ += traced.size();
    return *this;
  }
  // Adds a number as printf's "%0<width>ld" does.
  TraceText& AddNumber(long traceNumber, size_t width);
  // Adds what printf makes of it, cut to traceLimit bytes.
  [[gnu::format(printf, 3, 0)]] void AddFormatted(size_t traceLimit, const char* traceFormat,
                                                  va_list traceArguments);

  size_t Size() const { return static_cast<size_t>(traceEnd_ - traceBegin_); }
  std::string_view View() const { return {traceBegin_, Size()}; }
  void CutTo(size_t size) { traceEnd_ = traceBegin_ + size; }
  const char* Terminated() {
    *traceEnd_ = '\0';
    return traceBegin_;
  }

 private:
  size_t Room() const { return static_cast<size_t>(traceLast_ - traceEnd_); }
  TraceText& AddCut(std::string_view traced, size_t room);
  TraceText(char* begin, char* last) : traceBegin_(begin), traceEnd_(begin), traceLast_(last) {}
  // Formats up to the first conversion other than "%s", "%d" and "%ld", or up to a null text. Returns whether
  // it got to the end of the format.
  bool AddSimplyFormatted(const char* traceFormat, va_list traceArguments);

  char* traceBegin_;
  char* traceEnd_;
  char* traceLast_;  // the buffer's last byte, kept for the terminator
};

// The size of the line buffer: the longest message, and 4,000 bytes for what comes before it.
inline constexpr size_t TRACE_LINE_SIZE = 104'000;

// "FATAL" to "TRACE" for the levels 0 to 5, an empty text for any other.
std::string_view TraceLevelTag(long level);

// Whether a message is pure ASCII without a percent sign, as most are. Such a message is valid UTF-8 and can
// be its own printf format.
bool IsPlainMessage(std::string_view traceMessage);

// Returns the message in UTF-8: unchanged when it is valid UTF-8, else converted from code page 949, else
// with '?' for each byte of 0x80 and above.
std::string MessageToUtf8(std::string traceMessage);

// The longest message in an ordinary line and in a line of the hang log, in bytes of UTF-8.
inline constexpr size_t TRACE_MESSAGE_LIMIT = 100'000;
inline constexpr size_t HANG_LINE_MESSAGE_LIMIT = 4000;

TraceSecond TraceSecondOf(const std::tm& local);
// Begin a line, up to its message. The message and "]\n" follow.
void BeginOrdinaryLine(TraceText* traceLine, const TraceSecond& second, long nanoseconds, long level,
                       long channel, const TracePlace& place);
void BeginHangLine(TraceText* traceLine, const TraceSecond& second, long nanoseconds);

// Returns what printf would make of a line that is its own format and has no arguments: "%%" becomes "%"; any
// other conversion stays as it is, because there is no argument to print.
std::string AsPrintFormat(std::string_view traceLine);

}  // namespace trace

#endif
