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
#include "utils/trace_log.h"

#define SVC_TRACE(level, ...) \
  DUNRA_NAMED_TRACE(TRACE_ORDINARY, level, server_index_, trace_save_, __VA_ARGS__)

namespace {

constexpr long REPLY_WAIT_SECONDS = 60;
constexpr size_t SERVER_ADDRESS_SIZE = 128;

// "channel open failure", in code page 949.
constexpr const char* OPEN_FAILED = "\xC3\xA4\xB3\xCE \xBF\xC0\xC7\xC2 \xBD\xC7\xC6\xD0";

// The memory is not cleared: only the bytes that arrive are touched, so real memory grows with them.
std::unique_ptr<char[]> AllocateReplyBody(size_t size) {
  return std::unique_ptr<char[]>(new (std::nothrow) char[size]);
}

// Returns false when memory runs out, and for a negative length.
bool BuildDataFrame(int tag, long report_type, const char* report_data, long data_length,
                    std::string* data_frame) {
  if (data_length < 0) return false;
  try {
    *data_frame =
        frames::DataFrame(tag, report_type, std::string(report_data, static_cast<size_t>(data_length)));
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

// How reading a reply ended, and the values that its trace line shows.
struct CDIOSVC::ServerReply {
  enum class End { EXPECTED, NO_HEADER, NO_MEMORY, NO_BODY, OTHER };
  End end;
  int body_length;
  const char* length_field;  // the rest of the header from there
  int allocation_error;      // errno of it
};

void CDIOSVC::KeepFailure(const char* what, int error, std::string_view reply) {
  svc_failure_ = {what, error, {}};
  base::CopyText(svc_failure_.reply.data(), svc_failure_.reply.size(), reply);
}

long CDIOSVC::initialize_svc(long index, const char* address, long port, long save, const char* path,
                             long level) {
  server_index_ = index;
  trace_save_ = save;
  DunraSTTUtils::SetPath(path);
  DunraSTTUtils::SetLogLevel(level);
  const std::string server_address(address, strnlen(address, SERVER_ADDRESS_SIZE - 1));
  m_sock.Reset(static_cast<int>(SOCK_SVC_CREATE(server_address.c_str(), port)));
  if (m_sock.Valid()) return 1;
  SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : initialize sock svc fail");
  return -1;
}

long CDIOSVC::SOCK_SVC_CREATE(const char* address, long port) {
  base::UniqueFd server_socket = base::OpenSocket(AF_INET);
  if (!server_socket.Valid()) {
    const int socket_error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : CREATE SOCK FAIL(%s:%d) : %d", address, static_cast<int>(port),
              socket_error);
    KeepFailure("no socket", socket_error);
    return -1;
  }
  const linger reset_on_close{1, 0};
  ::setsockopt(server_socket.Get(), SOL_SOCKET, SO_LINGER, &reset_on_close, sizeof reset_on_close);
  sockaddr_in server_address{};
  server_address.sin_family = AF_INET;
  server_address.sin_addr.s_addr = ::inet_addr(address);
  server_address.sin_port = htons(static_cast<uint16_t>(port));
  if (base::Connect(server_socket.Get(), reinterpret_cast<const sockaddr*>(&server_address),
                    sizeof server_address) < 0) {
    const int socket_error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : CONNECT SOCK FAIL(%s:%d) : %d", address, static_cast<int>(port),
              socket_error);
    KeepFailure("no connection", socket_error);
    return -1;
  }
  return server_socket.Release();
}

long CDIOSVC::DIO_SVC_WAIT(long seconds) {
  return base::WaitDescriptor(m_sock.Get(), POLLIN, seconds * 1000);
}

void (*svc_overhear)(std::string_view body) = nullptr;

bool CDIOSVC::ReceiveReplyPart(char* reply_part, size_t part_size) {
  const ssize_t reply_bytes = base::ReceiveExactly(m_sock.Get(), reply_part, part_size);
  const int receive_error = errno;
  if (reply_bytes == 0) KeepFailure("the server closed the connection", 0);
  if (reply_bytes < 0) KeepFailure("the reply broke off", receive_error);
  return reply_bytes > 0;
}

CDIOSVC::ServerReply CDIOSVC::ReadReply(const char* expected_reply) {
  using End = ServerReply::End;
  reply_header_.fill('\0');
  ServerReply server_reply{End::NO_HEADER, 0, frames::LengthField(reply_header_.data()), 0};
  if (!ReceiveReplyPart(reply_header_.data(), frames::HEADER_SIZE)) return server_reply;
  server_reply.body_length = frames::BodyLength(reply_header_.data());
  const auto reply_size = static_cast<size_t>(server_reply.body_length);
  const std::unique_ptr<char[]> reply_body = AllocateReplyBody(reply_size + 1);
  server_reply.allocation_error = errno;
  server_reply.end = End::NO_MEMORY;
  if (!reply_body) {
    KeepFailure("no memory for the reply", server_reply.allocation_error);
    return server_reply;
  }
  server_reply.end = End::NO_BODY;
  if (!ReceiveReplyPart(reply_body.get(), reply_size)) return server_reply;
  const std::string_view reply_text(reply_body.get(), reply_size);
  if (svc_overhear != nullptr) svc_overhear(reply_text);
  server_reply.end = reply_text.starts_with(expected_reply) ? End::EXPECTED : End::OTHER;
  if (server_reply.end == End::OTHER) KeepFailure("another reply than expected", 0, reply_text);
  return server_reply;
}

long CDIOSVC::JudgeOpen(const ServerReply& server_reply) {
  switch (server_reply.end) {
    case ServerReply::End::EXPECTED:
      return 1;
    case ServerReply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : Header Pack Recv Failed.");
      break;
    case ServerReply::End::NO_MEMORY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : malloc fail 2.Request size [%d], Error [%d]",
                server_reply.body_length + 1, server_reply.allocation_error);
      break;
    case ServerReply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : Data Pack Recv Failed(%s)", server_reply.length_field);
      break;
    case ServerReply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : SVC_OPEN Data Pack Recv Failed(%d)", server_reply.body_length);
      break;
  }
  return -1;
}

long CDIOSVC::JudgeClose(const ServerReply& server_reply) {
  switch (server_reply.end) {
    case ServerReply::End::EXPECTED:
      return 1;
    case ServerReply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Header Pack Recv Failed.");
      break;
    case ServerReply::End::NO_MEMORY:
      break;
    case ServerReply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Data Pack Recv Failed(%s)", server_reply.length_field);
      break;
    case ServerReply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Data Pack Recv Failed(%d)", server_reply.body_length);
      break;
  }
  return -1;
}

long CDIOSVC::JudgeData(const ServerReply& server_reply) {
  switch (server_reply.end) {
    case ServerReply::End::EXPECTED:
      return 1;
    case ServerReply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Header Pack Recv Failed.");
      break;
    case ServerReply::End::NO_MEMORY:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : malloc fail 3 Request Size[%d], Error[%d]",
                server_reply.body_length + 1, server_reply.allocation_error);
      break;
    case ServerReply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Data Pack Recv Failed(%s)", server_reply.length_field);
      break;
    case ServerReply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Data Pack Recv Failed(%d)", server_reply.body_length);
      break;
  }
  return -1;
}

long CDIOSVC::SOCK_SVC_OPEN() {
  const std::string open_frame = frames::OpenFrame(m_sock.Get());
  const int frame_length = static_cast<int>(open_frame.size());
  if (base::SendSome(m_sock.Get(), open_frame.data(), open_frame.size()) < 1) {
    const int open_error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : %s(%06d:%s:%d)", OPEN_FAILED, frame_length, open_frame.c_str(),
              open_error);
    KeepFailure("OPEN could not be sent", open_error);
    return -1;
  }
  const long reply_ready = DIO_SVC_WAIT(REPLY_WAIT_SECONDS);
  if (reply_ready != 1) {
    const int open_error = errno;
    KeepFailure("no reply to OPEN", reply_ready == 0 ? ETIMEDOUT : open_error);
    SVC_TRACE(TRACE_INFO, "[ SVC_OPEN ] : Channel Open Filed(%06d:%s:%d)", frame_length, open_frame.c_str(),
              open_error);
    return -1;
  }
  return JudgeOpen(ReadReply("OPEN_OK"));
}

long CDIOSVC::SOCK_SVC_CLOS() {
  const std::string close_frame = frames::CloseFrame(m_sock.Get());
  if (base::SendSome(m_sock.Get(), close_frame.data(), close_frame.size()) < 1) return -1;
  SVC_TRACE(TRACE_INFO, "[ SVC_CLOSE ] : Channel Close(%06d:%s)", static_cast<int>(close_frame.size()),
            close_frame.c_str());
  if (DIO_SVC_WAIT(REPLY_WAIT_SECONDS) != 1) return -1;
  return JudgeClose(ReadReply("CLOSE_OK"));
}

long CDIOSVC::SOCK_SVC_DATA_SEND(const char* report_data, long data_length, long report_type) {
  std::string data_frame;
  if (!BuildDataFrame(m_sock.Get(), report_type, report_data, data_length, &data_frame)) {
    const auto frame_size = static_cast<int>(static_cast<unsigned long>(data_length) + 31);
    SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : malloc fail Request Size[%d], Error[%d]", frame_size, ENOMEM);
    KeepFailure("no memory for the report", ENOMEM);
    return -1;
  }
  if (base::SendAll(m_sock.Get(), data_frame.data(), data_frame.size()) < 0) {
    KeepFailure("the report could not be sent", errno);
    SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : CHANNEL_DATA Send Failed.");
    return -1;
  }
  data_frame = std::string();  // frees the memory before the wait for the server
  const long reply_ready = DIO_SVC_WAIT(REPLY_WAIT_SECONDS);
  if (reply_ready != 1) {
    KeepFailure("no reply to the report", reply_ready == 0 ? ETIMEDOUT : errno);
    return -1;
  }
  return JudgeData(ReadReply("DATA_RECEIVE_OK"));
}

void CDIOSVC::TraceStart(int report_type, const void* report_data) const {
  if (report_type == REPORT_ALARM) {
    const auto alarm_code = static_cast<int>(reinterpret_cast<intptr_t>(report_data));
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start.");
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start %d ", alarm_code);
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start %d ", alarm_code);
  } else if (report_type == REPORT_RESOURCE_USAGE) {
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_RESOURCE_USAGE start");
  }
}

void CDIOSVC::TraceBody(int report_type, const std::string& report_body) const {
  if (report_type == REPORT_ALARM) {
    SVC_TRACE(TRACE_INFO, "send alarm reqeust data = %s", report_body.c_str());
  } else if (report_type == REPORT_RESOURCE_USAGE) {
    SVC_TRACE(TRACE_INFO, "send resource usage reqeust data = %s", report_body.c_str());
  }
}

long CDIOSVC::SendReport(int report_type, const void* report_data) {
  const ReportType* const report_row = FindReportType(report_type);
  if (report_row == nullptr) return 1;
  TraceStart(report_type, report_data);
  const std::string report_body = report_row->body(report_data);
  TraceBody(report_type, report_body);
  const auto body_length = static_cast<long>(report_body.size());
  if (SOCK_SVC_DATA_SEND(report_body.data(), body_length, report_type) == 1) return 1;
  SVC_TRACE(TRACE_ERROR, "%s", report_row->failure_trace);
  return -1;
}

long CDIOSVC::DIO_SVC_PROC(int report_type, const void* report_data) {
  long report_result = SOCK_SVC_OPEN();
  if (report_result == 1) {
    report_result = SendReport(report_type, report_data);
  } else {
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : svc ch open fail.");
  }
  m_sock.Reset();
  return report_result;
}

char* CDIOSVC::timeToString(const std::tm* when, int mode) {
  static std::array<char, 20> time_text;
  const int year = when->tm_year + 1900;
  const int month = when->tm_mon + 1;
  std::string next_text;
  if (mode == 0) {
    next_text = base::Format("%04d%02d\\%02d\\%02d\\", year, month, when->tm_mday, when->tm_hour);
  } else if (mode == 1) {
    next_text = base::Format("%04d%02d/%02d/%02d", year, month, when->tm_mday, when->tm_hour);
  } else {
    return time_text.data();
  }
  base::CopyText(time_text.data(), time_text.size(), next_text);
  return time_text.data();
}
