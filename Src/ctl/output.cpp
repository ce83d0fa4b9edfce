#include "ctl/output.h"

#include <iconv.h>
#include <langinfo.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "ctl/text.h"

namespace ctl {
namespace {

constexpr int SCHEMA = 1;
constexpr int COMPLAINT_WAIT_MS = 100;
constexpr size_t LONGEST_CHARACTER = 8;  // in any character set

bool OnTerminal() {
  static const bool terminal = ::isatty(STDOUT_FILENO) == 1;
  return terminal;
}

// The terminal's character set; null when it is UTF-8 or there is no terminal.
const char* OtherCharset() {
  std::setlocale(LC_CTYPE, "");
  const char* charset = ::nl_langinfo(CODESET);
  return std::strcmp(charset, "UTF-8") == 0 ? nullptr : charset;
}

class Converter {
 public:
  explicit Converter(const char* charset) : handle_(::iconv_open(charset, "UTF-8")) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (Valid()) ::iconv_close(handle_);
  }
  bool Valid() const { return handle_ != reinterpret_cast<iconv_t>(-1); }
  // One character; as many marks as it has columns where the set lacks it.
  std::string Convert(std::string_view character) const {
    char result[LONGEST_CHARACTER];
    std::string copy(character);
    char* in = copy.data();
    char* out = result;
    size_t inLeft = copy.size();
    size_t outLeft = sizeof result;
    if (!Valid() || ::iconv(handle_, &in, &inLeft, &out, &outLeft) != 0)
      return std::string(std::max<size_t>(DisplayWidth(character), 1), '?');
    return {result, sizeof result - outLeft};
  }

 private:
  iconv_t handle_;
};

// Keeps SIGPIPE from ending the program when nobody reads standard error. Restores the signal's state, as the
// command that runs after us inherits it.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() {
    sigemptyset(&broken_);
    sigaddset(&broken_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    pending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &broken_, &before_);
  }
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
  ~BrokenPipeGuard() {
    const timespec now{};
    while (!pending_ && sigtimedwait(&broken_, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t broken_{};
  sigset_t before_{};
  bool pending_ = false;
};

std::string InCharset(std::string_view text, const char* charset) {
  const Converter converter(charset);
  std::string result;
  for (size_t at = 0; at < text.size();) {
    const size_t start = at;
    const bool plain = NextCharacter(text, &at) < 0x80;
    const std::string_view character = text.substr(start, at - start);
    result += plain ? std::string(character) : converter.Convert(character);
  }
  return result;
}

}  // namespace

void Print(std::string_view text) {
  static const char* const charset = OnTerminal() ? OtherCharset() : nullptr;
  const std::string bytes = charset == nullptr ? std::string(text) : InCharset(text, charset);
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

void Complain(std::string_view text) {
  // In one write, as others may write there too.
  const std::string line = "dunrasttctl: " + std::string(text) + "\n";
  const BrokenPipeGuard guard;
  pollfd room = {STDERR_FILENO, POLLOUT, 0};
  if (::poll(&room, 1, COMPLAINT_WAIT_MS) != 1 || (room.revents & POLLOUT) == 0) return;
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

std::string Paint(Colour colour, std::string_view text) {
  static constexpr const char* CODES[] = {"31", "33", "32", "90"};
  const char* off = std::getenv("NO_COLOR");
  if (!OnTerminal() || (off != nullptr && *off != '\0')) return std::string(text);
  return std::string("\033[") + CODES[static_cast<int>(colour)] + "m" + std::string(text) + "\033[0m";
}

nlohmann::ordered_json JsonObject() {
  return {{"schema", SCHEMA}};
}

std::string JsonText(const nlohmann::ordered_json& json) {
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void PrintJson(const nlohmann::ordered_json& json) {
  const std::string line = JsonText(json) + "\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
}

}  // namespace ctl
