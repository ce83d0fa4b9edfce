#include "smtp/smtp_mime.h"

#include <sys/random.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "base/unique_handles.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_strings.h"
#include "smtp/smtp_write.h"

namespace {

constexpr std::string_view BOUNDARY_START = "mime";
constexpr size_t BOUNDARY_LETTERS = 10;
constexpr const char* MIME_PART_END = "\r\n\r\n";

// Fills in random numbers, or, where the kernel has none yet, numbers made from the clock.
void FillBoundaryNumbers(std::array<uint32_t, BOUNDARY_LETTERS>& boundaryNumbers) {
  const ssize_t randomBytes = ::getrandom(boundaryNumbers.data(), sizeof boundaryNumbers, GRND_NONBLOCK);
  if (randomBytes == static_cast<ssize_t>(sizeof boundaryNumbers)) return;
  timespec boundaryTime{};
  ::clock_gettime(CLOCK_REALTIME, &boundaryTime);
  auto boundaryRandom = static_cast<uint64_t>(boundaryTime.tv_sec) * 1'000'000'000U;
  boundaryRandom += static_cast<uint64_t>(boundaryTime.tv_nsec);
  for (auto& boundaryNumber : boundaryNumbers) {
    boundaryRandom = boundaryRandom * 6364136223846793005U + 1442695040888963407U;
    boundaryNumber = static_cast<uint32_t>(boundaryRandom >> 33U);
  }
}

}  // namespace

void smtp_gen_mime_boundary(char* destination) {
  std::array<uint32_t, BOUNDARY_LETTERS> boundaryNumbers{};
  FillBoundaryNumbers(boundaryNumbers);
  std::memcpy(destination, BOUNDARY_START.data(), BOUNDARY_START.size());
  char* letter = destination + BOUNDARY_START.size();
  for (const uint32_t boundaryNumber : boundaryNumbers)
    *letter++ = static_cast<char>('A' + boundaryNumber % 26);
  *letter = '\0';
}

int smtp_print_email(smtp_session* session, const char* body) {
  const base::UniqueText dotStuffedBody(smtp_str_replace("\n.", "\n..", body));
  if (dotStuffedBody == nullptr) return smtp_status_code_set(session, SMTP_NO_MEMORY);
  if (smtp_header_exists(session, "Content-Type") != 0)
    return smtp_print_nomime_email(session, dotStuffedBody.get());
  return smtp_print_mime_email(session, dotStuffedBody.get());
}

int smtp_print_nomime_email(smtp_session* session, const char* nomimeBody) {
  return smtp_puts_terminate(session, nomimeBody);
}

int smtp_print_mime_email(smtp_session* session, const char* body) {
  std::array<char, 15> boundary{};
  smtp_gen_mime_boundary(boundary.data());
  smtp_print_mime_header_and_body(session, boundary.data(), body);
  for (const smtp_attachment& attachment : session->attachments) {
    if (session->status == SMTP_SUCCESS) smtp_print_mime_attachment(session, boundary.data(), attachment);
  }
  return session->status != SMTP_SUCCESS ? session->status : smtp_print_mime_end(session, boundary.data());
}

int smtp_print_mime_header_and_body(smtp_session* session, const char* boundary, const char* body) {
  std::string mimeBody = "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=";
  mimeBody.append(boundary).append("\r\n\r\nMultipart MIME message.\r\n--").append(boundary);
  mimeBody.append("\r\nContent-Type: text/html; charset=\"UTF-8\"\r\n\r\n").append(body).append("\r\n\r\n");
  return smtp_puts(session, mimeBody);
}

int smtp_print_mime_attachment(smtp_session* session, const char* boundary,
                               const smtp_attachment& attachment) {
  std::string mimeHead = "--";
  mimeHead.append(boundary).append("\r\nContent-Type: application/octet-stream\r\n");
  mimeHead.append("Content-Disposition: attachment; filename=\"").append(attachment.name);
  mimeHead.append("\"\r\nContent-Transfer-Encoding: base64\r\n\r\n");
  if (smtp_puts(session, mimeHead) != SMTP_SUCCESS) return session->status;
  // Written without a copy: an attachment may be too large for another one.
  if (smtp_write(session, attachment.base64Lines.get(), attachment.base64Length) != SMTP_SUCCESS)
    return session->status;
  return smtp_puts(session, MIME_PART_END);
}

int smtp_print_mime_end(smtp_session* session, const char* boundary) {
  return smtp_puts(session, "--" + std::string(boundary) + "--\r\n");
}
