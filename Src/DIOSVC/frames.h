// The frames of the management link: a 16-character header ("NNNNNN C LLLLLL ": connection tag, body length)
// and a body, in both directions.
#ifndef DIOSVC_FRAMES_H
#define DIOSVC_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "DIOSVC/channel_record.h"

namespace frames {

inline constexpr size_t HEADER_SIZE = 16;

std::string OpenFrame(int64_t tag);
std::string CloseFrame(int64_t tag);

// The type's keyword (report_types.h) and the data behind a header; for no known type the data alone. The
// frame is always the data's length + 30 bytes, zeros behind its text: an alarm frame, whose keyword is
// shorter than the others, ends in 8 zero bytes that its length field does not count.
std::string DataFrame(int64_t tag, int64_t type, const std::string& data);

// The rest of a header from its length field, bytes 9 to 14, on.
inline const char* LengthField(const char* header) {
  return header + 9;
}
// Bytes 9 to 14 of a reply's header as a number, 0 for text, never negative.
int BodyLength(const char* header);

// "id:state" of every channel, joined by ",", as unsigned numbers: as many as the engine counts, but no more
// than it sent.
std::string ChannelList(const LVCSR_DATA_CHANNEL& status);

// "c:<cpu>,m:<memory>", in percent.
std::string ResourceText(int32_t cpu, int32_t memory);

}  // namespace frames

#endif
