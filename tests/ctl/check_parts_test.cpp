// The parts of "check" that no agent beside it can show: what is read, apart from what is judged.
#include <gtest/gtest.h>

#include <unistd.h>

#include "ctl/check_look.h"
#include "ctl/check_rules.h"
#include "ctl/config_pieces.h"
#include "ctl/run_as.h"
#include "support/support.h"

namespace ctl {
namespace {

// The line, what is special about the piece, key and value.
std::string Told(const ConfigPiece& piece) {
  const std::string line = std::to_string(piece.line) + (piece.rest ? " rest " : " ");
  if (piece.comment) return line + "comment";
  return line + piece.key + "=" + piece.value + (piece.own_value ? "" : " of the piece before");
}

TEST(Pieces, AreWhatTheAgentReads) {
  const std::string text = "; comment\n  KEY\tvalue  \nEMPTY \n#x y\n" + std::string(1023, 'k') + "REST r\n" +
                           std::string("CUT a\0b c\n", 10) + "LAST";
  const std::vector<std::string> expected = {"1 comment",
                                             "2 KEY=value",
                                             "3 EMPTY=\n",
                                             "4 #x=y",
                                             "5 " + std::string(1023, 'k') + "=y of the piece before",
                                             "5 rest REST=r",
                                             "6 CUT=a",
                                             "7 LAST=a of the piece before"};
  std::vector<std::string> told;
  for (const ConfigPiece& piece : SplitConfig(text)) told.push_back(Told(piece));
  EXPECT_EQ(told, expected);
}

TEST(Host, TellsWhetherItHidesProcesses) {
  EXPECT_FALSE(HidesProcesses("proc /proc proc rw,nosuid 0 0\n"));
  EXPECT_TRUE(HidesProcesses("x /x ext4 rw 0 0\nproc /proc proc rw,hidepid=2 0 0"));
  EXPECT_TRUE(HidesProcesses("proc /proc proc rw,hidepid=invisible 0 0\n"));
  EXPECT_FALSE(HidesProcesses("proc /proc proc rw,hidepid=2 0 0\nproc /proc proc rw,hidepid=0 0 0\n"));
}

TEST(Users, AreThoseOfFilesAndUnits) {
  const support::TempFolder root;
  for (const char* folder : {"etc", "etc/systemd/system/dunrastt-admin.service.d", "lib/systemd/system"})
    std::filesystem::create_directories(root / folder);
  root.Write("etc/passwd", "stt:x:123:45::/:/bin/sh\n");
  root.Write("etc/group", "voice:x:67:stt,other\nnone:x:68:\n");
  const auto user = FindUser("stt", root.Path());
  ASSERT_TRUE(user.has_value());
  EXPECT_EQ(user->user, 123U);
  EXPECT_EQ(user->groups, (std::vector<gid_t>{45, 67}));
  EXPECT_EQ(FindUser("123", root.Path())->name, "stt");
  EXPECT_EQ(FindUser("9", root.Path())->user, 9U);
  EXPECT_FALSE(FindUser("nobody", root.Path()).has_value());

  root.Write("lib/systemd/system/dunrastt-admin.service",
             "[Service]\nExecStart=/x -f /etc/a.conf\nUser=first\n");
  EXPECT_EQ(UserOfInstalledUnit("/etc/a.conf", root.Path()), "first");
  EXPECT_EQ(UserOfInstalledUnit("/etc/b.conf", root.Path()), "");
  root.Write("etc/systemd/system/dunrastt-admin.service.d/site.conf", "[Service]\nUser=second \n");
  EXPECT_EQ(UserOfInstalledUnit("/etc/a.conf", root.Path()), "second");
}

// Facts that no test can bring about on its host.
struct Case {
  const char* id;
  void (*set)(Facts& facts);
  const char* text;
};
void Set(Facts& facts, const char* key, int64_t number, const char* text = "") {
  facts.settings[key] = {text, text, number, true, false, 7};
}
const Case CASES[] = {
    {"port-of-others",
     [](Facts& facts) {
       Set(facts, "ASR_PORT", 40000);
       ParsePortRange("32768\t60999\n", &facts.host);
     },
     "ASR_PORT 40000 is among the ports 32768 to 60999 of outgoing connections: a probe can reach itself, "
     "and the engine find its port taken"},
    {"no-number",
     [](Facts& facts) {
       facts.settings["GOOD_OPTION"] = {"01", "1", 1, true, true, 3};
       facts.settings["HANG_ALARM"] = {"5\r", "0", 0, true, true, 4};
     },
     "HANG_ALARM 5\\x0d: no value for it, and it counts as absent"},
    {"file-newer",
     [](Facts& facts) {
       facts.agent = {true, 1, 1'700'000'000};
       facts.changed = 1'700'000'002;
     },
     ""},
    {"hidden-processes", [](Facts& facts) { facts.host.hides_processes = true; },
     "/proc is mounted with hidepid: user stt sees no process of others, and takes an engine of theirs for "
     "dead"},
    {"mail-password-clear",
     [](Facts& facts) {
       Set(facts, "SEND_EMAIL_CHECK", 1);
       Set(facts, "SMTP_AUTH", 3);
       Set(facts, "MAIL_URL", 0, "SMTP://mail.example.com:587");
       Set(facts, "MAIL_TLS", 1);
     },
     "SMTP_AUTH 3: user and password may go to mail.example.com in the clear: MAIL_TLS 2 prevents that"},
    {"not-as-user", [](Facts& facts) { facts.as_user = false; },
     "files were looked at as the caller: only root can take on user stt"},
};

std::string TextOf(const char* id, const Facts& facts) {
  for (const CheckFinding& finding : Judge(facts)) {
    if (finding.id == std::string_view(id)) return finding.text;
  }
  return "";
}

TEST(Rules, SpeakOfWhatTheyFindAlone) {
  for (const Case& one : CASES) {
    Facts facts;
    facts.user = "stt";
    EXPECT_EQ(TextOf(one.id, facts), "") << one.id;
    one.set(facts);
    EXPECT_EQ(TextOf(one.id, facts), one.text);
  }
}

}  // namespace
}  // namespace ctl
