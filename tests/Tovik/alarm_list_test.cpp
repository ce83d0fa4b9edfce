#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Tovik/alarms/email.h"
#include "support/support.h"

namespace {

using namespace std::string_literals;
using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs EntriesOf(const std::string& path) {
  const int64_t count = GetTotalLine(path.c_str());
  const auto entries = GetMailInfo(path.c_str(), count);
  Pairs pairs;
  for (int64_t index = 0; index < count; ++index) {
    pairs.emplace_back(entries->At(index).name, entries->At(index).address);
  }
  return pairs;
}

TEST(EMailLists, ReadAsManyRecipientsAsNewlines) {
  const std::string longWord(5000, 'x');
  const struct {
    const char* what;
    std::string text;
    Pairs entries;
  } cases[] = {
      {"two lines", "kim a@x\nlee b@x\n", {{"kim", "a@x"}, {"lee", "b@x"}}},
      {"no final newline", "kim a@x\nlee b@x", {{"kim", "a@x"}}},
      {"only a line without newline", "kim a@x", {}},
      {"empty", "", {}},
      {"blank lines", "kim a@x\n\n  \nlee b@x\n", {{"kim", "a@x"}, {"lee", "b@x"}, {"", ""}, {"", ""}}},
      {"a blank line lets the last one in", "\nkim a@x", {{"kim", "a@x"}}},
      {"one word a line", "a@x\nb@x\nc@x\n", {{"a@x", "b@x"}, {"c@x", ""}, {"", ""}}},
      {"three words a line", "kim a@x c\nlee b@x\n", {{"kim", "a@x"}, {"c", "lee"}}},
      {"carriage returns", "kim\ta@x\r\nlee  b@x\r\n", {{"kim", "a@x"}, {"lee", "b@x"}}},
      {"angle brackets and Korean", "\xB1\xE8 <a@x>\n", {{"\xB1\xE8", "<a@x>"}}},
      {"0xFF ends the counting", "kim a@x\n\xFF b@x\nlee c@x\n", {{"kim", "a@x"}}},
      {"0xFF behind nothing", "\xFFkim a@x\n", {}},
      {"NUL ends a word", "ki\0m a@x\n"s, {{"ki", "a@x"}}},
      {"long words",
       longWord + " " + longWord + "\nlee b@x\n",
       {{longWord.substr(0, 4095), longWord.substr(0, 4095)}, {"lee", "b@x"}}},
  };
  const support::TempFolder folder;
  for (const auto& entry : cases)
    EXPECT_EQ(EntriesOf(folder.Write("list", entry.text)), entry.entries) << entry.what;
}

TEST(EMailLists, TakeTenThousandLines) {
  std::string text;
  for (int i = 0; i < 10'000; ++i) text += "name" + std::to_string(i) + " a" + std::to_string(i) + "@x\n";
  const support::TempFolder folder;
  const Pairs pairs = EntriesOf(folder.Write("list", text));
  ASSERT_EQ(pairs.size(), 10'000U);
  EXPECT_EQ(pairs.back(), std::make_pair("name9999"s, "a9999@x"s));
}

TEST(EMailLists, AFileThatCannotBeReadHasNoEntries) {
  const support::TempFolder folder;
  EXPECT_EQ(GetTotalLine((folder / "none").c_str()), -1);
  EXPECT_EQ(GetTotalLine(folder.Path().c_str()), 0);
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(GetTotalLine((folder / "pipe").c_str()), 0);
  const auto entries = GetMailInfo((folder / "none").c_str(), 3);
  EXPECT_STREQ(entries->At(2).name, "");
  EXPECT_STREQ(entries->At(2).address, "");
}

TEST(EMailLists, MissingFilesAreMadeAndUnreadableOnesCountMinusOne) {
  const support::TempFolder folder;
  const std::string to = folder.Write("to", "kim a@x\n");
  const std::string cc = folder / "cc";
  const std::string bcc = folder / "no-such-folder/bcc";
  ASSERT_EQ(GetEMailList(to.c_str(), cc.c_str(), bcc.c_str()), 1);
  EXPECT_TRUE(std::filesystem::exists(cc));
  const auto lists = gEmailLists.Get();
  EXPECT_EQ(lists->receiver_count, 1);
  EXPECT_STREQ(lists->receivers->At(0).address, "a@x");
  EXPECT_EQ(lists->reference_count, 0);
  EXPECT_EQ(lists->blind_count, -1);
}

TEST(EMailLists, AReaderKeepsTheListItGot) {
  const support::TempFolder folder;
  const std::string to = folder.Write("to", "kim a@x\n");
  const std::string other = folder / "other";
  ASSERT_EQ(GetEMailList(to.c_str(), other.c_str(), other.c_str()), 1);
  const auto before = gEmailLists.Get();
  EXPECT_EQ(EMailListFree(*before), 0);
  EXPECT_EQ(gEmailLists.Get()->receiver_count, 1);
  folder.Write("to", "");
  ASSERT_EQ(GetEMailList(to.c_str(), other.c_str(), other.c_str()), 1);
  EXPECT_EQ(gEmailLists.Get()->receiver_count, 0);
  EXPECT_STREQ(before->receivers->At(0).address, "a@x");
}

TEST(EMailLists, ReloadWhileOthersRead) {
  const support::TempFolder folder;
  const std::string to = folder.Write("to", "kim a@x\nlee b@x\n");
  std::atomic<bool> done{false};
  std::thread reloading([&] {
    for (int i = 0; i < 200; ++i) GetEMailList(to.c_str(), to.c_str(), to.c_str());
    done = true;
  });
  while (!done) {
    const auto lists = gEmailLists.Get();
    for (int64_t i = 0; i < lists->receiver_count; ++i) {
      EXPECT_EQ(std::string(lists->receivers->At(i).address).substr(1), "@x");
    }
  }
  reloading.join();
}

}  // namespace
