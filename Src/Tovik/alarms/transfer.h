// A transfer of libcurl that a stop can cut, for posts and mails alike.
#ifndef TOVIK_ALARMS_TRANSFER_H
#define TOVIK_ALARMS_TRANSFER_H

#include <curl/curl.h>

#include <memory>

namespace alarms {

struct CurlCleanup {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct ListFree {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using UniqueCurl = std::unique_ptr<CURL, CurlCleanup>;
using UniqueList = std::unique_ptr<curl_slist, ListFree>;

// curl_easy_perform(3) of a handle with its own options, no signals, and descriptors that no child inherits.
// CURLE_ABORTED_BY_CALLBACK when a stop cut it, once the stop's grace is over.
CURLcode Transfer(CURL* handle);

// Gives up connecting, and the whole transfer, after so many seconds; 0: libcurl's defaults.
void LimitTime(CURL* handle, long seconds);

}  // namespace alarms

#endif
