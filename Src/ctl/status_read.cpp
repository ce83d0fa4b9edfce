#include "ctl/status_read.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <ctime>

#include "base/format.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr size_t NETSTAT_LIMIT = 65536;
constexpr timespec BETWEEN_LOOKS = {0, 500'000'000};

std::string Host() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string_view NextWord(std::string_view* line) {
  const size_t begin = std::min(line->find_first_not_of(' '), line->size());
  line->remove_prefix(begin);
  const std::string_view word = line->substr(0, line->find(' '));
  line->remove_prefix(word.size());
  return word;
}

// The counter of this name in /proc/net/netstat, which has a line of names and below it a line of numbers.
std::optional<uint64_t> NetCounter(std::string_view text, std::string_view prefix, std::string_view name) {
  const size_t at = text.find(prefix);
  if (at == text.npos) return std::nullopt;
  const size_t names_end = text.find('\n', at);
  if (names_end == text.npos) return std::nullopt;
  std::string_view names = text.substr(at, names_end - at);
  std::string_view numbers = text.substr(names_end + 1);
  numbers = numbers.substr(0, numbers.find('\n'));
  while (true) {
    const std::string_view one = NextWord(&names);
    const std::string_view number = NextWord(&numbers);
    if (one.empty() || number.empty()) return std::nullopt;
    uint64_t value = 0;
    if (one == name && std::from_chars(number.data(), number.data() + number.size(), value).ec == std::errc())
      return value;
  }
}

}  // namespace

void SeePort(bool second_look, Picture* picture) {
  const int64_t port = picture->config->port;
  if (port <= 0 || port > UINT16_MAX) {
    picture->not_known.push_back({"the engine's port", "ASR_PORT is " + std::to_string(port)});
    return;
  }
  auto& seen = picture->port;
  seen.queue = ReadAcceptQueue(static_cast<uint16_t>(port));
  if (!seen.queue)
    picture->not_known.push_back(
        {"port " + std::to_string(port), "the kernel's list of listeners is closed"});
  const auto text = ReadSmallFile("/proc/net/netstat", NETSTAT_LIMIT);
  if (text) seen.overflows = NetCounter(*text, "TcpExt:", "ListenOverflows");
  if (!second_look || !seen.queue || seen.queue->waiting == 0) return;
  ::nanosleep(&BETWEEN_LOOKS, nullptr);
  const auto later = ReadAcceptQueue(static_cast<uint16_t>(port));
  if (later && later->listening) seen.second_look = later->waiting;
}

void ReadPicture(const std::string& config, bool second_look, SharedPicture* shared) {
  const Moment now = Now();
  Picture picture;
  picture.time = now.wall;
  picture.host = Host();
  shared->Store(picture, "the configuration");
  std::string complaint;
  picture.config = FindAgentConfig(config, &complaint);
  if (!picture.config) {
    picture.not_known.push_back({"the configuration", complaint});
    shared->Store(picture, "");
    return;
  }
  shared->Store(picture, "the processes");
  SeeProcesses(now, &picture);
  shared->Store(picture, "the port");
  SeePort(second_look, &picture);
  shared->Store(picture, "the logs");
  SeeLogs(&picture);
  shared->Store(picture, "the record of starts");
  SeeRecord(now, &picture);
  shared->Store(picture, "");
}

}  // namespace ctl
