#include "charset/repair.h"

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

uint8_t Byte(std::string_view text, size_t at) {
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
size_t FittingUtf8(std::string_view text, size_t length) {
  size_t fitting = 1;
  while (fitting < length && fitting < text.size() && (Byte(text, fitting) & 0xC0) == 0x80 &&
         (fitting > 1 || SecondUtf8ByteFits(Byte(text, 0), Byte(text, 1))))
    ++fitting;
  return fitting;
}

// The bytes of a line that are UTF-8; its whole size when all are.
struct Utf8Part {
  size_t size = 0;
  bool beyondAscii = false;
};

Utf8Part SoundUtf8Part(std::string_view line) {
  Utf8Part part;
  while (const size_t length = Utf8Character(line.substr(part.size))) {
    part.size += length;
    part.beyondAscii = part.beyondAscii || length > 1;
  }
  return part;
}

bool IsCutCharacter(std::string_view bytes) {
  const size_t length = Utf8LengthByLead(Byte(bytes, 0));
  return length > bytes.size() && FittingUtf8(bytes, length) == bytes.size();
}

// Whether a byte may stand in a pair of high bytes, user-defined ones included.
bool InCp949Pair(uint8_t byte) {
  return byte >= 0x81 && byte <= 0xFE;
}

// A conversion from code page 949. glibc's conversions share nothing between two of them.
class Cp949Conversion {
 public:
  Cp949Conversion() : handle_(::iconv_open("UTF-8", "CP949")) {}
  ~Cp949Conversion() {
    if (Open()) ::iconv_close(handle_);
  }
  Cp949Conversion(const Cp949Conversion&) = delete;
  Cp949Conversion& operator=(const Cp949Conversion&) = delete;

  // Appends the line's characters, each bad byte as U+FFFD: so all of them where the system lacks the table.
  void Append(std::string_view line, std::string* out) {
    while (!line.empty()) {
      line.remove_prefix(AppendSound(line, out));
      if (line.empty()) return;
      out->append(REPLACEMENT_CHARACTER);
      line.remove_prefix(line.size() > 1 && InCp949Pair(Byte(line, 0)) && InCp949Pair(Byte(line, 1)) ? 2 : 1);
    }
  }

 private:
  bool Open() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

  // Appends what converts at the line's beginning; how many of its bytes these are.
  size_t AppendSound(std::string_view line, std::string* out) {
    if (!Open()) return AppendAscii(line, out);
    char* in = const_cast<char*>(line.data());  // the interface is older than const
    size_t left = line.size();
    bool full = true;
    while (full) {
      std::array<char, 1024> piece{};
      char* end = piece.data();
      size_t room = piece.size();
      full = ::iconv(handle_, &in, &left, &end, &room) == static_cast<size_t>(-1) && errno == E2BIG;
      out->append(piece.data(), piece.size() - room);
    }
    return line.size() - left;
  }
  static size_t AppendAscii(std::string_view line, std::string* out) {
    size_t length = 0;
    while (length < line.size() && Byte(line, length) < 0x80) ++length;
    out->append(line.substr(0, length));
    return length;
  }

  iconv_t handle_;
};

// Control characters beyond ASCII, and those that turn the direction of writing, as UTF-8 has them: from the
// first to the last of a row.
struct Range {
  std::string_view first;
  std::string_view last;
};
// NOLINTBEGIN(misc-misleading-bidirectional): they are looked for, not written
constexpr Range UNPRINTABLE[] = {{"\xC2\x80", "\xC2\x9F"},
                                 {"\xE2\x80\x8E", "\xE2\x80\x8F"},
                                 {"\xE2\x80\xA8", "\xE2\x80\xAE"},
                                 {"\xE2\x81\xA6", "\xE2\x81\xA9"}};
// NOLINTEND(misc-misleading-bidirectional)

bool IsUnprintable(std::string_view character) {
  const auto byte = Byte(character, 0);
  if (character.size() == 1) return byte < ' ' || byte == 0x7F;
  return std::any_of(std::begin(UNPRINTABLE), std::end(UNPRINTABLE), [&](const Range& range) {
    return character.size() == range.first.size() && character >= range.first && character <= range.last;
  });
}

std::string Escaped(std::string_view character, Escapes escapes) {
  if (character == "\n") return "\\n";
  if (escapes == Escapes::CODE_POINTS) {
    const char32_t c = CodePoint(character);
    if (c == '\t') return "\\t";
    return base::Format(c < 0x100 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(c));
  }
  std::string escaped;
  for (const char c : character) escaped += base::Format("\\x%02x", static_cast<unsigned char>(c));
  return escaped;
}

}  // namespace

size_t Utf8Character(std::string_view text) {
  if (text.empty()) return 0;
  const size_t length = Utf8LengthByLead(Byte(text, 0));
  return FittingUtf8(text, length) == length ? length : 0;
}

char32_t CodePoint(std::string_view character) {
  static constexpr uint8_t LEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t c = Byte(character, 0) & LEAD_BITS[character.size()];
  for (size_t i = 1; i < character.size(); ++i) c = (c << 6) | (Byte(character, i) & 0x3F);
  return c;
}

std::string_view Utf8Prefix(std::string_view text, size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && (Byte(text, limit) & 0xC0) == 0x80) --limit;
  return text.substr(0, limit);
}

std::string Repaired(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  Cp949Conversion conversion;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const Utf8Part sound = SoundUtf8Part(line);
    if (sound.size == line.size()) {
      out.append(line);
    } else if (sound.beyondAscii && IsCutCharacter(line.substr(sound.size))) {
      out.append(line.substr(0, sound.size)).append(REPLACEMENT_CHARACTER);
    } else {
      conversion.Append(line, &out);
    }
    text.remove_prefix(line.size());
    if (text.empty()) break;
    out.push_back('\n');
    text.remove_prefix(1);
  }
  return out;
}

std::string OneLine(std::string_view text, size_t limit) {
  std::string line = Repaired(text);
  for (char& c : line)
    if (static_cast<uint8_t>(c) < ' ' || c == '\x7F') c = ' ';
  const size_t begin = line.find_first_not_of(' ');
  if (begin == std::string::npos) return {};
  line = line.substr(begin, line.find_last_not_of(' ') + 1 - begin);
  return std::string(Utf8Prefix(line, limit));
}

std::string Printable(std::string_view text, size_t limit, Escapes escapes) {
  std::string shown;
  size_t whole = 0;  // up to where there is room for the ellipsis
  while (!text.empty()) {
    const size_t length = Utf8Character(text);
    const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
    text.remove_prefix(character.size());
    if (length == 0) {
      shown += REPLACEMENT_CHARACTER;
    } else if (IsUnprintable(character)) {
      shown += Escaped(character, escapes);
    } else {
      shown += character;
    }
    if (shown.size() + ELLIPSIS.size() <= limit) whole = shown.size();
    if (shown.size() <= limit) continue;
    shown.resize(whole);
    return shown.append(ELLIPSIS);
  }
  return shown;
}

}  // namespace charset
