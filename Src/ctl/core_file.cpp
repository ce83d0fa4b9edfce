#include "ctl/core_file.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/procfs.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "base/unique_handles.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr size_t HEAD_LIMIT = 4 << 20;  // the notes stand behind a header for each of up to 65,535 mappings
constexpr int MAX_ENTRIES = 4096;
constexpr std::string_view COLLECTOR = "systemd-coredump";
constexpr const char* COLLECTOR_FOLDER = "/var/lib/systemd/coredump";

// Copies the record at this place; false when the bytes end before it does.
template <typename Record>
bool Take(std::string_view bytes, size_t at, Record* record) {
  if (at > bytes.size() || bytes.size() - at < sizeof *record) return false;
  std::memcpy(record, bytes.data() + at, sizeof *record);
  return true;
}

size_t Aligned(size_t length) {
  return (length + 3) & ~size_t{3};
}

// The two notes of interest, of the thread that died and of its process, come before anything large.
std::optional<CoreNotes> ParseNotes(std::string_view bytes) {
  CoreNotes notes;
  for (size_t at = 0;;) {
    Elf64_Nhdr header{};
    if (!Take(bytes, at, &header)) return std::nullopt;
    const size_t body = at + sizeof header + Aligned(header.n_namesz);
    if (header.n_type == NT_PRSTATUS && notes.signal == 0) {
      elf_prstatus status{};
      if (!Take(bytes, body, &status)) return std::nullopt;
      notes.signal = status.pr_cursig;
    } else if (header.n_type == NT_PRPSINFO) {
      elf_prpsinfo process{};
      if (!Take(bytes, body, &process)) return std::nullopt;
      notes.pid = process.pr_pid;
      notes.name.assign(process.pr_fname, ::strnlen(process.pr_fname, sizeof process.pr_fname));
      return notes;
    }
    at = body + Aligned(header.n_descsz);
  }
}

// The collector compresses its cores, but keeps pid, signal and name in extended attributes.
std::optional<CoreNotes> CollectorsNotes(int fd) {
  const auto attribute = [fd](const char* name) {
    std::array<char, 64> value{};
    const ssize_t length = ::fgetxattr(fd, name, value.data(), value.size() - 1);
    return length < 0 ? std::string() : std::string(value.data());
  };
  CoreNotes notes;
  notes.signal = std::atoi(attribute("user.coredump.signal").c_str());
  notes.pid = std::atoi(attribute("user.coredump.pid").c_str());
  notes.name = attribute("user.coredump.comm");
  return notes.signal > 0 ? std::optional(notes) : std::nullopt;
}

}  // namespace

std::optional<CoreNotes> ParseCore(std::string_view bytes) {
  Elf64_Ehdr header{};
  if (!Take(bytes, 0, &header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return std::nullopt;
  if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_type != ET_CORE) return std::nullopt;
  Elf64_Phdr segment{};
  for (size_t i = 0; i < header.e_phnum; ++i) {
    if (!Take(bytes, header.e_phoff + i * sizeof segment, &segment)) return std::nullopt;
    if (segment.p_type == PT_NOTE) break;
  }
  if (segment.p_type != PT_NOTE || segment.p_offset > bytes.size()) return std::nullopt;
  return ParseNotes(bytes.substr(segment.p_offset));
}

std::string CoreFolder(std::string_view pattern, const std::string& working) {
  pattern = pattern.substr(0, pattern.find('\n'));
  if (pattern.starts_with('|'))
    return pattern.find(COLLECTOR) == std::string_view::npos ? "" : COLLECTOR_FOLDER;
  const size_t slash = pattern.rfind('/');
  std::string folder(slash == std::string_view::npos ? "" : pattern.substr(0, slash + 1));
  if (folder.find('%') != std::string::npos || pattern.empty()) return "";
  if (folder.starts_with('/')) return folder;
  return working.empty() ? "" : working + "/" + folder;
}

std::optional<CoreFound> FindCore(const std::string& folder, std::string_view name, pid_t pid, time_t since) {
  const base::UniqueDir entries(::opendir(folder.c_str()));
  std::optional<CoreFound> newest;
  time_t best = since;
  const dirent* entry = nullptr;
  for (int i = 0; entries && i < MAX_ENTRIES && (entry = ::readdir(entries.get())) != nullptr; ++i) {
    struct stat status {};
    const base::UniqueFd file(std::strstr(entry->d_name, "core") == nullptr
                                  ? -1
                                  : ::openat(::dirfd(entries.get()), entry->d_name,
                                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.Valid() || ::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (status.st_mtime < best) continue;
    auto notes = CollectorsNotes(file.Get());
    if (!notes) notes = ParseCore(ReadDescriptor(file.Get(), HEAD_LIMIT).value_or(""));
    if (!notes || notes->name != name || (pid != 0 && notes->pid != pid)) continue;
    best = status.st_mtime;
    newest = CoreFound{folder + "/" + entry->d_name, *notes};
  }
  return newest;
}

}  // namespace ctl
