#include "Tovik/alarms/curl_transfer.h"

#include <sys/socket.h>

#include <csignal>
#include <new>

#include "base/stoppable_wait.h"

namespace alarms {
namespace {

constexpr int TRANSFER_POLL_MS = 100;  // between two looks at the stop

struct CurlMultiCleanup {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
using UniqueCurlMulti = std::unique_ptr<CURLM, CurlMultiCleanup>;

// A transfer's membership in the multi handle that drives it.
class TransferMembership {
 public:
  TransferMembership(CURLM* multi, CURL* transfer)
      : multi_(multi), transfer_(transfer), code_(curl_multi_add_handle(multi, transfer)) {}
  ~TransferMembership() {
    if (code_ == CURLM_OK) curl_multi_remove_handle(multi_, transfer_);
  }
  TransferMembership(const TransferMembership&) = delete;
  TransferMembership& operator=(const TransferMembership&) = delete;
  bool Holds() const { return code_ == CURLM_OK; }

 private:
  CURLM* multi_;
  CURL* transfer_;
  CURLMcode code_;
};

curl_socket_t OpenTransferSocket(void*, curlsocktype, curl_sockaddr* transfer_address) {
  return ::socket(transfer_address->family, transfer_address->socktype | SOCK_CLOEXEC,
                  transfer_address->protocol);
}

CURLcode TransferResult(CURLM* multi) {
  int messages_left = 0;
  const CURLMsg* transfer_message = curl_multi_info_read(multi, &messages_left);
  return transfer_message != nullptr && transfer_message->msg == CURLMSG_DONE ? transfer_message->data.result
                                                                              : CURLE_FAILED_INIT;
}

// As curl_easy_perform(3), but looks for a stop between its waits.
CURLcode PerformTransfer(CURL* transfer) {
  const UniqueCurlMulti multi(curl_multi_init());
  if (multi == nullptr) return CURLE_OUT_OF_MEMORY;
  const TransferMembership transfer_membership(multi.get(), transfer);
  if (!transfer_membership.Holds()) return CURLE_FAILED_INIT;
  while (true) {
    int transfers_running = 0;
    if (curl_multi_perform(multi.get(), &transfers_running) != CURLM_OK) return CURLE_FAILED_INIT;
    if (transfers_running == 0) return TransferResult(multi.get());
    if (base::StopGraceOver()) return CURLE_ABORTED_BY_CALLBACK;
    if (curl_multi_poll(multi.get(), nullptr, 0, TRANSFER_POLL_MS, nullptr) != CURLM_OK)
      return CURLE_FAILED_INIT;
  }
}

}  // namespace

CURLcode Transfer(CURL* transfer) {
  curl_easy_setopt(transfer, CURLOPT_NOSIGNAL, 1L);
  // A transfer that gives up must not wait for a silent name server.
  curl_easy_setopt(transfer, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(transfer, CURLOPT_OPENSOCKETFUNCTION, OpenTransferSocket);
  return PerformTransfer(transfer);
}

void LimitTransferTime(CURL* transfer, long transfer_seconds) {
  if (transfer_seconds == 0) return;
  curl_easy_setopt(transfer, CURLOPT_CONNECTTIMEOUT, transfer_seconds);
  curl_easy_setopt(transfer, CURLOPT_TIMEOUT, transfer_seconds);
}

void HearTransfer(CURL* transfer, curl_debug_callback hear, void* user) {
  curl_easy_setopt(transfer, CURLOPT_VERBOSE, 1L);
  curl_easy_setopt(transfer, CURLOPT_DEBUGFUNCTION, hear);
  curl_easy_setopt(transfer, CURLOPT_DEBUGDATA, user);
}

void WatchTransfer(CURL* transfer, curl_xferinfo_callback watch, void* user) {
  curl_easy_setopt(transfer, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(transfer, CURLOPT_XFERINFOFUNCTION, watch);
  curl_easy_setopt(transfer, CURLOPT_XFERINFODATA, user);
}

void CurlList::Add(const std::string& curl_text) {
  curl_slist* const longer_curl_list = curl_slist_append(curl_list_.get(), curl_text.c_str());
  if (longer_curl_list == nullptr) throw std::bad_alloc();
  static_cast<void>(curl_list_.release());
  curl_list_.reset(longer_curl_list);
}

}  // namespace alarms

int AlarmTransportInit() {
  if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) return -1;
  return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK ? 0 : -1;
}
