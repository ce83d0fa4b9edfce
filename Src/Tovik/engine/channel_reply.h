// Decoding of the engine's two channel replies. Counts and lengths in a reply are kept as sent but not
// trusted: nothing is read beyond the bytes that arrived, and the array holds only entries that arrived
// whole.
#ifndef TOVIK_ENGINE_CHANNEL_REPLY_H
#define TOVIK_ENGINE_CHANNEL_REPLY_H

#include <cstddef>

#include "DIOSVC/channel_record.h"

// Decodes the payload of the binary reply: five counts in the order of the record, then nThreadCnt pairs of
// id and state, all 32-bit little-endian. Replaces the whole record with a new array; an older array is not
// released. Counts that did not arrive are 0. Without memory the array is empty.
void DecodeChannelReply(const char* replyPayload, size_t replyLength, LVCSR_DATA_CHANNEL* decodedReply);

// Decodes the binary part of the text-framed reply: channel count, used count, then pairs of id and state,
// all 64-bit little-endian. Their low halves are kept; nWaitCnt receives the high half of the used count.
// Fields that did not arrive stay as they were. A channel count above 0 brings a new array; an older one is
// not released.
void DecodeTextChannelReply(const char* replyData, size_t replyLength, LVCSR_DATA_CHANNEL* decodedReply);

#endif
