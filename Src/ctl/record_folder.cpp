#include "ctl/record_folder.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "base/format.h"
#include "ctl/small_file.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr mode_t FOLDER_MODE = 0750;
constexpr mode_t FILE_MODE = 0640;
constexpr int FOLDER_FLAGS = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int FILE_FLAGS = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int LOCK_TRIES = 20;
constexpr int LOCK_TRY_MS = 10;
constexpr const char* PREFIX = "restarts-";

std::string Complaint(const std::string& path) {
  const int error = errno;
  std::string text = Shown(path) + ": " +
                     (error == EPERM ? "not a folder or file of root's or ours alone" : std::strerror(error));
  errno = error;
  return text;
}

// Gives what root creates in a folder of the agent's user to that user, who must be able to write it later.
void GiveTo(int fd, uid_t owner, const struct stat& status) {
  if (::geteuid() != 0 || status.st_uid == owner) return;
  [[maybe_unused]] const int given = ::fchown(fd, owner, static_cast<gid_t>(-1));
}

}  // namespace

std::string SafeName(std::string_view name) {
  std::string safe;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    const bool stays = byte < 0x80 && (std::isalnum(byte) != 0 || c == '-' || c == '_');
    safe += stays ? std::string(1, c) : base::Format("%%%02X", byte);
  }
  return safe;
}

std::optional<RecordFolder> RecordFolder::Checked(base::UniqueFd fd, std::string path, For purpose) {
  struct stat status {};
  if (!fd.Valid() || ::fstat(fd.Get(), &status) != 0) return std::nullopt;
  const uid_t self = ::geteuid();
  const bool trusted = self == 0 || status.st_uid == 0 || status.st_uid == self;
  if (purpose == For::WRITING && (!trusted || (status.st_mode & S_IWOTH) != 0)) {
    errno = EPERM;
    return std::nullopt;
  }
  return RecordFolder(std::move(fd), std::move(path), status.st_uid);
}

std::optional<RecordFolder> RecordFolder::OpenPath(const std::string& path, For purpose,
                                                   std::string* complaint) {
  // With a "/" at its end, open would follow a link.
  std::string name = path;
  while (name.size() > 1 && name.back() == '/') name.pop_back();
  auto folder = Checked(base::UniqueFd(::open(name.c_str(), FOLDER_FLAGS)), name, purpose);
  if (!folder) *complaint = Complaint(name);
  return folder;
}

std::optional<RecordFolder> RecordFolder::Open(const AgentConfig& config, For purpose,
                                               std::string* complaint) {
  if (purpose == For::WRITING) ::mkdir(config.record_folder.c_str(), FOLDER_MODE);
  const auto top = OpenPath(config.record_folder, purpose, complaint);
  if (!top) return std::nullopt;
  const std::string name = PREFIX + SafeName(config.process);
  auto folder = top->Sub(name, purpose);
  if (!folder) *complaint = Complaint(top->Path() + "/" + name);
  return folder;
}

std::optional<RecordFolder> RecordFolder::Sub(const std::string& name, For purpose) const {
  const bool made = purpose == For::WRITING && ::mkdirat(fd_.Get(), name.c_str(), FOLDER_MODE) == 0;
  base::UniqueFd fd(::openat(fd_.Get(), name.c_str(), FOLDER_FLAGS));
  struct stat status {};
  if (made && fd.Valid() && ::fstat(fd.Get(), &status) == 0) GiveTo(fd.Get(), owner_, status);
  return Checked(std::move(fd), path_ + "/" + name, purpose);
}

bool RecordFolder::LockFile(int fd) {
  for (int i = 0; i < LOCK_TRIES; ++i) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    ::poll(nullptr, 0, LOCK_TRY_MS);
  }
  errno = EWOULDBLOCK;
  return false;
}

base::UniqueFd RecordFolder::Lock() const {
  base::UniqueFd file = OpenFile(LOCK_FILE, O_RDWR | O_CREAT);
  if (file.Valid() && !LockFile(file.Get())) file.Reset();
  return file;
}

base::UniqueFd RecordFolder::OpenFile(const std::string& name, int flags) const {
  base::UniqueFd file(::openat(fd_.Get(), name.c_str(), flags | FILE_FLAGS, FILE_MODE));
  struct stat status {};
  if (!file.Valid() || ::fstat(file.Get(), &status) != 0) return file;
  const uid_t self = ::geteuid();
  const bool trusted = status.st_uid == 0 || status.st_uid == owner_ || status.st_uid == self;
  if (!S_ISREG(status.st_mode) || status.st_nlink > 1 || !trusted) {
    file.Reset();
    errno = EPERM;
    return file;
  }
  if ((flags & O_CREAT) != 0) GiveTo(file.Get(), owner_, status);
  return file;
}

std::optional<std::string> RecordFolder::Read(const std::string& name, size_t limit) const {
  const base::UniqueFd file = OpenFile(name, O_RDONLY);
  return file.Valid() ? ReadDescriptor(file.Get(), limit) : std::nullopt;
}

int RecordFolder::Replace(const std::string& name, const std::string& text) const {
  const std::string fresh = name + ".new";
  ::unlinkat(fd_.Get(), fresh.c_str(), 0);
  const base::UniqueFd file = OpenFile(fresh, O_WRONLY | O_CREAT | O_EXCL);
  if (!file.Valid()) return -1;
  if (WriteAll(file.Get(), text.data(), text.size()) == 0 &&
      ::renameat(fd_.Get(), fresh.c_str(), fd_.Get(), name.c_str()) == 0) {
    return 0;
  }
  const int error = errno;
  ::unlinkat(fd_.Get(), fresh.c_str(), 0);
  errno = error;
  return -1;
}

int RecordFolder::Remove(const std::string& name) const {
  return ::unlinkat(fd_.Get(), name.c_str(), 0);
}

std::vector<std::string> RecordFolder::Names(const std::string& ending) const {
  std::vector<std::string> names;
  base::UniqueFd again(::openat(fd_.Get(), ".", FOLDER_FLAGS));
  const base::UniqueDir entries(again.Valid() ? ::fdopendir(again.Get()) : nullptr);
  if (!entries) return names;
  again.Release();
  while (const dirent* entry = ::readdir(entries.get())) {
    if (std::string_view(entry->d_name).ends_with(ending)) names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace ctl
