#include "charset/cp949_length.h"

#include "charset/utf8_form.h"

namespace charset {
namespace {

constexpr size_t FIRST_CODE = 0x8141;  // the code of kUtf8Forms[0]
constexpr size_t WITHOUT_A_FORM = 2;   // UTF-8 bytes of a code outside the table

struct Character {
  size_t bytes;
  size_t utf8_bytes;
};

// A lead byte at the end of the text gets 0 as its trail byte.
Character CharacterAt(std::string_view text, size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  if (lead < 0x80) return {1, 1};
  const size_t trail = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
  const size_t index = lead * size_t{256} + trail - FIRST_CODE;  // wraps around below the first code
  return {2, index < kUtf8Forms.size() ? size_t{kUtf8Forms[index].length} : WITHOUT_A_FORM};
}

}  // namespace

std::string_view WholeCharacters(std::string_view text) {
  size_t at = 0;
  while (at < text.size()) at += CharacterAt(text, at).bytes;
  return at > text.size() ? text.substr(0, text.size() - 1) : text;
}

size_t Utf8Length(std::string_view text) {
  size_t length = 0;
  for (size_t at = 0; at < text.size();) {
    const Character character = CharacterAt(text, at);
    at += character.bytes;
    length += character.utf8_bytes;
  }
  return length;
}

std::string_view PrefixWithinUtf8(std::string_view text, size_t limit) {
  size_t length = 0;
  size_t at = 0;
  while (at < text.size()) {
    const Character character = CharacterAt(text, at);
    if (at + character.bytes > text.size() || length + character.utf8_bytes > limit) break;
    at += character.bytes;
    length += character.utf8_bytes;
  }
  return text.substr(0, at);
}

}  // namespace charset
