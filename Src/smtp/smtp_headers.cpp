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
constexpr smtp_text_rule HEADER_ADDRESS_RULE{33, "<>", false, true};
constexpr smtp_text_rule HEADER_NAME_RULE{32, "\"", false, true};

bool ValidHeaderKey(const char* key) {
  return key != nullptr && *key != '\0' && HEADER_KEY_RULE.Allows(key);
}

bool ValidHeaderAddress(unsigned type, const char* email, const char* name) {
  if (type > SMTP_ADDRESS_BCC || email == nullptr || !HEADER_ADDRESS_RULE.Allows(email)) return false;
  return name == nullptr || HEADER_NAME_RULE.Allows(name);
}

struct HeaderKeyOrder {
  bool operator()(const smtp_header& a, std::string_view b) const { return a.key < b; }
  bool operator()(std::string_view a, const smtp_header& b) const { return a < b.key; }
};

}  // namespace

int smtp_header_add(smtp_session* session, const char* key, const char* value) {
  return smtp_guarded(session, [session, key, value] {
    const bool validHeader = ValidHeaderKey(key) && (value == nullptr || HEADER_VALUE_RULE.Allows(value));
    if (!validHeader) return smtp_status_code_set(session, SMTP_INVALID);
    auto& headers = session->headers;
    smtp_header header{key, {}};
    if (value != nullptr) header.value = value;
    const auto headerPlace =
        std::upper_bound(headers.begin(), headers.end(), std::string_view(header.key), HeaderKeyOrder{});
    headers.insert(headerPlace, std::move(header));
    return session->status;
  });
}

int smtp_header_exists(const smtp_session* session, const char* headerKey) {
  if (headerKey == nullptr) return 0;
  const auto& headers = session->headers;
  return static_cast<int>(
      std::binary_search(headers.begin(), headers.end(), std::string_view(headerKey), HeaderKeyOrder{}));
}

void smtp_header_clear_all(smtp_session* session) {
  session->headers.clear();
}

int smtp_address_add(smtp_session* session, unsigned type, const char* email, const char* name) {
  return smtp_guarded(session, [session, type, email, name] {
    if (!ValidHeaderAddress(type, email, name)) return smtp_status_code_set(session, SMTP_INVALID);
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
constexpr size_t MINIMUM_HEADER_WIDTH = 3;

// At most every byte becomes three.
int FoldedHeaderSize(const char* headerLine, size_t* foldedSize) {
  return static_cast<int>(smtp_si_mul_size_t(std::strlen(headerLine), HEADER_FOLD.size(), foldedSize) != 0 ||
                          smtp_si_add_size_t(*foldedSize, 1, foldedSize) != 0);
}

}  // namespace

size_t smtp_fold_whitespace_get_offset(const char* headerLine, size_t width) {
  const size_t foldLimit = (width < MINIMUM_HEADER_WIDTH ? MINIMUM_HEADER_WIDTH : width) - 2;
  size_t foldAt = 0;  // 0: nowhere yet; only blanks after a word count
  size_t at = std::strspn(headerLine, HEADER_BLANKS);
  while (true) {
    at += std::strcspn(headerLine + at, HEADER_BLANKS);
    if (headerLine[at] == '\0') return at < foldLimit || foldAt == 0 ? at : foldAt;
    at += std::strspn(headerLine + at, HEADER_BLANKS);
    const size_t headerBlank = at - 1;
    if (headerBlank >= foldLimit && foldAt != 0) return foldAt;
    foldAt = headerBlank;
  }
}

char* smtp_fold_whitespace(const char* headerLine, size_t width) {
  size_t foldedHeaderSize = 0;
  if (FoldedHeaderSize(headerLine, &foldedHeaderSize) != 0) return smtp_out_of_memory();
  auto* foldedHeader = static_cast<char*>(std::malloc(foldedHeaderSize));
  if (foldedHeader == nullptr) return nullptr;
  char* foldedEnd = foldedHeader;
  while (true) {
    const size_t foldAt = smtp_fold_whitespace_get_offset(headerLine, width);
    std::memcpy(foldedEnd, headerLine, foldAt);
    foldedEnd += foldAt;
    if (headerLine[foldAt] == '\0') break;
    foldedEnd = smtp_stpcpy(foldedEnd, HEADER_FOLD.data());
    headerLine += foldAt + 1;
  }
  *foldedEnd = '\0';
  return foldedHeader;
}

namespace {

constexpr std::array DATE_HEADER_DAYS = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array DATE_HEADER_MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int DATE_HEADER_LENGTH = 31;

bool IsDateHeaderIndex(int dateIndex, size_t dateNames) {
  return dateIndex >= 0 && static_cast<size_t>(dateIndex) < dateNames;
}

}  // namespace

int smtp_date_format(const tm& headerTime, long headerZone, char* date) {
  if (!IsDateHeaderIndex(headerTime.tm_wday, DATE_HEADER_DAYS.size()) ||
      !IsDateHeaderIndex(headerTime.tm_mon, DATE_HEADER_MONTHS.size()))
    return -1;
  std::array<char, DATE_HEADER_LENGTH + 1> dateHeader{};
  const int dateHeaderLength =
      std::snprintf(dateHeader.data(), dateHeader.size(), "%s, %02d %s %d %02d:%02d:%02d %0+5ld",
                    DATE_HEADER_DAYS[static_cast<size_t>(headerTime.tm_wday)], headerTime.tm_mday,
                    DATE_HEADER_MONTHS[static_cast<size_t>(headerTime.tm_mon)], headerTime.tm_year + 1900,
                    headerTime.tm_hour, headerTime.tm_min, headerTime.tm_sec, headerZone / 3600 * 100);
  if (dateHeaderLength != DATE_HEADER_LENGTH) return -1;
  std::memcpy(date, dateHeader.data(), dateHeader.size());
  return 0;
}

int smtp_date_rfc_2822(char* date) {
  const time_t headerNow = std::time(nullptr);
  tm headerLocal{};
  tm headerUtc{};
  if (headerNow == -1 || ::localtime_r(&headerNow, &headerLocal) == nullptr ||
      ::gmtime_r(&headerNow, &headerUtc) == nullptr)
    return -1;
  // Both times go to mktime unchanged, with their own tm_isdst. So the zone does not include summer time (see
  // the header).
  tm headerLocalAgain = headerLocal;
  const time_t headerZoneTime = std::mktime(&headerLocalAgain);
  const time_t headerUtcTime = std::mktime(&headerUtc);
  if (headerZoneTime == -1 || headerUtcTime == -1) return -1;
  return smtp_date_format(headerLocal, static_cast<long>(headerZoneTime - headerUtcTime), date);
}

int smtp_add_date(smtp_session* session) {
  if (smtp_header_exists(session, "Date") != 0) return session->status;
  std::array<char, 32> dateHeader{};
  if (smtp_date_rfc_2822(dateHeader.data()) != 0) return smtp_status_code_set(session, SMTP_DATE_FAILED);
  return smtp_header_add(session, "Date", dateHeader.data());
}

int smtp_print_headers(smtp_session* session) {
  smtp_append_address_to_header(session, SMTP_ADDRESS_FROM, "From");
  smtp_append_address_to_header(session, SMTP_ADDRESS_TO, "To");
  smtp_append_address_to_header(session, SMTP_ADDRESS_CC, "Cc");
  for (const smtp_header& header : session->headers) {
    if (session->status == SMTP_SUCCESS) smtp_print_header(session, header);
  }
  return session->status;
}
