#include "smtp/smtp_attachments.h"

#include <cerrno>
#include <utility>

#include "smtp/smtp_base64.h"
#include "smtp/smtp_file.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_strings.h"

namespace {

constexpr smtp_text_rule ATTACHMENT_NAME_RULE{32, "'\"", false, true};

// Sets the status of a file that could not be read, by errno.
int AttachmentFileFailure(smtp_session* session, int attachmentError) {
  return smtp_status_code_set(session, attachmentError == ENOMEM ? SMTP_NO_MEMORY : SMTP_FILE_FAILED);
}

bool ValidAttachmentName(const char* name) {
  return name != nullptr && ATTACHMENT_NAME_RULE.Allows(name);
}

// Adds an encoded attachment. Null lines mean that the file failed with errno.
int AddAttachment(smtp_session* session, const char* name, base::UniqueText attachmentLines,
                  size_t attachmentLength) {
  if (attachmentLines == nullptr) return AttachmentFileFailure(session, errno);
  return smtp_guarded(session, [session, name, &attachmentLines, attachmentLength] {
    if (!ValidAttachmentName(name)) return smtp_status_code_set(session, SMTP_INVALID);
    session->attachments.push_back({name, std::move(attachmentLines), attachmentLength});
    return session->status;
  });
}

}  // namespace

int smtp_attachment_add_path(smtp_session* session, const char* name, const char* path) {
  if (session->status != SMTP_SUCCESS) return session->status;
  if (path == nullptr) return AttachmentFileFailure(session, ENOENT);
  size_t attachmentLength = 0;
  base::UniqueText attachmentLines(smtp_file_base64_lines(path, &attachmentLength));
  return AddAttachment(session, name, std::move(attachmentLines), attachmentLength);
}

int smtp_attachment_add_fp(smtp_session* session, const char* name, FILE* stream) {
  if (session->status != SMTP_SUCCESS) return session->status;
  if (stream == nullptr) return AttachmentFileFailure(session, EBADF);
  size_t attachmentLength = 0;
  base::UniqueText attachmentLines(smtp_ffile_base64_lines(stream, &attachmentLength));
  return AddAttachment(session, name, std::move(attachmentLines), attachmentLength);
}

int smtp_attachment_add_mem(smtp_session* session, const char* name, const void* data, size_t length) {
  if (session->status != SMTP_SUCCESS) return session->status;
  const bool attachable = ValidAttachmentName(name) && (data != nullptr || length == 0);
  if (!attachable) return smtp_status_code_set(session, SMTP_INVALID);
  size_t attachmentLength = 0;
  base::UniqueText attachmentLines(smtp_base64_lines(data, length, &attachmentLength));
  return AddAttachment(session, name, std::move(attachmentLines), attachmentLength);
}

void smtp_attachment_clear_all(smtp_session* session) {
  session->attachments.clear();
}
