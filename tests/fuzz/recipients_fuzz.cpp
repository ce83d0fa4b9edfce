// A recipient file.
#include <cctype>
#include <vector>

#include "Tovik/alarms/email.h"
#include "fuzz/fuzz.h"

namespace {

std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  bool inside = false;
  for (const char byte : text) {
    const bool white = std::isspace(static_cast<unsigned char>(byte)) != 0;
    if (!white && !inside) words.emplace_back();
    inside = !white;
    if (!white && words.back().size() < EMAIL_WORD) words.back() += byte;
  }
  // Texts of the list end at a NUL.
  for (std::string& word : words) word.resize(std::min(word.find('\0'), word.size()));
  return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = fuzz::Text(data, size);
  const fuzz::MemoryFile file(text);
  const std::string counted = text.substr(0, text.find('\xFF'));
  const int64_t count = GetTotalLine(file.Path());
  HOLDS(count == std::count(counted.begin(), counted.end(), '\n'));
  std::shared_ptr<const EMAIL_ENTRIES> entries;
  fuzz::Quickly(text, [&] { entries = GetMailInfo(file.Path(), count); });
  const std::vector<std::string> words = Words(text);
  const auto word = [&](size_t index) { return index < words.size() ? words[index] : std::string(); };
  for (int64_t i = 0; i < count; ++i) {
    const EMAIL_ENTRIES::Entry entry = entries->At(i);
    HOLDS(entry.name == word(size_t(i) * 2) && entry.address == word(size_t(i) * 2 + 1));
  }
  HOLDS(*entries->At(count).name == '\0' && *entries->At(-1).address == '\0');
  return 0;
}
