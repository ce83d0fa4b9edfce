#include "Tovik/engine/channel_status.h"

#include <memory>
#include <utility>

#include "Tovik/config/config.h"
#include "Tovik/engine/channel_reply.h"
#include "Tovik/engine/engine_packet.h"
#include "Tovik/trace.h"
#include "base/shared_record.h"
#include "base/unique_handles.h"
#include "tls/tls_socket.h"

std::atomic<uint8_t> g_shm_open_flag{0};

namespace {

constexpr const char* CHANNEL_QUERY_HOST = "127.0.0.1";
constexpr int CHANNEL_CONNECT_SECONDS = 10;
constexpr int CHANNEL_ANSWER_SECONDS = 30;
constexpr int32_t ASK_CHANNEL_STATUS = 5;

// A record that owns its channel array.
struct ChannelStatus {
  ChannelStatus() = default;
  explicit ChannelStatus(const LVCSR_DATA_CHANNEL& answeredStatus)
      : record(answeredStatus), channels(answeredStatus.pChannel) {}

  LVCSR_DATA_CHANNEL record{};
  std::unique_ptr<LVCSR_CHANNEL[], base::MallocFree> channels;
};

base::SharedRecord<ChannelStatus> gSTAT;

int ChannelStatusResult(int32_t channelQueryStatus) {
  switch (channelQueryStatus) {
    case 2:
    case 3:
      return ENGINE_FAILED;
    case 4:
      return ENGINE_REFUSED;
    default:
      return ENGINE_OK;
  }
}

void PrepareChannelQueryTls(LVCSR_SOCK_HEAD* channelSocket) {
  CreateClientContext(SSLInit(channelSocket));
  DunraSTT_SSL(m_sz_cert_file, m_sz_key_file, m_sz_ca_file, m_sz_ssl_password, channelSocket);
}

struct ChannelQueryExit {
  void operator()(LVCSR_SOCK_HEAD* channelSocket) const { DunraSTT_EXIT(channelSocket); }
};

// Closes the connection in every case, also without memory for the record.
void QueryChannelStatus(LVCSR_SOCK_HEAD* channelSocket) {
  const std::unique_ptr<LVCSR_SOCK_HEAD, ChannelQueryExit> channelQuery(channelSocket);
  gSTAT.Set({});
  LVCSR_DATA_CHANNEL channelRecord{};
  if (DunraSTT_GET_CHANNEL(channelSocket, &channelRecord) == ENGINE_OK) {
    TRACE(TRACE_INFO,
          "Thread Count [ %d ], Channel Count [ %d ], Used Count [ %d ], Wait Count [ %d ], "
          "Idle Count [ %d ]",
          channelRecord.nThreadCnt, channelRecord.nChannelCnt, channelRecord.nUsedCnt, channelRecord.nWaitCnt,
          channelRecord.nIdleCnt);
  }
  gSTAT.Set(ChannelStatus(channelRecord));
}

}  // namespace

int DunraSTT_GET_CHANNEL(LVCSR_SOCK_HEAD* channelSocket, LVCSR_DATA_CHANNEL* record) {
  if (channelSocket->bUseSSL != 0 && channelSocket->pSSL == nullptr) return ENGINE_FAILED;
  if (channelSocket->uSock <= 0) {
    TRACE(TRACE_ERROR, "[CHANNEL] Socket ID Create Failed");
    return ENGINE_FAILED;
  }
  const LVCSR_NET_HEADER channelQuery{ASK_CHANNEL_STATUS, 0, 0, channelSocket->uChannel};
  int channelResult = SendData(channelSocket, &channelQuery, nullptr, 0);
  if (channelResult != ENGINE_OK) {
    TRACE(TRACE_ERROR, "[CHANNEL] SendData packets Failed[%d]", channelQuery.nLength);
    return channelResult;
  }
  LVCSR_NET_HEADER channelAnswer{};
  const base::UniqueText answeredChannels(RecvData(channelSocket, &channelAnswer, &channelResult, 0));
  if (answeredChannels != nullptr)
    DecodeChannelReply(answeredChannels.get(), static_cast<size_t>(channelAnswer.nLength), record);
  if (channelResult == ENGINE_OK) {
    channelResult = ChannelStatusResult(channelAnswer.nStatus);
    TRACE(TRACE_ERROR, "[CHANNEL] RecvData packets Check[%d] Stat[%d] Len[%d]", channelResult,
          channelAnswer.nStatus, channelAnswer.nLength);
  }
  channelSocket->uChannel = channelResult == ENGINE_OK ? channelAnswer.nChannel : -1;
  return channelResult;
}

int SHM_OPEN() {
  LVCSR_SOCK_HEAD channelSocket{};
  if (m_ssl_check != 0) PrepareChannelQueryTls(&channelSocket);
  const int channelPort = static_cast<int>(m_PROC_PORT);
  if (DunraSTT_INIT(CHANNEL_QUERY_HOST, channelPort, CHANNEL_CONNECT_SECONDS, CHANNEL_ANSWER_SECONDS,
                    &channelSocket) != ENGINE_OK) {
    TRACE(TRACE_ERROR, "[ %d ] disconnect", channelPort);
    DunraSTT_EXIT(&channelSocket);
    return -1;
  }
  QueryChannelStatus(&channelSocket);
  TRACE(TRACE_INFO, "Shared memory");
  return 1;
}

int SHM_CLOS() {
  gSTAT.Set({});
  return 1;
}

std::shared_ptr<const LVCSR_DATA_CHANNEL> CurrentChannelStatus() {
  const auto channelStatus = gSTAT.Get();
  return {channelStatus, &channelStatus->record};
}
