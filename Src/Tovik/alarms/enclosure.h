// A file that a mail carries, read before the mail is begun.
#ifndef TOVIK_ALARMS_ENCLOSURE_H
#define TOVIK_ALARMS_ENCLOSURE_H

#include <cstddef>
#include <string>

#include "base/owners.h"

namespace alarms {

struct Enclosure {
  std::string name;  // the path's last part, fit for smtp_attachment_add_mem
  base::UniqueText content;
  size_t size = 0;
  int error = 0;  // errno of what failed; content is null then
};
// Reads a file whole, as smtp_attachment_add_path does. Throws std::bad_alloc for the name alone.
Enclosure ReadEnclosure(const char* path);

// The sentence of a mail without it. ascii: other bytes of the name become "?".
std::string LeftOutSentence(const Enclosure& enclosure, bool ascii);

}  // namespace alarms

#endif
