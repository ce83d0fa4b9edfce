// "check" never lies: for each broken file the line that it prints, and the real agent on the same file.
#include <pwd.h>

#include <optional>

#include "system/harness.h"
#include "tls/certificates.h"

namespace harness {
namespace {

enum class Beside { NOTHING, ENGINE, LONG_NAMED_ENGINE, NAMESAKE, TOOLS_NAMESAKE, TLS_ENGINE };

// In texts: {F} the folder with its slash, {f} without, {engine} and {agent} the names, {pid} the engine's,
// {line} the number of the line, {before} that of the one before, {server} a management server's address,
// {posts} the port of the chat, {user} who runs this, {open} a start script that everybody may write,
// {hundred} a hundred servers, {tls} the folder of certificates.
struct Row {
  const char* name;
  const char* lines;      // put behind the configuration; a key before "!" is taken out of it first
  const char* at = "";    // how the line told begins; empty: none is told
  const char* says = "";  // level and sentence
  const char* sees = "";  // what the agent then does
  const char* never = nullptr;
  Beside beside = Beside::NOTHING;
  const char* to = nullptr;  // the file of recipients, in which the line is then
};

constexpr const char* REFUSED = "smtp failed: Invalid parameter";
constexpr const char* ENDS = "DunraSTT_Admin Already Running";
constexpr const char* LONG_LINE = "long";

const Row ROWS[] = {
    // Lines.
    {"MisspeltKey", "SHELL_FILE!SHELL_FIEL ./start engine.sh\n", "SHELL_FIEL",
     "error SHELL_FIEL is no key and is ignored; SHELL_FILE?", "Permission denied", "<start>"},
    {"UnknownKey", "COLOUR red\n", "COLOUR", "warning COLOUR is no key and is ignored", "process exec"},
    {"KeyWithEquals", "RESTART_CHECK!RESTART_CHECK=1\n", "RESTART_CHECK=",
     "error RESTART_CHECK= is no key and is ignored: a blank stands between key and value, no \"=\"",
     "Debug: 3", "send_timer Process"},
    {"ValueWithEquals", "RESTART_CHECK = 1\n",
     "RESTART_CHECK =", "error RESTART_CHECK: the \"=\" became part of the value; leave it out", "Debug: 3",
     "send_timer Process"},
    {"NoComment", "#LOG_LEVEL 0\n", "#LOG",
     "note \"#\" begins no comment here; the line is ignored as a key that there is not", "process exec"},
    {"DuplicateKey", "CPU_OVER_VALUE!CPU_OVER_VALUE 1000\nCPU_OVER_VALUE 0\n", "CPU_OVER_VALUE 0",
     "warning CPU_OVER_VALUE stands in line {before} too; this one, line {line}, counts", "Config CPU [ 0 ]",
     nullptr, Beside::ENGINE},
    {"NoValue", "SHELL_METHOD\n", "SHELL_METHOD\n",
     "warning SHELL_METHOD has no value: its value is a line end; leave the line out",
     "start engine.sh\" \n ]"},
    {"ValueOfLineBefore", "RESTART_CHECK_SEC 2\nWATCHDOG_NAME", "WATCHDOG_NAME!",
     "error WATCHDOG_NAME has nothing behind it and takes the value of the line before", ENDS},
    {"LongLine", LONG_LINE, ";xxx",
     "warning 1039 bytes: the line is read up to 1,023, what follows is read as a line of its own",
     "Config CPU [ 0 ]", nullptr, Beside::ENGINE},
    {"BlanksAtEnd", "WATCHDOG_NAME {agent}                                        \n",
     "WATCHDOG_NAME {agent}  ", "warning WATCHDOG_NAME: the many blanks at its end are part of the value",
     ENDS},
    {"NoNumber", "RESTART_CHECK yes\n", "RESTART_CHECK yes",
     "warning RESTART_CHECK yes: not a number, and it counts as 0", "Debug: 3", "send_timer Process"},
    {"NumberWithTail", "RESTART_CHECK_SEC 2s\n", "RESTART_CHECK_SEC 2s",
     "warning RESTART_CHECK_SEC 2s: not a number, and it counts as 2", "send_timer Process Time [ 2 ]"},
    {"NoOption", "HANG_ALARM 5x\n", "HANG_ALARM 5x",
     "warning HANG_ALARM 5x: no value for it, and it counts as absent",
     "HANG_ALARM: \"5x\" is no value for it and counts as absent"},
    {"SavedAsUtf8", "PROC_NAME 감시\n", "PROC_NAME 감시",
     "note the file is saved as UTF-8; the agent takes it for code page 949, which matters to names in "
     "alarms",
     "WebHook lost: "},
    // Paths.
    {"PathReplaced", "SHELL_FILE start engine.sh\n", "SHELL_FILE start",
     "error SHELL_FILE start engine.sh: without \"./\" it became the folder {F}; no engine is ever started",
     "Permission denied", "<start>"},
    {"FolderReplaced", "WATCH_PATH log/\n", "WATCH_PATH log",
     "warning WATCH_PATH log/: without \"./\" it became the folder {F}; the log goes there", "{F}20"},
    {"PathDots", "SHELL_FILE ../start engine.sh\n", "SHELL_FILE ..",
     "warning SHELL_FILE ../start engine.sh: the base took the place of its first two characters, it became "
     "{F}/start engine.sh",
     "process exec [ \"{F}/start engine.sh\""},
    {"BaseSlash", "BASE_PATH {f}\n", "BASE_PATH {f}\n",
     "warning BASE_PATH {f} does not end with \"/\": SHELL_FILE became {f}start engine.sh", "not found",
     "<start>"},
    {"FolderSlash", "WATCH_PATH ./log\n", "WATCH_PATH ./log\n",
     "warning WATCH_PATH {F}log does not end with \"/\": its dated folders are {F}log20260131 and the like",
     "{F}log20"},
    {"PathRelative", "BASE_PATH!", "SHELL_FILE",
     "warning SHELL_FILE: \"start engine.sh\" is looked for in the folder in which the agent happens to run",
     "process exec [ \"start engine.sh\""},
    {"ScriptMissing", "SHELL_FILE ./nowhere.sh\n", "SHELL_FILE ./nowhere",
     "error SHELL_FILE {F}nowhere.sh: no such file or directory; no engine is ever started", "not found",
     "<start>"},
    {"ScriptNotExecutable", "SHELL_FILE ./to.txt\n", "SHELL_FILE ./to",
     "error SHELL_FILE {F}to.txt: it is not executable; no engine is ever started", "Permission denied",
     "<start>"},
    {"ScriptOpen", "SHELL_FILE {open}\n", "SHELL_FILE {open}",
     "warning SHELL_FILE {open} may be written by everybody, who can so run anything as user {user}",
     "<anything>"},
    {"Attachment", "CFG_FILE ./nowhere.conf\n", "CFG_FILE ./nowhere",
     "warning CFG_FILE: no such file or directory; the mail about a restart would not be sent",
     "smtp failed: Failed to read or open a local file", "\"attached\""},
    {"FolderUnwritable", "WATCH_PATH ./to.txt/log/\n", "WATCH_PATH ./to",
     "warning WATCH_PATH {F}to.txt/log/: not a directory; there would be no log", "log file open error",
     "MAIN.LOG"},
    // Values.
    {"EngineNameLong", "PROC_NAME a_long_engine_name\n", "PROC_NAME a_long",
     "error PROC_NAME a_long_engine_name is longer than the 15 bytes that the kernel keeps of a name; the "
     "engine is "
     "taken for dead and started again and again",
     "a_long_engine_name process start.", nullptr, Beside::LONG_NAMED_ENGINE},
    {"EngineNameMissing", "PROC_NAME!", "",
     "error PROC_NAME is missing; the engine is taken for dead and started again and again",
     " process start.", nullptr, Beside::ENGINE},
    {"NamesEqual", "PROC_NAME {agent}\n", "PROC_NAME {agent}",
     "error PROC_NAME and WATCHDOG_NAME are the same: the agent does not start beside the engine, and takes "
     "itself "
     "for it",
     "match inputProcessName [ {agent} ]", "process exec"},
    {"AgentName", "WATCHDOG_NAME other\n", "WATCHDOG_NAME other",
     "error WATCHDOG_NAME other: the agent's process is called DunraSTT_Admin; it does not start (\"Already "
     "Running\")",
     ENDS},
    {"AgentNameTaken", "", "WATCHDOG_NAME",
     "error 1 process bears the agent's name {agent} already; an agent started now ends with \"Already "
     "Running\"",
     ENDS, nullptr, Beside::NAMESAKE},
    {"ToolName", "PROC_NAME dunrasttctl\n", "PROC_NAME dun",
     "error PROC_NAME dunrasttctl is the name of this tool, whose own process would count",
     "match inputProcessName [ dunrasttctl ]", "process exec", Beside::TOOLS_NAMESAKE},
    {"NotWatched", "RESTART_CHECK 0\n", "RESTART_CHECK 0",
     "warning RESTART_CHECK 0: a dead engine is not started again, and no threshold is looked at", "Debug: 3",
     "send_timer Process"},
    {"NoPause", "RESTART_CHECK_SEC 0\n", "RESTART_CHECK_SEC 0",
     "error RESTART_CHECK_SEC 0: checks, starts and alarms follow each other without a pause",
     "send_timer Process Time [ 0 ]"},
    {"ThresholdAlways", "CPU_OVER_VALUE 0\n", "CPU_OVER_VALUE 0",
     "warning CPU_OVER_VALUE 0: an alarm in every check that finds the engine", "CPU Over", nullptr,
     Beside::ENGINE},
    {"MemoryAlways", "MEM_OVER_VALUE!", "",
     "warning MEM_OVER_VALUE 0: an alarm in every check that finds the engine", "Memory Over", nullptr,
     Beside::ENGINE},
    {"ThresholdBeyond", "", "CPU_OVER_VALUE",
     "note CPU_OVER_VALUE 1000 is never reached; 101 is how never is written", "Config CPU [ 1000 ]",
     "CPU Over", Beside::ENGINE},
    {"MemoryNever", "MEM_OVER_VALUE 1\n", "MEM_OVER_VALUE 1\n",
     "warning MEM_OVER_VALUE 1 is never reached: the figure is the engine's MB over the host's kB, 0 for "
     "every "
     "engine; 101 is how never is written",
     "System Memory [ 0 ] Config Memory [ 1 ]", "Memory Over", Beside::ENGINE},
    {"ResultTime", "RESULT_CHECK 1\nRESULT_TIME 0730\n", "RESULT_TIME",
     "error RESULT_TIME \"0730\" holds no colon: the agent does not start",
     "RESULT_CHECK_TIMER send_timer fail"},
    {"ResultMinute", "RESULT_CHECK 1\nRESULT_TIME 24:00\n", "RESULT_TIME",
     "error RESULT_TIME 24:00 never comes: no daily report is ever sent", "Result check Hour Over"},
    {"LogLevel", "LOG_LEVEL 0\n", "LOG_LEVEL 0", "warning LOG_LEVEL 0: nothing is logged but the hang log",
     "Debug: 2", "Start DunraSTT_Admin"},
    {"LogUnsaved", "WATCH_SAVE 0\n", "WATCH_SAVE 0", "warning WATCH_SAVE 0: the log goes to no file",
     "process exec", "MAIN.LOG"},
    {"HangSave", "HANG_SAVE 2\n", "HANG_SAVE 2",
     "warning HANG_SAVE 2: the hang log calls every engine dead without trying", "deaded - process", nullptr,
     Beside::ENGINE},
    {"NoPort", "ASR_PORT 0\n", "ASR_PORT 0",
     "error ASR_PORT 0 never answers: channels are not watched, the hang log calls every engine dead",
     "deaded - disconnect", "alived", Beside::ENGINE},
    {"EnginePid", "SVC_PID_FILE ./to.txt\n", "SVC_PID_FILE ./to",
     "warning SVC_PID_FILE {F}to.txt says 0, but {engine} is process {pid}: the hang log calls it dead",
     "deaded - process", nullptr, Beside::ENGINE},
    {"Certificate", "KEY_FILE {tls}server.key\n", "CERT_FILE",
     "warning CERT_FILE {tls}client.pem and KEY_FILE {tls}server.key are no certificate with its key: the "
     "agent shows none to the engine",
     "TotalCh cnt [ 0 ] MaxCh cnt [ 0 ]", "Percent [ 25 ]", Beside::TLS_ENGINE},
    {"CertificateUnreadable", "CERT_FILE {tls}none.pem\n", "CERT_FILE",
     "warning CERT_FILE {tls}none.pem and KEY_FILE {tls}client.key are no certificate with its key: the "
     "agent shows none to the engine",
     "TotalCh cnt [ 0 ] MaxCh cnt [ 0 ]", "Percent [ 25 ]", Beside::TLS_ENGINE},
    {"CertificateExpired", "CERT_FILE {tls}expired.pem\nKEY_FILE {tls}expired.key\n", "CERT_FILE",
     "warning CERT_FILE has expired: an engine that asks for it then refuses the agent",
     "TotalCh cnt [ 0 ] MaxCh cnt [ 0 ]", "Percent [ 25 ]", Beside::TLS_ENGINE},
    {"CertificateDays", "", "CERT_FILE",
     "warning CERT_FILE expires in 30 days: an engine that asks for it then refuses the agent",
     "Percent [ 25 ]", nullptr, Beside::TLS_ENGINE},
    {"Authority", "CA_FILE {tls}client.key\n", "CA_FILE",
     "error CA_FILE {tls}client.key holds no authority: no certificate of the engine passes, and its "
     "channels are not watched",
     "g_shm_open_flag = 0", "g_shm_open_flag = 1", Beside::TLS_ENGINE},
    // Channels.
    {"NobodyTold", "ALARM_1!SEND_EMAIL_CHECK 0\nSEND_WEBHOOK_CHECK 0\n", "",
     "error neither mail nor chat nor a management server is set: no alarm leaves this host", "process exec",
     "Send ["},
    {"ServerAddress", "ALARM_2 mgmt.example.com:7000\n", "ALARM_2",
     "error ALARM_2 mgmt.example.com:7000 is no dotted IPv4 address: that server gets no report",
     "CONNECT SOCK FAIL(mgmt.example.com:7000)"},
    {"ServerPort", "ALARM_2 127.0.0.1\n", "ALARM_2",
     "error ALARM_2 127.0.0.1 names no port from 1 to 65535: that server gets no report",
     "CONNECT SOCK FAIL(127.0.0.1:0)"},
    {"ServerTwice", "ALARM_1!ALARM_1 {server}\nALARM_2 {server}\n", "ALARM_2",
     "warning ALARM_2 {server} stands in line {before} too: that server gets each report twice",
     "[INFO][00001]"},
    {"ServerBeyond", "ALARM_1!{hundred}ALARM_x {server}\n", "ALARM_x",
     "error ALARM_x is beyond the first 100 management servers and gets no report",
     "CONNECT SOCK FAIL(127.0.0.1:1)", "server/frames"},
    {"MailLogin", "SMTP_AUTH 4\n", "SMTP_AUTH 4",
     "error SMTP_AUTH 4 is none of 1 (no login), 2, 3: no mail is sent", REFUSED, "\"defects\""},
    {"MailPort", "SMTP_SERVER_PORT!", "", "error SMTP_SERVER_PORT is empty: no mail is sent",
     "smtp failed: Failed to connect", "\"defects\""},
    {"MailServer", "SMTP_SERVER_URL smtp://127.0.0.1\n", "SMTP_SERVER_URL smtp",
     "error SMTP_SERVER_URL smtp://127.0.0.1 is no name or address alone: it is not found, and no mail is "
     "sent",
     "smtp failed: Failed to connect", "\"defects\""},
    {"MailPassword",
     "SMTP_FLAGS 1\nSMTP_SERVER_URL 0.0.0.0\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\nSMTP_AUTH 2\n",
     "SMTP_AUTH 2", "warning SMTP_AUTH 2: user and password go to 0.0.0.0 in the clear",
     "[smtp Client]: AUTH PLAIN AHN0dABodXNo"},
    {"MailDialogue", "SMTP_FLAGS 1\n", "SMTP_FLAGS 1",
     "warning SMTP_FLAGS 1: each mail and its login go to standard error, which is the journal",
     "[smtp Client]: EHLO smtp"},
    {"SenderAddress", "SENDER_EMAIL stt agent@example.com\n", "SENDER_EMAIL stt",
     "error SENDER_EMAIL stt agent@example.com holds a blank, \"<\" or \">\": no mail is sent", REFUSED,
     "\"defects\""},
    {"SenderMissing", "SENDER_EMAIL!", "",
     "warning SENDER_EMAIL is missing: mails bear no sender, which servers refuse", "\"from\": \"<>\""},
    {"SenderName", "SENDER_NAME The \"Agent\"\n", "SENDER_NAME The",
     "error SENDER_NAME The \"Agent\" holds a quote or a control character: no mail is sent", REFUSED,
     "\"defects\""},
    {"NameUnconvertible", "PROC_NAME \xf9\xd4x\n", "PROC_NAME \xf9",
     "error PROC_NAME \xef\xbf\xbdx does not convert from code page 949: no mail and no post is sent",
     "WebHook lost:", "\"defects\""},
    {"HookAddress", "WEBHOOK_SERVER_URL htps://chat.example.com/secret\n", "WEBHOOK_SERVER_URL htps",
     "error WEBHOOK_SERVER_URL begins with htps://: no post is sent",
     "curl_easy_perform() failed: Unsupported"},
    {"HookInTheClear", "WEBHOOK_SERVER_URL http://u:p@0.0.0.0:{posts}/secret\n",
     "WEBHOOK_SERVER_URL http://u",
     "warning WEBHOOK_SERVER_URL: posts, and the secret address, go to 0.0.0.0 in the clear",
     "\"path\": \"/secret\""},
    // Recipients.
    {"ListIsAFolder", "RECEIVER_FILE ./mails\n", "RECEIVER_FILE ./mails",
     "error RECEIVER_FILE {F}mails: it is no file; nobody on that list gets a mail",
     "an unexpected status code"},
    {"NoRecipients", "", "RECEIVER_FILE",
     "error nobody stands in the three files of recipients: no server takes a mail",
     "an unexpected status code", "\"defects\"", Beside::NOTHING, ""},
    {"ListLineEnd", "", "Lee", "error the last line has no line end: lee@example.com gets no mail",
     "\"to\": [\"kim@example.com\"]", nullptr, Beside::NOTHING, "Kim kim@example.com\nLee lee@example.com"},
    {"ListBlankLine", "", "\n", "warning a blank line: each mail gets a recipient without an address",
     "<kim@example.com>, <>", nullptr, Beside::NOTHING, "Kim kim@example.com\n\n"},
    {"ListNameBlank", "", "Kim",
     "error a name holds a blank: this entry and all behind it get a part of the next one for address",
     "\"to\": [\"Min\", \"Lee\"]", nullptr, Beside::NOTHING,
     "Kim Min kim@example.com\nLee lee@example.com\n"},
    {"ListOneWord", "", "kim",
     "error kim@example.com stands alone, name and address belong here: this entry and all behind it get a "
     "part of "
     "the next one",
     "\"to\": [\"Lee\", ", nullptr, Beside::NOTHING, "kim@example.com\nLee lee@example.com\n"},
    {"ListBytes", "", "Lee",
     "error a quote in a name, or \"<\", \">\" or a control character: no mail is sent at all", REFUSED,
     "\"defects\"", Beside::NOTHING, "Kim kim@example.com\nLee <lee@example.com>\n"},
    {"ListAddress", "", "kim", "warning Kim is no address with \"@\"; the name comes first, then the address",
     "\"to\": [\"Kim\"]", nullptr, Beside::NOTHING, "kim@example.com Kim\n"},
    {"ListLeftOut", "MAIL_SKIP_BAD 1\n", "Kim",
     "error no address: the line is left out, and nobody on it gets a mail", "\"to\": [\"lee@example.com\"]",
     nullptr, Beside::NOTHING, "Kim\nMin Lee lee@example.com"},
    {"ListEndByte", "", "K\xffm",
     "error a byte 0xFF ends the list for the agent: nobody from here on gets a mail",
     "\"to\": [\"lee@example.com\"]", nullptr, Beside::NOTHING,
     "Lee lee@example.com\nK\xffm kim@example.com\n"},
};

class Check : public AllChannels {
 protected:
  static std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
      text.replace(at, from.size(), to);
    return text;
  }
  std::string Filled(const std::string& text) const {
    std::string result = text;
    const std::string folder = folder_.Path();
    const std::pair<const char*, std::string> words[] = {
        {"{F}", folder},
        {"{f}", folder.substr(0, folder.size() - 1)},
        {"{engine}", engine_},
        {"{agent}", agent_},
        {"{server}", server_.Address()},
        {"{posts}", posts_.Port()},
        {"{open}", folder_ / "open.sh"},
        {"{user}", User()},
        {"{hundred}", Hundred()},
        {"{tls}", certificates_ ? certificates_->Path("") : ""},
        {"{pid}", std::to_string(FirstEngine())}};
    for (const auto& [word, value] : words) result = Replaced(result, word, value);
    return result;
  }
  static std::string User() {
    const passwd* entry = getpwuid(geteuid());
    return entry == nullptr ? std::to_string(geteuid()) : entry->pw_name;
  }
  static std::string Hundred() {
    std::string lines;
    for (int i = 0; i < 100; ++i) lines += "ALARM_" + std::to_string(i) + " 127.0.0.1:1\n";
    return lines;
  }
  // An engine that asks for a certificate.
  Peer StartTlsEngine() {
    certificates_.emplace();
    const auto path = [&](const char* name) { return certificates_->Path(name); };
    Peer engine(folder_, "engine", "engine_peer.py",
                {"--cert", path("server.pem"), "--key", path("server.key"), "--client-ca", path("ca.pem")});
    config_ += "ASR_PORT " + engine.Port() + "\nSSL_CHECK 1\nCERT_FILE " + path("client.pem") +
               "\nKEY_FILE " + path("client.key") + "\nFILE_PASSWORD secret\nCA_FILE " + path("ca.pem") +
               "\n";
    return engine;
  }
  pid_t FirstEngine() const {
    const auto engines = Named(engine_);
    return engines.empty() ? 0 : engines.front();
  }
  // Takes a key's lines out.
  void Drop(const std::string& key) {
    std::string kept;
    for (size_t at = 0; at < config_.size();) {
      const size_t end = config_.find('\n', at) + 1;
      if (config_.compare(at, key.size() + 1, key + " ") != 0) kept += config_.substr(at, end - at);
      at = end;
    }
    config_ = kept;
  }
  void Break(const std::string& lines) {
    const size_t mark = lines.find('!');
    if (mark != std::string::npos) Drop(lines.substr(0, mark));
    config_ += Filled(mark == std::string::npos ? lines : lines.substr(mark + 1));
  }
  // The number of the last line that begins so; a "!" at its end stands for the end of the text.
  static size_t LineOf(const std::string& text, std::string begin) {
    size_t found = 0;
    size_t number = 1;
    for (size_t at = 0; at < text.size(); ++number) {
      const std::string rest = text.substr(at);
      const bool whole = begin.ends_with('!') && rest == begin.substr(0, begin.size() - 1);
      if (whole || rest.starts_with(begin)) found = number;
      const size_t end = text.find('\n', at);
      at = end == std::string::npos ? text.size() : end + 1;
    }
    return found;
  }
  // What the tool prints for these words, and its exit status.
  std::pair<std::string, int> Tool(const Words& words) const {
    folder_.Write("check.out", "");
    Process tool(Joined({TOOL, "check", "-f", folder_ / "agent.conf"}, words), folder_ / "check.out");
    const int status = tool.ExitStatus();
    return {ReadFile(folder_ / "check.out"), status};
  }
  std::string Expected(const Row& row) const {
    const std::string says = Filled(row.says);
    const std::string at = Filled(row.at);
    const size_t line = at.empty() ? 0 : LineOf(row.to != nullptr && *row.to != '\0' ? row.to : config_, at);
    const size_t blank = says.find(' ');
    std::string level = says.substr(0, blank);
    level.resize(9, ' ');
    std::string place = line == 0 ? "" : "line " + std::to_string(line);
    if (row.to != nullptr && *row.to != '\0') {
      place = folder_ / "to.txt " + place + ": ";
    } else if (line != 0) {
      place.resize(std::max<size_t>(place.size(), 9), ' ');
    }
    return level + place +
           Replaced(Replaced(says.substr(blank + 1), "{line}", std::to_string(line)), "{before}",
                    std::to_string(line - 1)) +
           "\n";
  }
  // All that can be seen of the agent: its output, what the peers have, the paths in its folder.
  std::string Evidence() const {
    std::string text = Out() + ReadFile(folder_ / "err.txt") + ReadFile(folder_ / "runs");
    std::error_code gone;
    for (const auto& entry : fs::recursive_directory_iterator(folder_.Path(), gone)) {
      text += entry.path().string() + "\n";
      if (entry.path().extension() == ".json") text += Replaced(ReadFile(entry.path()), "\\\"", "\"");
    }
    return text;
  }

  std::optional<test::CertificateFolder> certificates_;
};

class Broken : public Check, public testing::WithParamInterface<Row> {};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

TEST_P(Broken, FileIsTold) {
  const Row& row = GetParam();
  std::vector<Process> beside;
  if (row.beside == Beside::ENGINE) StartEngine();
  if (row.beside == Beside::LONG_NAMED_ENGINE) {
    fs::create_symlink("/bin/sleep", folder_ / "a_long_engine_name");
    beside.push_back(Process({folder_ / "a_long_engine_name", "600"}));
  }
  if (row.beside == Beside::NAMESAKE || row.beside == Beside::TOOLS_NAMESAKE) {
    const std::string name = row.beside == Beside::TOOLS_NAMESAKE ? "dunrasttctl" : agent_;
    fs::create_directory(folder_ / "other");
    fs::create_symlink("/bin/sleep", folder_ / "other/" + name);
    beside.push_back(Process({folder_ / "other/" + name, "600"}));
    ASSERT_TRUE(WaitUntil([&] { return !Named(name).empty(); }));
  }
  std::optional<Peer> engine;
  if (row.beside == Beside::TLS_ENGINE) engine.emplace(StartTlsEngine());
  folder_.Write("open.sh", "#!/bin/sh\nprintf '<anything>' >> '" + folder_ / "runs'\n", 0777);
  Break(row.lines == LONG_LINE ? ";" + std::string(1022, 'x') + "CPU_OVER_VALUE 0\n" : row.lines);
  if (row.to != nullptr) folder_.Write("to.txt", row.to);
  folder_.Write("agent.conf", config_);
  const auto [told, status] = Tool({});
  const std::string expected = Expected(row);
  EXPECT_TRUE(Has(told, expected));
  EXPECT_EQ(status == 2, told.starts_with("error") || told.find("\nerror") != std::string::npos);

  Process agent = Start();
  const std::string sees = Filled(row.sees);
  EXPECT_TRUE(WaitUntil([&] { return Evidence().find(sees) != std::string::npos; })) << Evidence();
  EXPECT_TRUE(row.never == nullptr || Evidence().find(row.never) == std::string::npos) << row.never;
}

INSTANTIATE_TEST_SUITE_P(Rules, Broken, testing::ValuesIn(ROWS),
                         [](const auto& row) { return std::string(row.param.name); });

// Every line of the sample, where what it names is there. The names are those of the test, for others run
// agents too.
TEST_F(Check, FindsNothingInTheSample) {
  config_ = ReadFile(TREE "/conf/DunraSTT.conf.sample");
  for (const char* folder : {"/opt/stt/", "/var/log/dunrastt/", "/run/dunrastt/", "/etc/dunrastt/"})
    config_ = Replaced(config_, folder, folder_.Path());
  config_ =
      Replaced(config_, "\nWATCHDOG_NAME           DunraSTT_Admin\n", "\nWATCHDOG_NAME " + agent_ + "\n");
  config_ = Replaced(config_, "\nPROC_NAME               stt_server\n", "\nPROC_NAME " + engine_ + "\n");
  fs::create_directory(folder_ / "bin");
  folder_.Write("bin/start_engine.sh", "#!/bin/sh\n", 0755);
  const Process agent = StartedAgent();
  const auto nothing = std::pair("no errors, no warnings in " + folder_ / "agent.conf" + "\n", 0);
  EXPECT_EQ(Tool({"--strict"}), nothing);

  // And with the keys that a demonstration changes.
  folder_.Write("mail_to.txt", "Operator operator@example.com\n");
  for (const auto& [key, value] : {std::pair("SEND_EMAIL_CHECK", "1"),
                                   {"SMTP_SERVER_URL", "127.0.0.1"},
                                   {"SEND_WEBHOOK_CHECK", "1"},
                                   {"WEBHOOK_SERVER_URL", "http://127.0.0.1:1/hook"},
                                   {"RESTART_CHECK_SEC", "2"},
                                   {"CPU_OVER_VALUE", "101"}}) {
    Drop(key);
    config_ += key + (" " + std::string(value) + "\n");
  }
  config_ += "CFG_FILE ./mail_to.txt\n";
  folder_.Write("agent.conf", config_);
  EXPECT_TRUE(Tool({"--strict"}).first.ends_with(nothing.first)) << Tool({}).first;
}

TEST_F(Check, LeavesWithItsVerdict) {
  folder_.Write("agent.conf", config_ + "RESTART_CHECK 0\n");
  EXPECT_EQ(Tool({}).second, 2);  // the agent's name is that of a link
  const Process agent = StartedAgent();
  EXPECT_EQ(Tool({}).second, 0);
  EXPECT_EQ(Tool({"--strict"}).second, 1);
  EXPECT_EQ(Tool({"--strict", "no such word"}).second, 3);
  EXPECT_EQ(Tool({"--user", "nobody knows"}).second, 3);
  fs::remove(folder_ / "agent.conf");
  EXPECT_EQ(Tool({}).second, 3);
}

TEST_F(Check, SaysThatTheAgentWorksWithAnOlderFile) {
  const Process agent = StartedAgent();
  EXPECT_FALSE(Has(Tool({}).first, "it still works with the old one"));
  fs::last_write_time(folder_ / "agent.conf", fs::file_time_type::clock::now() + seconds(90));
  EXPECT_TRUE(Has(Tool({}).first, "note     the file was changed "));
}

TEST_F(Check, LooksAsTheAgentsUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can look as others";
  fs::permissions(folder_.Path(), fs::perms(0755));
  config_ += "CFG_FILE ./secret.conf\nWATCH_PATH ./log/\n";
  folder_.Write("secret.conf", "", 0600);
  folder_.Write("agent.conf", config_);
  const std::string denied =
      "CFG_FILE: permission denied for user nobody; the mail about a restart would not be sent";
  EXPECT_TRUE(Has(Tool({"--user", "nobody"}).first, denied));
  EXPECT_TRUE(Has(Tool({"--user", "nobody"}).first, "there would be no log"));
  EXPECT_FALSE(Has(Tool({}).first, "CFG_FILE: "));
}

TEST_F(Check, ShowsValuesAndNoSecret) {
  config_ +=
      "SMTP_AUTH 2\nSMTP_AUTHPASSWORD hush1\nFILE_PASSWORD hush2\nWEBHOOK_SERVER_URL http://127.0.0.1/hush3\n"
      "SMTP_AUTHPASWORD=hush4\nSMTP_AUTHPASWORD hush5\n";
  folder_.Write("agent.conf", config_, 0644);
  for (const Words& words : {Words{"--print"}, Words{"--print", "--json"}}) {
    const std::string told = Tool(words).first;
    EXPECT_FALSE(Has(told, "hush"));
    EXPECT_TRUE(Has(told, "***"));
    EXPECT_TRUE(Has(told, folder_ / "start engine.sh"));
    EXPECT_TRUE(Has(told, "SMTP_AUTHPASSWORD: everybody on this host may read"));
  }
  const std::string json = Tool({"--json"}).first;
  EXPECT_TRUE(json.starts_with(R"({"schema":1,"config":")" + folder_ / "agent.conf" + R"(","user":")"))
      << json;
  EXPECT_NE(json.find(R"("findings":[{"id":")"), std::string::npos) << json;
}

TEST_F(Check, SuitsTheTerminal) {
  folder_.Write("agent.conf", config_ + "PROC_NAME \xc7\xd1\xb1\xdb\n");
  const struct {
    const char *variables, *name;
    bool colour;
  } rows[] = {{"LC_ALL=C.UTF-8", " 한글\r\n", true},
              {"LC_ALL=C", " ????\r\n", true},
              {"LC_ALL=C.UTF-8 NO_COLOR=1", " 한글\r\n", false}};
  for (const auto& row : rows) {
    folder_.Write("terminal", "");
    Process({"script", "-qec",
             std::string("env ") + row.variables + " " TOOL " check --print -f '" + folder_ / "agent.conf'",
             "/dev/null"},
            folder_ / "terminal")
        .Wait();
    const std::string seen = ReadFile(folder_ / "terminal");
    EXPECT_EQ(Count(seen, row.name), 1U) << seen;
    EXPECT_EQ(seen.find("\033[31merror ") != std::string::npos, row.colour) << seen;
    EXPECT_EQ(seen.find('\033') != std::string::npos, row.colour) << seen;
  }
}

TEST_F(Check, ReachesEveryDestinationAndSendsNothing) {
  const Listener silent;
  const Listener closed(true);
  config_ += "ALARM_2 127.0.0.1:" + std::to_string(silent.Port()) +
             "\nALARM_3 127.0.0.1:" + std::to_string(closed.Port()) + "\nSMTP_SERVER_PORT " +
             std::to_string(closed.Port()) + "\n";
  folder_.Write("agent.conf", config_);
  const std::string told = Tool({"--reach"}).first;
  EXPECT_TRUE(Has(told, "ALARM_3: 127.0.0.1 port " + std::to_string(closed.Port()) + ": Connection refused"));
  EXPECT_TRUE(Has(told, "SMTP_SERVER_URL: localhost port "));
  EXPECT_FALSE(Has(told, "ALARM_2: "));
  const base::UniqueFd visit = silent.Accept();
  char byte = 0;
  EXPECT_EQ(recv(visit.Get(), &byte, 1, 0), 0);
  EXPECT_EQ(server_.Seen("frame"), 0U);
  EXPECT_EQ(posts_.Arrived(), 0);
}

TEST_F(Check, OpensNothingForWritingAndConnectsNowhere) {
  if (support::NoStrace() != nullptr) GTEST_SKIP() << support::NoStrace();
  folder_.Write("agent.conf", config_);
  const std::string trace = folder_ / "trace";
  Process tool({"strace", "-f", "-o", trace, "-e",
                "trace=open,openat,creat,connect,socket,mkdir,unlink,rename", TOOL, "check", "-f",
                folder_ / "agent.conf", "--print", "--user", "nobody"});
  EXPECT_EQ(tool.ExitStatus(), 2);
  const std::string calls = ReadFile(trace);
  EXPECT_TRUE(Has(calls, "agent.conf"));
  for (const char* call :
       {"O_WRONLY", "O_RDWR", "O_CREAT", "creat(", "connect(", "socket(", "mkdir(", "unlink("})
    EXPECT_FALSE(Has(calls, call));
}

}  // namespace
}  // namespace harness
