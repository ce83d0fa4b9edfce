#include "base/resolve.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <optional>
#include <string>
#include <thread>

#include "base/stoppable_wait.h"
#include "base/unique_handles.h"

namespace base {
namespace {

addrinfo LookUpHints(int family, int protocol, int flags) {
  addrinfo hints{};
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = protocol;
  hints.ai_flags = flags;
  return hints;
}

int LookUp(const char* host, const char* service, const addrinfo& hints, AddressList* out) {
  addrinfo* list = nullptr;
  const int code = ::getaddrinfo(host, service, &hints, &list);
  if (code == 0) out->reset(list);
  return code;
}

// Shared by the asking thread and the thread that does the look-up. The last of them frees it.
struct LookUpRequest {
  std::optional<std::string> host;
  std::optional<std::string> service;
  addrinfo hints{};
  UniqueFd finished;
  std::atomic<bool> answered{false};  // set once the members below are
  int code = 0;
  int error = 0;
  AddressList list;

  void Answer() {
    code = LookUp(host ? host->c_str() : nullptr, service ? service->c_str() : nullptr, hints, &list);
    error = errno;
    answered.store(true, std::memory_order_release);
    ::eventfd_write(finished.Get(), 1);
  }
};

// Keeps signals away from the new thread: threads that outlive a look-up handle them.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &old_);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &old_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t old_{};
};

int LookUpFailed(int error) {
  errno = error;
  return EAI_SYSTEM;
}

int AskThread(const std::shared_ptr<LookUpRequest>& request, AddressList* out) {
  request->finished = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!request->finished.Valid()) return EAI_SYSTEM;
  {
    const SignalsBlocked blocked;
    std::thread([request] { request->Answer(); }).detach();
  }
  if (WaitDescriptor(request->finished.Get(), POLLIN, FOREVER) < 0) return EAI_SYSTEM;
  if (!request->answered.load(std::memory_order_acquire)) return LookUpFailed(EIO);
  *out = std::move(request->list);
  errno = request->error;
  return request->code;
}

}  // namespace

int Resolve(const char* host, const char* service, int family, int protocol, AddressList* out) {
  out->reset();
  const int figures =
      LookUp(host, service, LookUpHints(family, protocol, AI_NUMERICHOST | AI_NUMERICSERV), out);
  if (figures == 0) return 0;
  try {
    const auto request = std::make_shared<LookUpRequest>();
    if (host != nullptr) request->host = host;
    if (service != nullptr) request->service = service;
    request->hints = LookUpHints(family, protocol, 0);
    return AskThread(request, out);
  } catch (const std::bad_alloc&) {
    return EAI_MEMORY;
  } catch (const std::exception&) {
    return LookUpFailed(EAGAIN);
  }
}

}  // namespace base
