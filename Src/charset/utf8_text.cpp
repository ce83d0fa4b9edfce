#include "charset/utf8_text.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

#include "base/format.h"

namespace charset {
namespace {

constexpr std::string_view REPLACEMENT_CHARACTER = "\xEF\xBF\xBD";
constexpr std::string_view ELLIPSIS = "...";

uint8_t TextByte(std::string_view text, size_t at) {
  return static_cast<uint8_t>(text[at]);
}

// The first continuation byte that may follow a lead byte, where the range is narrower than 0x80..0xBF.
bool SecondUtf8ByteFits(uint8_t lead, uint8_t second) {
  switch (lead) {
    case 0xE0:
      return second >= 0xA0;
    case 0xED:
      return second < 0xA0;
    case 0xF0:
      return second >= 0x90;
    case 0xF4:
      return second < 0x90;
    default:
      return true;
  }
}

size_t Utf8LengthByLead(uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// Bytes at the beginning that a character of this length would begin with, at most that length.
size_t FittingUtf8(std::string_view utf8, size_t length) {
  size_t fitting = 1;
  while (fitting < length && fitting < utf8.size() && (TextByte(utf8, fitting) & 0xC0) == 0x80 &&
         (fitting > 1 || SecondUtf8ByteFits(TextByte(utf8, 0), TextByte(utf8, 1))))
    ++fitting;
  return fitting;
}

// The bytes of a line that are UTF-8; its whole size when all are.
struct Utf8Part {
  size_t utf8Size = 0;
  bool beyondAscii = false;
};

Utf8Part SoundUtf8Part(std::string_view line) {
  Utf8Part sound;
  while (const size_t length = Utf8Character(line.substr(sound.utf8Size))) {
    sound.utf8Size += length;
    sound.beyondAscii = sound.beyondAscii || length > 1;
  }
  return sound;
}

bool IsCutUtf8Character(std::string_view utf8) {
  const size_t length = Utf8LengthByLead(TextByte(utf8, 0));
  return length > utf8.size() && FittingUtf8(utf8, length) == utf8.size();
}

// Whether a byte may stand in a pair of high bytes, user-defined ones included.
bool InCp949Pair(uint8_t cp949) {
  return cp949 >= 0x81 && cp949 <= 0xFE;
}

// A conversion from code page 949. glibc's conversions share nothing between two of them.
class Cp949Conversion {
 public:
  Cp949Conversion() : iconv_(::iconv_open("UTF-8", "CP949")) {}
  ~Cp949Conversion() {
    if (Open()) ::iconv_close(iconv_);
  }
  Cp949Conversion(const Cp949Conversion&) = delete;
  Cp949Conversion& operator=(const Cp949Conversion&) = delete;

  // Appends the line's characters, each bad byte as U+FFFD: so all of them where the system lacks the table.
  void AppendAsUtf8(std::string_view cp949, std::string* utf8) {
    while (!cp949.empty()) {
      cp949.remove_prefix(AppendSound(cp949, utf8));
      if (cp949.empty()) return;
      utf8->append(REPLACEMENT_CHARACTER);
      const bool badPair =
          cp949.size() > 1 && InCp949Pair(TextByte(cp949, 0)) && InCp949Pair(TextByte(cp949, 1));
      cp949.remove_prefix(badPair ? 2 : 1);
    }
  }

 private:
  bool Open() const { return iconv_ != reinterpret_cast<iconv_t>(-1); }

  // Appends what converts at the line's beginning; how many of its bytes these are.
  size_t AppendSound(std::string_view cp949, std::string* utf8) {
    if (!Open()) return AppendAscii(cp949, utf8);
    char* in = const_cast<char*>(cp949.data());  // the interface is older than const
    size_t left = cp949.size();
    bool full = true;
    while (full) {
      std::array<char, 1024> utf8Piece{};
      char* utf8End = utf8Piece.data();
      size_t room = utf8Piece.size();
      full = ::iconv(iconv_, &in, &left, &utf8End, &room) == static_cast<size_t>(-1) && errno == E2BIG;
      utf8->append(utf8Piece.data(), utf8Piece.size() - room);
    }
    return cp949.size() - left;
  }
  static size_t AppendAscii(std::string_view cp949, std::string* utf8) {
    size_t asciiLength = 0;
    while (asciiLength < cp949.size() && TextByte(cp949, asciiLength) < 0x80) ++asciiLength;
    utf8->append(cp949.substr(0, asciiLength));
    return asciiLength;
  }

  iconv_t iconv_;
};

// Control characters beyond ASCII, and those that turn the direction of writing, as UTF-8 has them: from the
// first to the last of a row.
struct Utf8Range {
  std::string_view first;
  std::string_view last;
};
// NOLINTBEGIN(misc-misleading-bidirectional): they are looked for, not written
constexpr Utf8Range UNPRINTABLE[] = {{"\xC2\x80", "\xC2\x9F"},
                                     {"\xE2\x80\x8E", "\xE2\x80\x8F"},
                                     {"\xE2\x80\xA8", "\xE2\x80\xAE"},
                                     {"\xE2\x81\xA6", "\xE2\x81\xA9"}};
// NOLINTEND(misc-misleading-bidirectional)

bool IsUnprintable(std::string_view utf8Character) {
  const auto ascii = TextByte(utf8Character, 0);
  if (utf8Character.size() == 1) return ascii < ' ' || ascii == 0x7F;
  return std::any_of(std::begin(UNPRINTABLE), std::end(UNPRINTABLE), [&](const Utf8Range& range) {
    return utf8Character.size() == range.first.size() && utf8Character >= range.first &&
           utf8Character <= range.last;
  });
}

std::string Escaped(std::string_view utf8Character, Escapes escapes) {
  if (utf8Character == "\n") return "\\n";
  if (escapes == Escapes::CODE_POINTS) {
    const char32_t codePoint = CodePoint(utf8Character);
    if (codePoint == '\t') return "\\t";
    return base::Format(codePoint < 0x100 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(codePoint));
  }
  std::string escaped;
  for (const char c : utf8Character) escaped += base::Format("\\x%02x", static_cast<unsigned char>(c));
  return escaped;
}

}  // namespace

size_t Utf8Character(std::string_view utf8) {
  if (utf8.empty()) return 0;
  const size_t length = Utf8LengthByLead(TextByte(utf8, 0));
  return FittingUtf8(utf8, length) == length ? length : 0;
}

char32_t CodePoint(std::string_view utf8) {
  static constexpr uint8_t LEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t codePoint = TextByte(utf8, 0) & LEAD_BITS[utf8.size()];
  for (size_t i = 1; i < utf8.size(); ++i) codePoint = (codePoint << 6) | (TextByte(utf8, i) & 0x3F);
  return codePoint;
}

std::string_view Utf8Prefix(std::string_view utf8, size_t limit) {
  if (utf8.size() <= limit) return utf8;
  while (limit > 0 && (TextByte(utf8, limit) & 0xC0) == 0x80) --limit;
  return utf8.substr(0, limit);
}

std::string Repaired(std::string_view text) {
  std::string repaired;
  repaired.reserve(text.size());
  Cp949Conversion conversion;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const Utf8Part sound = SoundUtf8Part(line);
    if (sound.utf8Size == line.size()) {
      repaired.append(line);
    } else if (sound.beyondAscii && IsCutUtf8Character(line.substr(sound.utf8Size))) {
      repaired.append(line.substr(0, sound.utf8Size)).append(REPLACEMENT_CHARACTER);
    } else {
      conversion.AppendAsUtf8(line, &repaired);
    }
    text.remove_prefix(line.size());
    if (text.empty()) break;
    repaired.push_back('\n');
    text.remove_prefix(1);
  }
  return repaired;
}

std::string OneLine(std::string_view text, size_t limit) {
  std::string utf8 = Repaired(text);
  for (char& c : utf8)
    if (static_cast<uint8_t>(c) < ' ' || c == '\x7F') c = ' ';
  const size_t begin = utf8.find_first_not_of(' ');
  if (begin == std::string::npos) return {};
  utf8 = utf8.substr(begin, utf8.find_last_not_of(' ') + 1 - begin);
  return std::string(Utf8Prefix(utf8, limit));
}

std::string Printable(std::string_view utf8, size_t limit, Escapes escapes) {
  std::string printable;
  size_t beforeEllipsis = 0;  // up to where there is room for it
  while (!utf8.empty()) {
    const size_t length = Utf8Character(utf8);
    const std::string_view character = utf8.substr(0, std::max<size_t>(length, 1));
    utf8.remove_prefix(character.size());
    if (length == 0) {
      printable += REPLACEMENT_CHARACTER;
    } else if (IsUnprintable(character)) {
      printable += Escaped(character, escapes);
    } else {
      printable += character;
    }
    if (printable.size() + ELLIPSIS.size() <= limit) beforeEllipsis = printable.size();
    if (printable.size() <= limit) continue;
    printable.resize(beforeEllipsis);
    return printable.append(ELLIPSIS);
  }
  return printable;
}

}  // namespace charset
