#include "DIOSVC/frames.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "base/format.h"

namespace frames {
namespace {

constexpr size_t LENGTH_OFFSET = 9;
constexpr size_t LENGTH_DIGITS = 6;
constexpr size_t FRAME_OVERHEAD = 30;

// A code that is absent here, and 4 and 5, which only accompany requests of another type, have no text.
constexpr std::array<const char*, 7> ALARM_TEXTS = {
    "Tovik Start", "Memory Check", "Cpu Check", "DunraSTT Check", "", "", "Work Channel Check"};

struct Keyword {
  int64_t type;
  const char* text;
  size_t length;
};
constexpr std::array<Keyword, 3> KEYWORDS = {{{REPORT_ALARM, "ALARM+", 6},
                                              {REPORT_CHANNEL_STATUS, "CH_STATE_DATA+", 14},
                                              {REPORT_RESOURCE_USAGE, "RESOURCE_INFO+", 14}}};

}  // namespace

std::string OpenFrame(int64_t tag) {
  return base::Format("%06ld C %06d OPEN -e ", tag, 8);
}

std::string CloseFrame(int64_t tag) {
  return base::Format("%06ld C %06d CLOSE", tag, 5);
}

std::string DataFrame(int64_t tag, int64_t type, const std::string& data) {
  std::string frame;
  const auto* keyword =
      std::find_if(KEYWORDS.begin(), KEYWORDS.end(), [&](const Keyword& row) { return row.type == type; });
  if (keyword != KEYWORDS.end()) {
    const auto length = static_cast<long>(data.size() + keyword->length);
    frame = base::Format("%06ld C %06ld %s", tag, length, keyword->text);
  }
  frame += data;
  frame.resize(data.size() + FRAME_OVERHEAD);
  return frame;
}

int BodyLength(const char* header) {
  return std::max(0, std::atoi(std::string(header + LENGTH_OFFSET, LENGTH_DIGITS).c_str()));
}

const char* AlarmText(int64_t code) {
  return code >= 0 && code < static_cast<int64_t>(ALARM_TEXTS.size()) ? ALARM_TEXTS[static_cast<size_t>(code)]
                                                                      : "";
}

std::string ChannelList(const LVCSR_DATA_CHANNEL& status) {
  std::string list;
  const int32_t count = std::min(status.nChannelCnt, status.nEntries);
  for (int32_t i = 0; i < count; ++i) {
    const LVCSR_CHANNEL& channel = status.pChannel[i];
    list += base::Format("%s%u:%u", i == 0 ? "" : ",", static_cast<uint32_t>(channel.id),
                         static_cast<uint32_t>(channel.state));
  }
  return list;
}

std::string ResourceText(int32_t cpu, int32_t memory) {
  return base::Format("c:%d,m:%d", cpu, memory);
}

}  // namespace frames
