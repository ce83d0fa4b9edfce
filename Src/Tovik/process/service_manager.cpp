#include "Tovik/process/service_manager.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "Tovik/trace.h"
#include "base/number.h"
#include "base/unique_handles.h"

namespace {

constexpr timeval LONGEST_MANAGER_SEND{1, 0};
constexpr int64_t MICROSECONDS_PER_MILLISECOND = 1000;

sockaddr_un managerAddress;
socklen_t managerLength = 0;  // 0: there is none
int64_t watchdogMs = 0;
int64_t patienceSeconds = 0;

int SendToManager(const std::string& message) {
  const base::UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket.Valid()) return -1;
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &LONGEST_MANAGER_SEND, sizeof LONGEST_MANAGER_SEND);
  const auto* const to = reinterpret_cast<const sockaddr*>(&managerAddress);
  return ::sendto(socket.Get(), message.data(), message.size(), MSG_NOSIGNAL, to, managerLength) < 0 ? -1 : 0;
}

}  // namespace

void TakeServiceManager() {
  const char* const socket = std::getenv("NOTIFY_SOCKET");
  const char* const patience = std::getenv("DUNRASTT_PATIENCE");
  if (socket != nullptr) managerLength = NotifyAddress(socket, &managerAddress);
  watchdogMs = WatchdogOf(std::getenv("WATCHDOG_USEC"), std::getenv("WATCHDOG_PID"), ::getpid());
  patienceSeconds = patience == nullptr ? 0 : base::LeadingNumber(patience);
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID", "DUNRASTT_PATIENCE"})
    ::unsetenv(name);
}

bool HasServiceManager() {
  return managerLength != 0;
}

void TellServiceManager(const std::string& message) {
  if (!HasServiceManager() || SendToManager(message) == 0) return;
  const int error = errno;
  TRACE(TRACE_WARN, "the service manager could not be told \"%s\": %s", message.c_str(),
        std::strerror(error));
}

int64_t WatchdogMilliseconds() {
  return watchdogMs;
}

int64_t PatienceSeconds() {
  return patienceSeconds;
}

socklen_t NotifyAddress(const std::string& text, sockaddr_un* address) {
  *address = {};
  address->sun_family = AF_UNIX;
  if (text.size() < 2 || text.size() >= sizeof address->sun_path || (text[0] != '/' && text[0] != '@'))
    return 0;
  std::memcpy(address->sun_path, text.data(), text.size());
  const bool abstract = text[0] == '@';
  if (abstract) address->sun_path[0] = '\0';
  // An abstract name is as long as it is; a path ends with its terminator.
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size() + (abstract ? 0 : 1));
}

int64_t WatchdogOf(const char* microseconds, const char* pid, pid_t own) {
  if (microseconds == nullptr || (pid != nullptr && base::LeadingNumber(pid) != own)) return 0;
  const int64_t number = base::LeadingNumber(microseconds);
  return number > 0 ? std::max<int64_t>(number / MICROSECONDS_PER_MILLISECOND, 1) : 0;
}
