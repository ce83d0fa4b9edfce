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

std::shared_ptr<const LVCSR_DATA_CHANNEL> CurrentChannelStatus() {
  const auto channelStatus = gSTAT.Get();
  return {channelStatus, &channelStatus->record};
}
