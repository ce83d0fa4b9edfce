#include "Tovik/engine/channel_reply.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace {

static_assert(std::endian::native == std::endian::little, "the engine's integers are copied as they come");

// Reads one integer after the other, and none beyond the end.
class Cursor {
 public:
  Cursor(const char* data, size_t length) : next_(data), left_(length) {}

  template <typename Integer>
  bool TakeInteger(Integer* out) {
    if (left_ < sizeof *out) return false;
    std::memcpy(out, next_, sizeof *out);
    next_ += sizeof *out;
    left_ -= sizeof *out;
    return true;
  }
  size_t Left() const { return left_; }

 private:
  const char* next_;
  size_t left_;
};

int32_t LowHalf(int64_t value) {
  return static_cast<int32_t>(static_cast<uint64_t>(value) & UINT32_MAX);
}

// Reads up to `claimed` pairs of Integers into a new array.
template <typename Integer>
void TakeChannels(Cursor* cursor, int32_t claimed, LVCSR_DATA_CHANNEL* record) {
  const size_t count = std::min(static_cast<size_t>(claimed), cursor->Left() / (2 * sizeof(Integer)));
  record->nEntries = 0;
  record->pChannel = nullptr;
  if (count == 0) return;
  record->pChannel = static_cast<LVCSR_CHANNEL*>(std::calloc(count, sizeof *record->pChannel));
  if (record->pChannel == nullptr) return;
  Integer id = 0;
  Integer state = 0;
  for (size_t i = 0; i < count && cursor->TakeInteger(&id) && cursor->TakeInteger(&state); ++i) {
    record->pChannel[i] = {LowHalf(id), LowHalf(state)};
  }
  record->nEntries = static_cast<int32_t>(count);
}

}  // namespace

void DecodeChannelReply(const char* payload, size_t length, LVCSR_DATA_CHANNEL* record) {
  *record = {};
  Cursor cursor(payload, length);
  for (int32_t* count :
       {&record->nThreadCnt, &record->nChannelCnt, &record->nUsedCnt, &record->nWaitCnt, &record->nIdleCnt}) {
    cursor.TakeInteger(count);
  }
  if (record->nThreadCnt > 0) TakeChannels<int32_t>(&cursor, record->nThreadCnt, record);
}

void DecodeTextChannelReply(const char* data, size_t length, LVCSR_DATA_CHANNEL* record) {
  Cursor cursor(data, length);
  int64_t channels = 0;
  if (!cursor.TakeInteger(&channels)) return;
  record->nChannelCnt = LowHalf(channels);
  int64_t used = 0;
  if (cursor.TakeInteger(&used)) {
    record->nUsedCnt = LowHalf(used);
    record->nWaitCnt = static_cast<int32_t>(used >> 32);
  }
  if (record->nChannelCnt > 0) TakeChannels<int64_t>(&cursor, record->nChannelCnt, record);
}
