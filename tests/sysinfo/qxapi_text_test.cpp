#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/owners.h"
#include "sysinfo/qxapi_internal.h"

namespace {

using base::UniqueText;
using sysinfo::ParseStat;
using sysinfo::StatCounters;
using sysinfo::StatusFields;

TEST(Bytes, AreUnsignedAndStoredInPlace) {
  char text[] = "ab\xff";
  EXPECT_EQ(__qxapi_peek_byte__(text, 2), 255U);
  EXPECT_EQ(static_cast<void*>(__qxapi_poke_byte__(text, 1, 0xfe)), text + 1);
  EXPECT_STREQ(text, "a\xfe\xff");
}

TEST(SkipSpace, StopsAtTheFirstOtherCharacter) {
  EXPECT_STREQ(__qxapi_skip_space__(" \t\n\v\f\rx y"), "x y");
  EXPECT_STREQ(__qxapi_skip_space__("\xa0"), "\xa0");
  EXPECT_EQ(__qxapi_skip_space__(nullptr), nullptr);
}

TEST(GetWordSep, CutsAndMovesOn) {
  struct Case {
    const char* text;
    const char* seps;
    const char* word;
    const char* rest;
  };
  const Case cases[] = {
      {"Uid:\t0\t0\t0\n", ":", "Uid", "\t0\t0\t0\n"},
      {"\t0\t0\t0\n", "\n", "0\t0\t0", ""},
      {"  two words \t: x", ":", "two words", " x"},
      {"a;b:c", ":;", "a", "b:c"},
      {"no separator \n", ":", "no separator", ""},
      {":x", ":", nullptr, "x"},
      {" \t\n", "\n", nullptr, ""},
      {"", ":", nullptr, ""},
      {" first second", nullptr, "first", "second"},
      {"last", nullptr, "last", ""},
      {"a b", "", "a b", ""},
      {"a\n", " \n", "a", ""},
  };
  for (const Case& c : cases) {
    const char* cursor = c.text;
    const UniqueText word(__qxapi_get_word_sep__(c.seps, &cursor));
    EXPECT_STREQ(word.get(), c.word) << c.text;
    EXPECT_STREQ(cursor, c.rest) << c.text;
  }
}

TEST(GetWordSep, RefusesNull) {
  const char* nothing = nullptr;
  EXPECT_EQ(__qxapi_get_word_sep__(":", &nothing), nullptr);
  EXPECT_EQ(__qxapi_get_word_sep__(":", nullptr), nullptr);
}

TEST(AllocSprintf, HoldsAnyTextUpToItsLimit) {
  const std::string filler(0x80000, 'x');
  for (const int length : {0, 1, 4094, 4095, 4096, 8191, 8192, 0x80000 - 4096 - 1}) {
    const UniqueText text(__qxapi_alloc_sprintf__("%.*s", length, filler.c_str()));
    ASSERT_NE(text, nullptr) << length;
    EXPECT_EQ(std::string(text.get()), filler.substr(0, static_cast<size_t>(length)));
  }
  for (const int length : {0x80000 - 4096, 0x80000}) {
    EXPECT_EQ(__qxapi_alloc_sprintf__("%.*s", length, filler.c_str()), nullptr) << length;
  }
}

TEST(Decoder, SplitsAtNuls) {
  struct Case {
    std::string bytes;
    std::vector<std::string> words;
  };
  using namespace std::string_literals;
  const Case cases[] = {
      {"a\0\0b\0"s, {"a", "", "b"}}, {"a"s, {"a"}}, {"a\0b"s, {"a", "b"}}, {"\0"s, {""}},
      {"\0\0\0"s, {"", "", ""}},
  };
  for (Case c : cases) {
    uint32_t argc = 9;
    char** argv = nullptr;
    ASSERT_EQ(__qxapi_command_line_decoder__(c.bytes.data(), c.bytes.size(), &argc, &argv), 1);
    EXPECT_EQ(std::vector<std::string>(argv, argv + argc), c.words);
    EXPECT_EQ(argv[0], c.bytes.data());
    std::free(static_cast<void*>(argv));
  }
}

TEST(Decoder, RefusesNothing) {
  char byte = 'a';
  for (char* const buf : {&byte, static_cast<char*>(nullptr)}) {
    uint32_t argc = 9;
    char** argv = reinterpret_cast<char**>(&argv);
    EXPECT_EQ(__qxapi_command_line_decoder__(buf, buf == nullptr ? 1 : 0, &argc, &argv), -1);
    EXPECT_EQ(argc, 0U);
    EXPECT_EQ(argv, nullptr);
  }
}

TEST(Decoder, BoundsTheCount) {
  std::string nuls(3145727, '\0');
  uint32_t argc = 0;
  char** argv = nullptr;
  ASSERT_EQ(__qxapi_command_line_decoder__(nuls.data(), nuls.size(), &argc, &argv), 1);
  EXPECT_EQ(argc, 393216U);
  EXPECT_EQ(argv[argc - 1], nuls.data() + argc - 1);
  std::free(static_cast<void*>(argv));
}

StatusFields Status(std::string_view text) {
  StatusFields fields;
  fields.pid = 42;
  sysinfo::ParseStatus(text, &fields);
  return fields;
}

TEST(Status, TakesItsEightKeys) {
  const StatusFields f = Status(
      "Name:\tstt server\nUmask:\t0022\nSTATE:\tS (sleeping)\nTgid:\t8\nPid:\t9\nPPid:\t1\nTracerPid:\t5\n"
      "Uid:\t4294967294\t1\t2\t3\ngid :\t100\t1\nVmPeak:\t 9 kB\nVmSize:\t    3060 kB\nThreads:\t17\n");
  EXPECT_EQ(f.name, "stt server");
  EXPECT_EQ(f.state, 'S');
  EXPECT_EQ(f.pid, 9);
  EXPECT_EQ(f.ppid, 1);
  EXPECT_EQ(f.uid, 4294967294U);
  EXPECT_EQ(f.gid, 100U);
  EXPECT_EQ(f.vmsize, 3060U);
  EXPECT_EQ(f.threads, 17);
}

TEST(Status, IgnoresWhatIsNoPair) {
  const StatusFields f = Status("\n\nName:\t \nPid\nPid:\n:7\nUid 5\n");
  EXPECT_EQ(f.name, "");
  EXPECT_EQ(f.pid, 42);
  EXPECT_EQ(f.uid, 0U);
}

TEST(Status, TakesAnyBytes) {
  using namespace std::string_view_literals;
  EXPECT_EQ(Status("Name:\tone\nNAME:two: three").name, "two: three");
  EXPECT_EQ(Status("Name:\tab\0cd\nPid:\t5\n"sv).name, "ab");
  EXPECT_EQ(Status("Name:\tab\0cd\nPid:\t5\n"sv).pid, 5);
  EXPECT_EQ(Status("Pid\0:\t5\n\0Pid:\t6\nPid\0"sv).pid, 42);
  EXPECT_EQ(Status("Pid:\tx\n").pid, 0);
  EXPECT_EQ(Status("Pid:\t-3x\n").pid, -3);
  EXPECT_EQ(Status("Pid:\t+\n").pid, 0);
  EXPECT_EQ(Status("VmSize:\t99999999999999999999 kB\n").vmsize, static_cast<uint64_t>(INT64_MAX));
  EXPECT_EQ(Status("VmSize:\t21474836480 kB\n").vmsize, 21474836480U);  // 20 TB, as a sanitizer maps
}

// What the scan must agree with.
bool ScanStat(const std::string& text, StatCounters* c) {
  const char* const end = std::strrchr(text.c_str(), ')');
  if (end == nullptr) return false;
  unsigned long utime = 0;
  unsigned long stime = 0;
  unsigned long pages = 0;
  long nice = 0;
  const int converted =
      std::sscanf(end + 1,
                  "%*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %lu %lu %*s %*s %*s %ld %*s %*s "
                  "%*s %*s %lu",
                  &utime, &stime, &nice, &pages);
  *c = {utime, stime, nice, pages};
  return converted == 4;
}

void ExpectSameAsScan(const std::string& text) {
  StatCounters expected{};
  const bool whole = ScanStat(text, &expected);
  const auto c = ParseStat(text);
  ASSERT_EQ(c.has_value(), whole) << text;
  if (!whole) return;
  EXPECT_EQ(c->utime, expected.utime) << text;
  EXPECT_EQ(c->stime, expected.stime) << text;
  EXPECT_EQ(c->nice, expected.nice) << text;
  EXPECT_EQ(c->pages, expected.pages) << text;
}

TEST(Stat, AgreesWithScanfOnMutatedTexts) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const std::string line =
      "7 (a) R (b) S 1 7 7 0 -1 4194304 103 0 0 0 18446744073709551615 125 1 2 20 -9223372036854775808 3 0 "
      "136868 "
      "3133440 376 18446744073709551615";
  const std::string bytes("0123456789+-+- \t\n\v)(ax\0", 23);
  ExpectSameAsScan(line);
  for (int round = 0; round < 20000; ++round) {
    std::string text = line.substr(0, round % 4 == 0 ? random() % line.size() : line.size());
    for (auto change = random() % 5; change > 0 && !text.empty(); --change) {
      const size_t at = random() % text.size();
      text.replace(at, random() % 2, 1, bytes[random() % bytes.size()]);
    }
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsScan(text));
  }
}

}  // namespace
