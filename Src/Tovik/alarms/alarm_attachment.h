// A file that a mail carries, read before the mail is begun.
#ifndef TOVIK_ALARMS_ALARM_ATTACHMENT_H
#define TOVIK_ALARMS_ALARM_ATTACHMENT_H

#include <cstddef>
#include <string>

#include "base/unique_handles.h"

namespace alarms {

struct Attachment {
  std::string name;  // the path's last part, fit for smtp_attachment_add_mem
  base::UniqueText content;
  size_t size = 0;
  int error = 0;  // errno when the attachment could not be read; content is null then
};
// Reads a whole file, as smtp_attachment_add_path does. Throws std::bad_alloc only when there is no memory
// for the name.
Attachment ReadAttachment(const char* attachment_path);

// The sentence in a mail that goes out without the file. ascii: bytes of the name that are not ASCII become
// "?".
std::string AttachmentLeftOut(const Attachment& attachment, bool ascii);

}  // namespace alarms

#endif
