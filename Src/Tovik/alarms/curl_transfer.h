// A transfer of libcurl that a stop can cut, for posts and for the mails of MAIL_URL.
#ifndef TOVIK_ALARMS_CURL_TRANSFER_H
#define TOVIK_ALARMS_CURL_TRANSFER_H

#include <curl/curl.h>

#include <memory>

// Initialises libcurl (curl_global_init(3)) and ignores SIGPIPE, which a broken TLS connection would raise.
// Call it once, before the first thread starts. Returns 0, or -1 on failure.
[[nodiscard]] int AlarmTransportInit();

namespace alarms {

struct CurlCleanup {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct ListFree {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using UniqueCurl = std::unique_ptr<CURL, CurlCleanup>;
using UniqueList = std::unique_ptr<curl_slist, ListFree>;

// Performs the handle's transfer as curl_easy_perform(3) does, without signals and with descriptors that no
// child inherits. Blocks as the handle's options allow. Returns CURLE_ABORTED_BY_CALLBACK when a stop cut it,
// which happens when the stop's grace is over.
CURLcode Transfer(CURL* handle);

// Limits connecting, and the whole transfer, to so many seconds. 0 leaves libcurl's defaults.
void LimitTransferTime(CURL* handle, long seconds);

}  // namespace alarms

#endif
