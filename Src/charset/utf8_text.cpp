#include "charset/utf8_text.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "base/format.h"

namespace charset {
namespace {

constexpr std::string_view ELLIPSIS = "...";

uint8_t TextByte(std::string_view utf8Text, size_t at) {
  return static_cast<uint8_t>(utf8Text[at]);
}

// The first continuation byte that may follow a lead byte, where the range is narrower than 0x80..0xBF.
bool SecondUtf8ByteFits(uint8_t utf8Lead, uint8_t secondUtf8) {
  switch (utf8Lead) {
    case 0xE0:
      return secondUtf8 >= 0xA0;
    case 0xED:
      return secondUtf8 < 0xA0;
    case 0xF0:
      return secondUtf8 >= 0x90;
    case 0xF4:
      return secondUtf8 < 0x90;
    default:
      return true;
  }
}

size_t Utf8LengthByLead(uint8_t utf8Lead) {
  if (utf8Lead < 0x80) return 1;
  if (utf8Lead < 0xC2 || utf8Lead > 0xF4) return 0;
  return utf8Lead < 0xE0 ? 2 : utf8Lead < 0xF0 ? 3 : 4;
}

// Bytes at the beginning that a character of this length would begin with, at most that length.
size_t FittingUtf8(std::string_view utf8Text, size_t utf8Length) {
  size_t fittingUtf8 = 1;
  while (fittingUtf8 < utf8Length && fittingUtf8 < utf8Text.size() &&
         IsUtf8Continuation(TextByte(utf8Text, fittingUtf8)) &&
         (fittingUtf8 > 1 || SecondUtf8ByteFits(TextByte(utf8Text, 0), TextByte(utf8Text, 1))))
    ++fittingUtf8;
  return fittingUtf8;
}

// Control characters beyond ASCII, and those that turn the direction of writing, as UTF-8 has them: from the
// first to the last of a row.
struct Utf8Range {
  std::string_view firstUtf8;
  std::string_view lastUtf8;
};
// NOLINTBEGIN(misc-misleading-bidirectional): they are looked for, not written
constexpr Utf8Range UNPRINTABLE_UTF8[] = {{"\xC2\x80", "\xC2\x9F"},
                                          {"\xE2\x80\x8E", "\xE2\x80\x8F"},
                                          {"\xE2\x80\xA8", "\xE2\x80\xAE"},
                                          {"\xE2\x81\xA6", "\xE2\x81\xA9"}};
// NOLINTEND(misc-misleading-bidirectional)

bool IsUnprintable(std::string_view utf8Character) {
  const auto utf8Byte = TextByte(utf8Character, 0);
  if (utf8Character.size() == 1) return utf8Byte < ' ' || utf8Byte == 0x7F;
  return std::any_of(std::begin(UNPRINTABLE_UTF8), std::end(UNPRINTABLE_UTF8), [&](const Utf8Range& range) {
    return utf8Character.size() == range.firstUtf8.size() && utf8Character >= range.firstUtf8 &&
           utf8Character <= range.lastUtf8;
  });
}

std::string Escaped(std::string_view utf8Character, Escapes escapes) {
  if (utf8Character == "\n") return "\\n";
  if (escapes == Escapes::CODE_POINTS) {
    const char32_t codePoint = CodePoint(utf8Character);
    if (codePoint == '\t') return "\\t";
    return base::Format(codePoint < 0x100 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(codePoint));
  }
  std::string escapedUtf8;
  for (const char c : utf8Character) escapedUtf8 += base::Format("\\x%02x", static_cast<unsigned char>(c));
  return escapedUtf8;
}

}  // namespace

size_t Utf8Character(std::string_view utf8Text) {
  if (utf8Text.empty()) return 0;
  const size_t utf8Length = Utf8LengthByLead(TextByte(utf8Text, 0));
  return FittingUtf8(utf8Text, utf8Length) == utf8Length ? utf8Length : 0;
}

bool IsCutUtf8Character(std::string_view utf8Text) {
  if (utf8Text.empty()) return false;
  const size_t utf8Length = Utf8LengthByLead(TextByte(utf8Text, 0));
  return utf8Length > utf8Text.size() && FittingUtf8(utf8Text, utf8Length) == utf8Text.size();
}

char32_t CodePoint(std::string_view utf8Text) {
  static constexpr uint8_t UTF8_LEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t codePoint = TextByte(utf8Text, 0) & UTF8_LEAD_BITS[utf8Text.size()];
  for (size_t i = 1; i < utf8Text.size(); ++i) codePoint = (codePoint << 6) | (TextByte(utf8Text, i) & 0x3F);
  return codePoint;
}

std::string_view Utf8Prefix(std::string_view utf8Text, size_t limit) {
  if (utf8Text.size() <= limit) return utf8Text;
  while (limit > 0 && IsUtf8Continuation(TextByte(utf8Text, limit))) --limit;
  return utf8Text.substr(0, limit);
}

std::string Printable(std::string_view utf8Text, size_t limit, Escapes escapes) {
  std::string printableUtf8;
  size_t utf8BeforeEllipsis = 0;  // up to where there is room for it
  while (!utf8Text.empty()) {
    const size_t utf8Length = Utf8Character(utf8Text);
    const std::string_view utf8Character = utf8Text.substr(0, std::max<size_t>(utf8Length, 1));
    utf8Text.remove_prefix(utf8Character.size());
    if (utf8Length == 0) {
      printableUtf8 += REPLACEMENT_CHARACTER;
    } else if (IsUnprintable(utf8Character)) {
      printableUtf8 += Escaped(utf8Character, escapes);
    } else {
      printableUtf8 += utf8Character;
    }
    if (printableUtf8.size() + ELLIPSIS.size() <= limit) utf8BeforeEllipsis = printableUtf8.size();
    if (printableUtf8.size() <= limit) continue;
    printableUtf8.resize(utf8BeforeEllipsis);
    return printableUtf8.append(ELLIPSIS);
  }
  return printableUtf8;
}

}  // namespace charset
