#include "charset/utf8_repair.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>

#include "charset/utf8_text.h"

namespace charset {
namespace {

// The bytes of a line that need no repair; its whole size when none do.
struct SoundUtf8 {
  size_t soundSize = 0;
  bool soundBeyondAscii = false;
};

SoundUtf8 SoundUtf8Start(std::string_view brokenLine) {
  SoundUtf8 sound;
  while (const size_t soundLength = Utf8Character(brokenLine.substr(sound.soundSize))) {
    sound.soundSize += soundLength;
    sound.soundBeyondAscii = sound.soundBeyondAscii || soundLength > 1;
  }
  return sound;
}

// Whether a byte may stand in a pair of high bytes, user-defined ones included.
bool InBrokenPair(char c) {
  const auto brokenByte = static_cast<uint8_t>(c);
  return brokenByte >= 0x81 && brokenByte <= 0xFE;
}

// A conversion from code page 949. glibc's conversions share nothing between two of them.
class Cp949Repair {
 public:
  Cp949Repair() : iconv_(::iconv_open("UTF-8", "CP949")) {}
  ~Cp949Repair() {
    if (Open()) ::iconv_close(iconv_);
  }
  Cp949Repair(const Cp949Repair&) = delete;
  Cp949Repair& operator=(const Cp949Repair&) = delete;

  // Appends the line's characters, each bad byte as U+FFFD: so all of them where the system lacks the table.
  void AppendRepaired(std::string_view brokenLine, std::string* repaired) {
    while (!brokenLine.empty()) {
      brokenLine.remove_prefix(AppendSound(brokenLine, repaired));
      if (brokenLine.empty()) return;
      repaired->append(REPLACEMENT_CHARACTER);
      const bool brokenPair =
          brokenLine.size() > 1 && InBrokenPair(brokenLine[0]) && InBrokenPair(brokenLine[1]);
      brokenLine.remove_prefix(brokenPair ? 2 : 1);
    }
  }

 private:
  bool Open() const { return iconv_ != reinterpret_cast<iconv_t>(-1); }

  // Appends what converts at the line's beginning; how many of its bytes these are.
  size_t AppendSound(std::string_view brokenLine, std::string* repaired) {
    if (!Open()) return AppendAscii(brokenLine, repaired);
    char* brokenBytes = const_cast<char*>(brokenLine.data());  // the interface is older than const
    size_t brokenLeft = brokenLine.size();
    bool repairedFull = true;
    while (repairedFull) {
      std::array<char, 1024> repairedPiece;
      char* repairedEnd = repairedPiece.data();
      size_t repairedRoom = repairedPiece.size();
      repairedFull = ::iconv(iconv_, &brokenBytes, &brokenLeft, &repairedEnd, &repairedRoom) ==
                         static_cast<size_t>(-1) &&
                     errno == E2BIG;
      repaired->append(repairedPiece.data(), repairedPiece.size() - repairedRoom);
    }
    return brokenLine.size() - brokenLeft;
  }
  static size_t AppendAscii(std::string_view brokenLine, std::string* repaired) {
    size_t asciiLength = 0;
    while (asciiLength < brokenLine.size() && static_cast<uint8_t>(brokenLine[asciiLength]) < 0x80)
      ++asciiLength;
    repaired->append(brokenLine.substr(0, asciiLength));
    return asciiLength;
  }

  iconv_t iconv_;
};

}  // namespace

std::string Repaired(std::string_view brokenText) {
  std::string repaired;
  repaired.reserve(brokenText.size());
  std::optional<Cp949Repair> cp949Repair;  // opens tables: most texts are sound and need none
  while (!brokenText.empty()) {
    const std::string_view brokenLine = brokenText.substr(0, brokenText.find('\n'));
    const SoundUtf8 sound = SoundUtf8Start(brokenLine);
    if (sound.soundSize == brokenLine.size()) {
      repaired.append(brokenLine);
    } else if (sound.soundBeyondAscii && IsCutUtf8Character(brokenLine.substr(sound.soundSize))) {
      repaired.append(brokenLine.substr(0, sound.soundSize)).append(REPLACEMENT_CHARACTER);
    } else {
      if (!cp949Repair) cp949Repair.emplace();
      cp949Repair->AppendRepaired(brokenLine, &repaired);
    }
    brokenText.remove_prefix(brokenLine.size());
    if (brokenText.empty()) break;
    repaired.push_back('\n');
    brokenText.remove_prefix(1);
  }
  return repaired;
}

std::string OneLine(std::string_view brokenText, size_t limit) {
  std::string repairedLine = Repaired(brokenText);
  for (char& repairedByte : repairedLine)
    if (static_cast<uint8_t>(repairedByte) < ' ' || repairedByte == '\x7F') repairedByte = ' ';
  const size_t repairedBegin = repairedLine.find_first_not_of(' ');
  if (repairedBegin == std::string::npos) return {};
  repairedLine = repairedLine.substr(repairedBegin, repairedLine.find_last_not_of(' ') + 1 - repairedBegin);
  return std::string(Utf8Prefix(repairedLine, limit));
}

}  // namespace charset
