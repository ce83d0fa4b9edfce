#include "Tovik/alarms/alarm_attachment.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/format.h"
#include "smtp/smtp_file.h"

namespace alarms {
namespace {

bool IsUnfitForFileName(char c) {
  return static_cast<uint8_t>(c) < ' ' || c == '\x7F' || c == '\'' || c == '"';
}

std::string AttachmentName(const char* path) {
  const char* const name_slash = std::strrchr(path, '/');
  std::string file_name = name_slash == nullptr ? path : name_slash + 1;
  for (char& c : file_name)
    if (IsUnfitForFileName(c)) c = '_';
  return file_name;
}

}  // namespace

Attachment ReadAttachment(const char* path) {
  Attachment attachment;
  attachment.name = AttachmentName(path);
  attachment.content.reset(smtp_file_get_contents(path, &attachment.size));
  if (attachment.content == nullptr) attachment.error = errno;
  return attachment;
}

std::string AttachmentLeftOut(const Attachment& attachment, bool ascii) {
  std::string file_name = attachment.name;
  for (char& c : file_name)
    if (ascii && static_cast<uint8_t>(c) >= 0x80) c = '?';
  return base::Format("The file %s could not be attached: %s.", file_name.c_str(),
                      std::strerror(attachment.error));
}

}  // namespace alarms
