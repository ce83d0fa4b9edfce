#include "Tovik/alarms/alarm_attachment.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/format.h"
#include "smtp/smtp_file.h"

namespace alarms {
namespace {

bool IsUnfitForAttachmentName(char c) {
  return static_cast<uint8_t>(c) < ' ' || c == '\x7F' || c == '\'' || c == '"';
}

std::string AttachmentName(const char* attachment_path) {
  const char* const attachment_slash = std::strrchr(attachment_path, '/');
  std::string attachment_name = attachment_slash == nullptr ? attachment_path : attachment_slash + 1;
  for (char& c : attachment_name)
    if (IsUnfitForAttachmentName(c)) c = '_';
  return attachment_name;
}

}  // namespace

Attachment ReadAttachment(const char* attachment_path) {
  Attachment attachment;
  attachment.name = AttachmentName(attachment_path);
  attachment.content.reset(smtp_file_get_contents(attachment_path, &attachment.size));
  if (attachment.content == nullptr) attachment.error = errno;
  return attachment;
}

std::string AttachmentLeftOut(const Attachment& attachment, bool ascii) {
  std::string attachment_name = attachment.name;
  for (char& c : attachment_name)
    if (ascii && static_cast<uint8_t>(c) >= 0x80) c = '?';
  return base::Format("The file %s could not be attached: %s.", attachment_name.c_str(),
                      std::strerror(attachment.error));
}

}  // namespace alarms
