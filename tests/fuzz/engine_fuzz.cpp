// The engine's answer to a channel query: header and payload from a socket, and what is made of the payload.
#include <sys/socket.h>

#include <cstring>

#include "DIOSVC/frames.h"
#include "Tovik/engine/channel_reply.h"
#include "Tovik/engine/engine_socket.h"
#include "fuzz/fuzz.h"

namespace {

using base::UniqueFd;

void CheckRecord(const LVCSR_DATA_CHANNEL& record, size_t most) {
  const base::UniqueText owner(reinterpret_cast<char*>(record.pChannel));
  HOLDS(record.nEntries >= 0 && size_t(record.nEntries) <= most);
  HOLDS((record.pChannel == nullptr) == (record.nEntries == 0));
  HOLDS(frames::ChannelList(record).size() <= most * sizeof "4294967295:4294967295");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int pair[2];
  HOLDS(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0);
  const UniqueFd mine(pair[0]);
  UniqueFd peer(pair[1]);
  HOLDS(::send(peer.Get(), data, size, 0) == ssize_t(size));
  peer.Reset();

  LVCSR_SOCK_HEAD head{};
  head.uSock = mine.Get();
  head.uRecvTimeout = 1;
  LVCSR_NET_HEADER header{};
  int status = 1;
  const base::UniqueText payload(RecvData(&head, &header, &status, 0));
  const bool whole = size >= sizeof header;
  if (whole) HOLDS(std::memcmp(&header, data, sizeof header) == 0);
  const bool complete = whole && header.nLength <= int64_t(size - sizeof header);
  HOLDS(status == (complete ? ENGINE_OK : ENGINE_FAILED));
  HOLDS((payload != nullptr) == (complete && header.nLength > 0));
  if (payload == nullptr) return 0;

  const auto length = size_t(header.nLength);
  HOLDS(std::memcmp(payload.get(), data + sizeof header, length) == 0);
  LVCSR_DATA_CHANNEL record{};
  DecodeChannelReply(payload.get(), length, &record);
  CheckRecord(record, length / 8);
  record = {};
  DecodeTextChannelReply(payload.get(), length, &record);
  CheckRecord(record, length / 16);
  return 0;
}
