#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Tovik/engine/channel_status.h"
#include "Tovik/engine/engine_socket.h"
#include "Tovik/engine_fixture.h"

namespace {

using test::Bytes;
using test::HasLine;
using test::Lines;
using test::Messages;
using test::Send;
using test::TraceOf;

std::string Packet(int status, const std::vector<int32_t>& payload, int channel = 7) {
  return Bytes({5, status, static_cast<int32_t>(payload.size() * 4), channel}) + Bytes(payload);
}

// An engine that gives each connection the next answer, as its query has come, and closes.
class Answers {
 public:
  explicit Answers(
      std::vector<std::string> answers, const std::function<void()>& before = [] {})
      : listener_(test::BoundSocket(true, &port_)), thread_([this, answers = std::move(answers), before] {
          for (const std::string& answer : answers) {
            const base::UniqueFd connection(::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
            EXPECT_EQ(test::Receive(connection, 16), Bytes({5, 0, 0, -1}));
            before();
            Send(connection, answer);
          }
        }) {
    m_PROC_PORT = port_;
  }
  ~Answers() { thread_.join(); }

 private:
  int port_ = 0;
  base::UniqueFd listener_;
  std::thread thread_;
};

std::vector<int32_t> Counts(const LVCSR_DATA_CHANNEL& record) {
  return {record.nThreadCnt, record.nChannelCnt, record.nUsedCnt,
          record.nWaitCnt,   record.nIdleCnt,    record.nEntries};
}

struct ReplyCase {
  const char* what;
  std::string reply;
  int result;
  std::vector<int32_t> counts;
  int channel;  // of the connection afterwards
};

const std::vector<int32_t> TWO = {2, 2, 1, 0, 1, 100, 1, 101, 0};
const std::vector<int32_t> UNTOUCHED = {9, 9, 9, 9, 9, 0};

TEST(EngineChannel, TakesEveryReplyForAClaim) {
  for (const auto& row : {
           ReplyCase{"whole", Packet(0, TWO), 0, {2, 2, 1, 0, 1, 2}, 7},
           ReplyCase{"other status", Packet(1, TWO), 0, {2, 2, 1, 0, 1, 2}, 7},
           ReplyCase{"status 2", Packet(2, TWO), -1, {2, 2, 1, 0, 1, 2}, -1},
           ReplyCase{"status 3", Packet(3, TWO), -1, {2, 2, 1, 0, 1, 2}, -1},
           ReplyCase{"status 4", Packet(4, TWO), -3, {2, 2, 1, 0, 1, 2}, -1},
           ReplyCase{"status 4 alone", Packet(4, {}), -3, UNTOUCHED, -1},
           ReplyCase{"no payload", Packet(0, {}), 0, UNTOUCHED, 7},
           ReplyCase{"negative length", Bytes({5, 0, -20, 7}), 0, UNTOUCHED, 7},
           ReplyCase{"three counts", Packet(0, {4, 5, 6}), 0, {4, 5, 6, 0, 0, 0}, 7},
           ReplyCase{"one byte", Bytes({5, 0, 1, 7}) + "x", 0, {0, 0, 0, 0, 0, 0}, 7},
           ReplyCase{"no entries", Packet(0, {3, 3, 1, 0, 2}), 0, {3, 3, 1, 0, 2, 0}, 7},
           ReplyCase{"half an entry", Packet(0, {3, 3, 1, 0, 2, 1, 1, 2}), 0, {3, 3, 1, 0, 2, 1}, 7},
           ReplyCase{"fewer than claimed",
                     Packet(0, {INT32_MAX, INT32_MAX, 1, 0, 1, 1, 1}),
                     0,
                     {INT32_MAX, INT32_MAX, 1, 0, 1, 1},
                     7},
           ReplyCase{"more than claimed", Packet(0, {1, 1, 0, 0, 0, 1, 1, 2, 2}), 0, {1, 1, 0, 0, 0, 1}, 7},
           ReplyCase{"below zero", Packet(0, {-1, -1, -1, -1, -1, 1, 1}), 0, {-1, -1, -1, -1, -1, 0}, 7},
           ReplyCase{"cut payload", Packet(0, TWO).substr(0, 40), -1, UNTOUCHED, -1},
           ReplyCase{"nothing", "", -1, UNTOUCHED, -1},
       }) {
    auto [near, far] = test::SocketPair();
    Send(far, row.reply);
    ::shutdown(far.Get(), SHUT_WR);
    LVCSR_SOCK_HEAD head{};
    head.uSock = near.Get();
    head.uChannel = 3;
    head.uRecvTimeout = 1;
    LVCSR_DATA_CHANNEL record{9, 9, 9, 9, 9, 0, nullptr};
    EXPECT_EQ(DunraSTT_GET_CHANNEL(&head, &record), row.result) << row.what;
    EXPECT_EQ(test::Receive(far, 16), Bytes({5, 0, 0, 3}));
    EXPECT_EQ(Counts(record), row.counts) << row.what;
    EXPECT_EQ(head.uChannel, row.channel) << row.what;
    ::free(record.pChannel);
  }
}

TEST(EngineChannel, NeedsAConnectionForItsQuery) {
  LVCSR_SOCK_HEAD head{};
  LVCSR_DATA_CHANNEL record{};
  const auto query = [&] { EXPECT_EQ(DunraSTT_GET_CHANNEL(&head, &record), -1); };
  EXPECT_EQ(Messages(TraceOf(query)), (Lines{"ERROR [CHANNEL] Socket ID Create Failed"}));
  head.bUseSSL = 1;
  EXPECT_EQ(TraceOf(query), "");
  auto [near, far] = test::SocketPair();
  far.Reset();
  head = {};
  head.uSock = near.Get();
  EXPECT_EQ(Messages(TraceOf(query)), (Lines{"ERROR [CHANNEL] SendData packets Failed[0]"}));
}

TEST(EngineChannel, TimesOutOnASilentEngine) {
  const auto [near, far] = test::SocketPair();
  LVCSR_SOCK_HEAD head{};
  head.uSock = near.Get();
  head.uRecvTimeout = 1;
  LVCSR_DATA_CHANNEL record{};
  const auto lines = Messages(TraceOf([&] { EXPECT_EQ(DunraSTT_GET_CHANNEL(&head, &record), -2); }));
  EXPECT_FALSE(HasLine(lines, "ERROR [CHANNEL] RecvData packets"));
  EXPECT_EQ(head.uChannel, -1);
}

TEST(EngineChannel, TracesOneQueryInItsOrder) {
  const Answers engine({Packet(0, TWO)});
  const auto lines = Messages(TraceOf([] { EXPECT_EQ(SHM_OPEN(), 1); }));
  const std::vector<std::string> end = {
      "INFO [Recv_Wait] select", "INFO [Recv_Wait] select end[ 1 ]",
      "ERROR [CHANNEL] RecvData packets Check[0] Stat[0] Len[36]",
      "INFO Thread Count [ 2 ], Channel Count [ 2 ], Used Count [ 1 ], Wait Count [ 0 ], Idle Count [ 1 ]"};
  ASSERT_GT(lines.size(), end.size() + 2);
  EXPECT_EQ(std::vector(lines.end() - 6, lines.end() - 2), end);
  EXPECT_TRUE(lines[lines.size() - 2].starts_with("INFO [EXIT] Successed [ ")) << lines[lines.size() - 2];
  EXPECT_EQ(lines.back(), "INFO Shared memory");
  EXPECT_EQ(Messages(TraceOf([] { EXPECT_EQ(get_recg_svr_wrk_ch_cnt(), 50); })),
            (Lines{"INFO ch_status_check TotalCh cnt [ 2 ] MaxCh cnt [ 1 ] Percent [ 50 ]",
                   "INFO recog_channel_status CHID [100], STAT[1]",
                   "INFO recog_channel_status CHID [101], STAT[0]"}));
  EXPECT_EQ(TraceOf([] { EXPECT_EQ(ch_status_check(), 2); }),
            "ch_status_check TotalCh cnt [ 2 ] !!CHID [ 100 ], STATUS [ 1 ]CHID [ 101 ], STATUS [ 0 ]");
  EXPECT_EQ(SHM_CLOS(), 1);
  EXPECT_EQ(Counts(*CurrentChannelStatus()), std::vector<int32_t>(6, 0));
}

struct Share {
  int32_t channels;
  int32_t used;
  int64_t percent;
};

TEST(EngineChannel, ComputesTheShareInUse) {
  for (const auto& row :
       {Share{8, 2, 25}, Share{3, 2, 66}, Share{0, 0, INT64_MIN}, Share{0, 5, INT64_MIN}, Share{100, 29, 29},
        Share{1, INT32_MAX, 214'748'364'800}, Share{-4, 1, -25}, Share{INT32_MAX, 0, 0}}) {
    const Answers engine({Packet(0, {1, row.channels, row.used, 0, 0, 1, 1})});
    ASSERT_EQ(SHM_OPEN(), 1);
    EXPECT_EQ(get_recg_svr_wrk_ch_cnt(), row.percent) << row.used << "/" << row.channels;
  }
}

// Readers see the old answer, zeros while the query is under way, then the new one; who is in the middle of
// an array keeps it.
TEST(EngineChannel, HandsItsRecordsOverWhole) {
  std::vector<std::vector<int32_t>> seen;
  const Answers engine({Packet(0, TWO), Packet(4, TWO), Packet(0, {})},
                       [&] { seen.push_back(Counts(*CurrentChannelStatus())); });
  ASSERT_EQ(SHM_OPEN(), 1);
  const auto kept = CurrentChannelStatus();
  EXPECT_EQ(SHM_OPEN(), 1);  // the counts came, whatever the engine's status says
  EXPECT_EQ(Counts(*CurrentChannelStatus()), (std::vector<int32_t>{2, 2, 1, 0, 1, 2}));
  EXPECT_EQ(SHM_OPEN(), 1);
  EXPECT_EQ(Counts(*CurrentChannelStatus()), std::vector<int32_t>(6, 0));
  EXPECT_EQ(seen, std::vector(3, std::vector<int32_t>(6, 0)));
  SHM_CLOS();
  EXPECT_EQ(kept->pChannel[1].id, 101);
}

TEST(EngineChannel, RefusedConnectionLeavesTheRecord) {
  {
    const Answers engine({Packet(0, TWO)});
    ASSERT_EQ(SHM_OPEN(), 1);
  }
  int port = 0;
  const base::UniqueFd closed = test::BoundSocket(false, &port);
  m_PROC_PORT = port;
  const auto lines = Messages(TraceOf([] { EXPECT_EQ(SHM_OPEN(), -1); }));
  EXPECT_EQ(lines[lines.size() - 2], "ERROR [ " + std::to_string(port) + " ] disconnect");
  EXPECT_EQ(lines.back(), "INFO [EXIT] Successed [ 0 ]");
  EXPECT_EQ(CurrentChannelStatus()->nEntries, 2);
  SHM_CLOS();
}

// For the thread sanitizer: readers walk whatever array there is while queries replace it.
TEST(EngineChannel, ReadersNeverMeetAReleasedArray) {
  constexpr int QUERIES = 200;
  const Answers engine(std::vector<std::string>(QUERIES, Packet(0, TWO)));
  std::atomic<bool> done{false};
  std::vector<std::thread> readers;
  readers.reserve(2);
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      while (!done) {
        const int64_t percent = get_recg_svr_wrk_ch_cnt();
        EXPECT_TRUE(percent == 50 || percent == INT64_MIN) << percent;
      }
    });
  }
  for (int i = 0; i < QUERIES; ++i) EXPECT_EQ(SHM_OPEN(), 1);
  done = true;
  for (std::thread& reader : readers) reader.join();
  SHM_CLOS();
}

struct ScriptCase {
  const char* script;
  int result;
  int32_t entries;
};

TEST(EngineChannel, OutlivesEveryScriptOfAnEngine) {
  const std::vector<ScriptCase> rows = {{"ok", 1, 8},
                                        {"status:2", 1, 8},
                                        {"empty:0", 1, 0},
                                        {"empty:-5", 1, 0},
                                        {"short:12", 1, 0},
                                        {"short:30", 1, 1},
                                        {"cut:30", 1, 0},
                                        {"header:7", 1, 0},
                                        {"announce:2000000000", 1, 0},
                                        {"claim:1000000", 1, 8},
                                        {"garbage", 1, 0},
                                        {"reset-later", 1, 0}};
  for (const ScriptCase& row : rows) {
    const test::EnginePeer engine({"--script", row.script});
    m_PROC_PORT = engine.Port();
    EXPECT_EQ(SHM_OPEN(), row.result) << row.script;
    EXPECT_EQ(CurrentChannelStatus()->nEntries, row.entries) << row.script;
  }
  SHM_CLOS();
}

}  // namespace
