#include "DIOSVC/server_frames.h"

#include <algorithm>
#include <cstring>

#include "DIOSVC/report_types.h"
#include "base/format.h"
#include "base/number.h"

namespace frames {
namespace {

constexpr size_t LENGTH_DIGITS = 6;
constexpr size_t FRAME_OVERHEAD = 30;

}  // namespace

std::string OpenFrame(int64_t tag) {
  return base::Format("%06ld C %06d OPEN -e ", tag, 8);
}

std::string CloseFrame(int64_t tag) {
  return base::Format("%06ld C %06d CLOSE", tag, 5);
}

std::string DataFrame(int64_t tag, int64_t type, const std::string& data) {
  std::string frame;
  if (const ReportType* const report = FindReportType(type)) {
    const auto length = static_cast<long>(data.size() + std::strlen(report->keyword));
    frame = base::Format("%06ld C %06ld %s", tag, length, report->keyword);
  }
  frame += data;
  frame.resize(data.size() + FRAME_OVERHEAD);
  return frame;
}

int BodyLength(const char* header) {
  return static_cast<int>(std::max<int64_t>(0, base::LeadingNumber({LengthField(header), LENGTH_DIGITS})));
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
