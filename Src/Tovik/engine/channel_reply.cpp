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
  ChannelReplyReader(const char* replyData, size_t replyLength)
      : reply_(replyData), replyLeft_(replyLength) {}

  template <typename ReplyInteger>
  bool TakeReplyInteger(ReplyInteger* replyInteger) {
    if (replyLeft_ < sizeof *replyInteger) return false;
    std::memcpy(replyInteger, reply_, sizeof *replyInteger);
    reply_ += sizeof *replyInteger;
    replyLeft_ -= sizeof *replyInteger;
    return true;
  }
  size_t ReplyLeft() const { return replyLeft_; }

 private:
  const char* reply_;
  size_t replyLeft_;
};

int32_t LowReplyHalf(int64_t replyInteger) {
  return static_cast<int32_t>(static_cast<uint64_t>(replyInteger) & UINT32_MAX);
}

// Reads up to `claimedChannels` pairs of ReplyIntegers into a new array.
template <typename ReplyInteger>
void TakeReplyChannels(ChannelReplyReader* reply, int32_t claimedChannels, LVCSR_DATA_CHANNEL* decodedReply) {
  const size_t replyChannels =
      std::min(static_cast<size_t>(claimedChannels), reply->ReplyLeft() / (2 * sizeof(ReplyInteger)));
  decodedReply->nEntries = 0;
  decodedReply->pChannel = nullptr;
  if (replyChannels == 0) return;
  decodedReply->pChannel =
      static_cast<LVCSR_CHANNEL*>(std::calloc(replyChannels, sizeof *decodedReply->pChannel));
  if (decodedReply->pChannel == nullptr) return;
  ReplyInteger replyId = 0;
  ReplyInteger replyState = 0;
  for (size_t i = 0;
       i < replyChannels && reply->TakeReplyInteger(&replyId) && reply->TakeReplyInteger(&replyState); ++i) {
    decodedReply->pChannel[i] = {LowReplyHalf(replyId), LowReplyHalf(replyState)};
  }
  decodedReply->nEntries = static_cast<int32_t>(replyChannels);
}

}  // namespace

void DecodeChannelReply(const char* replyPayload, size_t replyLength, LVCSR_DATA_CHANNEL* decodedReply) {
  *decodedReply = {};
  ChannelReplyReader reply(replyPayload, replyLength);
  for (int32_t* replyCount : {&decodedReply->nThreadCnt, &decodedReply->nChannelCnt, &decodedReply->nUsedCnt,
                              &decodedReply->nWaitCnt, &decodedReply->nIdleCnt}) {
    reply.TakeReplyInteger(replyCount);
  }
  if (decodedReply->nThreadCnt > 0)
    TakeReplyChannels<int32_t>(&reply, decodedReply->nThreadCnt, decodedReply);
}

void DecodeTextChannelReply(const char* replyData, size_t replyLength, LVCSR_DATA_CHANNEL* decodedReply) {
  ChannelReplyReader reply(replyData, replyLength);
  int64_t replyChannels = 0;
  if (!reply.TakeReplyInteger(&replyChannels)) return;
  decodedReply->nChannelCnt = LowReplyHalf(replyChannels);
  int64_t replyUsedChannels = 0;
  if (reply.TakeReplyInteger(&replyUsedChannels)) {
    decodedReply->nUsedCnt = LowReplyHalf(replyUsedChannels);
    decodedReply->nWaitCnt = static_cast<int32_t>(replyUsedChannels >> 32);
  }
  if (decodedReply->nChannelCnt > 0)
    TakeReplyChannels<int64_t>(&reply, decodedReply->nChannelCnt, decodedReply);
}
