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
constexpr int SESSION_ASKS_CHANNELS = 4;
constexpr size_t TEXT_REQUEST_LENGTH = 24;  // 23 characters of text and one zero byte

constexpr size_t TEXT_HEADER_LENGTH = 20;
constexpr size_t TEXT_BODY_LENGTH_AT = 9;
constexpr size_t TEXT_BODY_LENGTH_WIDTH = 10;

constexpr size_t SESSION_ACKNOWLEDGE_AT = 3;
constexpr std::string_view SESSION_ACKNOWLEDGE = "ASR_ACK";
constexpr std::string_view SESSION_CHANNEL_DATA = "ASR_ACK -c ";

void SetSessionOptions(int sessionFd) {
  const linger sessionLinger{1, 0};
  ::setsockopt(sessionFd, SOL_SOCKET, SO_LINGER, &sessionLinger, sizeof sessionLinger);
  const timeval sessionSendLimit{SESSION_CONNECT_SECONDS, 0};
  ::setsockopt(sessionFd, SOL_SOCKET, SO_SNDTIMEO, &sessionSendLimit, sizeof sessionSendLimit);
}

int SessionDescriptor(long sessionSock) {
  return sessionSock >= 0 && sessionSock <= INT_MAX ? static_cast<int>(sessionSock) : -1;
}

bool SendTextRequest(int sessionFd) {
  std::string textRequest = base::Format("%06d D %10d  Q ", sessionFd, SESSION_ASKS_CHANNELS);
  textRequest.resize(TEXT_REQUEST_LENGTH);
  return base::SendSome(sessionFd, textRequest.data(), textRequest.size()) > 0;
}

// Reads the header and the length of the body from it; 0 when it gives none.
bool ReceiveTextHeader(int sessionFd, int64_t* textBodyLength) {
  std::array<char, TEXT_HEADER_LENGTH> textHeader{};
  if (base::ReceiveExactly(sessionFd, textHeader.data(), textHeader.size()) < 1) return false;
  *textBodyLength = base::LeadingNumber({textHeader.data() + TEXT_BODY_LENGTH_AT, TEXT_BODY_LENGTH_WIDTH});
  return true;
}

}  // namespace

int Session_Create(const char* host, int port, long* sessionSock) {
  if (host == nullptr) return -1;
  base::UniqueFd session = base::OpenSocket(AF_INET);
  if (!session.Valid()) return -1;
  SetSessionOptions(session.Get());
  sockaddr_in sessionAddress{};
  sessionAddress.sin_family = AF_INET;
  sessionAddress.sin_port = htons(static_cast<uint16_t>(port));
  sessionAddress.sin_addr.s_addr = ::inet_addr(host);
  if (base::Connect(session.Get(), reinterpret_cast<const sockaddr*>(&sessionAddress), sizeof sessionAddress,
                    int64_t{SESSION_CONNECT_SECONDS} * 1000) < 0) {
    return -3;
  }
  *sessionSock = session.Release();
  return 0;
}

int Session_Destroy(long sessionSock) {
  if (sessionSock == -1) return 0;
  return base::CloseKeepingStandard(SessionDescriptor(sessionSock));
}

int ASR_CLIENT_WAIT(long sessionSock, long seconds) {
  const int sessionFd = SessionDescriptor(sessionSock);
  if (sessionFd < 0 || seconds < 0) return -1;
  constexpr long LONGEST_SESSION_WAIT = LONG_MAX / 1000 / 1000;
  const int sessionReady =
      base::WaitDescriptor(sessionFd, POLLIN, std::min(seconds, LONGEST_SESSION_WAIT) * 1000);
  if (sessionReady == 0) return -2;
  return sessionReady > 0 ? 0 : -1;
}

int ASR_SVC_CHANNEL(long sessionSock, LVCSR_DATA_CHANNEL* record) {
  const int sessionFd = SessionDescriptor(sessionSock);
  if (sessionFd < 0 || record == nullptr || !SendTextRequest(sessionFd)) return -1;
  int64_t textBodyLength = 0;
  if (ASR_CLIENT_WAIT(sessionFd, SESSION_REPLY_SECONDS) != 0 ||
      !ReceiveTextHeader(sessionFd, &textBodyLength))
    return -1;
  const base::UniqueText sessionBody =
      ReceivePayload(textBodyLength, [sessionFd](char* bodyPiece, size_t pieceSize) {
        return base::ReceiveSome(sessionFd, bodyPiece, pieceSize);
      });
  if (sessionBody == nullptr) return -1;
  const std::string_view sessionText(sessionBody.get(), static_cast<size_t>(textBodyLength));
  if (!sessionText.substr(std::min(SESSION_ACKNOWLEDGE_AT, sessionText.size()))
           .starts_with(SESSION_ACKNOWLEDGE))
    return -1;
  const size_t sessionDataAt = sessionText.find(SESSION_CHANNEL_DATA);
  if (sessionDataAt != std::string_view::npos) {
    const std::string_view sessionChannels = sessionText.substr(sessionDataAt + SESSION_CHANNEL_DATA.size());
    DecodeTextChannelReply(sessionChannels.data(), sessionChannels.size(), record);
  }
  return 0;
}

void dataFree(void* sessionData) {
  std::free(sessionData);
}
