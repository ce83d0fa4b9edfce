// The engine's reply to a channel query: header and payload from a socket, and the decoded payload.
#include "DIOSVC/frames.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/engine/engine_socket.h"
#include "fuzz/fuzz.h"
#include "support/support.h"

FUZZ_TARGET(text) {
  auto [mine, peer] = support::SocketPair();
  HOLDS(::send(peer.Get(), text.data(), text.size(), 0) == ssize_t(text.size()));
  peer.Reset();

  LVCSR_SOCK_HEAD head{};
  head.uSock = mine.Get();
  head.uRecvTimeout = 1;
  LVCSR_NET_HEADER header{};
  int status = 1;
  const base::UniqueText payload(RecvData(&head, &header, &status, 0));
  const bool whole = text.size() >= sizeof header;
  HOLDS(!whole || std::memcmp(&header, text.data(), sizeof header) == 0);
  const bool complete = whole && header.nLength <= int64_t(text.size() - sizeof header);
  HOLDS(status == (complete ? ENGINE_OK : ENGINE_FAILED));
  HOLDS((payload != nullptr) == (complete && header.nLength > 0));
  if (payload == nullptr) return;

  const auto length = size_t(header.nLength);
  HOLDS(std::memcmp(payload.get(), text.data() + sizeof header, length) == 0);
  for (const bool textual : {false, true}) {
    LVCSR_DATA_CHANNEL record{};
    (textual ? DecodeTextChannelReply : DecodeChannelReply)(payload.get(), length, &record);
    const base::UniqueText owner(reinterpret_cast<char*>(record.pChannel));
    const size_t most = length / (textual ? 16 : 8);
    HOLDS(record.nEntries >= 0 && size_t(record.nEntries) <= most);
    HOLDS((record.pChannel == nullptr) == (record.nEntries == 0));
    HOLDS(frames::ChannelList(record).size() <= most * sizeof "4294967295:4294967295");
  }
}
