// The transfer of a webhook: libcurl's easy interface at its defaults, but one that a stop can cut.
#ifndef TOVIK_ALARMS_WEBHOOK_POST_H
#define TOVIK_ALARMS_WEBHOOK_POST_H

#include <curl/curl.h>

#include <memory>

namespace alarms {

struct CurlCleanup {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using UniqueCurl = std::unique_ptr<CURL, CurlCleanup>;

// Called before and behind each transfer, by whoever wants to hear the service. Null unless somebody sets
// them.
struct PostWatch {
  void (*before)(CURL* handle) = nullptr;
  void (*behind)(CURL* handle, CURLcode code) = nullptr;
};
extern PostWatch postWatch;

// POSTs body, announced as application/json, to url with a fresh handle. CURLE_ABORTED_BY_CALLBACK when a
// stop cut it.
CURLcode PostJson(CURL* handle, const char* url, const char* body);

}  // namespace alarms

#endif
