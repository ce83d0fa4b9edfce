// "render" equals the wire: what it writes beside what the scripted peers got from the agent for the same
// alarm.
#include "system/harness.h"

namespace harness {
namespace {

struct Row {
  const char* name;  // the kind
  const char* lines;
  bool engine;
  const char* frame = nullptr;    // how its body begins; null: the one-place mailbox seldom lets it through
  const char* message = nullptr;  // what the engine itself says
};

const Row ROWS[] = {
    {"restart", "", false, "ALARM+DunraSTT Check"},
    {"threshold-cpu", "CPU_OVER_VALUE 0\n", true, "ALARM+Cpu Check"},
    {"threshold-memory", "MEM_OVER_VALUE 0\n", true},
    {"threshold-channel", "CH_OVER_VALUE 66\n", true},
    {"hang", "HANG_ALARM 1\n", true},
#ifdef FAKETIME
    {"result", "RESULT_CHECK 1\nRESULT_TIME 00:00\nTXT_PATH ./engine/\n", true},
    {"error-log", "LOG_CHECK_MIN 1\nTXT_PATH ./engine/\n", true, nullptr, "E 23:58:07 wanted\n"},
#endif
};

// A moment of 1 January: yesterday's results are due, and the error lines of two minutes before.
#ifdef FAKETIME
const Words CLOCK = {"env",
                     "LD_PRELOAD=" FAKETIME,
                     "TZ=UTC0",
                     "FAKETIME_DONT_FAKE_MONOTONIC=1",
                     "NO_FAKE_STAT=1",
                     "FAKETIME_FMT=%s",
                     "FAKETIME=@1735689605"};
#else
const Words CLOCK = {"env"};
#endif

class Render : public AllChannels {
 protected:
  int Tool(const Words& words) const {
    folder_.Write("told", "");
    const Words tool = {TOOL, "-f", folder_ / "agent.conf", "render", "--out", folder_ / "out"};
    return Process(Joined(CLOCK, Joined(tool, words)), folder_ / "told", folder_ / "told").ExitStatus();
  }
  std::string Told() const { return ReadFile(folder_ / "told"); }
  std::string Rendered(const std::string& name) const { return ReadFile(folder_ / "out/" + name); }
  // Moments, boundaries and measured figures aside.
  static std::string Plain(std::string text) {
    for (const auto& [pattern, word] : {std::pair("Date: [^\r]*", "Date"),
                                        {"mime[A-Z]{10}", "BOUNDARY"},
                                        {"\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d", "MOMENT"},
                                        {"System (CPU|Memory)\\[\\d+", "System $1[N"}})
      text = std::regex_replace(text, std::regex(pattern), word);
    return text;
  }
  // The bytes behind the connection's tag of the first frame with that body.
  std::string FrameSeen(const std::string& body) const {
    const std::string record = ReadFile(folder_ / "server/frames");
    const size_t line = record.find("\"body\": \"" + body);
    if (line == std::string::npos) return "";
    std::string bytes;
    for (size_t at = record.find("\"hex\": \"", line) + 8 + 12; record[at] != '"'; at += 2)
      bytes += static_cast<char>(std::stoi(record.substr(at, 2), nullptr, 16));
    return bytes;
  }
};

class Wire : public Render, public testing::WithParamInterface<Row> {};

void PrintTo(const Row& row, std::ostream* out) {
  *out << std::regex_replace(row.name, std::regex("-"), "_");
}

TEST_P(Wire, HasTheSameBytes) {
  const Row& row = GetParam();
  const std::string name = row.name;
  folder_.Write("figures", "3 2");
  const Peer engine(folder_, "engine", "engine_peer.py", {"--figures", folder_ / "figures"});
  folder_.Write("cc.txt", "Park park@example.com\n");
  config_ += row.lines;
  // An engine that answers: the report on its channels would take the restart's place in the mailbox.
  if (name == "threshold-channel") config_ += "ASR_PORT " + engine.Port() + "\n";
  if (row.engine) StartEngine();
  fs::create_directories(folder_ / "engine/20241231");
  folder_.Write("engine/20241231/Result.csv", ",,,,,,,,,,,,100,,,5000,,,0.5,,,40,,\n");
  folder_.Write("engine/20241231/1231.ERR.LOG", row.message == nullptr ? "" : row.message);
  const Process agent = Start({}, CLOCK);
  const std::string mail = mails_.Kept("1.eml");
  const std::string post = posts_.Kept("1.body");
  EXPECT_TRUE(row.frame == nullptr || WaitUntil([&] { return !FrameSeen(row.frame).empty(); }));

  Words words = {"--kind", name};
  if (row.message != nullptr) words = Joined(words, {"--message", folder_.Write("text", row.message)});
  EXPECT_EQ(Tool(words), 0) << Told();
  EXPECT_EQ(Plain(Rendered(name + ".eml")), Plain(mail));
  EXPECT_EQ(Plain(Rendered(name + ".html") + "\r\n"), Plain(mails_.Kept("1.html")));
  EXPECT_EQ(Plain(Rendered(name + ".card.json")), Plain(post));
  if (row.frame != nullptr) {
    EXPECT_EQ(Rendered(name + ".frame").substr(6), FrameSeen(row.frame));
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Wire, testing::ValuesIn(ROWS), testing::PrintToStringParamName());

TEST_F(Render, WritesEveryKindAndOnePage) {
  folder_.Write("agent.conf", config_);
  ASSERT_EQ(Tool({}), 0) << Told();
  for (const char* kind :
       {"restart", "threshold-cpu", "threshold-memory", "threshold-channel", "result", "error-log", "hang"}) {
    for (const char* ending : {".eml", ".html", ".card.json"})
      EXPECT_NE(Rendered(kind + std::string(ending)), "") << kind;
    EXPECT_EQ(Count(Rendered("index.html"), "<section class=\"" + std::string(kind) + "\">"), 1U);
  }
  EXPECT_EQ(Rendered("start.frame"), "000000 C 000017 ALARM+Tovik Start" + std::string(8, '\0'));
  EXPECT_FALSE(fs::exists(folder_ / "bcc.txt"));  // the agent would make it
  EXPECT_EQ(mails_.Arrived() + posts_.Arrived(), 0);
  EXPECT_EQ(Tool({"--kind", "restrat"}), 3);
  EXPECT_TRUE(Has(Told(), "no kind restrat, restart?"));
}

TEST_F(Render, SaysWhatIsWrongAndEscapesIt) {
  config_ += "CFG_FILE ./nowhere.conf\n";
  folder_.Write("agent.conf", config_);
  folder_.Write("text", "a \"quoted\" word\n</iframe><script>alert(1)</script>\n");
  EXPECT_EQ(Tool({"--kind", "error-log", "--message", folder_ / "text"}), 1);
  EXPECT_TRUE(Has(Told(), "wrong    error-log         the card is no valid JSON"));
  EXPECT_FALSE(Has(Rendered("index.html"), "<script"));
  EXPECT_EQ(Count(Rendered("index.html"), "</iframe>"), 1U);
  folder_.Write("text", "\xf9\xd4");  // Hanja
  EXPECT_EQ(Tool({"--kind", "error-log", "--message", folder_ / "text"}), 1);
  EXPECT_TRUE(Has(Told(), "no mail is sent"));
  EXPECT_TRUE(Has(Told(), "no card is posted"));
  EXPECT_EQ(Tool({"--kind", "restart"}), 1);
  EXPECT_TRUE(Has(Told(), "no mail is sent: Failed to read or open a local file"));
}

}  // namespace
}  // namespace harness
