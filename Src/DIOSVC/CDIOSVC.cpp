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
  DUNRA_NAMED_TRACE(TRACE_ORDINARY, level, svc_index_, svc_trace_save_, __VA_ARGS__)

namespace {

constexpr long SVC_REPLY_SECONDS = 60;
constexpr size_t SVC_ADDRESS_SIZE = 128;

// "channel open failure", in code page 949.
constexpr const char* SVC_OPEN_FAILED = "\xC3\xA4\xB3\xCE \xBF\xC0\xC7\xC2 \xBD\xC7\xC6\xD0";

// The memory is not cleared: only the bytes that arrive are touched, so real memory grows with them.
std::unique_ptr<char[]> AllocateSvcReply(size_t svc_reply_size) {
  return std::unique_ptr<char[]>(new (std::nothrow) char[svc_reply_size]);
}

// Returns false when memory runs out, and for a negative length.
bool BuildSvcFrame(int svc_tag, long report_type, const char* report_data, long svc_data_length,
                   std::string* svc_frame) {
  if (svc_data_length < 0) return false;
  try {
    *svc_frame = frames::DataFrame(svc_tag, report_type,
                                   std::string(report_data, static_cast<size_t>(svc_data_length)));
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

// How reading a reply ended, and the values that its trace line shows.
struct CDIOSVC::SvcReply {
  enum class End { EXPECTED, NO_HEADER, NO_MEMORY, NO_BODY, OTHER };
  End end;
  int body_length;
  const char* length_field;  // the rest of the header from there
  int allocation_error;      // errno of it
};

void CDIOSVC::KeepSvcFailure(const char* what, int error, std::string_view reply) {
  svc_failure_ = {what, error, {}};
  base::CopyText(svc_failure_.reply.data(), svc_failure_.reply.size(), reply);
}

long CDIOSVC::initialize_svc(long index, const char* address, long port, long save, const char* svc_log_path,
                             long svc_log_level) {
  svc_index_ = index;
  svc_trace_save_ = save;
  DunraSTTUtils::SetPath(svc_log_path);
  DunraSTTUtils::SetLogLevel(svc_log_level);
  const std::string svc_address(address, strnlen(address, SVC_ADDRESS_SIZE - 1));
  m_sock.Reset(static_cast<int>(SOCK_SVC_CREATE(svc_address.c_str(), port)));
  if (m_sock.Valid()) return 1;
  SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : initialize sock svc fail");
  return -1;
}

long CDIOSVC::SOCK_SVC_CREATE(const char* address, long port) {
  base::UniqueFd svc_socket = base::OpenSocket(AF_INET);
  if (!svc_socket.Valid()) {
    const int svc_socket_error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : CREATE SOCK FAIL(%s:%d) : %d", address, static_cast<int>(port),
              svc_socket_error);
    KeepSvcFailure("no socket", svc_socket_error);
    return -1;
  }
  const linger svc_reset_on_close{1, 0};
  ::setsockopt(svc_socket.Get(), SOL_SOCKET, SO_LINGER, &svc_reset_on_close, sizeof svc_reset_on_close);
  sockaddr_in svc_address{};
  svc_address.sin_family = AF_INET;
  svc_address.sin_addr.s_addr = ::inet_addr(address);
  svc_address.sin_port = htons(static_cast<uint16_t>(port));
  const auto* const svc_sockaddr = reinterpret_cast<const sockaddr*>(&svc_address);
  if (base::Connect(svc_socket.Get(), svc_sockaddr, sizeof svc_address) < 0) {
    const int svc_socket_error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : CONNECT SOCK FAIL(%s:%d) : %d", address, static_cast<int>(port),
              svc_socket_error);
    KeepSvcFailure("no connection", svc_socket_error);
    return -1;
  }
  return svc_socket.Release();
}

long CDIOSVC::DIO_SVC_WAIT(long svc_seconds) {
  return base::WaitDescriptor(m_sock.Get(), POLLIN, svc_seconds * 1000);
}

void (*svc_overhear)(std::string_view body) = nullptr;

bool CDIOSVC::ReceiveSvcReply(char* svc_reply_part, size_t part_size) {
  const ssize_t svc_reply_bytes = base::ReceiveExactly(m_sock.Get(), svc_reply_part, part_size);
  const int svc_receive_error = errno;
  if (svc_reply_bytes == 0) KeepSvcFailure("the server closed the connection", 0);
  if (svc_reply_bytes < 0) KeepSvcFailure("the reply broke off", svc_receive_error);
  return svc_reply_bytes > 0;
}

CDIOSVC::SvcReply CDIOSVC::ReadSvcReply(const char* expected_reply) {
  using End = SvcReply::End;
  svc_reply_header_.fill('\0');
  SvcReply svc_reply{End::NO_HEADER, 0, frames::LengthField(svc_reply_header_.data()), 0};
  if (!ReceiveSvcReply(svc_reply_header_.data(), frames::HEADER_SIZE)) return svc_reply;
  svc_reply.body_length = frames::BodyLength(svc_reply_header_.data());
  const auto svc_reply_size = static_cast<size_t>(svc_reply.body_length);
  const std::unique_ptr<char[]> svc_reply_body = AllocateSvcReply(svc_reply_size + 1);
  svc_reply.allocation_error = errno;
  svc_reply.end = End::NO_MEMORY;
  if (!svc_reply_body) {
    KeepSvcFailure("no memory for the reply", svc_reply.allocation_error);
    return svc_reply;
  }
  svc_reply.end = End::NO_BODY;
  if (!ReceiveSvcReply(svc_reply_body.get(), svc_reply_size)) return svc_reply;
  const std::string_view svc_reply_text(svc_reply_body.get(), svc_reply_size);
  if (svc_overhear != nullptr) svc_overhear(svc_reply_text);
  svc_reply.end = svc_reply_text.starts_with(expected_reply) ? End::EXPECTED : End::OTHER;
  if (svc_reply.end == End::OTHER) KeepSvcFailure("another reply than expected", 0, svc_reply_text);
  return svc_reply;
}

long CDIOSVC::JudgeOpen(const SvcReply& svc_reply) {
  switch (svc_reply.end) {
    case SvcReply::End::EXPECTED:
      return 1;
    case SvcReply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : Header Pack Recv Failed.");
      break;
    case SvcReply::End::NO_MEMORY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : malloc fail 2.Request size [%d], Error [%d]",
                svc_reply.body_length + 1, svc_reply.allocation_error);
      break;
    case SvcReply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : Data Pack Recv Failed(%s)", svc_reply.length_field);
      break;
    case SvcReply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : SVC_OPEN Data Pack Recv Failed(%d)", svc_reply.body_length);
      break;
  }
  return -1;
}

long CDIOSVC::JudgeClose(const SvcReply& svc_reply) {
  switch (svc_reply.end) {
    case SvcReply::End::EXPECTED:
      return 1;
    case SvcReply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Header Pack Recv Failed.");
      break;
    case SvcReply::End::NO_MEMORY:
      break;
    case SvcReply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Data Pack Recv Failed(%s)", svc_reply.length_field);
      break;
    case SvcReply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ SVC_CLOSE ] : Data Pack Recv Failed(%d)", svc_reply.body_length);
      break;
  }
  return -1;
}

long CDIOSVC::JudgeData(const SvcReply& svc_reply) {
  switch (svc_reply.end) {
    case SvcReply::End::EXPECTED:
      return 1;
    case SvcReply::End::NO_HEADER:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Header Pack Recv Failed.");
      break;
    case SvcReply::End::NO_MEMORY:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : malloc fail 3 Request Size[%d], Error[%d]",
                svc_reply.body_length + 1, svc_reply.allocation_error);
      break;
    case SvcReply::End::NO_BODY:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Data Pack Recv Failed(%s)", svc_reply.length_field);
      break;
    case SvcReply::End::OTHER:
      SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : Data Pack Recv Failed(%d)", svc_reply.body_length);
      break;
  }
  return -1;
}

long CDIOSVC::SOCK_SVC_OPEN() {
  const std::string svc_open_frame = frames::OpenFrame(m_sock.Get());
  const int svc_frame_length = static_cast<int>(svc_open_frame.size());
  if (base::SendSome(m_sock.Get(), svc_open_frame.data(), svc_open_frame.size()) < 1) {
    const int svc_open_error = errno;
    SVC_TRACE(TRACE_ERROR, "[ SVC_OPEN ] : %s(%06d:%s:%d)", SVC_OPEN_FAILED, svc_frame_length,
              svc_open_frame.c_str(), svc_open_error);
    KeepSvcFailure("OPEN could not be sent", svc_open_error);
    return -1;
  }
  const long reply_ready = DIO_SVC_WAIT(SVC_REPLY_SECONDS);
  if (reply_ready != 1) {
    const int svc_open_error = errno;
    KeepSvcFailure("no reply to OPEN", reply_ready == 0 ? ETIMEDOUT : svc_open_error);
    SVC_TRACE(TRACE_INFO, "[ SVC_OPEN ] : Channel Open Filed(%06d:%s:%d)", svc_frame_length,
              svc_open_frame.c_str(), svc_open_error);
    return -1;
  }
  return JudgeOpen(ReadSvcReply("OPEN_OK"));
}

long CDIOSVC::SOCK_SVC_CLOS() {
  const std::string svc_close_frame = frames::CloseFrame(m_sock.Get());
  if (base::SendSome(m_sock.Get(), svc_close_frame.data(), svc_close_frame.size()) < 1) return -1;
  SVC_TRACE(TRACE_INFO, "[ SVC_CLOSE ] : Channel Close(%06d:%s)", static_cast<int>(svc_close_frame.size()),
            svc_close_frame.c_str());
  if (DIO_SVC_WAIT(SVC_REPLY_SECONDS) != 1) return -1;
  return JudgeClose(ReadSvcReply("CLOSE_OK"));
}

long CDIOSVC::SOCK_SVC_DATA_SEND(const char* report_data, long svc_data_length, long report_type) {
  std::string svc_frame;
  if (!BuildSvcFrame(m_sock.Get(), report_type, report_data, svc_data_length, &svc_frame)) {
    const auto svc_frame_size = static_cast<int>(static_cast<unsigned long>(svc_data_length) + 31);
    SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : malloc fail Request Size[%d], Error[%d]", svc_frame_size, ENOMEM);
    KeepSvcFailure("no memory for the report", ENOMEM);
    return -1;
  }
  if (base::SendAll(m_sock.Get(), svc_frame.data(), svc_frame.size()) < 0) {
    KeepSvcFailure("the report could not be sent", errno);
    SVC_TRACE(TRACE_ERROR, "[ CH_DATA ] : CHANNEL_DATA Send Failed.");
    return -1;
  }
  svc_frame = std::string();  // frees the memory before the wait for the server
  const long reply_ready = DIO_SVC_WAIT(SVC_REPLY_SECONDS);
  if (reply_ready != 1) {
    KeepSvcFailure("no reply to the report", reply_ready == 0 ? ETIMEDOUT : errno);
    return -1;
  }
  return JudgeData(ReadSvcReply("DATA_RECEIVE_OK"));
}

void CDIOSVC::TraceStart(int svc_type, const void* report_data) const {
  if (svc_type == REPORT_ALARM) {
    const auto svc_alarm_code = static_cast<int>(reinterpret_cast<intptr_t>(report_data));
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start.");
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start %d ", svc_alarm_code);
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_ALARM start %d ", svc_alarm_code);
  } else if (svc_type == REPORT_RESOURCE_USAGE) {
    SVC_TRACE(TRACE_INFO, "[ SOCK_SVC ] : SEND_RESOURCE_USAGE start");
  }
}

void CDIOSVC::TraceBody(int svc_type, const std::string& svc_body) const {
  if (svc_type == REPORT_ALARM) {
    SVC_TRACE(TRACE_INFO, "send alarm reqeust data = %s", svc_body.c_str());
  } else if (svc_type == REPORT_RESOURCE_USAGE) {
    SVC_TRACE(TRACE_INFO, "send resource usage reqeust data = %s", svc_body.c_str());
  }
}

long CDIOSVC::SendReport(int svc_type, const void* report_data) {
  const ReportType* const svc_row = FindReportType(svc_type);
  if (svc_row == nullptr) return 1;
  TraceStart(svc_type, report_data);
  const std::string svc_body = svc_row->body(report_data);
  TraceBody(svc_type, svc_body);
  const auto svc_body_length = static_cast<long>(svc_body.size());
  if (SOCK_SVC_DATA_SEND(svc_body.data(), svc_body_length, svc_type) == 1) return 1;
  SVC_TRACE(TRACE_ERROR, "%s", svc_row->failure_trace);
  return -1;
}

long CDIOSVC::DIO_SVC_PROC(int report_type, const void* report_data) {
  long svc_result = SOCK_SVC_OPEN();
  if (svc_result == 1) {
    svc_result = SendReport(report_type, report_data);
  } else {
    SVC_TRACE(TRACE_ERROR, "[ SOCK_SVC ] : svc ch open fail.");
  }
  m_sock.Reset();
  return svc_result;
}

char* CDIOSVC::timeToString(const std::tm* svc_time, int mode) {
  static std::array<char, 20> svc_time_text;
  const int year = svc_time->tm_year + 1900;
  const int month = svc_time->tm_mon + 1;
  std::string next_svc_time;
  if (mode == 0) {
    next_svc_time = base::Format("%04d%02d\\%02d\\%02d\\", year, month, svc_time->tm_mday, svc_time->tm_hour);
  } else if (mode == 1) {
    next_svc_time = base::Format("%04d%02d/%02d/%02d", year, month, svc_time->tm_mday, svc_time->tm_hour);
  } else {
    return svc_time_text.data();
  }
  base::CopyText(svc_time_text.data(), svc_time_text.size(), next_svc_time);
  return svc_time_text.data();
}
