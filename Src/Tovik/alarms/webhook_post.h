// The transfer of a webhook, with libcurl's defaults but for WEBHOOK_TIMEOUT.
#ifndef TOVIK_ALARMS_WEBHOOK_POST_H
#define TOVIK_ALARMS_WEBHOOK_POST_H

#include <string>

#include "Tovik/alarms/transfer.h"

namespace alarms {

// What the service said to a post.
struct Answer {
  long status = 0;
  std::string body;  // its first 1,000 bytes
};

// Hooks called before and after each transfer, for a program that wants to hear the service. Null by default.
struct PostWatch {
  void (*before)(CURL* handle) = nullptr;
  void (*behind)(CURL* handle, CURLcode code) = nullptr;
};
extern PostWatch postWatch;

// POSTs body as application/json to url with a fresh handle. Gives up after so many seconds; 0 leaves
// libcurl's defaults. The answer goes to *answer or, when that is null, its body to standard output. Returns
// CURLE_ABORTED_BY_CALLBACK when a stop cut it.
CURLcode PostJson(CURL* handle, const char* url, const char* body, long seconds, Answer* answer);

}  // namespace alarms

#endif
