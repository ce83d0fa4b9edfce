#include "ctl/text.h"

#include <algorithm>
#include <iterator>

#include "charset/cp949.h"
#include "charset/utf8_text.h"

namespace ctl {
namespace {

constexpr char32_t REPLACEMENT = 0xFFFD;
constexpr size_t FIRST_CODE = 0x8141;

struct Range {
  char32_t first;
  char32_t last;
};
template <size_t SIZE>
bool In(const Range (&ranges)[SIZE], char32_t c) {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [c](const Range& range) { return c >= range.first && c <= range.last; });
}

constexpr Range WIDE[] = {{0x1100, 0x115F}, {0x2E80, 0x303E},   {0x3041, 0x4DBF},  {0x4E00, 0xA4CF},
                          {0xAC00, 0xD7A3}, {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},  {0xFF00, 0xFF60},
                          {0xFFE0, 0xFFE6}, {0x1F300, 0x1FAFF}, {0x20000, 0x3FFFD}};
constexpr Range WITHOUT_WIDTH[] = {{0x300, 0x36F}, {0x1160, 0x11FF}, {0x200B, 0x200D}, {0xFE00, 0xFE0F}};

unsigned char Byte(std::string_view text, size_t at) {
  return static_cast<unsigned char>(text[at]);
}

void Append(std::string* text, char32_t c) {
  const auto put = [text](char32_t byte) { *text += static_cast<char>(byte); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0 | (c >> 6));
    put(0x80 | (c & 0x3F));
  } else {
    if (c < 0x10000) {
      put(0xE0 | (c >> 12));
    } else {
      put(0xF0 | (c >> 18));
      put(0x80 | ((c >> 12) & 0x3F));
    }
    put(0x80 | ((c >> 6) & 0x3F));
    put(0x80 | (c & 0x3F));
  }
}

bool IsSound(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const size_t start = at;
    if (NextCharacter(text, &at) == REPLACEMENT && at == start + 1) return false;
  }
  return true;
}

}  // namespace

char32_t NextCharacter(std::string_view text, size_t* at) {
  const size_t length = charset::Utf8Character(text.substr(*at));
  const std::string_view character = text.substr(*at, std::max<size_t>(length, 1));
  *at += character.size();
  return length == 0 ? REPLACEMENT : charset::CodePoint(character);
}

std::string FromCp949(std::string_view bytes) {
  std::string text;
  for (size_t at = 0; at < bytes.size(); ++at) {
    const size_t lead = Byte(bytes, at);
    if (lead < 0x80) {
      text += bytes[at];
      continue;
    }
    const size_t code = at + 1 < bytes.size() ? lead * 256 + Byte(bytes, at + 1) : 0;
    const bool known = code >= FIRST_CODE && code - FIRST_CODE < std::size(ksc2uni_code);
    const char32_t c = known ? ksc2uni_code[code - FIRST_CODE] : 0;
    Append(&text, c == 0 ? REPLACEMENT : c);
    // An ASCII byte after the first half of a character is not consumed with it.
    if (c != 0 || (code != 0 && Byte(bytes, at + 1) >= 0x80)) ++at;
  }
  return text;
}

std::string ToUtf8(std::string_view bytes) {
  return IsSound(bytes) ? std::string(bytes) : FromCp949(bytes);
}

std::string Printable(std::string_view text, size_t limit) {
  return charset::Printable(text, limit, charset::Escapes::CODE_POINTS);
}

std::string Shown(std::string_view bytes) {
  // The text is cut before it is converted too, as others chose its length; between two characters, or all of
  // it would count as code page 949.
  return Printable(ToUtf8(charset::Utf8Prefix(bytes, 4 * SHOWN_BYTES)));
}

size_t DisplayWidth(std::string_view text) {
  size_t columns = 0;
  for (size_t at = 0; at < text.size();) {
    const char32_t c = NextCharacter(text, &at);
    if (!In(WITHOUT_WIDTH, c)) columns += In(WIDE, c) ? 2 : 1;
  }
  return columns;
}

std::string Padded(std::string_view text, size_t columns) {
  const size_t width = DisplayWidth(text);
  return std::string(text) + std::string(width < columns ? columns - width : 0, ' ');
}

}  // namespace ctl
