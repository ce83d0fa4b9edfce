// Code page 949 to UTF-8 and back, and the check for UTF-8.
#include <vector>

#include "charset/cp949.h"
#include "fuzz/fuzz.h"

namespace {

void CheckEncode(const std::string& text) {
  char* out = nullptr;
  uint32_t length = 0;
  const int32_t result = encode_UTF8(text.c_str(), uint32_t(text.size()), &out, &length);
  const base::UniqueText owner(out);
  HOLDS((out != nullptr) == (result == 0));
  if (result != 0) return;
  HOLDS(out[length] == '\0' && length >= text.size() && length <= text.size() / 2 * 3 + text.size() % 2 * 2);
  std::string back(text.size() + 1, '\0');
  // A text of ASCII and syllables survives the round trip.
  if (decode_UTF8(out, int32_t(length), back.data(), int32_t(back.size())) == int32_t(text.size()) &&
      std::strlen(out) == length && std::strchr(back.data(), ' ') == nullptr) {
    HOLDS(back == text + '\0');
  }
}

// Decodes with buffers of exactly the needed sizes, so that the sanitizer sees every byte too many.
void CheckDecode(const std::string& text, size_t room) {
  const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
  std::vector<char> out(room);
  const int32_t length = decode_UTF8(exact.data(), int32_t(text.size()), out.data(), int32_t(room));
  HOLDS(length >= -1 && length < int32_t(std::max<size_t>(room, 1)));
  HOLDS(length < 0 || (out[size_t(length)] == '\0' && size_t(length) <= text.size()));
}

}  // namespace

FUZZ_TARGET(bytes) {
  const std::string text = bytes.substr(std::min<size_t>(bytes.size(), 1));
  fuzz::Quickly(text, [&] { CheckEncode(text); });
  CheckDecode(text, bytes.empty() ? 0 : static_cast<unsigned char>(bytes[0]));
  CheckDecode(text, text.size() + 1);
  const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
  const int32_t verdict = is_UTF8(text.c_str());
  HOLDS(verdict == 1 || (verdict == 0 && !ascii));
}
