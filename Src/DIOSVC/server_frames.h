// The frames of the management link. In both directions a frame is a header of 16 characters ("NNNNNN C
// LLLLLL ": connection tag, body length) and a body.
#ifndef DIOSVC_SERVER_FRAMES_H
#define DIOSVC_SERVER_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "DIOSVC/channel_record.h"

namespace frames {

inline constexpr size_t HEADER_SIZE = 16;

std::string OpenFrame(int64_t frame_tag);
std::string CloseFrame(int64_t frame_tag);

// A header, the type's keyword (report_types.h) and the data. For an unknown type there is only the data. The
// frame is always 30 bytes longer than the data and filled with zeros: an alarm frame, whose keyword is
// shorter than the others, ends in 8 zero bytes that its length field does not count.
std::string DataFrame(int64_t frame_tag, int64_t report_type, const std::string& frame_data);

// The rest of a header, starting at its length field (bytes 9 to 14).
inline const char* LengthField(const char* frame_header) {
  return frame_header + 9;
}
// The length field as a number. 0 when it holds no number; never negative.
int BodyLength(const char* frame_header);

// "id:state" of each channel as unsigned numbers, joined by ",". At most as many channels as the engine
// counts, and no more than it sent.
std::string ChannelList(const LVCSR_DATA_CHANNEL& frame_channels);

// "c:<cpu>,m:<memory>", in percent.
std::string ResourceText(int32_t frame_cpu, int32_t frame_memory);

}  // namespace frames

#endif
