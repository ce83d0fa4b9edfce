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

#include "DIOSVC/report_types.h"
#include "DIOSVC/server_frames.h"
#include "base/format.h"
#include "base/stoppable_socket.h"
#include "base/stoppable_wait.h"
#include "utils/DunraSTTUtils.h"

#define SVC_TRACE(level, ...) DUNRA_NAMED_TRACE(TRACE_ORDINARY, level, index_, save_, __VA_ARGS__)

namespace {

constexpr long REPLY_WAIT_SECONDS = 60;
constexpr size_t ADDRESS_SIZE = 128;

// "channel open failure", in code page 949.
constexpr const char* OPEN_FAILED = "\xC3\xA4\xB3\xCE \xBF\xC0\xC7\xC2 \xBD\xC7\xC6\xD0";

// The memory is not cleared: only the bytes that arrive are touched, so real memory grows with them.
std::unique_ptr<char[]> Allocate(size_t size) {
  return std::unique_ptr<char[]>(new (std::nothrow) char[size]);
}

// Returns false when memory runs out, and for a negative length.
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

// How reading a reply ended, and the values that its trace line shows.
struct CDIOSVC::Reply {
  enum class End { EXPECTED, NO_HEADER, NO_MEMORY, NO_BODY, OTHER };
  End end;
  int length;          // of the body
  const char* header;  // starting at its length field
  int error;           // of a failed allocation
};

void CDIOSVC::KeepFailure(const char* what, int error, std::string_view reply) {
  failure_ = {what, error, {}};
  base::CopyText(failure_.reply.data(), failure_.reply.size(), reply);
}

long CDIOSVC::initialize_svc(long index, const char* address, long port, long save, const char* path,
                             long level) {
  index_ = index;
  save_ = save;
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
    KeepFailure("no socket", error);
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
    KeepFailure("no connection", error);
    return -1;
  }
  return sock.Release();
}

long CDIOSVC::DIO_SVC_WAIT(long seconds) {
  return base::WaitDescriptor(m_sock.Get(), POLLIN, seconds * 1000);
}

void (*svc_overhear)(std::string_view body) = nullptr;

bool CDIOSVC::ReceiveAll(char* out, size_t size) {
  const ssize_t got = base::ReceiveExactly(m_sock.Get(), out, size);
  const int error = errno;
  if (got == 0) KeepFailure("the server closed the connection", 0);
  if (got < 0) KeepFailure("the reply broke off", error);
  return got > 0;
}

CDIOSVC::Reply CDIOSVC::ReadReply(const char* expected) {
  using End = Reply::End;
  header_.fill('\0');
  Reply reply{End::NO_HEADER, 0, frames::LengthField(header_.data()), 0};
  if (!ReceiveAll(header_.data(), frames::HEADER_SIZE)) return reply;
  reply.length = frames::BodyLength(header_.data());
  const auto size = static_cast<size_t>(reply.length);
  const std::unique_ptr<char[]> body = Allocate(size + 1);
  reply.error = errno;
  reply.end = End::NO_MEMORY;
  if (!body) {
    KeepFailure("no memory for the reply", reply.error);
    return reply;
  }
  reply.end = End::NO_BODY;
  if (!ReceiveAll(body.get(), size)) return reply;
  if (svc_overhear != nullptr) svc_overhear({body.get(), size});
  reply.end = std::string_view(body.get(), size).starts_with(expected) ? End::EXPECTED : End::OTHER;
  if (reply.end == End::OTHER) KeepFailure("another reply than expected", 0, {body.get(), size});
  return reply;
}

long CDIOSVC::JudgeOpen(const Reply& reply) {
  switch (reply.end) {
    case Reply::End::EXPECTED:
      return 1;
    case Reply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : Header Pack Recv Failed.");
      break;
    case Reply::End::NO_MEMORY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : malloc fail 2.Request size [%d], Error [%d]", reply.length + 1,
                reply.error);
      break;
    case Reply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : Data Pack Recv Failed(%s)", reply.header);
      break;
    case Reply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : SVC_OPEN Data Pack Recv Failed(%d)", reply.length);
      break;
  }
  return -1;
}

long CDIOSVC::JudgeClose(const Reply& reply) {
  switch (reply.end) {
    case Reply::End::EXPECTED:
      return 1;
    case Reply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Header Pack Recv Failed.");
      break;
    case Reply::End::NO_MEMORY:
      break;
    case Reply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Data Pack Recv Failed(%s)", reply.header);
      break;
    case Reply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Data Pack Recv Failed(%d)", reply.length);
      break;
  }
  return -1;
}

long CDIOSVC::JudgeData(const Reply& reply) {
  switch (reply.end) {
    case Reply::End::EXPECTED:
      return 1;
    case Reply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Header Pack Recv Failed.");
      break;
    case Reply::End::NO_MEMORY:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : malloc fail 3 Request Size[%d], Error[%d]", reply.length + 1,
                reply.error);
      break;
    case Reply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Data Pack Recv Failed(%s)", reply.header);
      break;
    case Reply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Data Pack Recv Failed(%d)", reply.length);
      break;
  }
  return -1;
}

long CDIOSVC::SOCK_SVC_OPEN() {
  const std::string frame = frames::OpenFrame(m_sock.Get());
  const int length = static_cast<int>(frame.size());
  if (base::SendSome(m_sock.Get(), frame.data(), frame.size()) < 1) {
    const int error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : %s(%06d:%s:%d)", OPEN_FAILED, length, frame.c_str(), error);
    KeepFailure("OPEN could not be sent", error);
    return -1;
  }
  const long ready = DIO_SVC_WAIT(REPLY_WAIT_SECONDS);
  if (ready != 1) {
    const int error = errno;
    KeepFailure("no reply to OPEN", ready == 0 ? ETIMEDOUT : error);
    SVC_TRACE(TRACE_INFO, "[ SVC_OPEN ] : Channel Open Filed(%06d:%s:%d)", length, frame.c_str(), error);
    return -1;
  }
  return JudgeOpen(ReadReply("OPEN_OK"));
}

long CDIOSVC::SOCK_SVC_CLOS() {
  const std::string frame = frames::CloseFrame(m_sock.Get());
  if (base::SendSome(m_sock.Get(), frame.data(), frame.size()) < 1) return -1;
  SVC_TRACE(TRACE_INFO, "[ SVC_CLOSE ] : Channel Close(%06d:%s)", static_cast<int>(frame.size()),
            frame.c_str());
  if (DIO_SVC_WAIT(REPLY_WAIT_SECONDS) != 1) return -1;
  return JudgeClose(ReadReply("CLOSE_OK"));
}

long CDIOSVC::SOCK_SVC_DATA_SEND(const char* data, long length, long type) {
  std::string frame;
  if (!BuildDataFrame(m_sock.Get(), type, data, length, &frame)) {
    const auto size = static_cast<int>(static_cast<unsigned long>(length) + 31);
    SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : malloc fail Request Size[%d], Error[%d]", size, ENOMEM);
    KeepFailure("no memory for the report", ENOMEM);
    return -1;
  }
  if (base::SendAll(m_sock.Get(), frame.data(), frame.size()) < 0) {
    KeepFailure("the report could not be sent", errno);
    SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : CHANNEL_DATA Send Failed.");
    return -1;
  }
  frame = std::string();  // frees the memory before the wait for the server
  const long ready = DIO_SVC_WAIT(REPLY_WAIT_SECONDS);
  if (ready != 1) {
    KeepFailure("no reply to the report", ready == 0 ? ETIMEDOUT : errno);
    return -1;
  }
  return JudgeData(ReadReply("DATA_RECEIVE_OK"));
}

void CDIOSVC::TraceStart(int type, const void* data) const {
  if (type == REPORT_ALARM) {
    const auto code = static_cast<int>(reinterpret_cast<intptr_t>(data));
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start.");
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start %d ", code);
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start %d ", code);
  } else if (type == REPORT_RESOURCE_USAGE) {
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_RESOURCE_USAGE start");
  }
}

void CDIOSVC::TraceBody(int type, const std::string& body) const {
  if (type == REPORT_ALARM) {
    SVC_TRACE(TRACE_INFO, "send alarm reqeust data = %s", body.c_str());
  } else if (type == REPORT_RESOURCE_USAGE) {
    SVC_TRACE(TRACE_INFO, "send resource usage reqeust data = %s", body.c_str());
  }
}

long CDIOSVC::SendReport(int type, const void* data) {
  const ReportType* const report = FindReportType(type);
  if (report == nullptr) return 1;
  TraceStart(type, data);
  const std::string body = report->body(data);
  TraceBody(type, body);
  if (SOCK_SVC_DATA_SEND(body.data(), static_cast<long>(body.size()), type) == 1) return 1;
  SVC_TRACE(TRACE_ERROR, "%s", report->failed);
  return -1;
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
