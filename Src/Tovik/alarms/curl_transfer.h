// A transfer of libcurl that a stop can cut, for posts and for the mails of MAIL_URL.
#ifndef TOVIK_ALARMS_CURL_TRANSFER_H
#define TOVIK_ALARMS_CURL_TRANSFER_H

#include <curl/curl.h>

#include <memory>
#include <string>

// Initialises libcurl (curl_global_init(3)) and ignores SIGPIPE, which a broken TLS connection would raise.
// Call it once, before the first thread starts. Returns 0, or -1 on failure.
[[nodiscard]] int AlarmTransportInit();

namespace alarms {

struct CurlCleanup {
  void operator()(CURL* transfer) const { curl_easy_cleanup(transfer); }
};
struct CurlListFree {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using UniqueCurl = std::unique_ptr<CURL, CurlCleanup>;
using UniqueCurlList = std::unique_ptr<curl_slist, CurlListFree>;

struct CurlMimeFree {
  void operator()(curl_mime* mime) const { curl_mime_free(mime); }
};
using UniqueCurlMime = std::unique_ptr<curl_mime, CurlMimeFree>;

// A list of libcurl. It throws std::bad_alloc when it cannot grow.
class CurlList {
 public:
  void Add(const std::string& curl_text);
  curl_slist* Get() const { return curl_list_.get(); }

 private:
  UniqueCurlList curl_list_;
};

// Performs the handle's transfer as curl_easy_perform(3) does, without signals and with descriptors that no
// child inherits. Blocks as the handle's options allow. Returns CURLE_ABORTED_BY_CALLBACK when a stop cut it,
// which happens when the stop's grace is over.
CURLcode Transfer(CURL* transfer);

// Limits connecting, and the whole transfer, to so many seconds. 0 leaves libcurl's defaults.
void LimitTransferTime(CURL* transfer, long seconds);

// Has hear called with what goes to and fro (CURLOPT_DEBUGFUNCTION(3)).
void HearTransfer(CURL* transfer, curl_debug_callback hear, void* user);
// Has watch called every second at least; it may end the transfer (CURLOPT_XFERINFOFUNCTION(3)).
void WatchTransfer(CURL* transfer, curl_xferinfo_callback watch, void* user);

}  // namespace alarms

#endif
