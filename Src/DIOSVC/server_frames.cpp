#include "DIOSVC/server_frames.h"

#include <algorithm>
#include <cstring>

#include "DIOSVC/report_types.h"
#include "base/format.h"
#include "base/number.h"

namespace frames {
namespace {

constexpr size_t FRAME_LENGTH_DIGITS = 6;
constexpr size_t DATA_FRAME_OVERHEAD = 30;

}  // namespace

std::string OpenFrame(int64_t frame_tag) {
  return base::Format("%06ld C %06d OPEN -e ", frame_tag, 8);
}

std::string CloseFrame(int64_t frame_tag) {
  return base::Format("%06ld C %06d CLOSE", frame_tag, 5);
}

std::string DataFrame(int64_t frame_tag, int64_t report_type, const std::string& frame_data) {
  std::string data_frame;
  if (const ReportType* const frame_report = FindReportType(report_type)) {
    const auto frame_body_length = static_cast<long>(frame_data.size() + std::strlen(frame_report->keyword));
    data_frame = base::Format("%06ld C %06ld %s", frame_tag, frame_body_length, frame_report->keyword);
  }
  data_frame += frame_data;
  data_frame.resize(frame_data.size() + DATA_FRAME_OVERHEAD);
  return data_frame;
}

int BodyLength(const char* frame_header) {
  return static_cast<int>(
      std::max<int64_t>(0, base::LeadingNumber({LengthField(frame_header), FRAME_LENGTH_DIGITS})));
}

std::string ChannelList(const LVCSR_DATA_CHANNEL& frame_channels) {
  std::string frame_list;
  const int32_t frame_channel_count = std::min(frame_channels.nChannelCnt, frame_channels.nEntries);
  for (int32_t i = 0; i < frame_channel_count; ++i) {
    const LVCSR_CHANNEL& channel = frame_channels.pChannel[i];
    const auto frame_id = static_cast<uint32_t>(channel.id);
    const auto frame_state = static_cast<uint32_t>(channel.state);
    frame_list += base::Format("%s%u:%u", i == 0 ? "" : ",", frame_id, frame_state);
  }
  return frame_list;
}

std::string ResourceText(int32_t frame_cpu, int32_t frame_memory) {
  return base::Format("c:%d,m:%d", frame_cpu, frame_memory);
}

}  // namespace frames
