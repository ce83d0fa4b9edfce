// Reports to the management servers.
//
// A finding is posted with send_request into a mailbox of one slot. The management thread looks at it once a
// second and serves the configured servers strictly one after another, each by a short-lived sender thread
// that delivers one report (DIOSVC/CDIOSVC.h). A request posted before an earlier one was looked at takes its
// place; one posted during a pass is cleared by that pass; and a sender reads the figures and the alarm's
// code as they are when it runs. A server that stays silent holds up the later ones. A failed report is
// traced and forgotten.
#ifndef TOVIK_REPORTS_REPORT_REQUEST_H
#define TOVIK_REPORTS_REPORT_REQUEST_H

#include <atomic>
#include <cstdint>

inline constexpr int REQUEST_ALARM = 1;
inline constexpr int REQUEST_CHANNEL_STATUS = 2;
inline constexpr int REQUEST_RESOURCE_USAGE = 3;

inline constexpr int ALARM_START = 0;
inline constexpr int ALARM_MEMORY = 1;
inline constexpr int ALARM_CPU = 2;
inline constexpr int ALARM_RESTART = 3;
inline constexpr int CODE_CHANNEL_STATUS = 4;  // accompany requests that carry no alarm
inline constexpr int CODE_RESOURCE_USAGE = 5;
inline constexpr int ALARM_CHANNEL = 6;

inline constexpr int64_t MESSAGE_ALARM = 1125;
inline constexpr int64_t MESSAGE_CHANNEL_STATUS = 1127;
inline constexpr int64_t MESSAGE_RESOURCE_USAGE = 1128;

// The mailbox.
extern std::atomic<uint8_t> gMsgFlag;    // 1 while a request waits
extern std::atomic<int64_t> gMsgId;      // its message id
extern std::atomic<int64_t> gAlarmFlag;  // code of the latest alarm request

// Posts a request; back when it lies in the mailbox, some 20 ms later. Types other than 1 to 3 do nothing. A
// request whose thread cannot be created is lost, with a trace line. Any thread.
void send_request(int type, int code);
// Its thread's body; takes the type and code as a ReportRequest.
void* send_request_thread(void* argument);

// The management thread's body; ends, with 1, on gSvcManageThrdExit (after the pass in progress). gSendInfo
// must live until then. The argument is not used.
void* send_svc_manage_thread(void* argument);

// Sender threads' bodies: one report to one server, given by a SVC_SERVER that outlives the thread. 1, or -1.
void* send_alarm_thread(void* entry);
void* send_ch_status_thread(void* entry);
void* send_resouce_info_thread(void* entry);

// Called with the alarm's code before alarms are sent; nothing hangs on it today.
void alarm_log_message_trace(int code);

#endif
