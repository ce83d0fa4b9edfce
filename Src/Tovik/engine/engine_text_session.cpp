#include "Tovik/engine/engine_text_session.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Tovik/engine/channel_reply.h"
#include "Tovik/engine/engine_payload.h"
#include "base/format.h"
#include "base/number.h"
#include "base/standard_descriptors.h"
#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"

namespace {

constexpr int SESSION_CONNECT_SECONDS = 5;
constexpr int SESSION_REPLY_SECONDS = 60;
constexpr int TEXT_ASK_CHANNELS = 4;
constexpr size_t TEXT_REQUEST_LENGTH = 24;  // 23 characters of text and one zero byte

constexpr size_t TEXT_HEADER_LENGTH = 20;
constexpr size_t BODY_LENGTH_AT = 9;
constexpr size_t BODY_LENGTH_WIDTH = 10;

constexpr size_t ACKNOWLEDGE_AT = 3;
constexpr std::string_view ACKNOWLEDGE = "ASR_ACK";
constexpr std::string_view CHANNEL_DATA = "ASR_ACK -c ";

void SetSessionOptions(int fd) {
  const linger at_once{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  const timeval sendLimit{SESSION_CONNECT_SECONDS, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &sendLimit, sizeof sendLimit);
}

int SessionDescriptor(long sock) {
  return sock >= 0 && sock <= INT_MAX ? static_cast<int>(sock) : -1;
}

bool SendTextRequest(int fd) {
  std::string textRequest = base::Format("%06d D %10d  Q ", fd, TEXT_ASK_CHANNELS);
  textRequest.resize(TEXT_REQUEST_LENGTH);
  return base::SendSome(fd, textRequest.data(), textRequest.size()) > 0;
}

// Reads the header and the length of the body from it; 0 when it gives none.
bool ReceiveTextHeader(int fd, int64_t* body_length) {
  std::array<char, TEXT_HEADER_LENGTH> textHeader{};
  if (base::ReceiveExactly(fd, textHeader.data(), textHeader.size()) < 1) return false;
  *body_length = base::LeadingNumber({textHeader.data() + BODY_LENGTH_AT, BODY_LENGTH_WIDTH});
  return true;
}

}  // namespace

int Session_Create(const char* host, int port, long* sock) {
  if (host == nullptr) return -1;
  base::UniqueFd session = base::OpenSocket(AF_INET);
  if (!session.Valid()) return -1;
  SetSessionOptions(session.Get());
  sockaddr_in engineAddress{};
  engineAddress.sin_family = AF_INET;
  engineAddress.sin_port = htons(static_cast<uint16_t>(port));
  engineAddress.sin_addr.s_addr = ::inet_addr(host);
  if (base::Connect(session.Get(), reinterpret_cast<const sockaddr*>(&engineAddress), sizeof engineAddress,
                    int64_t{SESSION_CONNECT_SECONDS} * 1000) < 0) {
    return -3;
  }
  *sock = session.Release();
  return 0;
}

int Session_Destroy(long sock) {
  if (sock == -1) return 0;
  return base::CloseKeepingStandard(SessionDescriptor(sock));
}

int ASR_CLIENT_WAIT(long sock, long seconds) {
  const int fd = SessionDescriptor(sock);
  if (fd < 0 || seconds < 0) return -1;
  constexpr long LONGEST_SESSION_WAIT = LONG_MAX / 1000 / 1000;
  const int ready = base::WaitDescriptor(fd, POLLIN, std::min(seconds, LONGEST_SESSION_WAIT) * 1000);
  if (ready == 0) return -2;
  return ready > 0 ? 0 : -1;
}

int ASR_SVC_CHANNEL(long sock, LVCSR_DATA_CHANNEL* record) {
  const int fd = SessionDescriptor(sock);
  if (fd < 0 || record == nullptr || !SendTextRequest(fd)) return -1;
  int64_t bodyLength = 0;
  if (ASR_CLIENT_WAIT(fd, SESSION_REPLY_SECONDS) != 0 || !ReceiveTextHeader(fd, &bodyLength)) return -1;
  const base::UniqueText body =
      ReceivePayload(bodyLength, [fd](char* to, size_t size) { return base::ReceiveSome(fd, to, size); });
  if (body == nullptr) return -1;
  const std::string_view bodyText(body.get(), static_cast<size_t>(bodyLength));
  if (!bodyText.substr(std::min(ACKNOWLEDGE_AT, bodyText.size())).starts_with(ACKNOWLEDGE)) return -1;
  const size_t dataAt = bodyText.find(CHANNEL_DATA);
  if (dataAt != std::string_view::npos) {
    const std::string_view channelData = bodyText.substr(dataAt + CHANNEL_DATA.size());
    DecodeTextChannelReply(channelData.data(), channelData.size(), record);
  }
  return 0;
}

void dataFree(void* data) {
  std::free(data);
}
