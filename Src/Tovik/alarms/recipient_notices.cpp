#include "Tovik/alarms/recipient_notices.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Tovik/alarms/recipient_line.h"
#include "Tovik/config/config.h"
#include "Tovik/notices/notices.h"
#include "base/format.h"
#include "base/owners.h"
#include "base/text_file.h"

namespace alarms {
namespace {

using notices::Notice;

constexpr size_t LOOKED_AT = size_t{256} * 1024;  // of a file
constexpr size_t WORDS = 1000;                    // a notice shows fewer

}  // namespace

void TellBadRecipients(const char* path) {
  if (!notices::On() || m_send_email_used == 0) return;
  size_t size = 0;
  const base::UniqueFd file = base::OpenRegular(path, &size);
  if (!file.Valid()) {
    const int error = errno;
    notices::Tell<Notice::BAD_RECIPIENTS>(path, std::string("cannot be read: ") + std::strerror(error));
    return;
  }
  std::string text(std::min(size, LOOKED_AT), '\0');
  text.resize(base::ReadUpTo(file.Get(), text.data(), text.size()));
  // A line that the limit cuts is not judged.
  if (size > LOOKED_AT) text.resize(text.rfind('\n') + 1);
  const std::string words = BadLineWords(text, m_mail_skip_bad != 0);
  if (!words.empty()) notices::Tell<Notice::BAD_RECIPIENTS>(path, words);
}

std::string BadLineWords(std::string_view text, bool byLine) {
  std::string faults;
  size_t count = 0;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    const bool ended = end != std::string_view::npos;
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(ended ? end + 1 : text.size());
    const RecipientLine parsed = byLine ? ParseRecipient(line) : RecipientLine{};
    const char* const fault = !byLine ? WordLineFault(line, ended) : parsed.blank ? nullptr : parsed.fault;
    if (fault == nullptr) continue;
    ++count;
    if (faults.size() < WORDS)
      faults += base::Format("%sline %zu: %s", faults.empty() ? "" : "; ", number, fault);
  }
  return count == 0 ? ""
                    : base::Format("has %zu %s that cannot be used: ", count, count == 1 ? "line" : "lines") +
                          faults;
}

}  // namespace alarms
