#include "charset/cp949_length.h"

#include "charset/cp949_utf8_forms.h"

namespace charset {
namespace {

constexpr size_t UTF8_LENGTH_WITHOUT_FORM = 2;  // of a code outside the table

struct Cp949Lengths {
  size_t cp949Bytes;
  size_t utf8Bytes;
};

// A lead byte at the end of the text gets 0 as its trail byte.
Cp949Lengths Cp949LengthsAt(std::string_view cp949, size_t at) {
  const auto cp949Lead = static_cast<unsigned char>(cp949[at]);
  if (cp949Lead < 0x80) return {1, 1};
  const size_t cp949Trail = at + 1 < cp949.size() ? static_cast<unsigned char>(cp949[at + 1]) : 0;
  const size_t cp949CodeIndex =
      cp949Lead * size_t{256} + cp949Trail - FIRST_CP949_CODE;  // wraps around below the first code
  if (cp949CodeIndex >= CP949_UTF8_FORMS.size()) return {2, UTF8_LENGTH_WITHOUT_FORM};
  return {2, CP949_UTF8_FORMS[cp949CodeIndex].length};
}

}  // namespace

std::string_view WholeCp949Characters(std::string_view cp949) {
  size_t cp949Length = 0;
  while (cp949Length < cp949.size()) cp949Length += Cp949LengthsAt(cp949, cp949Length).cp949Bytes;
  return cp949Length > cp949.size() ? cp949.substr(0, cp949.size() - 1) : cp949;
}

size_t Utf8LengthOfCp949(std::string_view cp949) {
  size_t utf8Length = 0;
  for (size_t cp949Length = 0; cp949Length < cp949.size();) {
    const Cp949Lengths lengths = Cp949LengthsAt(cp949, cp949Length);
    cp949Length += lengths.cp949Bytes;
    utf8Length += lengths.utf8Bytes;
  }
  return utf8Length;
}

std::string_view Cp949PrefixWithinUtf8(std::string_view cp949, size_t utf8Limit) {
  size_t utf8Length = 0;
  size_t cp949Length = 0;
  while (cp949Length < cp949.size()) {
    const Cp949Lengths lengths = Cp949LengthsAt(cp949, cp949Length);
    if (cp949Length + lengths.cp949Bytes > cp949.size()) break;
    if (utf8Length + lengths.utf8Bytes > utf8Limit) break;
    cp949Length += lengths.cp949Bytes;
    utf8Length += lengths.utf8Bytes;
  }
  return cp949.substr(0, cp949Length);
}

}  // namespace charset
