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
int64_t managerWatchdogMs = 0;
int64_t managerPatienceSeconds = 0;

int SendToManager(const std::string& message) {
  const base::UniqueFd manager(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!manager.Valid()) return -1;
  ::setsockopt(manager.Get(), SOL_SOCKET, SO_SNDTIMEO, &LONGEST_MANAGER_SEND, sizeof LONGEST_MANAGER_SEND);
  const auto* const address = reinterpret_cast<const sockaddr*>(&managerAddress);
  return ::sendto(manager.Get(), message.data(), message.size(), MSG_NOSIGNAL, address, managerLength) < 0
             ? -1
             : 0;
}

}  // namespace

void TakeServiceManager() {
  const char* const notify_socket = std::getenv("NOTIFY_SOCKET");
  const char* const manager_patience = std::getenv("DUNRASTT_PATIENCE");
  if (notify_socket != nullptr) managerLength = NotifyAddress(notify_socket, &managerAddress);
  managerWatchdogMs =
      ManagerWatchdogOf(std::getenv("WATCHDOG_USEC"), std::getenv("WATCHDOG_PID"), ::getpid());
  managerPatienceSeconds = manager_patience == nullptr ? 0 : base::LeadingNumber(manager_patience);
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

int64_t ManagerWatchdogMilliseconds() {
  return managerWatchdogMs;
}

int64_t ManagerPatienceSeconds() {
  return managerPatienceSeconds;
}

socklen_t NotifyAddress(const std::string& notify_socket, sockaddr_un* address) {
  *address = {};
  address->sun_family = AF_UNIX;
  if (notify_socket.size() < 2 || notify_socket.size() >= sizeof address->sun_path ||
      (notify_socket[0] != '/' && notify_socket[0] != '@'))
    return 0;
  std::memcpy(address->sun_path, notify_socket.data(), notify_socket.size());
  const bool abstract = notify_socket[0] == '@';
  if (abstract) address->sun_path[0] = '\0';
  // An abstract name is as long as it is; a path ends with its terminator.
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + notify_socket.size() + (abstract ? 0 : 1));
}

int64_t ManagerWatchdogOf(const char* microseconds, const char* pid, pid_t own) {
  if (microseconds == nullptr || (pid != nullptr && base::LeadingNumber(pid) != own)) return 0;
  const int64_t watchdog_us = base::LeadingNumber(microseconds);
  return watchdog_us > 0 ? std::max<int64_t>(watchdog_us / MICROSECONDS_PER_MILLISECOND, 1) : 0;
}
