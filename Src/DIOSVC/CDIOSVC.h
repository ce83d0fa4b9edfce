// Client side of the management link. It sends one report to one management server over one TCP connection:
// connect, open the service channel, send one data frame, receive its acknowledgement, close.
//
// An object serves one report and one thread. A server that accepts and stays silent costs up to 60 seconds
// per reply. Connecting, and the rest of a reply that has begun, are limited only by the kernel and the
// server. A stop cuts every wait when its grace has passed. Every failure is traced, at error level unless
// said otherwise, with the server's index as trace channel.
#ifndef DIOSVC_CDIOSVC_H
#define DIOSVC_CDIOSVC_H

#include <array>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "DIOSVC/channel_record.h"
#include "DIOSVC/server_frames.h"
#include "base/unique_handles.h"

// Hears the body of each reply that came whole. Null unless somebody sets it.
extern void (*svc_overhear)(std::string_view body);

// Why a report was not delivered, for whoever wants to say more than the trace does.
struct SvcFailure {
  const char* what = "";          // in words; empty: nothing failed
  int error = 0;                  // errno of it, 0 when there is none
  std::array<char, 301> reply{};  // the beginning of a reply that was another than expected, as it came
};

class CDIOSVC {
 public:
  CDIOSVC() = default;
  CDIOSVC(const CDIOSVC&) = delete;
  CDIOSVC& operator=(const CDIOSVC&) = delete;

  // Stores what the traces need, sets the folder and level of the trace log, and connects. Returns 1, or -1.
  long initialize_svc(long index, const char* address, long port, long save, const char* svc_log_path,
                      long svc_log_level);
  // Connects. Returns the socket, or -1. The address is dotted IPv4 text (inet_addr(3)); names are not
  // resolved. Closing the socket resets the connection (SO_LINGER 0).
  long SOCK_SVC_CREATE(const char* address, long port);
  // Waits until the socket is readable. Returns 1, 0 when the time has passed, or -1 on failure.
  long DIO_SVC_WAIT(long svc_seconds);
  // Open and close the channel, one exchange each. Return 1, or -1.
  long SOCK_SVC_OPEN();
  long SOCK_SVC_CLOS();
  // Sends one data frame of a report type (report_types.h) and receives its acknowledgement. Returns 1, or
  // -1.
  long SOCK_SVC_DATA_SEND(const char* report_data, long svc_data_length, long report_type);
  // The whole report: 1, or -1. report_data is what the report type's body is made of (report_types.h). Any
  // other type sends nothing after the open. The socket is closed on every way out. No close frame is sent:
  // the connection ends after the acknowledgement.
  long DIO_SVC_PROC(int report_type, const void* report_data);
  // The last failure of connecting, opening or sending; what SOCK_SVC_CLOS sends is not looked at.
  const SvcFailure& LastFailure() const { return svc_failure_; }
  // Date and hour, in a static buffer of 20 bytes that all objects share without a lock. Mode 0:
  // "YYYYMM\DD\HH\", mode 1: "YYYYMM/DD/HH". Any other mode returns the old text.
  static char* timeToString(const std::tm* svc_time, int mode);

 private:
  struct SvcReply;

  SvcReply ReadSvcReply(const char* expected_reply);
  bool ReceiveSvcReply(char* svc_reply_part, size_t part_size);
  // Return 1 for the expected reply, else -1 after a trace line.
  long JudgeOpen(const SvcReply& svc_reply);
  long JudgeClose(const SvcReply& svc_reply);
  long JudgeData(const SvcReply& svc_reply);
  // Keeps a failure. reply is empty, or what the server said.
  void KeepSvcFailure(const char* what, int error, std::string_view reply = "");
  long SendReport(int svc_type, const void* report_data);
  void TraceStart(int svc_type, const void* report_data) const;
  void TraceBody(int svc_type, const std::string& svc_body) const;

  base::UniqueFd m_sock;
  SvcFailure svc_failure_;
  int64_t svc_trace_save_ = 0;
  int64_t svc_index_ = 0;
  std::array<char, frames::HEADER_SIZE + 1> svc_reply_header_{};  // the last reply's header
};

#endif
