#include "ctl/claim.h"

#include <fcntl.h>
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

constexpr size_t TEXT_LIMIT = 128;
constexpr int64_t OLDEST_MS = 10'000;

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

Claimed TakeClaim(const RecordFolder& folder, const Claim& ours, std::string* complaint) {
  const base::UniqueFd file = folder.OpenFile(LOCK_FILE, O_RDWR | O_CREAT);
  const auto failed = [&] {
    *complaint = folder.Path() + "/" + LOCK_FILE + ": " + std::strerror(errno);
    return Claimed::UNSURE;
  };
  if (!file.Valid()) return failed();
  const bool locked = RecordFolder::LockFile(file.Get());
  const int error = errno;
  const auto there = ParseClaim(ReadDescriptor(file.Get(), TEXT_LIMIT).value_or(""));
  // The moment is that of the look: whoever was faster to the lock may have begun later.
  if (there && there->pid != ours.pid && ClaimHolds(*there, Now(), ReadProcess(there->pid)))
    return Claimed::ANOTHERS;
  if (!locked) {
    errno = error;
    return failed();
  }
  return WriteClaim(file.Get(), ours) ? Claimed::OURS : failed();
}

}  // namespace ctl
