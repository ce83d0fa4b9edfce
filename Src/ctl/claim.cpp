#include "ctl/claim.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "base/format.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr const char* FILE_NAME = "lock";
constexpr size_t TEXT_LIMIT = 128;
constexpr int64_t OLDEST_MS = 10'000;
// The file is locked for as long as it takes to read and write one line; a holder that is stopped in it is
// passed over.
constexpr int TRIES = 20;
constexpr int TRY_MS = 10;

bool Lock(int fd) {
  for (int i = 0; i < TRIES; ++i) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    ::poll(nullptr, 0, TRY_MS);
  }
  errno = EWOULDBLOCK;
  return false;
}

bool WriteClaim(int fd, const Claim& claim) {
  const std::string text = ClaimText(claim);
  const ssize_t written = ::pwrite(fd, text.data(), text.size(), 0);
  if (written >= 0 && static_cast<size_t>(written) < text.size()) errno = ENOSPC;
  return written == static_cast<ssize_t>(text.size()) && ::ftruncate(fd, written) == 0;
}

}  // namespace

std::string ClaimText(const Claim& claim) {
  return base::Format("%010d %020" PRIu64 " %020" PRId64 " %s\n", claim.pid, claim.start, claim.since_ms,
                      claim.boot_id.c_str());
}

std::optional<Claim> ParseClaim(const std::string& text) {
  Claim claim;
  std::array<char, 40> boot{};
  const int got = std::sscanf(text.c_str(), "%d %" SCNu64 " %" SCNd64 " %39s", &claim.pid, &claim.start,
                              &claim.since_ms, boot.data());
  claim.boot_id = boot.data();
  if (got != 4 || text != ClaimText(claim)) return std::nullopt;
  return claim;
}

bool ClaimHolds(const Claim& claim, const Moment& now, const std::optional<ProcessRow>& process) {
  if (claim.boot_id != now.boot_id || now.boot_id.empty()) return false;
  if (claim.since_ms > now.boot_ms || now.boot_ms - claim.since_ms >= OLDEST_MS) return false;
  if (!process || process->pid != claim.pid || process->start != claim.start) return false;
  return !process->Zombie() && process->state != 'T' && process->state != 't';
}

Claimed TakeClaim(const RecordFolder& folder, const Claim& ours, const Moment& now, std::string* complaint) {
  const base::UniqueFd file = folder.OpenFile(FILE_NAME, O_RDWR | O_CREAT);
  const auto failed = [&] {
    *complaint = folder.Path() + "/" + FILE_NAME + ": " + std::strerror(errno);
    return Claimed::UNSURE;
  };
  if (!file.Valid()) return failed();
  const bool locked = Lock(file.Get());
  const int error = errno;
  const auto there = ParseClaim(ReadDescriptor(file.Get(), TEXT_LIMIT).value_or(""));
  if (there && there->pid != ours.pid && ClaimHolds(*there, now, ReadProcess(there->pid)))
    return Claimed::ANOTHERS;
  if (!locked) {
    errno = error;
    return failed();
  }
  return WriteClaim(file.Get(), ours) ? Claimed::OURS : failed();
}

}  // namespace ctl
