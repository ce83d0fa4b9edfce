// The parts of a mail (headers, addresses, attachments) and the rules for their texts.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "smtp/smtp_base64_lines.h"
#include "smtp/smtp_internal.h"

namespace {

// A text may contain no byte below lowest, no 127 and none of refused. Line breaks are below every lowest.
struct TextRule {
  unsigned char lowest;
  std::string_view refused;
  bool tab;
  bool eightBit;

  bool Allows(char c) const {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\t') return tab;
    if (byte >= 128) return eightBit;
    return byte >= lowest && byte != 127 && refused.find(c) == std::string_view::npos;
  }
  bool Allows(const char* text) const {
    return std::all_of(text, text + std::strlen(text), [this](char c) { return Allows(c); });
  }
};

constexpr TextRule HEADER_KEY{33, ":", false, false};
constexpr TextRule HEADER_VALUE{32, "", true, true};
constexpr TextRule ADDRESS{33, "<>", false, true};
constexpr TextRule DISPLAY_NAME{32, "\"", false, true};
constexpr TextRule ATTACHMENT_NAME{32, "'\"", false, true};

bool ValidKey(const char* key) {
  return key != nullptr && *key != '\0' && HEADER_KEY.Allows(key);
}

struct KeyOrder {
  bool operator()(const smtp_header& a, std::string_view b) const { return a.key < b; }
  bool operator()(std::string_view a, const smtp_header& b) const { return a < b.key; }
};

// Sets the status of a file that could not be read, by errno.
int FileFailure(smtp_session* session, int error) {
  return smtp_status_code_set(session, error == ENOMEM ? SMTP_NO_MEMORY : SMTP_FILE_FAILED);
}

bool ValidAttachmentName(const char* name) {
  return name != nullptr && ATTACHMENT_NAME.Allows(name);
}

// Adds an encoded attachment. Null lines mean that the file failed with errno.
int AddAttachment(smtp_session* session, const char* name, base::UniqueText lines, size_t length) {
  if (lines == nullptr) return FileFailure(session, errno);
  return smtp_guarded(session, [&] {
    if (!ValidAttachmentName(name)) return smtp_status_code_set(session, SMTP_INVALID);
    session->attachments.push_back({name, std::move(lines), length});
    return session->status;
  });
}

}  // namespace

int smtp_header_add(smtp_session* session, const char* key, const char* value) {
  return smtp_guarded(session, [&] {
    if (!ValidKey(key) || (value != nullptr && !HEADER_VALUE.Allows(value))) {
      return smtp_status_code_set(session, SMTP_INVALID);
    }
    auto& headers = session->headers;
    smtp_header header{key, {}};
    if (value != nullptr) header.value = value;
    const auto place =
        std::upper_bound(headers.begin(), headers.end(), std::string_view(header.key), KeyOrder{});
    headers.insert(place, std::move(header));
    return session->status;
  });
}

int smtp_header_exists(const smtp_session* session, const char* key) {
  if (key == nullptr) return 0;
  const auto& headers = session->headers;
  return static_cast<int>(
      std::binary_search(headers.begin(), headers.end(), std::string_view(key), KeyOrder{}));
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

int smtp_attachment_add_path(smtp_session* session, const char* name, const char* path) {
  if (session->status != SMTP_SUCCESS) return session->status;
  if (path == nullptr) return FileFailure(session, ENOENT);
  size_t length = 0;
  base::UniqueText lines(smtp_file_base64_lines(path, &length));
  return AddAttachment(session, name, std::move(lines), length);
}

int smtp_attachment_add_fp(smtp_session* session, const char* name, FILE* stream) {
  if (session->status != SMTP_SUCCESS) return session->status;
  if (stream == nullptr) return FileFailure(session, EBADF);
  size_t length = 0;
  base::UniqueText lines(smtp_ffile_base64_lines(stream, &length));
  return AddAttachment(session, name, std::move(lines), length);
}

int smtp_attachment_add_mem(smtp_session* session, const char* name, const void* data, size_t length) {
  if (session->status != SMTP_SUCCESS) return session->status;
  if (!ValidAttachmentName(name) || (data == nullptr && length != 0)) {
    return smtp_status_code_set(session, SMTP_INVALID);
  }
  size_t linesLength = 0;
  base::UniqueText lines(smtp_base64_lines(data, length, &linesLength));
  return AddAttachment(session, name, std::move(lines), linesLength);
}

void smtp_attachment_clear_all(smtp_session* session) {
  session->attachments.clear();
}
