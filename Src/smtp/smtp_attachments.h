// The attachments of a mail, encoded when they are added.
#ifndef SMTP_SMTP_ATTACHMENTS_H
#define SMTP_SMTP_ATTACHMENTS_H

#include <cstddef>
#include <string>

#include "base/unique_handles.h"

struct smtp_attachment {
  std::string name;
  base::UniqueText base64Lines;
  size_t base64Length;
};

#endif
