// "check" never lies: for each broken file the line that it prints, and the real agent on the same file.
#include <pwd.h>

#include <optional>

#include "base/format.h"
#include "system/harness.h"
#include "tls/certificates.h"

namespace harness {
namespace {

// In texts: {F} the folder with its slash, {engine} and {agent} the names, {pid} the process beside, {line}
// the last line of the configuration, {number} its number, {before} that of the line before, {server} a
// management server's address, {posts} the port of the chat, {user} who runs this, {tls} the folder of
// certificates (and the engine asks for one).
struct Row {
  const char* name;
  std::string lines;  // put behind the configuration, after "KEY!" took that key's lines out of it
  const char* says;   // level and sentence; of the last line, unless lines ends with "!" or there is a list
  const char* sees;   // what the agent then does
  const char* never = nullptr;
  const char* beside = nullptr;  // the name of a process
  const char* list = nullptr;    // the file of recipients
};

Row OfList(const char* name, const char* list, const char* says, const char* sees,
           const char* never = nullptr, const char* lines = "") {
  return {name, lines, says, sees, never, nullptr, list};
}

constexpr const char* REFUSED = "smtp failed: Invalid parameter";
constexpr const char* ENDS = "DunraSTT_Admin Already Running";

std::string Hundred(const std::string& line) {
  std::string lines;
  for (int i = 0; i < 100; ++i) lines += line;
  return lines;
}

const Row ROWS[] = {
    // Lines.
    {"MisspeltKey", "SHELL_FILE!SHELL_FIEL ./start engine.sh\n",
     "error SHELL_FIEL is no key and is ignored; SHELL_FILE?", "Permission denied", "<start>"},
    {"UnknownKey", "COLOUR red\n", "warning COLOUR is no key and is ignored", "process exec"},
    {"KeyWithEquals", "RESTART_CHECK!RESTART_CHECK=1\n",
     "error RESTART_CHECK= is no key and is ignored: a blank stands between key and value, no \"=\"",
     "Debug: 3", "send_timer Process"},
    {"ValueWithEquals", "RESTART_CHECK = 1\n",
     "error RESTART_CHECK: the \"=\" became part of the value; leave it out", "Debug: 3",
     "send_timer Process"},
    {"NoComment", "#LOG_LEVEL 0\n",
     "note \"#\" begins no comment here; the line is ignored as a key that there is not", "process exec"},
    {"DuplicateKey", "CPU_OVER_VALUE!CPU_OVER_VALUE 1000\nCPU_OVER_VALUE 0\n",
     "warning CPU_OVER_VALUE stands in line {before} too; this one, line {number}, counts",
     "Config CPU [ 0 ]", nullptr, "{engine}"},
    {"NoValue", "SHELL_METHOD\n", "warning {line} has no value: its value is a line end; leave the line out",
     "start engine.sh\" \n ]"},
    {"ValueOfLineBefore", "RESTART_CHECK_SEC 2\nWATCHDOG_NAME",
     "error {line} has nothing behind it and takes the value of the line before", ENDS},
    {"LongLine", ";" + std::string(1022, 'x') + "CPU_OVER_VALUE 0\n",
     "warning 1039 bytes: the line is read up to 1,023, what follows is read as a line of its own",
     "Config CPU [ 0 ]", nullptr, "{engine}"},
    {"BlanksAtEnd", "WATCHDOG_NAME {agent}                                        \n",
     "warning WATCHDOG_NAME: the many blanks at its end are part of the value", ENDS},
    {"NumberWithTail", "RESTART_CHECK_SEC 2s\n", "warning {line}: not a number, and it counts as 2",
     "send_timer Process Time [ 2 ]"},
    {"NoOption", "HANG_ALARM 5x\n", "warning {line}: no value for it, and it counts as absent",
     "HANG_ALARM: \"5x\" is no value for it and counts as absent"},
    {"SavedAsUtf8", "PROC_NAME 감시\n",
     "note the file is saved as UTF-8; the agent takes it for code page 949, which matters to names in "
     "alarms",
     "WebHook lost: "},
    // Paths.
    {"PathReplaced", "SHELL_FILE start engine.sh\n",
     "error {line}: without \"./\" it became the folder {F}; no engine is ever started", "Permission denied",
     "<start>"},
    {"FolderReplaced", "WATCH_PATH log/\n",
     "warning {line}: without \"./\" it became the folder {F}; the log goes there", "{F}20"},
    {"PathDots", "SHELL_FILE ../start engine.sh\n",
     "warning {line}: the base took the place of its first two characters, it became {F}/start engine.sh",
     "process exec [ \"{F}/start engine.sh\""},
    {"BaseSlash", "BASE_PATH {F}mails\n",
     "warning {line} does not end with \"/\": SHELL_FILE became {F}mailsstart engine.sh", "not found",
     "<start>"},
    {"FolderSlash", "WATCH_PATH ./log\n",
     "warning WATCH_PATH {F}log does not end with \"/\": its dated folders are {F}log20260131 and the like",
     "{F}log20"},
    {"PathRelative", "BASE_PATH!SHELL_FILE ./start engine.sh\n",
     "warning SHELL_FILE: \"start engine.sh\" is looked for in the folder in which the agent happens to run",
     "process exec [ \"start engine.sh\""},
    {"ScriptMissing", "SHELL_FILE ./nowhere.sh\n",
     "error SHELL_FILE {F}nowhere.sh: no such file or directory; no engine is ever started", "not found",
     "<start>"},
    {"ScriptNotExecutable", "SHELL_FILE ./to.txt\n",
     "error SHELL_FILE {F}to.txt: it is not executable; no engine is ever started", "Permission denied",
     "<start>"},
    {"ScriptOpen", "SHELL_FILE ./open.sh\n",
     "warning SHELL_FILE {F}open.sh may be written by everybody, who can so run anything as user {user}",
     "<anything>"},
    {"Attachment", "CFG_FILE ./nowhere.conf\n",
     "warning CFG_FILE: no such file or directory; the mail about a restart would not be sent",
     "smtp failed: Failed to read or open a local file", "\"attached\""},
    {"AttachmentSpared", "MAIL_SKIP_BAD 1\nCFG_FILE ./nowhere.conf\n",
     "warning CFG_FILE: no such file or directory; the mail about a restart would go without it",
     "\"attached\": []"},
    {"FolderUnwritable", "WATCH_PATH ./to.txt/log/\n",
     "warning WATCH_PATH {F}to.txt/log/: not a directory; there would be no log", "log file open error",
     "MAIN.LOG"},
    // Values.
    {"EngineNameLong", "PROC_NAME a_long_engine_name\n",
     "error {line} is longer than the 15 bytes that the kernel keeps of a name; the engine is taken for dead "
     "and started again and again",
     "a_long_engine_name process start.", nullptr, "a_long_engine_name"},
    {"EngineNameMissing", "PROC_NAME!",
     "error PROC_NAME is missing; the engine is taken for dead and started again and again",
     " process start.", nullptr, "{engine}"},
    {"EngineNameWrong", "ASR_PORT {posts}\nPROC_NAME none\n",
     "warning no process is named none, but port {posts} listens: the name is wrong, and a living engine is "
     "started again and again; or another program has the port",
     "none process start."},
    {"NamesEqual", "PROC_NAME {agent}\n",
     "error PROC_NAME and WATCHDOG_NAME are the same: the agent does not start beside the engine, and takes "
     "itself for it",
     "match inputProcessName [ {agent} ]", "process exec"},
    {"AgentName", "WATCHDOG_NAME other\n",
     "error {line}: the agent's process is called DunraSTT_Admin; it does not start (\"Already Running\")",
     ENDS},
    {"AgentNameTaken", "WATCHDOG_NAME!WATCHDOG_NAME {agent}\n",
     "error 1 process bears the agent's name {agent} already; an agent started now ends with \"Already "
     "Running\"",
     ENDS, nullptr, "{agent}"},
    {"ToolName", "PROC_NAME dunrasttctl\n",
     "error {line} is the name of this tool, whose own process would count",
     "match inputProcessName [ dunrasttctl ]", "process exec", "dunrasttctl"},
    {"NotWatched", "RESTART_CHECK 0\n",
     "warning {line}: a dead engine is not started again, and no threshold is looked at", "Debug: 3",
     "send_timer Process"},
    {"NoPause", "RESTART_CHECK_SEC 0\n",
     "error {line}: checks, starts and alarms follow each other without a pause",
     "send_timer Process Time [ 0 ]"},
    {"ThresholdAlways", "CPU_OVER_VALUE 0\n", "warning {line}: an alarm in every check that finds the engine",
     "CPU Over", nullptr, "{engine}"},
    {"MemoryAlways", "MEM_OVER_VALUE!",
     "warning MEM_OVER_VALUE 0: an alarm in every check that finds the engine", "Memory Over", nullptr,
     "{engine}"},
    {"ThresholdBeyond", "MEM_OVER_VALUE!MEM_OVER_VALUE 200\n",
     "note {line} is never reached; 101 is how never is written", "Config Memory [ 200 ]", "Memory Over",
     "{engine}"},
    {"MemoryNever", "MEM_OVER_VALUE 1\n",
     "warning {line} is never reached: the figure is the engine's MB over the host's kB, 0 for every engine; "
     "101 is how never is written",
     "System Memory [ 0 ] Config Memory [ 1 ]", "Memory Over", "{engine}"},
    {"ResultTime", "RESULT_CHECK 1\nRESULT_TIME 0730\n",
     "error RESULT_TIME \"0730\" holds no colon: the agent does not start",
     "RESULT_CHECK_TIMER send_timer fail"},
    {"ResultMinute", "RESULT_CHECK 1\nRESULT_TIME 24:00\n",
     "error {line} never comes: no daily report is ever sent", "Result check Hour Over"},
    {"LogLevel", "LOG_LEVEL 0\n", "warning {line}: nothing is logged but the hang log", "Debug: 2",
     "Start DunraSTT_Admin"},
    {"LogUnsaved", "WATCH_SAVE 0\n", "warning {line}: the log goes to no file", "process exec", "MAIN.LOG"},
    {"HangSave", "HANG_SAVE 2\n", "warning {line}: the hang log calls every engine dead without trying",
     "deaded - process", nullptr, "{engine}"},
    {"NoPort", "ASR_PORT 0\n",
     "error {line} never answers: channels are not watched, the hang log calls every engine dead",
     "deaded - disconnect", "alived", "{engine}"},
    {"EnginePid", "SVC_PID_FILE ./to.txt\n",
     "warning SVC_PID_FILE {F}to.txt says 0, but {engine} is process {pid}: the hang log calls it dead",
     "deaded - process", nullptr, "{engine}"},
    {"Certificate", "CERT_FILE!KEY_FILE {tls}server.key\nCERT_FILE {tls}client.pem\n",
     "warning {line} and KEY_FILE {tls}server.key are no certificate with its key: the agent shows none to "
     "the engine",
     "TotalCh cnt [ 0 ] MaxCh cnt [ 0 ]", "Percent [ 25 ]"},
    {"CertificateExpired", "KEY_FILE {tls}expired.key\nCERT_FILE {tls}expired.pem\n",
     "warning CERT_FILE has expired: an engine that asks for it then refuses the agent",
     "TotalCh cnt [ 0 ] MaxCh cnt [ 0 ]", "Percent [ 25 ]"},
    {"CertificateDays", "CERT_FILE!CERT_FILE {tls}client.pem\n",
     "warning CERT_FILE expires in 30 days: an engine that asks for it then refuses the agent",
     "Percent [ 25 ]"},
    {"Authority", "CA_FILE {tls}client.key\n",
     "error {line} holds no authority: no certificate of the engine passes, and its channels are not watched",
     "g_shm_open_flag = 0", "g_shm_open_flag = 1"},
    // Channels.
    {"NobodyTold", "SEND_EMAIL_CHECK 0\nSEND_WEBHOOK_CHECK 0\nALARM_1!",
     "error neither mail nor chat nor a management server is set: no alarm leaves this host", "process exec",
     "Send ["},
    {"ServerAddress", "ALARM_2 mgmt.example.com:7000\n",
     "error {line} is no dotted IPv4 address: that server gets no report",
     "CONNECT SOCK FAIL(mgmt.example.com:7000)"},
    {"ServerPort", "ALARM_2 127.0.0.1\n",
     "error {line} names no port from 1 to 65535: that server gets no report",
     "CONNECT SOCK FAIL(127.0.0.1:0)"},
    {"ServerTwice", "ALARM_1!ALARM_1 {server}\nALARM_2 {server}\n",
     "warning {line} stands in line {before} too: that server gets each report twice", "[INFO][00001]"},
    {"ServerBeyond", "ALARM_1!" + Hundred("ALARM_1 127.0.0.1:1\n") + "ALARM_x {server}\n",
     "error ALARM_x is beyond the first 100 management servers and gets no report",
     "CONNECT SOCK FAIL(127.0.0.1:1)", "server/frames"},
    {"MailLogin", "SMTP_AUTH 4\n", "error {line} is none of 1 (no login), 2, 3: no mail is sent", REFUSED,
     "\"defects\""},
    {"MailPort", "SMTP_SERVER_PORT!", "error SMTP_SERVER_PORT is empty: no mail is sent",
     "smtp failed: Failed to connect", "\"defects\""},
    {"MailServer", "SMTP_SERVER_URL smtp://127.0.0.1\n",
     "error {line} is no name or address alone: it is not found, and no mail is sent",
     "smtp failed: Failed to connect", "\"defects\""},
    {"MailPassword",
     "SMTP_FLAGS 1\nSMTP_SERVER_URL 0.0.0.0\nSMTP_AUTHID stt\nSMTP_AUTHPASSWORD hush\nSMTP_AUTH 2\n",
     "warning {line}: user and password go to 0.0.0.0 in the clear",
     "[smtp Client]: AUTH PLAIN AHN0dABodXNo"},
    {"MailDialogue", "SMTP_FLAGS 1\n",
     "warning {line}: each mail and its login go to standard error, which is the journal",
     "[smtp Client]: EHLO smtp"},
    {"SenderAddress", "SENDER_EMAIL stt agent@example.com\n",
     "error {line} holds a blank, \"<\" or \">\": no mail is sent", REFUSED, "\"defects\""},
    {"SenderMissing", "SENDER_EMAIL!",
     "warning SENDER_EMAIL is missing: mails bear no sender, which servers refuse", "\"from\": \"<>\""},
    {"SenderName", "SENDER_NAME The \"Agent\"\n",
     "error {line} holds a quote or a control character: no mail is sent", REFUSED, "\"defects\""},
    {"NameUnconvertible", "PROC_NAME \xf9\xd4x\n",
     "error PROC_NAME \xef\xbf\xbdx does not convert from code page 949: no mail and no post is sent",
     "WebHook lost:", "\"defects\""},
    {"HookAddress", "WEBHOOK_SERVER_URL htps://chat.example.com/secret\n",
     "error WEBHOOK_SERVER_URL begins with htps://: no post is sent",
     "curl_easy_perform() failed: Unsupported"},
    {"HookInTheClear", "WEBHOOK_SERVER_URL http://u:p@0.0.0.0:{posts}/secret\n",
     "warning WEBHOOK_SERVER_URL: posts, and the secret address, go to 0.0.0.0 in the clear",
     "\"path\": \"/secret\""},
    // Recipients.
    {"ListIsAFolder", "RECEIVER_FILE ./mails\n",
     "error RECEIVER_FILE {F}mails: it is no file; nobody on that list gets a mail",
     "an unexpected status code"},
    {"NoRecipients", "RECEIVER_FILE ./nobody.txt\n",
     "error nobody stands in the three files of recipients: no server takes a mail",
     "an unexpected status code", "\"defects\""},
    OfList("ListLineEnd", "Kim kim@example.com\nLee lee@example.com",
           "error {F}to.txt line 2: the last line has no line end: lee@example.com gets no mail",
           "\"to\": [\"kim@example.com\"]"),
    OfList("ListBlankLine", "Kim kim@example.com\n\n",
           "warning {F}to.txt line 2: a blank line: each mail gets a recipient without an address",
           "<kim@example.com>, <>"),
    OfList("ListNameBlank", "Kim Min kim@example.com\nLee lee@example.com\n",
           "error {F}to.txt line 1: a name holds a blank: this entry and all behind it get a part of the "
           "next one for address",
           "\"to\": [\"Min\", \"Lee\"]"),
    OfList("ListOneWord", "kim@example.com\nLee lee@example.com\n",
           "error {F}to.txt line 1: kim@example.com stands alone, name and address belong here: this entry "
           "and all behind it get a part of the next one",
           "\"to\": [\"Lee\", "),
    OfList("ListBytes", "Kim kim@example.com\nLee <lee@example.com>\n",
           "error {F}to.txt line 2: a quote in a name, or \"<\", \">\" or a control character: no mail is "
           "sent at all",
           REFUSED, "\"defects\""),
    OfList("ListAddress", "kim@example.com Kim\n",
           "warning {F}to.txt line 1: Kim is no address with \"@\"; the name comes first, then the address",
           "\"to\": [\"Kim\"]"),
    OfList("ListLeftOut", "Kim\nMin Lee lee@example.com",
           "error {F}to.txt line 1: no address: the line is left out, and nobody on it gets a mail",
           "\"to\": [\"lee@example.com\"]", nullptr, "MAIL_SKIP_BAD 1\n"),
    OfList("ListEndByte", "Lee lee@example.com\nK\xffm kim@example.com\n",
           "error {F}to.txt line 2: a byte 0xFF ends the list for the agent: nobody from here on gets a mail",
           "\"to\": [\"lee@example.com\"]"),
};

class Check : public AllChannels {
 protected:
  static std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
      text.replace(at, from.size(), to);
    return text;
  }
  std::string Filled(std::string text) const {
    const passwd* user = getpwuid(geteuid());
    const std::pair<const char*, std::string> words[] = {
        {"{F}", folder_.Path()},
        {"{engine}", engine_},
        {"{agent}", agent_},
        {"{pid}", beside_ ? std::to_string(beside_->Pid()) : ""},
        {"{line}", LastLine()},
        {"{number}", std::to_string(LastNumber())},
        {"{before}", std::to_string(LastNumber() - 1)},
        {"{server}", server_.Address()},
        {"{posts}", posts_.Port()},
        {"{user}", user == nullptr ? std::to_string(geteuid()) : user->pw_name},
        {"{tls}", certificates_ ? certificates_->Path("") : ""}};
    for (const auto& [word, value] : words) text = Replaced(text, word, value);
    return text;
  }
  void StartBeside(const std::string& name) {
    fs::create_directory(folder_ / "other");
    fs::create_symlink("/bin/sleep", folder_ / "other/" + name);
    beside_.emplace(Words{folder_ / "other/" + name, "600"});
    ASSERT_TRUE(WaitUntil([&] { return !Named(name.substr(0, 15)).empty(); }));
    folder_.Write("engine.pid", std::to_string(beside_->Pid()) + "\n");
  }
  // An engine that asks for a certificate.
  void StartTlsEngine() {
    const std::string tls = certificates_.emplace().Path("");
    tls_engine_.emplace(
        folder_, "engine", "engine_peer.py",
        Words{"--cert", tls + "server.pem", "--key", tls + "server.key", "--client-ca", tls + "ca.pem"});
    Append(
        "SSL_CHECK 1\nCERT_FILE {tls}client.pem\nKEY_FILE {tls}client.key\nFILE_PASSWORD secret\n"
        "CA_FILE {tls}ca.pem\nASR_PORT " +
        tls_engine_->Port() + "\n");
  }
  // As Row::lines says.
  void Append(const std::string& lines) {
    const size_t mark = lines.find('!');
    if (mark == std::string::npos) {
      config_ += Filled(lines);
      return;
    }
    const size_t key = lines.rfind('\n', mark) + 1;
    const std::regex line("\n" + lines.substr(key, mark - key) + " .*");
    config_ = std::regex_replace("\n" + config_, line, "").substr(1);
    config_ += Filled(lines.substr(0, key) + lines.substr(mark + 1));
  }
  std::string LastLine() const {
    const std::string text = config_.substr(0, config_.find_last_not_of('\n') + 1);
    return text.substr(text.rfind('\n') + 1);
  }
  size_t LastNumber() const { return Count(config_, "\n") + (config_.ends_with('\n') ? 0 : 1); }
  // What the tool prints for these words, and its exit status.
  std::pair<std::string, int> Tool(const Words& words) const {
    folder_.Write("check.out", "");
    Process tool(Joined({TOOL, "check", "-f", folder_ / "agent.conf"}, words), folder_ / "check.out");
    const int status = tool.ExitStatus();
    return {ReadFile(folder_ / "check.out"), status};
  }
  // The line that the tool prints.
  std::string Expected(const Row& row) const {
    std::string line = Filled(row.says);
    const size_t blank = line.find(' ');
    const bool placed = row.list == nullptr && !row.lines.ends_with('!');
    const std::string place = placed ? base::Format("line %-4zu", LastNumber()) : "";
    return line.replace(blank, 1, std::string(9 - blank, ' ') + place) + "\n";
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

  std::optional<Process> beside_;
  std::optional<test::CertificateFolder> certificates_;
  std::optional<Peer> tls_engine_;
};

class Broken : public Check, public testing::WithParamInterface<Row> {};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.name;
}

TEST_P(Broken, FileIsTold) {
  const Row& row = GetParam();
  if (row.beside != nullptr) StartBeside(Filled(row.beside));
  if (row.lines.find("{tls}") != std::string::npos) StartTlsEngine();
  folder_.Write("open.sh", "#!/bin/sh\nprintf '<anything>' >> '" + folder_ / "runs'\n", 0777);
  Append(row.lines);
  if (row.list != nullptr) folder_.Write("to.txt", row.list);
  folder_.Write("agent.conf", config_);
  const auto [told, status] = Tool({});
  EXPECT_TRUE(Has(told, Expected(row)));
  EXPECT_EQ(status == 2, Count("\n" + told, "\nerror") > 0);

  const Process agent = Start();
  const std::string sees = Filled(row.sees);
  EXPECT_TRUE(WaitUntil([&] { return Evidence().find(sees) != std::string::npos; })) << Evidence();
  EXPECT_TRUE(row.never == nullptr || Evidence().find(row.never) == std::string::npos) << row.never;
}

INSTANTIATE_TEST_SUITE_P(Rules, Broken, testing::ValuesIn(ROWS), testing::PrintToStringParamName());

// Every line of the sample, where what it names is there. The names are those of the test, for others run
// agents too.
TEST_F(Check, FindsNothingInTheSample) {
  config_ = ReadFile(TREE "/conf/DunraSTT.conf.sample");
  for (const char* folder : {"/opt/stt/", "/var/log/dunrastt/", "/run/dunrastt/", "/etc/dunrastt/"})
    config_ = Replaced(config_, folder, folder_.Path());
  Append("WATCHDOG_NAME!WATCHDOG_NAME {agent}\n");
  Append("PROC_NAME!PROC_NAME {engine}\n");
  fs::create_directory(folder_ / "bin");
  folder_.Write("bin/start_engine.sh", "#!/bin/sh\n", 0755);
  const Process agent = StartedAgent();
  EXPECT_EQ(Tool({"--strict"}), std::pair("no errors, no warnings in " + folder_ / "agent.conf" + "\n", 0));
}

TEST_F(Check, LeavesWithItsVerdict) {
  // Every way is on, and nothing is wrong but the last line.
  for (const char* lines : {"LOG_LEVEL!LOG_LEVEL 3\n", "ASR_PORT!ASR_PORT 1\n",
                            "SMTP_SERVER_URL!SMTP_SERVER_URL 127.0.0.1\n", "WATCH_SAVE!WATCH_SAVE 0\n"})
    Append(lines);
  folder_.Write("agent.conf", config_);
  EXPECT_EQ(Tool({}).second, 2);  // the agent's name is that of a link
  const Process agent = StartedAgent();
  EXPECT_EQ(Tool({}).second, 0);
  EXPECT_TRUE(Has(Tool({}).first, "\nno errors, 1 warning in "));
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
  EXPECT_TRUE(Has(json, R"({"schema":1,"config":")" + folder_ / "agent.conf" + R"(","user":")"));
  EXPECT_TRUE(Has(json, R"("findings":[{"id":")"));
}

TEST_F(Check, SuitsTheTerminal) {
  folder_.Write("agent.conf", config_ + "PROC_NAME \xc7\xd1\xb1\xdb\n");
  const std::string command = " " TOOL " check --print -f '" + folder_ / "agent.conf'";
  for (const auto& [variables, name, colour] :
       {std::tuple("LC_ALL=C.UTF-8", " 한글\r\n", true), std::tuple("LC_ALL=C", " ????\r\n", true),
        std::tuple("LC_ALL=C.UTF-8 NO_COLOR=1", " 한글\r\n", false)}) {
    folder_.Write("terminal", "");
    Process({"script", "-qec", "env " + (variables + command), "/dev/null"}, folder_ / "terminal").Wait();
    const std::string seen = ReadFile(folder_ / "terminal");
    EXPECT_EQ(Count(seen, name), 1U) << seen;
    EXPECT_EQ(Count(seen, "\033[31merror ") > 0, colour) << seen;
    EXPECT_EQ(Count(seen, "\033") > 0, colour) << seen;
  }
}

TEST_F(Check, ReachesEveryDestinationAndSendsNothing) {
  const Listener silent;
  const std::string closed = std::to_string(engine_port_.Port());
  config_ += "ALARM_2 127.0.0.1:" + std::to_string(silent.Port()) + "\nALARM_3 127.0.0.1:" + closed +
             "\nSMTP_SERVER_PORT " + closed + "\n";
  folder_.Write("agent.conf", config_);
  const std::string told = Tool({"--reach"}).first;
  EXPECT_TRUE(Has(told, "ALARM_3: 127.0.0.1 port " + closed + ": Connection refused"));
  EXPECT_TRUE(Has(told, "SMTP_SERVER_URL: localhost port "));
  EXPECT_FALSE(Has(told, "ALARM_2: "));
  EXPECT_EQ(support::Receive(silent.Accept().Get(), 1), "");
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
