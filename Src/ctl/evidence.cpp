#include "ctl/evidence.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include "ctl/evidence_parts.h"
#include "ctl/output.h"
#include "ctl/small_file.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr size_t KEPT = 30;
constexpr size_t MAX_TEXT = 65536;
constexpr size_t ROOM = 61'440;  // for the parts; the rest is for the first lines
constexpr size_t VERDICT_SIZE = 1024;
constexpr int SLICE_MS = 5;
constexpr const char* ENDING = ".txt";

// Shared with the process that gathers. A counter is raised only when what it counts is complete.
struct Board {
  std::atomic<uint32_t> part;      // index of the part that is being gathered
  std::atomic<uint32_t> written;   // bytes of text
  std::atomic<uint32_t> verdicts;  // the newest verdict is at index (verdicts - 1) % 2
  std::atomic<bool> counted;
  int64_t host;
  int64_t kills;
  char group[4096];
  char verdict[2][VERDICT_SIZE];
  char text[ROOM];
};

constexpr int64_t UNKNOWN = -1;

class SharedBoard {
 public:
  SharedBoard() {
    void* memory = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) board_ = new (memory) Board{};
  }
  SharedBoard(const SharedBoard&) = delete;
  SharedBoard& operator=(const SharedBoard&) = delete;
  ~SharedBoard() {
    if (board_ != nullptr) ::munmap(board_, sizeof(Board));
  }
  Board* Get() const { return board_; }

 private:
  Board* board_ = nullptr;
};

template <size_t SIZE>
void Put(char (&place)[SIZE], const std::string& text) {
  const size_t length = std::min(text.size(), SIZE - 1);
  std::memcpy(place, text.data(), length);
  place[length] = '\0';
}

void PutText(Board* board, std::string_view text) {
  const uint32_t at = board->written;
  const size_t length = std::min(text.size(), ROOM - at);
  std::memcpy(board->text + at, text.data(), length);
  board->written = at + static_cast<uint32_t>(length);
}

void PutCounters(Board* board, const KillCounters& counters) {
  board->host = counters.host.value_or(UNKNOWN);
  board->kills = counters.kills.value_or(UNKNOWN);
  Put(board->group, counters.group);
  board->counted = true;
}

void Gather(const AgentConfig& config, const RestartState& before, Board* board) {
  DeathFacts facts{
      .before = before.counters, .now = {}, .unit = {}, .core = {}, .seen = before.engine, .queue = {}};
  const auto parts = EvidenceParts();
  for (uint32_t i = 0; i < parts.size(); ++i) {
    board->part = i;
    const std::string text = parts[i].gather(config, before, &facts);
    PutText(board, std::string(parts[i].title) + ":\n" + text);
    if (i == 0) PutCounters(board, facts.now);
    Put(board->verdict[board->verdicts % 2], Verdict(facts));
    ++board->verdicts;
  }
  board->part = static_cast<uint32_t>(parts.size());
}

[[noreturn]] void GatherAndEnd(const AgentConfig& config, const RestartState& before, Board* board) {
  ::setpgid(0, 0);  // a group of its own, killed as one with what it starts
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    Gather(config, before, board);
  } catch (const std::exception& failure) {
    PutText(board, std::string("gathering failed: ") + failure.what() + "\n");
  }
  ::_exit(0);
}

// Waits for the process to end and kills it when its time is over.
void Await(pid_t gatherer, int64_t limit_ms) {
  const int64_t end = BootMilliseconds() + limit_ms;
  while (::waitpid(gatherer, nullptr, WNOHANG) == 0) {
    if (BootMilliseconds() >= end) {
      ::kill(-gatherer, SIGKILL);
      ::kill(gatherer, SIGKILL);
      return;
    }
    ::poll(nullptr, 0, SLICE_MS);
  }
}

std::optional<int64_t> Known(int64_t number) {
  return number == UNKNOWN ? std::nullopt : std::optional(number);
}

Evidence Read(const Board& board) {
  Evidence evidence;
  const uint32_t verdicts = board.verdicts;
  evidence.verdict = verdicts == 0 ? "not known" : board.verdict[(verdicts - 1) % 2];
  if (board.counted) {
    evidence.counters.host = Known(board.host);
    evidence.counters.kills = Known(board.kills);
    evidence.counters.group = board.group;
  }
  evidence.text = evidence.verdict + "\n" + IsoTime(std::time(nullptr)) + "\n";
  evidence.text.append(board.text, board.written);
  const auto parts = EvidenceParts();
  if (board.part < parts.size())
    evidence.text +=
        std::string("\nthe rest took too long, beginning with: ") + parts[board.part].title + "\n";
  evidence.text.resize(std::min(evidence.text.size(), MAX_TEXT));
  return evidence;
}

// Removes all but the newest 30. The one just written stays, even when the clock was set back.
void RemoveOld(const RecordFolder& evidence, const std::string& just) {
  auto names = evidence.Names(ENDING);
  std::erase(names, just);
  for (size_t i = 0; i + KEPT <= names.size(); ++i) evidence.Remove(names[i]);
}

}  // namespace

std::optional<Evidence> GatherEvidence(const AgentConfig& config, const RestartState& before,
                                       int64_t limit_ms, std::string* complaint) {
  const SharedBoard board;
  const pid_t gatherer = board.Get() == nullptr ? -1 : ::fork();
  if (gatherer < 0) {
    *complaint = std::string("no evidence: ") + std::strerror(errno);
    return std::nullopt;
  }
  if (gatherer == 0) GatherAndEnd(config, before, board.Get());
  Await(gatherer, limit_ms);
  return Read(*board.Get());
}

int KeepEvidence(const RecordFolder& folder, const Moment& now, const std::string& text, std::string* id) {
  const auto evidence = folder.Sub("evidence", RecordFolder::For::WRITING);
  if (!evidence) return -1;
  const std::string name = LocalTime(now.wall, "%Y%m%d-%H%M%S");
  if (evidence->Replace(name + ENDING, text) != 0) return -1;
  *id = name;
  RemoveOld(*evidence, name + ENDING);
  return 0;
}

}  // namespace ctl
