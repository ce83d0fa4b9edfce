// What the engine, a management server and a mail server may answer.
#include "DIOSVC/CDIOSVC.h"
#include "DIOSVC/report_types.h"
#include "DIOSVC/server_frames.h"
#include "Tovik/engine/channel_reply.h"
#include "Tovik/engine/engine_packet.h"
#include "fuzz/fuzz.h"
#include "smtp/smtp_reply.h"
#include "smtp/smtp_status.h"

// The reply to a channel query: header and payload from a socket, and the decoded payload.
void fuzz_engine(const std::string& text) {
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

// All bytes of the connection are sent at its start.
void fuzz_management(const std::string& text) {
  static const support::Listener listener;
  CDIOSVC service;
  HOLDS(service.initialize_svc(0, "127.0.0.1", listener.Port(), 0, "", -1) == 1);
  const base::UniqueFd peer = listener.Accept();
  support::Send(peer.Get(), text);
  ::shutdown(peer.Get(), SHUT_WR);

  const int32_t figures[] = {12, 40};
  const long result = service.DIO_SVC_PROC(REPORT_RESOURCE_USAGE, figures);
  const size_t open = text.find("OPEN_OK", frames::HEADER_SIZE);
  const bool acknowledged =
      open != text.npos && text.find("DATA_RECEIVE_OK", open + 7 + frames::HEADER_SIZE) != text.npos;
  HOLDS(result == -1 || (result == 1 && acknowledged));
}

namespace {

std::string_view input;
size_t piece;

ptrdiff_t Supply(smtp_line_reader* /*reader*/, char* destination, size_t count) {
  const size_t length = std::min({count, piece, input.size()});
  std::memcpy(destination, input.data(), length);
  input.remove_prefix(length);
  return ptrdiff_t(length);
}

int CodeInPieces(std::string_view text, size_t size) {
  input = text;
  piece = size;
  smtp_session session;
  session.reader.read = Supply;
  const int code = smtp_read_and_parse_code(&session);
  HOLDS(code >= -1 && code <= 354);
  HOLDS(session.status == SMTP_SUCCESS || code == -1);
  HOLDS(session.reader.lineLength < SMTP_LINE_LIMIT + SMTP_READ_SIZE);
  return code;
}

}  // namespace

// A reply's code must not depend on the pieces in which it arrives. The first byte chooses their size.
void fuzz_smtp_reply(const std::string& bytes) {
  const std::string text = bytes.substr(std::min<size_t>(bytes.size(), 1));
  const size_t other = static_cast<unsigned char>(bytes[0]) * 4U + 1;
  int code = 0;
  fuzz::Quickly(text, [&] { code = CodeInPieces(text, text.size()); });
  HOLDS(code == -1 || text.find(std::to_string(code)) != text.npos);
  // The limits apply at the end of a read, so they depend on the pieces.
  const bool bounded = std::count(text.begin(), text.end(), '\n') >= SMTP_REPLY_LINE_LIMIT - 1 ||
                       text.size() >= SMTP_LINE_LIMIT;
  HOLDS(bounded || CodeInPieces(text, other) == code);
}
