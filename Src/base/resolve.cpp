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
  addrinfo lookup_hints{};
  lookup_hints.ai_family = family;
  lookup_hints.ai_socktype = SOCK_STREAM;
  lookup_hints.ai_protocol = protocol;
  lookup_hints.ai_flags = flags;
  return lookup_hints;
}

int LookUp(const char* host, const char* service, const addrinfo& lookup_hints, AddressList* addresses_out) {
  addrinfo* addresses = nullptr;
  const int lookup_code = ::getaddrinfo(host, service, &lookup_hints, &addresses);
  if (lookup_code == 0) addresses_out->reset(addresses);
  return lookup_code;
}

// Shared by the asking thread and the thread that does the look-up. The last of them frees it.
struct LookUpRequest {
  std::optional<std::string> host;
  std::optional<std::string> service;
  addrinfo lookup_hints{};
  UniqueFd lookup_finished;
  std::atomic<bool> lookup_answered{false};  // set once the members below are
  int lookup_code = 0;
  int lookup_errno = 0;
  AddressList addresses;

  void Answer() {
    lookup_code = LookUp(host ? host->c_str() : nullptr, service ? service->c_str() : nullptr, lookup_hints,
                         &addresses);
    lookup_errno = errno;
    lookup_answered.store(true, std::memory_order_release);
    ::eventfd_write(lookup_finished.Get(), 1);
  }
};

// Keeps signals away from the new thread: threads that outlive a look-up handle them.
class LookUpSignalsBlocked {
 public:
  LookUpSignalsBlocked() {
    sigset_t lookup_mask;
    sigfillset(&lookup_mask);
    ::pthread_sigmask(SIG_SETMASK, &lookup_mask, &asker_mask_);
  }
  ~LookUpSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &asker_mask_, nullptr); }
  LookUpSignalsBlocked(const LookUpSignalsBlocked&) = delete;
  LookUpSignalsBlocked& operator=(const LookUpSignalsBlocked&) = delete;

 private:
  sigset_t asker_mask_{};
};

int LookUpFailed(int lookup_error) {
  errno = lookup_error;
  return EAI_SYSTEM;
}

int AskLookUpThread(const std::shared_ptr<LookUpRequest>& lookup_request, AddressList* addresses_out) {
  lookup_request->lookup_finished = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!lookup_request->lookup_finished.Valid()) return EAI_SYSTEM;
  {
    const LookUpSignalsBlocked blocked;
    std::thread([lookup_request] { lookup_request->Answer(); }).detach();
  }
  if (WaitDescriptor(lookup_request->lookup_finished.Get(), POLLIN, FOREVER) < 0) return EAI_SYSTEM;
  if (!lookup_request->lookup_answered.load(std::memory_order_acquire)) return LookUpFailed(EIO);
  *addresses_out = std::move(lookup_request->addresses);
  errno = lookup_request->lookup_errno;
  return lookup_request->lookup_code;
}

}  // namespace

int Resolve(const char* host, const char* service, int family, int protocol, AddressList* addresses_out) {
  addresses_out->reset();
  const int numeric_lookup =
      LookUp(host, service, LookUpHints(family, protocol, AI_NUMERICHOST | AI_NUMERICSERV), addresses_out);
  if (numeric_lookup == 0) return 0;
  try {
    const auto lookup_request = std::make_shared<LookUpRequest>();
    if (host != nullptr) lookup_request->host = host;
    if (service != nullptr) lookup_request->service = service;
    lookup_request->lookup_hints = LookUpHints(family, protocol, 0);
    return AskLookUpThread(lookup_request, addresses_out);
  } catch (const std::bad_alloc&) {
    return EAI_MEMORY;
  } catch (const std::exception&) {
    return LookUpFailed(EAGAIN);
  }
}

}  // namespace base
