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
  return "line " + std::to_string(number) + " is complete\n";
}

// Everything that can be read without waiting.
std::string Drained(int fd) {
  std::string text;
  char buffer[65536];
  pollfd readable{fd, POLLIN, 0};
  while (::poll(&readable, 1, 0) == 1 && (readable.revents & POLLIN) != 0) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got <= 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  std::erase(text, '\r');  // terminals add it
  return text;
}

// The reader's and the writer's end of a connection.
using Ends = std::pair<base::UniqueFd, base::UniqueFd>;

Ends Pipe() {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
  return {base::UniqueFd(ends[0]), base::UniqueFd(ends[1])};
}

// A pipe that its writer may not open a second time.
Ends ForeignPipe() {
  Ends ends = Pipe();
  ::fchmod(ends.second.Get(), 0);
  return ends;
}

Ends Terminal() {
  int reader = -1;
  int writer = -1;
  if (::openpty(&reader, &writer, nullptr, nullptr, nullptr) != 0) std::abort();
  return {base::UniqueFd(reader), base::UniqueFd(writer)};
}

// The child: writes more lines than fit anywhere, reports on `done`, and writes a last line when `again` can
// be read. The status is 0 when no write reported an error.
[[noreturn]] void WriteMuch(int done, int again) {
  base::MakeStandardStreamsLossy();
  bool sound = true;
  for (int i = 0; i < LINES; i += 2) {
    sound = std::printf("%s", Line(i).c_str()) > 0 && std::fflush(stdout) == 0 && sound;
    base::Echo(Line(i + 1));
  }
  std::printf("left, ");
  base::Echo(std::string(100'000, 'x') + "\n");
  sound = std::fprintf(stderr, "to stderr\n") > 0 && sound;
  char byte = 'x';
  sound = ::write(done, &byte, 1) == 1 && ::read(again, &byte, 1) == 1 && sound;
  std::printf("left, ");
  base::Echo("and last\n");
  std::fflush(nullptr);
  std::_Exit(sound ? 0 : 1);
}

class LossyStandardStream : public testing::TestWithParam<Ends (*)()> {};

TEST_P(LossyStandardStream, DropsWhatNobodyReads) {
  const Ends output = GetParam()();
  const Ends done = Pipe();
  const Ends again = Pipe();
  const int flags = ::fcntl(output.second.Get(), F_GETFL);
  std::fflush(nullptr);  // or the child writes what is left in the buffers
  const pid_t child = ::fork();
  if (child == 0) {
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) ::dup2(output.second.Get(), fd);
    if (GetParam() == ForeignPipe && ::geteuid() == 0 && ::setuid(65534) != 0) std::_Exit(2);
    WriteMuch(done.second.Get(), again.first.Get());
  }
  ASSERT_TRUE(support::WaitUntil([&] { return !Drained(done.first.Get()).empty(); })) << "a write blocked";
  EXPECT_EQ(::fcntl(output.second.Get(), F_GETFL), flags) << "others use the descriptor, too";
  std::string text = Drained(output.first.Get());
  EXPECT_EQ(::write(again.second.Get(), "", 1), 1);
  int status = -1;
  EXPECT_TRUE(support::WaitUntil([&] {
    text += Drained(output.first.Get());
    return ::waitpid(child, &status, WNOHANG) == child;
  }));
  EXPECT_EQ(status, 0);
  text += Drained(output.first.Get());
  EXPECT_TRUE(text.ends_with("\nleft, and last\n")) << text.substr(text.size() - 100);
  int number = 0;  // of whole lines at the start
  for (std::string_view rest = text; rest.starts_with(Line(number)); ++number)
    rest.remove_prefix(Line(number).size());
  EXPECT_GT(number, 50);
  EXPECT_LT(number, LINES);
}

INSTANTIATE_TEST_SUITE_P(All, LossyStandardStream,
                         testing::Values(Pipe, ForeignPipe, Terminal, support::SocketPair));

TEST(LossyStream, LosesNothingToASlowReader) {
  Ends pipe = Pipe();
  const base::UniqueFile stream = base::LossyStream(base::UniqueFile(::fdopen(pipe.second.Release(), "w")));
  std::string written;  // more than a pipe holds
  for (const char c : {'a', 'b', 'c'}) written += std::string(100'000, c) + "\n";
  std::string text;
  std::thread reading([&] {
    support::WaitUntil([&] { return (text += Drained(pipe.first.Get())).size() >= written.size(); });
  });
  EXPECT_GT(std::fprintf(stream.get(), "%s", written.c_str()), 0);
  EXPECT_EQ(std::fflush(stream.get()), 0);
  reading.join();
  EXPECT_EQ(text, written);
}

TEST(LossyStream, LeavesFilesAndTheNullDeviceAlone) {
  for (FILE* const plain : {std::tmpfile(), std::fopen("/dev/null", "ae"), static_cast<FILE*>(nullptr)})
    EXPECT_EQ(base::LossyStream(base::UniqueFile(plain)).get(), plain);
}

TEST(LossyStream, DropsWhatNobodyReadsAndReportsAReaderThatHasGone) {
  ::signal(SIGPIPE, SIG_IGN);
  auto [reader, writer] = Pipe();
  const base::UniqueFile stream = base::LossyStream(base::UniqueFile(::fdopen(writer.Release(), "w")));
  EXPECT_GT(std::fprintf(stream.get(), "%s", std::string(300'000, 'x').c_str()), 0);
  EXPECT_EQ(std::fflush(stream.get()), 0);
  reader.Reset();
  std::fprintf(stream.get(), "text\n");
  errno = 0;
  EXPECT_EQ(std::fflush(stream.get()), EOF);
  EXPECT_EQ(errno, EPIPE);
}

}  // namespace
