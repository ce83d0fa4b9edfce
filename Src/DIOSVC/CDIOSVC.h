// The client's side of the management link: hands one report to one management server over one TCP connection
// (connect, open the service channel, one data frame, its acknowledgement, close).
//
// An object serves one report and one thread. A server that accepts and stays silent costs up to 60 seconds
// per reply; connecting, and the rest of a reply that has begun, are bounded only by the kernel and the peer.
// A stop cuts every wait when its grace has passed. Every failure is traced, at error level unless said
// otherwise, with the server's index as trace channel.
#ifndef DIOSVC_CDIOSVC_H
#define DIOSVC_CDIOSVC_H

#include <array>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "DIOSVC/channel_record.h"
#include "DIOSVC/frames.h"
#include "base/owners.h"

// Hears the body of each reply that came whole. Null unless somebody sets it.
extern void (*svc_overhear)(std::string_view body);

class CDIOSVC {
 public:
  CDIOSVC() = default;
  CDIOSVC(const CDIOSVC&) = delete;
  CDIOSVC& operator=(const CDIOSVC&) = delete;

  // Keeps what the traces need, sets the trace log's folder and level, and connects. 1, or -1.
  long initialize_svc(long index, const char* address, long port, long save, const char* path, long level);
  // A connected socket, or -1. The address is dotted IPv4 text (inet_addr(3)); nothing is resolved. Closing
  // it resets the connection (SO_LINGER 0).
  long SOCK_SVC_CREATE(const char* address, long port);
  // Waits until the socket is readable: 1, 0 timed out, -1 failed.
  long DIO_SVC_WAIT(long seconds);
  // Channel open and close, each one exchange: 1, or -1.
  long SOCK_SVC_OPEN();
  long SOCK_SVC_CLOS();
  // One data frame of a report type (report_types.h) and its acknowledgement: 1, or -1.
  long SOCK_SVC_DATA_SEND(const char* data, long length, long type);
  // The whole report: 1, or -1. data is what the report type's body is made of (report_types.h). Any other
  // type sends nothing after the open. The socket is closed on every way out. No close frame is sent: the
  // connection ends after the acknowledgement.
  long DIO_SVC_PROC(int type, const void* data);
  // Date and hour in a static buffer of 20 bytes that all objects share, unguarded. Mode 0: "YYYYMM\DD\HH\",
  // mode 1: "YYYYMM/DD/HH"; any other leaves what was there.
  static char* timeToString(const std::tm* when, int mode);

 private:
  struct Reply;

  Reply ReadReply(const char* expected);
  // 1 for the expected reply, else -1 and a trace line.
  long JudgeOpen(const Reply& reply);
  long JudgeClose(const Reply& reply);
  long JudgeData(const Reply& reply);
  long SendReport(int type, const void* data);
  void TraceStart(int type, const void* data) const;
  void TraceBody(int type, const std::string& body) const;

  base::UniqueFd m_sock;
  int64_t save_ = 0;
  int64_t index_ = 0;
  std::array<char, frames::HEADER_SIZE + 1> header_{};  // of the last reply
};

#endif
