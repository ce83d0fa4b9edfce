// The engine's two answers about its channels, as bytes. Counts and lengths in them are claims: they are kept
// as sent, but nothing is read beyond the bytes that came, and the array holds only entries that came whole.
#ifndef TOVIK_ENGINE_CHANNEL_REPLY_H
#define TOVIK_ENGINE_CHANNEL_REPLY_H

#include <cstddef>

#include "DIOSVC/channel_record.h"

// The payload of the binary reply: five counts in the order of the record, then nThreadCnt pairs of id and
// state, all 32-bit little-endian. Replaces the whole record (an older array is not released) with a new
// array; counts that did not arrive are 0. Without memory the array is empty.
void DecodeChannelReply(const char* payload, size_t length, LVCSR_DATA_CHANNEL* record);

// The binary part of the text-framed reply: channel count, used count, then pairs of id and state, all 64-bit
// little-endian, of which the low halves are kept; nWaitCnt receives the high half of the used count. What
// did not arrive leaves its fields as they were. A channel count above 0 brings a new array (an older one is
// not released).
void DecodeTextChannelReply(const char* data, size_t length, LVCSR_DATA_CHANNEL* record);

#endif
