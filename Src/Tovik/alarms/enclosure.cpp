#include "Tovik/alarms/enclosure.h"

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

Enclosure ReadEnclosure(const char* path) {
  Enclosure enclosure;
  enclosure.name = NameOf(path);
  enclosure.content.reset(smtp_file_get_contents(path, &enclosure.size));
  if (enclosure.content == nullptr) enclosure.error = errno;
  return enclosure;
}

std::string LeftOutSentence(const Enclosure& enclosure, bool ascii) {
  std::string name = enclosure.name;
  for (char& c : name)
    if (ascii && static_cast<uint8_t>(c) >= 0x80) c = '?';
  return base::Format("The file %s could not be attached: %s.", name.c_str(), std::strerror(enclosure.error));
}

}  // namespace alarms
