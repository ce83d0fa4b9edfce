#include "Tovik/alarms/curl_transfer.h"

#include <sys/socket.h>

#include <csignal>

#include "base/stoppable_wait.h"

namespace alarms {
namespace {

constexpr int POLL_MS = 100;  // between two looks at the stop

struct MultiCleanup {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
using UniqueMulti = std::unique_ptr<CURLM, MultiCleanup>;

// The handle's membership in the multi handle that drives it.
class Membership {
 public:
  Membership(CURLM* multi, CURL* handle)
      : multi_(multi), handle_(handle), code_(curl_multi_add_handle(multi, handle)) {}
  ~Membership() {
    if (code_ == CURLM_OK) curl_multi_remove_handle(multi_, handle_);
  }
  Membership(const Membership&) = delete;
  Membership& operator=(const Membership&) = delete;
  bool Holds() const { return code_ == CURLM_OK; }

 private:
  CURLM* multi_;
  CURL* handle_;
  CURLMcode code_;
};

curl_socket_t OpenCloseOnExec(void*, curlsocktype, curl_sockaddr* address) {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

CURLcode TransferResult(CURLM* multi) {
  int left = 0;
  const CURLMsg* message = curl_multi_info_read(multi, &left);
  return message != nullptr && message->msg == CURLMSG_DONE ? message->data.result : CURLE_FAILED_INIT;
}

// As curl_easy_perform(3), but looks for a stop between its waits.
CURLcode Perform(CURL* handle) {
  const UniqueMulti multi(curl_multi_init());
  if (multi == nullptr) return CURLE_OUT_OF_MEMORY;
  const Membership membership(multi.get(), handle);
  if (!membership.Holds()) return CURLE_FAILED_INIT;
  while (true) {
    int running = 0;
    if (curl_multi_perform(multi.get(), &running) != CURLM_OK) return CURLE_FAILED_INIT;
    if (running == 0) return TransferResult(multi.get());
    if (base::StopGraceOver()) return CURLE_ABORTED_BY_CALLBACK;
    if (curl_multi_poll(multi.get(), nullptr, 0, POLL_MS, nullptr) != CURLM_OK) return CURLE_FAILED_INIT;
  }
}

}  // namespace

CURLcode Transfer(CURL* handle) {
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  // A transfer that gives up must not wait for a silent name server.
  curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(handle, CURLOPT_OPENSOCKETFUNCTION, OpenCloseOnExec);
  return Perform(handle);
}

void LimitTransferTime(CURL* handle, long seconds) {
  if (seconds == 0) return;
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, seconds);
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, seconds);
}

}  // namespace alarms

int AlarmTransportInit() {
  if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) return -1;
  return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK ? 0 : -1;
}
