#include "base/lossy_stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>

#include <csignal>

#include "support/support.h"

namespace {

constexpr int LINES = 20'000;

std::string Line(int number) {
  return "line " + std::to_string(number) + " is here as a whole";
}

// All that can be read now.
std::string Drained(int fd) {
  std::string text;
  char buffer[65536];
  pollfd readable{fd, POLLIN, 0};
  while (::poll(&readable, 1, 0) == 1 && (readable.revents & POLLIN) != 0) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got <= 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  std::erase(text, '\r');  // of a terminal
  return text;
}

// Writes more to standard output and error than anybody reads, and one line once `again` can be read.
[[noreturn]] void WriteMuch(int done, int again) {
  base::MakeStandardStreamsLossy();
  bool sound = true;
  for (int i = 0; i < LINES; i += 2) {
    sound = std::printf("%s\n", Line(i).c_str()) > 0 && std::fflush(stdout) == 0 && sound;
    base::Echo(Line(i + 1) + "\n");
  }
  std::printf("left, ");
  base::Echo(std::string(100'000, 'x') + "\n");
  sound = std::fprintf(stderr, "to stderr\n") > 0 && sound;
  char byte = sound ? 's' : 'f';
  sound = ::write(done, &byte, 1) == 1 && ::read(again, &byte, 1) == 1 && sound;
  std::printf("left, ");
  base::Echo("and last\n");
  std::fflush(nullptr);
  std::_Exit(sound ? 0 : 1);
}

struct Ends {
  base::UniqueFd reader;
  base::UniqueFd writer;
};

Ends Pipe() {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
  return {base::UniqueFd(ends[0]), base::UniqueFd(ends[1])};
}

// A pipe that its writers may not open again.
Ends ForeignPipe() {
  Ends ends = Pipe();
  ::fchmod(ends.writer.Get(), 0);
  return ends;
}

Ends Terminal() {
  int reader = -1;
  int writer = -1;
  if (::openpty(&reader, &writer, nullptr, nullptr, nullptr) != 0) std::abort();
  return {base::UniqueFd(reader), base::UniqueFd(writer)};
}

Ends Socket() {
  auto [reader, writer] = support::SocketPair();
  return {std::move(reader), std::move(writer)};
}

class LossyStandardStream : public testing::TestWithParam<Ends (*)()> {};

TEST_P(LossyStandardStream, DropsWhatNobodyReads) {
  const Ends ends = GetParam()();
  const Ends done = Pipe();
  const Ends again = Pipe();
  const int flags = ::fcntl(ends.writer.Get(), F_GETFL);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends.writer.Get(), STDOUT_FILENO);
    ::dup2(ends.writer.Get(), STDERR_FILENO);
    if (GetParam() == ForeignPipe && ::geteuid() == 0 && ::setuid(65534) != 0) std::_Exit(2);
    WriteMuch(done.writer.Get(), again.reader.Get());
  }
  std::string verdict;
  ASSERT_TRUE(support::WaitUntil([&] { return !(verdict = Drained(done.reader.Get())).empty(); }));
  EXPECT_EQ(verdict, "s");
  EXPECT_EQ(::fcntl(ends.writer.Get(), F_GETFL), flags) << "others use it, too";
  std::string text = Drained(ends.reader.Get());
  EXPECT_EQ(::write(again.writer.Get(), "", 1), 1);
  int status = -1;
  EXPECT_TRUE(support::WaitUntil([&] {
    text += Drained(ends.reader.Get());
    return ::waitpid(child, &status, WNOHANG) == child;
  }));
  EXPECT_EQ(status, 0);
  text += Drained(ends.reader.Get());
  EXPECT_TRUE(text.ends_with("\nleft, and last\n")) << text.substr(text.size() - 100);
  // Lines are whole but where the room ended.
  int number = 0;
  for (size_t at = 0; text.compare(at, Line(number).size() + 1, Line(number) + "\n") == 0; ++number) {
    at += Line(number).size() + 1;
  }
  EXPECT_GT(number, 50);
  EXPECT_LT(number, LINES);
}

INSTANTIATE_TEST_SUITE_P(All, LossyStandardStream, testing::Values(Pipe, ForeignPipe, Terminal, Socket));

// A reader that reads gets every byte, also of what is larger than any pipe.
TEST(LossyStream, LosesNothingToAReader) {
  const support::TempFolder folder;
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  const base::UniqueFd reader(::open((folder / "fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  std::string text;
  std::string written;
  const base::UniqueFile stream =
      base::LossyStream(base::UniqueFile(std::fopen((folder / "fifo").c_str(), "a+e")));
  for (int i = 0; i < 3; ++i) written += std::string(100'000, static_cast<char>('a' + i)) + "\n";
  std::thread reading(
      [&] { support::WaitUntil([&] { return (text += Drained(reader.Get())).size() >= written.size(); }); });
  EXPECT_GT(std::fprintf(stream.get(), "%s", written.c_str()), 0);
  EXPECT_EQ(std::fflush(stream.get()), 0);
  reading.join();
  EXPECT_EQ(text, written);
}

TEST(LossyStream, TellsErrorsAndLeavesFilesAlone) {
  const support::TempFolder folder;
  for (const char* name : {"file", "/dev/null"}) {
    base::UniqueFile file(std::fopen(name[0] == '/' ? name : (folder / name).c_str(), "ae"));
    FILE* const plain = file.get();
    EXPECT_EQ(base::LossyStream(std::move(file)).get(), plain) << name;
  }
  EXPECT_EQ(base::LossyStream(nullptr), nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  Ends ends = Pipe();
  const base::UniqueFile stream = base::LossyStream(base::UniqueFile(::fdopen(ends.writer.Release(), "w")));
  ends.reader.Reset();
  std::fprintf(stream.get(), "text\n");
  errno = 0;
  EXPECT_EQ(std::fflush(stream.get()), EOF);
  EXPECT_EQ(errno, EPIPE);
}

}  // namespace
