// The folder in which the tool keeps its records. The engine may run as the folder's owner, so its content is
// not trusted. No link is followed. Only regular files with a single name that belong to root, the folder's
// owner or the caller are opened. Every read is bounded.
#ifndef CTL_RECORD_FOLDER_H
#define CTL_RECORD_FOLDER_H

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "base/unique_handles.h"
#include "ctl/agent_config.h"

namespace ctl {

inline constexpr const char* LOCK_FILE = "lock";

class RecordFolder {
 public:
  enum class For { READING, WRITING };

  // The folder of one engine's records: "restarts-PROC_NAME" below the configuration's record folder. For
  // writing both are made when they are missing (by root for the user of the running agent), and refused when
  // they are not root's or ours, or anybody may write there. Nothing, with errno and what is wrong.
  static std::optional<RecordFolder> Open(const AgentConfig& config, For purpose, std::string* complaint);
  // Opens a folder by its path; does not create it.
  static std::optional<RecordFolder> OpenPath(const std::string& path, For purpose, std::string* complaint);

  // Opens a folder in it; for writing, creates it when missing. Returns nothing, with errno, on failure.
  std::optional<RecordFolder> Sub(const std::string& name, For purpose) const;
  const std::string& Path() const { return path_; }

  // Takes the folder's lock, which is held as long as the descriptor is open; keep it short. Returns an
  // invalid descriptor, with errno, when the lock is not free within a fifth of a second: a holder that is
  // stopped must not hold up others.
  base::UniqueFd Lock() const;
  // Locks an open file in the same way; false with errno.
  static bool LockFile(int fd);

  // Opens a file in it with these flags of open(2). A file that it creates belongs to the folder's owner.
  // Returns an invalid descriptor, with errno, on failure; EPERM means that it is not a file to be trusted.
  base::UniqueFd OpenFile(const std::string& name, int flags) const;
  // Reads the first limit bytes of a file. Returns nothing, with errno, on failure.
  std::optional<std::string> Read(const std::string& name, size_t limit) const;
  // Writes a new file and renames it into place. Returns 0, or -1 with errno and the old file as it was.
  int Replace(const std::string& name, const std::string& text) const;
  // Removes a file: 0, or -1 with errno.
  int Remove(const std::string& name) const;
  // The names of its entries with this ending, sorted.
  std::vector<std::string> Names(const std::string& ending) const;

 private:
  RecordFolder(base::UniqueFd fd, std::string path, uid_t owner)
      : fd_(std::move(fd)), path_(std::move(path)), owner_(owner) {}
  static std::optional<RecordFolder> Checked(base::UniqueFd fd, std::string path, For purpose);

  base::UniqueFd fd_;
  std::string path_;
  uid_t owner_;
};

// A process name as part of a file's name: letters, digits, "-" and "_" stay, other bytes become %XX.
std::string SafeName(std::string_view name);

}  // namespace ctl

#endif
