#include "Tovik/alarms/webhook_post.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace alarms {
namespace {

constexpr size_t KEPT = 1000;            // of an answer
constexpr size_t TAKEN = 1024UL * 1024;  // a longer answer ends the transfer

struct Taker {
  Answer* answer;
  size_t taken = 0;
};

size_t Take(const char* data, size_t, size_t size, void* user) try {
  auto* const taker = static_cast<Taker*>(user);
  taker->taken += size;
  std::string& body = taker->answer->body;
  body.append(data, std::min(size, KEPT - body.size()));
  if (taker->answer->printed) return std::fwrite(data, 1, size, stdout);
  return taker->taken <= TAKEN ? size : 0;
} catch (const std::bad_alloc&) {
  // Without memory for its words an answer is printed all the same.
  const bool printed = static_cast<Taker*>(user)->answer->printed;
  return printed ? std::fwrite(data, 1, size, stdout) : 0;
}

}  // namespace

PostWatch postWatch;

CURLcode PostJson(CURL* handle, const char* url, const char* body, long seconds, Answer* answer) {
  const UniqueList headers(curl_slist_append(nullptr, "Content-Type: application/json"));
  if (headers == nullptr) return CURLE_OUT_OF_MEMORY;
  curl_easy_setopt(handle, CURLOPT_URL, url);
  curl_easy_setopt(handle, CURLOPT_POST, 1L);
  curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
  LimitTime(handle, seconds);
  Taker taker{answer};
  if (answer != nullptr) {
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, Take);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &taker);
  }
  if (postWatch.before != nullptr) postWatch.before(handle);
  const CURLcode code = Transfer(handle);
  if (postWatch.behind != nullptr) postWatch.behind(handle, code);
  if (answer != nullptr) curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &answer->status);
  return code;
}

}  // namespace alarms
