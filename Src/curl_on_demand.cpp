// libcurl as the tool has it: found at the first call. It brings thirty libraries along, which a look of
// `status`, made twice a minute on each host, would load for nothing: a third of its time and memory.
#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "ctl/exit_status.h"

namespace {

void* Must(void* found) {
  if (found == nullptr) {
    std::fprintf(stderr, "dunrasttctl: %s\n", ::dlerror());
    ::_exit(ctl::CANNOT_TELL);
  }
  return found;
}

void* Find(const char* name) {
  static void* const library = Must(::dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL));
  return Must(::dlsym(library, name));
}

// Constant in later versions.
template <typename Url>
Url UrlOf(CURLUcode (*)(Url, CURLUPart, char**, unsigned));
using UrlToRead = decltype(UrlOf(curl_url_get));

}  // namespace

// The real function of this name.
#define REAL(name)                                                          \
  static auto* const real = reinterpret_cast<decltype(name)*>(Find(#name)); \
  return real

// What follows the option is a long, a pointer or a curl_off_t.
static_assert(sizeof(long) == sizeof(void*) && sizeof(curl_off_t) == sizeof(void*));
#define REAL_WITH_VALUE(name, key)         \
  va_list list;                            \
  va_start(list, key);                     \
  void* const value = va_arg(list, void*); \
  va_end(list);                            \
  REAL(name)(handle, key, value)

#ifdef __clang__
#pragma clang diagnostic ignored "-Wvarargs"  // libcurl's own prototypes put an enum before the dots
#endif

extern "C" {

CURLcode curl_global_init(long flags) {
  REAL(curl_global_init)(flags);
}
void curl_free(void* text) {
  REAL(curl_free)(text);
}

CURL* curl_easy_init() {
  REAL(curl_easy_init)();
}
CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  REAL_WITH_VALUE(curl_easy_setopt, option);
}
CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
  REAL_WITH_VALUE(curl_easy_getinfo, info);
}
const char* curl_easy_strerror(CURLcode code) {
  REAL(curl_easy_strerror)(code);
}
void curl_easy_cleanup(CURL* handle) {
  REAL(curl_easy_cleanup)(handle);
}

CURLM* curl_multi_init() {
  REAL(curl_multi_init)();
}
CURLMcode curl_multi_add_handle(CURLM* multi, CURL* handle) {
  REAL(curl_multi_add_handle)(multi, handle);
}
CURLMcode curl_multi_remove_handle(CURLM* multi, CURL* handle) {
  REAL(curl_multi_remove_handle)(multi, handle);
}
CURLMcode curl_multi_perform(CURLM* multi, int* running) {
  REAL(curl_multi_perform)(multi, running);
}
CURLMcode curl_multi_poll(CURLM* multi, curl_waitfd* more, unsigned count, int limit, int* ready) {
  REAL(curl_multi_poll)(multi, more, count, limit, ready);
}
CURLMsg* curl_multi_info_read(CURLM* multi, int* left) {
  REAL(curl_multi_info_read)(multi, left);
}
CURLMcode curl_multi_cleanup(CURLM* multi) {
  REAL(curl_multi_cleanup)(multi);
}

curl_slist* curl_slist_append(curl_slist* list, const char* text) {
  REAL(curl_slist_append)(list, text);
}
void curl_slist_free_all(curl_slist* list) {
  REAL(curl_slist_free_all)(list);
}

curl_mime* curl_mime_init(CURL* handle) {
  REAL(curl_mime_init)(handle);
}
void curl_mime_free(curl_mime* mime) {
  REAL(curl_mime_free)(mime);
}
curl_mimepart* curl_mime_addpart(curl_mime* mime) {
  REAL(curl_mime_addpart)(mime);
}
CURLcode curl_mime_data(curl_mimepart* part, const char* data, size_t size) {
  REAL(curl_mime_data)(part, data, size);
}
CURLcode curl_mime_type(curl_mimepart* part, const char* type) {
  REAL(curl_mime_type)(part, type);
}
CURLcode curl_mime_encoder(curl_mimepart* part, const char* name) {
  REAL(curl_mime_encoder)(part, name);
}
CURLcode curl_mime_headers(curl_mimepart* part, curl_slist* headers, int owned) {
  REAL(curl_mime_headers)(part, headers, owned);
}

CURLU* curl_url() {
  REAL(curl_url)();
}
CURLUcode curl_url_set(CURLU* url, CURLUPart part, const char* text, unsigned flags) {
  REAL(curl_url_set)(url, part, text, flags);
}
CURLUcode curl_url_get(UrlToRead url, CURLUPart part, char** text, unsigned flags) {
  REAL(curl_url_get)(url, part, text, flags);
}
void curl_url_cleanup(CURLU* url) {
  REAL(curl_url_cleanup)(url);
}

}  // extern "C"
