#include "Tovik/alarms/alarm_attachment.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/format.h"
#include "smtp/smtp_file.h"

namespace alarms {
namespace {

bool IsRefused(char c) {
  return static_cast<uint8_t>(c) < ' ' || c == '\x7F' || c == '\'' || c == '"';
}

std::string NameOf(const char* path) {
  const char* const slash = std::strrchr(path, '/');
  std::string name = slash == nullptr ? path : slash + 1;
  for (char& c : name)
    if (IsRefused(c)) c = '_';
  return name;
}

}  // namespace

Attachment ReadAttachment(const char* path) {
  Attachment attachment;
  attachment.name = NameOf(path);
  attachment.content.reset(smtp_file_get_contents(path, &attachment.size));
  if (attachment.content == nullptr) attachment.error = errno;
  return attachment;
}

std::string LeftOutSentence(const Attachment& attachment, bool ascii) {
  std::string name = attachment.name;
  for (char& c : name)
    if (ascii && static_cast<uint8_t>(c) >= 0x80) c = '?';
  return base::Format("The file %s could not be attached: %s.", name.c_str(),
                      std::strerror(attachment.error));
}

}  // namespace alarms
