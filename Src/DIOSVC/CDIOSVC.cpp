#include "DIOSVC/CDIOSVC.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string_view>

#include "DIOSVC/frames.h"
#include "base/format.h"
#include "base/net.h"
#include "base/stop.h"
#include "utils/DunraSTTUtils.h"

#define SVC_TRACE(level, ...) DUNRA_NAMED_TRACE(TRACE_ORDINARY, level, index_, save_, __VA_ARGS__)

namespace {

constexpr long REPLY_WAIT_SECONDS = 60;
constexpr size_t ADDRESS_SIZE = 128;

// "channel open failure", in code page 949.
constexpr const char* OPEN_FAILED = "\xC3\xA4\xB3\xCE \xBF\xC0\xC7\xC2 \xBD\xC7\xC6\xD0";

// Not cleared: only what is received is touched, so memory grows with the bytes that really came.
std::unique_ptr<char[]> Allocate(size_t size) {
  return std::unique_ptr<char[]>(new (std::nothrow) char[size]);
}

// False when there is no memory for it; a negative length is one that no memory holds.
bool BuildDataFrame(int tag, long type, const char* data, long length, std::string* frame) {
  if (length < 0) return false;
  try {
    *frame = frames::DataFrame(tag, type, std::string(data, static_cast<size_t>(length)));
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

// What an exchange traces when its reply fails. An exchange without memory texts stays silent there.
struct CDIOSVC::ReplyTexts {
  const char* tag;
  const char* notAcknowledged;
  const char* noHeaderMemory;
  const char* noBodyMemory;
  const char* memoryError;
};

CDIOSVC::CDIOSVC() = default;

CDIOSVC::~CDIOSVC() {
  context_ = nullptr;
}

long CDIOSVC::initialize_svc(long index, const char* address, long port, long save, const char* path,
                             long level) {
  index_ = index;
  save_ = save;
  log_path_ = path;
  log_level_ = level;
  DunraSTTUtils::SetPath(path);
  DunraSTTUtils::SetLogLevel(level);
  const std::string local(address, strnlen(address, ADDRESS_SIZE - 1));
  m_sock.Reset(static_cast<int>(SOCK_SVC_CREATE(local.c_str(), port)));
  if (m_sock.Valid()) return 1;
  SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : initialize sock svc fail");
  return -1;
}

long CDIOSVC::SOCK_SVC_CREATE(const char* address, long port) {
  base::UniqueFd sock = base::OpenSocket(AF_INET);
  if (!sock.Valid()) {
    const int error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : CREATE SOCK FAIL(%s:%d) : %d", address, static_cast<int>(port),
              error);
    return -1;
  }
  const linger reset{1, 0};
  ::setsockopt(sock.Get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_addr.s_addr = ::inet_addr(address);
  server.sin_port = htons(static_cast<uint16_t>(port));
  if (base::Connect(sock.Get(), reinterpret_cast<const sockaddr*>(&server), sizeof server) < 0) {
    const int error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : CONNECT SOCK FAIL(%s:%d) : %d", address, static_cast<int>(port),
              error);
    return -1;
  }
  return sock.Release();
}

long CDIOSVC::DIO_SVC_WAIT(long seconds) {
  return base::WaitDescriptor(m_sock.Get(), POLLIN, seconds * 1000);
}

long CDIOSVC::ReadReply(const ReplyTexts& texts, const char* expected) {
  const std::unique_ptr<char[]> header = Allocate(frames::HEADER_SIZE + 1);
  if (!header) {
    const int error = errno;
    if (texts.noHeaderMemory == nullptr) return -1;
    SVC_TRACE(TRACE_ERROR, "[ %s ] : %s[%d]%s[%d]", texts.tag, texts.noHeaderMemory,
              static_cast<int>(frames::HEADER_SIZE + 1), texts.memoryError, error);
    return -1;
  }
  header[frames::HEADER_SIZE] = '\0';
  if (base::ReceiveExactly(m_sock.Get(), header.get(), frames::HEADER_SIZE) <= 0) {
    SVC_TRACE(TRACE_ERROR, "[ %s ] : Header Pack Recv Failed.", texts.tag);
    return -1;
  }
  const int length = frames::BodyLength(header.get());
  const std::unique_ptr<char[]> body = Allocate(static_cast<size_t>(length) + 1);
  if (!body) {
    const int error = errno;
    if (texts.noBodyMemory == nullptr) return -1;
    SVC_TRACE(TRACE_ERROR, "[ %s ] : %s[%d]%s[%d]", texts.tag, texts.noBodyMemory, length + 1,
              texts.memoryError, error);
    return -1;
  }
  if (base::ReceiveExactly(m_sock.Get(), body.get(), static_cast<size_t>(length)) <= 0) {
    SVC_TRACE(TRACE_ERROR, "[ %s ] : Data Pack Recv Failed(%s)", texts.tag, header.get() + 9);
    return -1;
  }
  const std::string_view reply(body.get(), static_cast<size_t>(length));
  if (reply.starts_with(expected)) return 1;
  SVC_TRACE(TRACE_ERROR, "[ %s ] : %sData Pack Recv Failed(%d)", texts.tag, texts.notAcknowledged, length);
  return -1;
}

long CDIOSVC::SOCK_SVC_OPEN() {
  static constexpr ReplyTexts TEXTS = {"SVC_OPEN", "SVC_OPEN ", "malloc fail.Request size ",
                                       "malloc fail 2.Request size ", ", Error "};
  const std::string frame = frames::OpenFrame(m_sock.Get());
  const int length = static_cast<int>(frame.size());
  if (base::SendSome(m_sock.Get(), frame.data(), frame.size()) < 1) {
    const int error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : %s(%06d:%s:%d)", OPEN_FAILED, length, frame.c_str(), error);
    return -1;
  }
  if (DIO_SVC_WAIT(REPLY_WAIT_SECONDS) != 1) {
    const int error = errno;
    SVC_TRACE(TRACE_INFO, "[ SVC_OPEN ] : Channel Open Filed(%06d:%s:%d)", length, frame.c_str(), error);
    return -1;
  }
  return ReadReply(TEXTS, "OPEN_OK");
}

long CDIOSVC::SOCK_SVC_CLOS() {
  static constexpr ReplyTexts TEXTS = {"SVC_CLOSE", "", nullptr, nullptr, nullptr};
  const std::string frame = frames::CloseFrame(m_sock.Get());
  if (base::SendSome(m_sock.Get(), frame.data(), frame.size()) < 1) return -1;
  SVC_TRACE(TRACE_INFO, "[ SVC_CLOSE ] : Channel Close(%06d:%s)", static_cast<int>(frame.size()),
            frame.c_str());
  if (DIO_SVC_WAIT(REPLY_WAIT_SECONDS) != 1) return -1;
  return ReadReply(TEXTS, "CLOSE_OK");
}

long CDIOSVC::SOCK_SVC_DATA_SEND(const char* data, long length, long type) {
  static constexpr ReplyTexts TEXTS = {"CH_DATA", "", "malloc fail 2 Request Size",
                                       "malloc fail 3 Request Size", ", Error"};
  std::string frame;
  if (!BuildDataFrame(m_sock.Get(), type, data, length, &frame)) {
    const auto size = static_cast<int>(static_cast<unsigned long>(length) + 31);
    SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : malloc fail Request Size[%d], Error[%d]", size, ENOMEM);
    return -1;
  }
  if (base::SendAll(m_sock.Get(), frame.data(), frame.size()) < 0) {
    SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : CHANNEL_DATA Send Failed.");
    return -1;
  }
  frame = std::string();  // not kept while the server takes its time
  if (DIO_SVC_WAIT(REPLY_WAIT_SECONDS) != 1) return -1;
  return ReadReply(TEXTS, "DATA_RECEIVE_OK");
}

long CDIOSVC::SendAlarm(int64_t code) {
  SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start.");
  SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start %d ", static_cast<int>(code));
  SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start %d ", static_cast<int>(code));
  const char* text = frames::AlarmText(code);
  SVC_TRACE(TRACE_INFO, "send alarm reqeust data = %s", text);
  if (SOCK_SVC_DATA_SEND(text, static_cast<long>(std::strlen(text)), frames::REPORT_ALARM) == 1) return 1;
  SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : svc Alam Send fail.");
  return -1;
}

long CDIOSVC::SendChannelStatus(const LVCSR_DATA_CHANNEL& status) {
  const std::string list = frames::ChannelList(status);
  if (SOCK_SVC_DATA_SEND(list.data(), static_cast<long>(list.size()), frames::REPORT_CHANNEL_STATUS) == 1)
    return 1;
  SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : svc ch data send fail.");
  return -1;
}

long CDIOSVC::SendResourceUsage(int32_t cpu, int32_t memory) {
  SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_RESOURCE_USAGE start");
  const std::string text = frames::ResourceText(cpu, memory);
  SVC_TRACE(TRACE_INFO, "send resource usage reqeust data = %s", text.c_str());
  if (SOCK_SVC_DATA_SEND(text.data(), static_cast<long>(text.size()), frames::REPORT_RESOURCE_USAGE) == 1)
    return 1;
  SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : svc ch resource send fail.");
  return -1;
}

long CDIOSVC::SendReport(int type, const void* data) {
  switch (type) {
    case frames::REPORT_ALARM:
      return SendAlarm(reinterpret_cast<intptr_t>(data));
    case frames::REPORT_CHANNEL_STATUS:
      return SendChannelStatus(*static_cast<const LVCSR_DATA_CHANNEL*>(data));
    case frames::REPORT_RESOURCE_USAGE: {
      const auto* figures = static_cast<const int32_t*>(data);
      return SendResourceUsage(figures[0], figures[1]);
    }
    default:
      return 1;
  }
}

long CDIOSVC::DIO_SVC_PROC(int type, const void* data) {
  long result = SOCK_SVC_OPEN();
  if (result == 1) {
    result = SendReport(type, data);
  } else {
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : svc ch open fail.");
  }
  m_sock.Reset();
  return result;
}

char* CDIOSVC::timeToString(const std::tm* when, int mode) {
  static std::array<char, 20> text;
  const int year = when->tm_year + 1900;
  const int month = when->tm_mon + 1;
  std::string next;
  if (mode == 0) {
    next = base::Format("%04d%02d\\%02d\\%02d\\", year, month, when->tm_mday, when->tm_hour);
  } else if (mode == 1) {
    next = base::Format("%04d%02d/%02d/%02d", year, month, when->tm_mday, when->tm_hour);
  } else {
    return text.data();
  }
  base::CopyText(text.data(), text.size(), next);
  return text.data();
}
