#include "base/owners.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "base/format.h"
#include "base/handover.h"
#include "base/thread.h"

namespace {

bool IsOpen(int fd) {
  return ::fcntl(fd, F_GETFD) >= 0;
}
base::UniqueFd Null() {
  return base::UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

TEST(UniqueFdTest, MovesAndCloses) {
  base::UniqueFd one = Null();
  const int first = one.Get();
  base::UniqueFd& alias = one;
  one = std::move(alias);
  EXPECT_TRUE(IsOpen(first)) << "a move onto itself keeps it";
  base::UniqueFd two = Null();
  const int second = two.Get();
  one = std::move(two);
  EXPECT_FALSE(IsOpen(first)) << "a move over a live one closes that";
  EXPECT_EQ(one.Get(), second);
  EXPECT_EQ(one.Reset(), 0);
  EXPECT_FALSE(IsOpen(second));
  EXPECT_EQ(one.Reset(), 0) << "nothing held, nothing closed";
}

TEST(ThreadTest, IsJoinedOnceAndStartedOnce) {
  int runs = 0;
  base::Thread thread;
  const auto body = [](void* argument) -> void* {
    ++*static_cast<int*>(argument);
    return nullptr;
  };
  ASSERT_EQ(thread.Start(body, &runs), 0);
  EXPECT_EQ(thread.Start(body, &runs), -1);
  EXPECT_EQ(errno, EBUSY);
  thread.Join();
  thread.Join();
  EXPECT_EQ(runs, 1);
}

TEST(HandoverTest, AReaderKeepsWhatItGot) {
  base::Handover<std::string> text;
  EXPECT_EQ(*text.Get(), "");
  text.Set("one");
  const auto kept = text.Get();
  text.Set("two");
  EXPECT_EQ(*kept, "one");
  EXPECT_EQ(*text.Get(), "two");
}

TEST(FormatTest, GrowsAndCuts) {
  EXPECT_EQ(base::Format("%s", std::string(5000, 'x').c_str()), std::string(5000, 'x'));
  char buffer[4] = "zzz";
  base::CopyText(buffer, sizeof buffer, "abcdef");
  EXPECT_STREQ(buffer, "abc");
  base::CopyText(buffer, 1, "abcdef");
  EXPECT_STREQ(buffer, "");
}

}  // namespace
