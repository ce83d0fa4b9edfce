#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <new>

#include "Tovik/alarms/email.h"
#include "Tovik/core/trace.h"
#include "base/owners.h"

base::Handover<EMAIL_LIST> gEmailLists;

namespace {

constexpr size_t COUNT_BLOCK = 65536;
constexpr char END_MARK = '\xFF';  // ends the counting of lines, as the end of the file does

// A file opened for reading. What is no regular file reads as empty: a pipe would block, a device never end.
class InputFile {
 public:
  explicit InputFile(const char* path) {
    base::UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    opened_ = fd.Valid();
    struct stat status {};
    if (!opened_ || ::fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    file_.reset(::fdopen(fd.Get(), "r"));
    if (file_ != nullptr) fd.Release();
  }
  bool Opened() const { return opened_; }
  // The next byte, or EOF.
  int Next() { return file_ == nullptr ? EOF : getc_unlocked(file_.get()); }
  // The next bytes, at most size of them; 0 at the end.
  size_t Read(char* out, size_t size) { return file_ == nullptr ? 0 : std::fread(out, 1, size, file_.get()); }

 private:
  base::UniqueFile file_;
  bool opened_ = false;
};

// The next word between white space; false at the end of the file.
bool NextWord(InputFile& input, std::string& word) {
  word.clear();
  int byte = input.Next();
  while (byte != EOF && std::isspace(byte)) byte = input.Next();
  if (byte == EOF) return false;
  for (; byte != EOF && !std::isspace(byte); byte = input.Next())
    if (word.size() < EMAIL_WORD) word.push_back(static_cast<char>(byte));
  return true;
}

void CreateMissing(const char* path) {
  if (::access(path, F_OK) == 0) return;
  // Not truncated: somebody else may write it at this moment.
  const base::UniqueFd fd(::open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666));
}

EMAIL_LIST ReadLists(const char* receiver_path, const char* reference_path, const char* blind_path) {
  EMAIL_LIST list;
  list.receiver_count = GetTotalLine(receiver_path);
  list.receivers = GetMailInfo(receiver_path, list.receiver_count);
  list.reference_count = GetTotalLine(reference_path);
  list.references = GetMailInfo(reference_path, list.reference_count);
  list.blind_count = GetTotalLine(blind_path);
  list.blinds = GetMailInfo(blind_path, list.blind_count);
  return list;
}

}  // namespace

void EMAIL_ENTRIES::Add(std::string_view name, std::string_view address) {
  for (const std::string_view word : {name, address}) {
    begins_.push_back(text_.size());
    text_.append(word).push_back('\0');
  }
}

EMAIL_ENTRIES::Entry EMAIL_ENTRIES::At(int64_t index) const {
  if (index < 0 || static_cast<uint64_t>(index) >= begins_.size() / 2) return {"", ""};
  const size_t name = static_cast<size_t>(index) * 2;
  return {text_.c_str() + begins_[name], text_.c_str() + begins_[name + 1]};
}

int GetEMailList(const char* receiver_path, const char* reference_path, const char* blind_path) {
  for (const char* path : {receiver_path, reference_path, blind_path}) CreateMissing(path);
  try {
    const EMAIL_LIST list = ReadLists(receiver_path, reference_path, blind_path);
    gEmailLists.Set(list);
    TRACE(TRACE_INFO, "Receiver Cnt [ %" PRId64 " ] Reference Cnt [ %" PRId64 " ] Blind Cnt [ %" PRId64 " ]",
          list.receiver_count, list.reference_count, list.blind_count);
    return 1;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

int64_t GetTotalLine(const char* path) {
  InputFile input(path);
  if (!input.Opened()) return -1;
  // By blocks: a day's result file is counted at the speed at which it is read.
  char block[COUNT_BLOCK];
  int64_t lines = 0;
  while (const size_t size = input.Read(block, sizeof block)) {
    const std::string_view bytes(block, std::min(size, std::string_view(block, size).find(END_MARK)));
    for (size_t at = bytes.find('\n'); at != std::string_view::npos; at = bytes.find('\n', at + 1)) ++lines;
    if (bytes.size() < size) break;
  }
  return lines;
}

std::shared_ptr<const EMAIL_ENTRIES> GetMailInfo(const char* path, int64_t count) {
  auto entries = std::make_shared<EMAIL_ENTRIES>();
  InputFile input(path);
  std::string name;
  std::string address;
  for (int64_t read = 0; read < count && NextWord(input, name); ++read) {
    NextWord(input, address);
    entries->Add(name, address);
  }
  return entries;
}

int EMailListFree(EMAIL_LIST list) {
  list = EMAIL_LIST();
  return 0;
}
