// Code page 949 to UTF-8 and back, and the check for UTF-8.
#include <cstring>
#include <vector>

#include "charset/cp949.h"
#include "fuzz/fuzz.h"

namespace {

// -1: refused. Else the length of what the encoder must write.
ptrdiff_t EncodedLength(const std::string& text) {
  ptrdiff_t length = 0;
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    if (lead < 0x80) {
      ++length;
      ++i;
      continue;
    }
    const unsigned trail = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
    const unsigned code = lead << 8 | trail;
    if (code < 0x8141 || code > 0xC8FE) return -1;
    length += ksc2uni_code[code - 0x8141] > 0x7FF ? 3 : 2;
    i += 2;
  }
  return length;
}

bool IsUtf8(const std::string& text) {
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    if (lead < 0x80) continue;
    if (lead < 0xC0 || lead > 0xFD) return false;
    for (unsigned bit = 0x40; (lead & bit) != 0; bit >>= 1, ++i) {
      if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return false;
    }
  }
  return true;
}

void CheckEncode(const std::string& text) {
  char* out = nullptr;
  uint32_t length = 0;
  const int32_t result = encode_UTF8(text.c_str(), uint32_t(text.size()), &out, &length);
  const base::UniqueText owner(out);
  const ptrdiff_t expected = EncodedLength(text);
  HOLDS((result == 0) == (expected >= 0) && (out != nullptr) == (result == 0));
  if (result != 0) return;
  HOLDS(ptrdiff_t(length) == expected && out[length] == '\0');
  std::vector<char> back(text.size() + 1);
  // Texts of ASCII and syllables come back as they were.
  if (decode_UTF8(out, int32_t(length), back.data(), int32_t(back.size())) == int32_t(text.size()) &&
      std::strlen(out) == length && std::strchr(back.data(), ' ') == nullptr) {
    HOLDS(std::memcmp(back.data(), text.data(), text.size()) == 0);
  }
}

void CheckDecode(const std::string& text, size_t room) {
  const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
  std::vector<char> out(room);
  const int32_t length = decode_UTF8(exact.data(), int32_t(text.size()), out.data(), int32_t(room));
  HOLDS(length >= -1 && length < int32_t(std::max<size_t>(room, 1)));
  if (length >= 0) HOLDS(out[size_t(length)] == '\0');
  if (length >= 0) HOLDS(size_t(length) <= text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text = fuzz::Text(data + 1, size - 1);
  fuzz::Quickly(text, [&] { CheckEncode(text); });
  CheckDecode(text, data[0]);
  CheckDecode(text, text.size() + 1);
  const std::string until_nul = text.c_str();
  HOLDS(is_UTF8(until_nul.c_str()) == (IsUtf8(until_nul) ? 1 : 0));
  return 0;
}
