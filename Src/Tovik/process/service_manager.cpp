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
socklen_t managerAddressLength = 0;  // 0: there is none
int64_t managerWatchdogMs = 0;
int64_t managerPatienceSeconds = 0;

int SendToManager(const std::string& manager_message) {
  const base::UniqueFd managerSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!managerSocket.Valid()) return -1;
  ::setsockopt(managerSocket.Get(), SOL_SOCKET, SO_SNDTIMEO, &LONGEST_MANAGER_SEND,
               sizeof LONGEST_MANAGER_SEND);
  const auto* const manager_address = reinterpret_cast<const sockaddr*>(&managerAddress);
  return ::sendto(managerSocket.Get(), manager_message.data(), manager_message.size(), MSG_NOSIGNAL,
                  manager_address, managerAddressLength) < 0
             ? -1
             : 0;
}

}  // namespace

void TakeServiceManager() {
  const char* const manager_socket = std::getenv("NOTIFY_SOCKET");
  const char* const manager_patience = std::getenv("DUNRASTT_PATIENCE");
  if (manager_socket != nullptr) managerAddressLength = NotifyAddress(manager_socket, &managerAddress);
  managerWatchdogMs =
      ManagerWatchdogOf(std::getenv("WATCHDOG_USEC"), std::getenv("WATCHDOG_PID"), ::getpid());
  managerPatienceSeconds = manager_patience == nullptr ? 0 : base::LeadingNumber(manager_patience);
  for (const char* manager_variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID", "DUNRASTT_PATIENCE"})
    ::unsetenv(manager_variable);
}

bool HasServiceManager() {
  return managerAddressLength != 0;
}

void TellServiceManager(const std::string& manager_message) {
  if (!HasServiceManager() || SendToManager(manager_message) == 0) return;
  const int manager_error = errno;
  TRACE(TRACE_WARN, "the service manager could not be told \"%s\": %s", manager_message.c_str(),
        std::strerror(manager_error));
}

int64_t ManagerWatchdogMilliseconds() {
  return managerWatchdogMs;
}

int64_t ManagerPatienceSeconds() {
  return managerPatienceSeconds;
}

socklen_t NotifyAddress(const std::string& manager_socket, sockaddr_un* manager_address) {
  *manager_address = {};
  manager_address->sun_family = AF_UNIX;
  if (manager_socket.size() < 2 || manager_socket.size() >= sizeof manager_address->sun_path ||
      (manager_socket[0] != '/' && manager_socket[0] != '@'))
    return 0;
  std::memcpy(manager_address->sun_path, manager_socket.data(), manager_socket.size());
  const bool abstract_socket = manager_socket[0] == '@';
  if (abstract_socket) manager_address->sun_path[0] = '\0';
  // An abstract name is as long as it is; a path ends with its terminator.
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + manager_socket.size() +
                                (abstract_socket ? 0 : 1));
}

int64_t ManagerWatchdogOf(const char* watchdog_usec, const char* watchdog_pid, pid_t own_pid) {
  if (watchdog_usec == nullptr || (watchdog_pid != nullptr && base::LeadingNumber(watchdog_pid) != own_pid))
    return 0;
  const int64_t manager_watchdog_us = base::LeadingNumber(watchdog_usec);
  return manager_watchdog_us > 0 ? std::max<int64_t>(manager_watchdog_us / MICROSECONDS_PER_MILLISECOND, 1)
                                 : 0;
}
