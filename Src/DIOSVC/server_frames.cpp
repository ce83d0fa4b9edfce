#include "DIOSVC/server_frames.h"

#include <algorithm>
#include <cstring>

#include "DIOSVC/report_types.h"
#include "base/format.h"
#include "base/number.h"

namespace frames {
namespace {

constexpr size_t LENGTH_FIELD_DIGITS = 6;
constexpr size_t DATA_FRAME_OVERHEAD = 30;

}  // namespace

std::string OpenFrame(int64_t connection_tag) {
  return base::Format("%06ld C %06d OPEN -e ", connection_tag, 8);
}

std::string CloseFrame(int64_t connection_tag) {
  return base::Format("%06ld C %06d CLOSE", connection_tag, 5);
}

std::string DataFrame(int64_t connection_tag, int64_t report_type, const std::string& report_data) {
  std::string data_frame;
  if (const ReportType* const report_row = FindReportType(report_type)) {
    const auto body_length = static_cast<long>(report_data.size() + std::strlen(report_row->keyword));
    data_frame = base::Format("%06ld C %06ld %s", connection_tag, body_length, report_row->keyword);
  }
  data_frame += report_data;
  data_frame.resize(report_data.size() + DATA_FRAME_OVERHEAD);
  return data_frame;
}

int BodyLength(const char* reply_header) {
  return static_cast<int>(
      std::max<int64_t>(0, base::LeadingNumber({LengthField(reply_header), LENGTH_FIELD_DIGITS})));
}

std::string ChannelList(const LVCSR_DATA_CHANNEL& status) {
  std::string channel_list;
  const int32_t channel_count = std::min(status.nChannelCnt, status.nEntries);
  for (int32_t i = 0; i < channel_count; ++i) {
    const LVCSR_CHANNEL& channel = status.pChannel[i];
    channel_list += base::Format("%s%u:%u", i == 0 ? "" : ",", static_cast<uint32_t>(channel.id),
                                 static_cast<uint32_t>(channel.state));
  }
  return channel_list;
}

std::string ResourceText(int32_t cpu, int32_t memory) {
  return base::Format("c:%d,m:%d", cpu, memory);
}

}  // namespace frames
