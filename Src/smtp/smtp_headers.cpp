#include "smtp/smtp_headers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/unique_handles.h"
#include "smtp/smtp_session.h"
#include "smtp/smtp_strings.h"
#include "smtp/smtp_write.h"

namespace {

constexpr size_t HEADER_WIDTH = 78;
constexpr smtp_text_rule HEADER_KEY{33, ":", false, false};
constexpr smtp_text_rule HEADER_VALUE{32, "", true, true};
constexpr smtp_text_rule ADDRESS{33, "<>", false, true};
constexpr smtp_text_rule DISPLAY_NAME{32, "\"", false, true};

bool ValidHeaderKey(const char* key) {
  return key != nullptr && *key != '\0' && HEADER_KEY.Allows(key);
}

struct HeaderOrder {
  bool operator()(const smtp_header& a, std::string_view b) const { return a.key < b; }
  bool operator()(std::string_view a, const smtp_header& b) const { return a < b.key; }
};

}  // namespace

int smtp_header_add(smtp_session* session, const char* key, const char* value) {
  return smtp_guarded(session, [&] {
    if (!ValidHeaderKey(key) || (value != nullptr && !HEADER_VALUE.Allows(value))) {
      return smtp_status_code_set(session, SMTP_INVALID);
    }
    auto& headers = session->headers;
    smtp_header header{key, {}};
    if (value != nullptr) header.value = value;
    const auto place =
        std::upper_bound(headers.begin(), headers.end(), std::string_view(header.key), HeaderOrder{});
    headers.insert(place, std::move(header));
    return session->status;
  });
}

int smtp_header_exists(const smtp_session* session, const char* key) {
  if (key == nullptr) return 0;
  const auto& headers = session->headers;
  return static_cast<int>(
      std::binary_search(headers.begin(), headers.end(), std::string_view(key), HeaderOrder{}));
}

void smtp_header_clear_all(smtp_session* session) {
  session->headers.clear();
}

int smtp_address_add(smtp_session* session, unsigned type, const char* email, const char* name) {
  return smtp_guarded(session, [&] {
    if (type > SMTP_ADDRESS_BCC || email == nullptr || !ADDRESS.Allows(email) ||
        (name != nullptr && !DISPLAY_NAME.Allows(name))) {
      return smtp_status_code_set(session, SMTP_INVALID);
    }
    session->addresses.push_back({type, email, name != nullptr ? name : ""});
    return session->status;
  });
}

void smtp_address_clear_all(smtp_session* session) {
  session->addresses.clear();
}

int smtp_append_address_to_header(smtp_session* session, unsigned kind, const char* key) {
  std::string value;
  for (const smtp_address& address : session->addresses) {
    if (address.kind != kind) continue;
    if (!value.empty()) value += ", ";
    if (!address.name.empty()) value += '"' + address.name + "\" ";
    value += '<' + address.email + '>';
  }
  return value.empty() ? session->status : smtp_header_add(session, key, value.c_str());
}

int smtp_print_header(smtp_session* session, const smtp_header& header) {
  if (!header.value) return session->status;
  const base::UniqueText folded(
      smtp_fold_whitespace((header.key + ": " + *header.value).c_str(), HEADER_WIDTH));
  if (folded == nullptr) return smtp_status_code_set(session, SMTP_NO_MEMORY);
  return smtp_puts_terminate(session, folded.get());
}

namespace {

constexpr const char* HEADER_BLANKS = " \t";
constexpr std::string_view HEADER_FOLD = "\r\n ";
constexpr size_t MINIMUM_FOLD_WIDTH = 3;

// At most every byte becomes three.
int FoldedHeaderSize(const char* line, size_t* size) {
  return static_cast<int>(smtp_si_mul_size_t(std::strlen(line), HEADER_FOLD.size(), size) != 0 ||
                          smtp_si_add_size_t(*size, 1, size) != 0);
}

}  // namespace

size_t smtp_fold_whitespace_get_offset(const char* line, size_t width) {
  const size_t limit = (width < MINIMUM_FOLD_WIDTH ? MINIMUM_FOLD_WIDTH : width) - 2;
  size_t candidate = 0;  // 0: none yet; only blanks after a word count
  size_t at = std::strspn(line, HEADER_BLANKS);
  while (true) {
    at += std::strcspn(line + at, HEADER_BLANKS);
    if (line[at] == '\0') return at < limit || candidate == 0 ? at : candidate;
    at += std::strspn(line + at, HEADER_BLANKS);
    const size_t blank = at - 1;
    if (blank >= limit && candidate != 0) return candidate;
    candidate = blank;
  }
}

char* smtp_fold_whitespace(const char* line, size_t width) {
  size_t size = 0;
  if (FoldedHeaderSize(line, &size) != 0) {
    errno = ENOMEM;
    return nullptr;
  }
  auto* result = static_cast<char*>(std::malloc(size));
  if (result == nullptr) return nullptr;
  char* out = result;
  while (true) {
    const size_t length = smtp_fold_whitespace_get_offset(line, width);
    std::memcpy(out, line, length);
    out += length;
    if (line[length] == '\0') break;
    out = smtp_stpcpy(out, HEADER_FOLD.data());
    line += length + 1;
  }
  *out = '\0';
  return result;
}

namespace {

constexpr std::array DAYS = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int DATE_LENGTH = 31;

bool IsIndex(int index, size_t size) {
  return index >= 0 && static_cast<size_t>(index) < size;
}

}  // namespace

int smtp_date_format(const tm& local, long offset, char* destination) {
  if (!IsIndex(local.tm_wday, DAYS.size()) || !IsIndex(local.tm_mon, MONTHS.size())) return -1;
  std::array<char, DATE_LENGTH + 1> text{};
  const int length = std::snprintf(text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d %0+5ld",
                                   DAYS[static_cast<size_t>(local.tm_wday)], local.tm_mday,
                                   MONTHS[static_cast<size_t>(local.tm_mon)], local.tm_year + 1900,
                                   local.tm_hour, local.tm_min, local.tm_sec, offset / 3600 * 100);
  if (length != DATE_LENGTH) return -1;
  std::memcpy(destination, text.data(), text.size());
  return 0;
}

int smtp_date_rfc_2822(char* destination) {
  const time_t now = std::time(nullptr);
  tm local{};
  tm utc{};
  if (now == -1 || ::localtime_r(&now, &local) == nullptr || ::gmtime_r(&now, &utc) == nullptr) return -1;
  // Both times go to mktime unchanged, with their own tm_isdst. So the zone does not include summer time (see
  // the header).
  tm localAgain = local;
  const time_t here = std::mktime(&localAgain);
  const time_t there = std::mktime(&utc);
  if (here == -1 || there == -1) return -1;
  return smtp_date_format(local, static_cast<long>(here - there), destination);
}

int smtp_add_date(smtp_session* session) {
  if (smtp_header_exists(session, "Date") != 0) return session->status;
  std::array<char, 32> date{};
  if (smtp_date_rfc_2822(date.data()) != 0) return smtp_status_code_set(session, SMTP_DATE_FAILED);
  return smtp_header_add(session, "Date", date.data());
}

int smtp_print_headers(smtp_session* session) {
  smtp_append_address_to_header(session, SMTP_ADDRESS_FROM, "From");
  smtp_append_address_to_header(session, SMTP_ADDRESS_TO, "To");
  smtp_append_address_to_header(session, SMTP_ADDRESS_CC, "Cc");
  for (const smtp_header& header : session->headers) {
    if (session->status != SMTP_SUCCESS) break;
    smtp_print_header(session, header);
  }
  return session->status;
}
