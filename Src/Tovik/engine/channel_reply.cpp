#include "Tovik/engine/channel_reply.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

static_assert(std::endian::native == std::endian::little, "the engine's integers are copied as they come");

// Reads one integer after the other, and none beyond the end.
class ChannelReplyReader {
 public:
  ChannelReplyReader(const char* data, size_t length) : reply_(data), replyLeft_(length) {}

  template <typename Integer>
  bool TakeInteger(Integer* out) {
    if (replyLeft_ < sizeof *out) return false;
    std::memcpy(out, reply_, sizeof *out);
    reply_ += sizeof *out;
    replyLeft_ -= sizeof *out;
    return true;
  }
  size_t Left() const { return replyLeft_; }

 private:
  const char* reply_;
  size_t replyLeft_;
};

int32_t LowHalf(int64_t value) {
  return static_cast<int32_t>(static_cast<uint64_t>(value) & UINT32_MAX);
}

// Reads up to `claimed` pairs of Integers into a new array.
template <typename Integer>
void TakeChannels(ChannelReplyReader* reply, int32_t claimed, LVCSR_DATA_CHANNEL* record) {
  const size_t channelCount = std::min(static_cast<size_t>(claimed), reply->Left() / (2 * sizeof(Integer)));
  record->nEntries = 0;
  record->pChannel = nullptr;
  if (channelCount == 0) return;
  record->pChannel = static_cast<LVCSR_CHANNEL*>(std::calloc(channelCount, sizeof *record->pChannel));
  if (record->pChannel == nullptr) return;
  Integer id = 0;
  Integer state = 0;
  for (size_t i = 0; i < channelCount && reply->TakeInteger(&id) && reply->TakeInteger(&state); ++i) {
    record->pChannel[i] = {LowHalf(id), LowHalf(state)};
  }
  record->nEntries = static_cast<int32_t>(channelCount);
}

}  // namespace

void DecodeChannelReply(const char* payload, size_t length, LVCSR_DATA_CHANNEL* record) {
  *record = {};
  ChannelReplyReader reply(payload, length);
  for (int32_t* replyCount :
       {&record->nThreadCnt, &record->nChannelCnt, &record->nUsedCnt, &record->nWaitCnt, &record->nIdleCnt}) {
    reply.TakeInteger(replyCount);
  }
  if (record->nThreadCnt > 0) TakeChannels<int32_t>(&reply, record->nThreadCnt, record);
}

void DecodeTextChannelReply(const char* data, size_t length, LVCSR_DATA_CHANNEL* record) {
  ChannelReplyReader reply(data, length);
  int64_t channelCount = 0;
  if (!reply.TakeInteger(&channelCount)) return;
  record->nChannelCnt = LowHalf(channelCount);
  int64_t usedChannels = 0;
  if (reply.TakeInteger(&usedChannels)) {
    record->nUsedCnt = LowHalf(usedChannels);
    record->nWaitCnt = static_cast<int32_t>(usedChannels >> 32);
  }
  if (record->nChannelCnt > 0) TakeChannels<int64_t>(&reply, record->nChannelCnt, record);
}
