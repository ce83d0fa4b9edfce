#include "DIOSVC/report_types.h"

#include <algorithm>

#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/channel_record.h"
#include "DIOSVC/server_frames.h"

namespace {

// The alarm's code is carried in the pointer itself.
std::string AlarmReportBody(const void* report_data) {
  return AlarmText(reinterpret_cast<intptr_t>(report_data));
}

// An LVCSR_DATA_CHANNEL.
std::string ChannelReportBody(const void* report_data) {
  return frames::ChannelList(*static_cast<const LVCSR_DATA_CHANNEL*>(report_data));
}

// Two int32_t: percent of CPU and memory.
std::string ResourceReportBody(const void* report_data) {
  const auto* const report_percents = static_cast<const int32_t*>(report_data);
  return frames::ResourceText(report_percents[0], report_percents[1]);
}

}  // namespace

const std::array<ReportType, 3> REPORT_TYPES = {{
    {REPORT_ALARM, 1125, "ALARM+", AlarmReportBody, "[ SOCK_SVC ] : svc Alam Send fail."},
    {REPORT_CHANNEL_STATUS, 1127, "CH_STATE_DATA+", ChannelReportBody,
     "[ SOCK_SVC ] : svc ch data send fail."},
    {REPORT_RESOURCE_USAGE, 1128, "RESOURCE_INFO+", ResourceReportBody,
     "[ SOCK_SVC ] : svc ch resource send fail."},
}};

const ReportType* FindReportType(int64_t report_type) {
  const auto* report_row =
      std::find_if(REPORT_TYPES.begin(), REPORT_TYPES.end(),
                   [&](const ReportType& candidate) { return candidate.type == report_type; });
  return report_row == REPORT_TYPES.end() ? nullptr : report_row;
}
