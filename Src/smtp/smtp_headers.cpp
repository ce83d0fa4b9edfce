#include "smtp/smtp_headers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/unique_handles.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_strings.h"
#include "smtp/smtp_write.h"

namespace {

constexpr size_t HEADER_WIDTH = 78;
constexpr smtp_text_rule HEADER_KEY_RULE{33, ":", false, false};
constexpr smtp_text_rule HEADER_VALUE_RULE{32, "", true, true};
constexpr smtp_text_rule ADDRESS_RULE{33, "<>", false, true};
constexpr smtp_text_rule DISPLAY_NAME_RULE{32, "\"", false, true};

bool ValidHeaderKey(const char* key) {
  return key != nullptr && *key != '\0' && HEADER_KEY_RULE.Allows(key);
}

struct HeaderKeyOrder {
  bool operator()(const smtp_header& a, std::string_view b) const { return a.key < b; }
  bool operator()(std::string_view a, const smtp_header& b) const { return a < b.key; }
};

}  // namespace

int smtp_header_add(smtp_session* session, const char* key, const char* value) {
  return smtp_guarded(session, [&] {
    if (!ValidHeaderKey(key) || (value != nullptr && !HEADER_VALUE_RULE.Allows(value))) {
      return smtp_status_code_set(session, SMTP_INVALID);
    }
    auto& headers = session->headers;
    smtp_header header{key, {}};
    if (value != nullptr) header.value = value;
    const auto headerPlace =
        std::upper_bound(headers.begin(), headers.end(), std::string_view(header.key), HeaderKeyOrder{});
    headers.insert(headerPlace, std::move(header));
    return session->status;
  });
}

int smtp_header_exists(const smtp_session* session, const char* key) {
  if (key == nullptr) return 0;
  const auto& headers = session->headers;
  return static_cast<int>(
      std::binary_search(headers.begin(), headers.end(), std::string_view(key), HeaderKeyOrder{}));
}

void smtp_header_clear_all(smtp_session* session) {
  session->headers.clear();
}

int smtp_address_add(smtp_session* session, unsigned type, const char* email, const char* name) {
  return smtp_guarded(session, [&] {
    if (type > SMTP_ADDRESS_BCC || email == nullptr || !ADDRESS_RULE.Allows(email) ||
        (name != nullptr && !DISPLAY_NAME_RULE.Allows(name))) {
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
  std::string headerValue;
  for (const smtp_address& address : session->addresses) {
    if (address.kind != kind) continue;
    if (!headerValue.empty()) headerValue += ", ";
    if (!address.name.empty()) headerValue += '"' + address.name + "\" ";
    headerValue += '<' + address.email + '>';
  }
  return headerValue.empty() ? session->status : smtp_header_add(session, key, headerValue.c_str());
}

int smtp_print_header(smtp_session* session, const smtp_header& header) {
  if (!header.value) return session->status;
  const base::UniqueText foldedHeader(
      smtp_fold_whitespace((header.key + ": " + *header.value).c_str(), HEADER_WIDTH));
  if (foldedHeader == nullptr) return smtp_status_code_set(session, SMTP_NO_MEMORY);
  return smtp_puts_terminate(session, foldedHeader.get());
}

namespace {

constexpr const char* HEADER_BLANKS = " \t";
constexpr std::string_view HEADER_FOLD = "\r\n ";
constexpr size_t MINIMUM_FOLD_WIDTH = 3;

// At most every byte becomes three.
int FoldedHeaderSize(const char* headerLine, size_t* foldedSize) {
  return static_cast<int>(smtp_si_mul_size_t(std::strlen(headerLine), HEADER_FOLD.size(), foldedSize) != 0 ||
                          smtp_si_add_size_t(*foldedSize, 1, foldedSize) != 0);
}

}  // namespace

size_t smtp_fold_whitespace_get_offset(const char* headerLine, size_t width) {
  const size_t foldLimit = (width < MINIMUM_FOLD_WIDTH ? MINIMUM_FOLD_WIDTH : width) - 2;
  size_t foldAt = 0;  // 0: nowhere yet; only blanks after a word count
  size_t at = std::strspn(headerLine, HEADER_BLANKS);
  while (true) {
    at += std::strcspn(headerLine + at, HEADER_BLANKS);
    if (headerLine[at] == '\0') return at < foldLimit || foldAt == 0 ? at : foldAt;
    at += std::strspn(headerLine + at, HEADER_BLANKS);
    const size_t lastBlank = at - 1;
    if (lastBlank >= foldLimit && foldAt != 0) return foldAt;
    foldAt = lastBlank;
  }
}

char* smtp_fold_whitespace(const char* headerLine, size_t width) {
  size_t foldedSize = 0;
  if (FoldedHeaderSize(headerLine, &foldedSize) != 0) return smtp_out_of_memory();
  auto* folded = static_cast<char*>(std::malloc(foldedSize));
  if (folded == nullptr) return nullptr;
  char* foldedEnd = folded;
  while (true) {
    const size_t foldAt = smtp_fold_whitespace_get_offset(headerLine, width);
    std::memcpy(foldedEnd, headerLine, foldAt);
    foldedEnd += foldAt;
    if (headerLine[foldAt] == '\0') break;
    foldedEnd = smtp_stpcpy(foldedEnd, HEADER_FOLD.data());
    headerLine += foldAt + 1;
  }
  *foldedEnd = '\0';
  return folded;
}

namespace {

constexpr std::array DAYS = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int DATE_LENGTH = 31;

bool IsDateIndex(int index, size_t names) {
  return index >= 0 && static_cast<size_t>(index) < names;
}

}  // namespace

int smtp_date_format(const tm& local, long zoneOffset, char* date) {
  if (!IsDateIndex(local.tm_wday, DAYS.size()) || !IsDateIndex(local.tm_mon, MONTHS.size())) return -1;
  std::array<char, DATE_LENGTH + 1> dateText{};
  const int length = std::snprintf(dateText.data(), dateText.size(), "%s, %02d %s %d %02d:%02d:%02d %0+5ld",
                                   DAYS[static_cast<size_t>(local.tm_wday)], local.tm_mday,
                                   MONTHS[static_cast<size_t>(local.tm_mon)], local.tm_year + 1900,
                                   local.tm_hour, local.tm_min, local.tm_sec, zoneOffset / 3600 * 100);
  if (length != DATE_LENGTH) return -1;
  std::memcpy(date, dateText.data(), dateText.size());
  return 0;
}

int smtp_date_rfc_2822(char* date) {
  const time_t now = std::time(nullptr);
  tm local{};
  tm utc{};
  if (now == -1 || ::localtime_r(&now, &local) == nullptr || ::gmtime_r(&now, &utc) == nullptr) return -1;
  // Both times go to mktime unchanged, with their own tm_isdst. So the zone does not include summer time (see
  // the header).
  tm localAgain = local;
  const time_t zoneTime = std::mktime(&localAgain);
  const time_t utcTime = std::mktime(&utc);
  if (zoneTime == -1 || utcTime == -1) return -1;
  return smtp_date_format(local, static_cast<long>(zoneTime - utcTime), date);
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
