#include "Tovik/engine/channel_status.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

#include "Tovik/config/config.h"
#include "Tovik/engine/engine_packet.h"
#include "Tovik/trace.h"
#include "base/shared_record.h"
#include "base/unique_handles.h"
#include "tls/tls_socket.h"

std::atomic<uint8_t> g_shm_open_flag{0};

namespace {

constexpr const char* QUERIED_HOST = "127.0.0.1";
constexpr int QUERY_CONNECT_SECONDS = 10;
constexpr int QUERY_REPLY_SECONDS = 30;
constexpr int32_t ASK_CHANNELS = 5;

// A record that owns its channel array.
struct ChannelStatus {
  ChannelStatus() = default;
  explicit ChannelStatus(const LVCSR_DATA_CHANNEL& filled) : record(filled), channels(filled.pChannel) {}

  LVCSR_DATA_CHANNEL record{};
  std::unique_ptr<LVCSR_CHANNEL[], base::MallocFree> channels;
};

base::SharedRecord<ChannelStatus> gSTAT;

int ResultOfStatus(int32_t engine_status) {
  switch (engine_status) {
    case 2:
    case 3:
      return ENGINE_FAILED;
    case 4:
      return ENGINE_REFUSED;
    default:
      return ENGINE_OK;
  }
}

void PrepareQueryTls(LVCSR_SOCK_HEAD* head) {
  CreateClientContext(SSLInit(head));
  DunraSTT_SSL(m_sz_cert_file, m_sz_key_file, m_sz_ca_file, m_sz_ssl_password, head);
}

struct QueryExit {
  void operator()(LVCSR_SOCK_HEAD* head) const { DunraSTT_EXIT(head); }
};

// Closes the connection in every case, also without memory for the record.
void Query(LVCSR_SOCK_HEAD* head) {
  const std::unique_ptr<LVCSR_SOCK_HEAD, QueryExit> connection(head);
  gSTAT.Set({});
  LVCSR_DATA_CHANNEL record{};
  if (DunraSTT_GET_CHANNEL(head, &record) == ENGINE_OK) {
    TRACE(TRACE_INFO,
          "Thread Count [ %d ], Channel Count [ %d ], Used Count [ %d ], Wait Count [ %d ], "
          "Idle Count [ %d ]",
          record.nThreadCnt, record.nChannelCnt, record.nUsedCnt, record.nWaitCnt, record.nIdleCnt);
  }
  gSTAT.Set(ChannelStatus(record));
}

// The channels that are both counted by the engine and present in the record.
std::span<const LVCSR_CHANNEL> CountedChannels(const LVCSR_DATA_CHANNEL& channelStatus) {
  const int32_t channelCount = std::clamp(channelStatus.nChannelCnt, 0, channelStatus.nEntries);
  return {channelStatus.pChannel, static_cast<size_t>(channelCount)};
}

int64_t UsedChannelPercent(const LVCSR_DATA_CHANNEL& status) {
  constexpr float PERCENT_LIMIT = 9223372036854775808.0F;  // 2^63
  // In single precision. The division by 0 channels would give infinity or not-a-number.
  if (status.nChannelCnt == 0) return INT64_MIN;
  const float percent = static_cast<float>(status.nUsedCnt) / static_cast<float>(status.nChannelCnt) * 100.0F;
  return percent >= -PERCENT_LIMIT && percent < PERCENT_LIMIT ? static_cast<int64_t>(percent) : INT64_MIN;
}

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

int DunraSTT_GET_CHANNEL(LVCSR_SOCK_HEAD* head, LVCSR_DATA_CHANNEL* record) {
  if (head->bUseSSL != 0 && head->pSSL == nullptr) return ENGINE_FAILED;
  if (head->uSock <= 0) {
    TRACE(TRACE_ERROR, "[CHANNEL] Socket ID Create Failed");
    return ENGINE_FAILED;
  }
  const LVCSR_NET_HEADER request{ASK_CHANNELS, 0, 0, head->uChannel};
  int result = SendData(head, &request, nullptr, 0);
  if (result != ENGINE_OK) {
    TRACE(TRACE_ERROR, "[CHANNEL] SendData packets Failed[%d]", request.nLength);
    return result;
  }
  LVCSR_NET_HEADER reply{};
  const base::UniqueText payload(RecvData(head, &reply, &result, 0));
  if (payload != nullptr) DecodeChannelReply(payload.get(), static_cast<size_t>(reply.nLength), record);
  if (result == ENGINE_OK) {
    result = ResultOfStatus(reply.nStatus);
    TRACE(TRACE_ERROR, "[CHANNEL] RecvData packets Check[%d] Stat[%d] Len[%d]", result, reply.nStatus,
          reply.nLength);
  }
  head->uChannel = result == ENGINE_OK ? reply.nChannel : -1;
  return result;
}

int SHM_OPEN() {
  LVCSR_SOCK_HEAD head{};
  if (m_ssl_check != 0) PrepareQueryTls(&head);
  const int port = static_cast<int>(m_PROC_PORT);
  if (DunraSTT_INIT(QUERIED_HOST, port, QUERY_CONNECT_SECONDS, QUERY_REPLY_SECONDS, &head) != ENGINE_OK) {
    TRACE(TRACE_ERROR, "[ %d ] disconnect", port);
    DunraSTT_EXIT(&head);
    return -1;
  }
  Query(&head);
  TRACE(TRACE_INFO, "Shared memory");
  return 1;
}

int SHM_CLOS() {
  gSTAT.Set({});
  return 1;
}

int64_t get_recg_svr_wrk_ch_cnt() {
  const auto channelStatus = CurrentChannelStatus();
  const int64_t percent = UsedChannelPercent(*channelStatus);
  TRACE(TRACE_INFO, "ch_status_check TotalCh cnt [ %ld ] MaxCh cnt [ %ld ] Percent [ %ld ]",
        long{channelStatus->nChannelCnt}, long{channelStatus->nUsedCnt}, long{percent});
  for (const LVCSR_CHANNEL& channel : CountedChannels(*channelStatus)) {
    TRACE(TRACE_INFO, "recog_channel_status CHID [%d], STAT[%d]", channel.id, channel.state);
  }
  return percent;
}

int64_t ch_status_check() {
  const auto channelStatus = CurrentChannelStatus();
  std::printf("ch_status_check TotalCh cnt [ %lld ] !!", static_cast<long long>(channelStatus->nChannelCnt));
  for (const LVCSR_CHANNEL& channel : CountedChannels(*channelStatus)) {
    std::printf("CHID [ %ld ], STATUS [ %ld ]", long{channel.id}, long{channel.state});
  }
  return channelStatus->nChannelCnt;
}

std::shared_ptr<const LVCSR_DATA_CHANNEL> CurrentChannelStatus() {
  const auto channelStatus = gSTAT.Get();
  return {channelStatus, &channelStatus->record};
}

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
