// The folder in which the tool keeps what it records. The engine may run as the folder's owner, so what lies
// there is a claim: no link is followed, what is no regular file of root or of the folder's owner with one
// name is not touched, and every read is bounded.
#ifndef CTL_RECORD_FOLDER_H
#define CTL_RECORD_FOLDER_H

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "base/owners.h"
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
  // A folder by its path, not made.
  static std::optional<RecordFolder> OpenPath(const std::string& path, For purpose, std::string* complaint);

  // A folder in it; for writing it is made. Nothing with errno.
  std::optional<RecordFolder> Sub(const std::string& name, For purpose) const;
  const std::string& Path() const { return path_; }

  // Its lock, for as long as the descriptor lives; meant for a moment. Invalid with errno when it was not to
  // be had within a fifth of a second: whoever is stopped while he holds it must hold up nobody.
  base::UniqueFd Lock() const;
  // The same on a file of ours.
  static bool LockFile(int fd);

  // A file in it, by the flags of open(2); one that is made belongs to the folder's owner. Invalid with errno
  // (EPERM: it is not what it should be).
  base::UniqueFd OpenFile(const std::string& name, int flags) const;
  // The first limit bytes; nothing with errno.
  std::optional<std::string> Read(const std::string& name, size_t limit) const;
  // Puts a file in its place as a whole: 0, or -1 with errno and the old one as it was.
  int Replace(const std::string& name, const std::string& text) const;
  int Remove(const std::string& name) const;
  // Names of its entries that end with this, in order.
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
