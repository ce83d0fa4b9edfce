#include "Tovik/engine/engine_session.h"

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

#include "Tovik/engine/channel_status.h"
#include "Tovik/engine/growing_receive.h"
#include "base/format.h"
#include "base/number.h"
#include "base/standard_descriptors.h"
#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"

namespace {

constexpr int CONNECT_SECONDS = 5;
constexpr int REPLY_SECONDS = 60;
constexpr int ASK_CHANNELS = 4;
constexpr size_t REQUEST_LENGTH = 24;  // 23 characters of text and one zero byte

constexpr size_t REPLY_HEADER_LENGTH = 20;
constexpr size_t BODY_LENGTH_AT = 9;
constexpr size_t BODY_LENGTH_WIDTH = 10;

constexpr size_t ACKNOWLEDGE_AT = 3;
constexpr std::string_view ACKNOWLEDGE = "ASR_ACK";
constexpr std::string_view CHANNEL_DATA = "ASR_ACK -c ";

void SetProbeOptions(int fd) {
  const linger at_once{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  const timeval limit{CONNECT_SECONDS, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

int ToDescriptor(long sock) {
  return sock >= 0 && sock <= INT_MAX ? static_cast<int>(sock) : -1;
}

bool SendRequest(int fd) {
  std::string request = base::Format("%06d D %10d  Q ", fd, ASK_CHANNELS);
  request.resize(REQUEST_LENGTH);
  return base::SendSome(fd, request.data(), request.size()) > 0;
}

// Reads the header and the length of the body from it; 0 when it gives none.
bool ReceiveTextHeader(int fd, int64_t* body_length) {
  std::array<char, REPLY_HEADER_LENGTH> header{};
  if (base::ReceiveExactly(fd, header.data(), header.size()) < 1) return false;
  *body_length = base::LeadingNumber({header.data() + BODY_LENGTH_AT, BODY_LENGTH_WIDTH});
  return true;
}

}  // namespace

int Session_Create(const char* host, int port, long* sock) {
  if (host == nullptr) return -1;
  base::UniqueFd socket = base::OpenSocket(AF_INET);
  if (!socket.Valid()) return -1;
  SetProbeOptions(socket.Get());
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = ::inet_addr(host);
  if (base::Connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address,
                    int64_t{CONNECT_SECONDS} * 1000) < 0) {
    return -3;
  }
  *sock = socket.Release();
  return 0;
}

int Session_Destroy(long sock) {
  if (sock == -1) return 0;
  return base::CloseDescriptor(ToDescriptor(sock));
}

int ASR_CLIENT_WAIT(long sock, long seconds) {
  const int fd = ToDescriptor(sock);
  if (fd < 0 || seconds < 0) return -1;
  constexpr long LONGEST = LONG_MAX / 1000 / 1000;
  const int ready = base::WaitDescriptor(fd, POLLIN, std::min(seconds, LONGEST) * 1000);
  if (ready == 0) return -2;
  return ready > 0 ? 0 : -1;
}

int ASR_SVC_CHANNEL(long sock, LVCSR_DATA_CHANNEL* record) {
  const int fd = ToDescriptor(sock);
  if (fd < 0 || record == nullptr || !SendRequest(fd)) return -1;
  int64_t length = 0;
  if (ASR_CLIENT_WAIT(fd, REPLY_SECONDS) != 0 || !ReceiveTextHeader(fd, &length)) return -1;
  const base::UniqueText body =
      ReceiveGrowing(length, [fd](char* to, size_t size) { return base::ReceiveSome(fd, to, size); });
  if (body == nullptr) return -1;
  const std::string_view text(body.get(), static_cast<size_t>(length));
  if (!text.substr(std::min(ACKNOWLEDGE_AT, text.size())).starts_with(ACKNOWLEDGE)) return -1;
  const size_t at = text.find(CHANNEL_DATA);
  if (at != std::string_view::npos) {
    const std::string_view data = text.substr(at + CHANNEL_DATA.size());
    DecodeTextChannelReply(data.data(), data.size(), record);
  }
  return 0;
}

void dataFree(void* data) {
  std::free(data);
}
