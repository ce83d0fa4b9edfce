// The transfer of a webhook, with libcurl's defaults but for WEBHOOK_TIMEOUT.
#ifndef TOVIK_ALARMS_WEBHOOK_POST_H
#define TOVIK_ALARMS_WEBHOOK_POST_H

#include <string>

#include "Tovik/alarms/transfer.h"

namespace alarms {

// What the service said to a post.
struct Answer {
  long status = 0;
  std::string body;      // its beginning
  bool printed = false;  // asked for: all of it goes to standard output, too
};

// Hooks called before and after each transfer, for a program that wants to hear the service. Null by default.
struct PostWatch {
  void (*before)(CURL* handle) = nullptr;
  void (*behind)(CURL* handle, CURLcode code) = nullptr;
};
extern PostWatch postWatch;

// POSTs body, announced as application/json, to url with a fresh handle, and gives up after so many seconds
// (0: as libcurl does). The answer's body goes to *answer where there is one; without, or when *answer asks
// for it, to standard output. CURLE_ABORTED_BY_CALLBACK when a stop cut it.
CURLcode PostJson(CURL* handle, const char* url, const char* body, long seconds, Answer* answer);

}  // namespace alarms

#endif
