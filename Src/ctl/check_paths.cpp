// Rules on paths, and on the files and folders that they name.
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include "ctl/check_rules.h"

namespace ctl {
namespace {

constexpr const char* MAIL_LOST = "the mail about a restart would not be sent";
constexpr const char* MAIL_WITHOUT = "the mail about a restart would go without it";

bool Restarts(const Facts& facts) {
  return facts.Number("RESTART_CHECK") != 0;
}
bool MailsRestarts(const Facts& facts) {
  return Restarts(facts) && facts.Mails();
}
bool NeedsAttachment(const Facts& facts) {
  return MailsRestarts(facts) && !facts.SkipsBad();
}
bool SparesAttachment(const Facts& facts) {
  return MailsRestarts(facts) && facts.SkipsBad();
}
bool Mails(const Facts& facts) {
  return facts.Mails();
}
bool LooksForHangs(const Facts& facts) {
  return facts.Number("HANG_SAVE") != 0;
}
bool KeepsLog(const Facts& facts) {
  return facts.Number("WATCH_SAVE") != 0 && facts.Number("LOG_LEVEL") > 0;
}
bool ReadsResults(const Facts& facts) {
  return facts.Number("RESULT_CHECK") != 0 || facts.Number("LOG_CHECK_MIN") > 0;
}
bool Extracts(const Facts& facts) {
  return facts.Number("LOG_CHECK_MIN") > 0;
}
bool Always(const Facts& /*facts*/) {
  return true;
}

// A key that names a file or a folder: when it is used, and what a wrong one causes.
struct PathRow {
  const char* key;
  const char* base;
  bool folder;
  bool essential;  // a wrong one is an error
  bool (*used)(const Facts& facts);
  const char* consequence;
};
constexpr PathRow PATHS[] = {
    {"SHELL_FILE", "BASE_PATH", false, true, Restarts, "no engine is ever started"},
    {"CFG_FILE", "BASE_PATH", false, true, NeedsAttachment, MAIL_LOST},
    {"CFG_FILE", "BASE_PATH", false, false, SparesAttachment, MAIL_WITHOUT},
    {"SVC_PID_FILE", "BASE_PATH", false, true, LooksForHangs, "the hang log calls every engine dead"},
    {"ADM_PID_FILE", "BASE_PATH", false, false, Always, "the agent's process id is written nowhere"},
    {"RECEIVER_FILE", "BASE_PATH", false, true, Mails, "nobody on that list gets a mail"},
    {"REFERENCE_FILE", "BASE_PATH", false, true, Mails, "nobody on that list gets a mail"},
    {"BLIND_FILE", "BASE_PATH", false, true, Mails, "nobody on that list gets a mail"},
    {"WATCH_PATH", "DEBUG_PATH", true, false, KeepsLog, "the log goes there"},
    {"HANG_PATH", "DEBUG_PATH", true, false, LooksForHangs, "the hang log goes there"},
    {"TXT_PATH", "DEBUG_PATH", true, true, ReadsResults, "the engine's results and errors are not found"},
};

// A key whose file or folder the agent writes, and what happens when it cannot.
struct FolderRow {
  const char* key;
  bool (*used)(const Facts& facts);
  const char* consequence;
};
constexpr FolderRow FOLDERS[] = {
    {"WATCH_PATH", KeepsLog, "there would be no log"},
    {"HANG_PATH", LooksForHangs, "there would be no hang log"},
    {"TXT_PATH", Extracts, "no error line of the engine would be told"},
    {"ADM_PID_FILE", Always, "the agent's process id would be written nowhere"},
};

bool Given(const Facts& facts, const PathRow& row) {
  return facts.Of(row.key).line != 0 && row.used(facts);
}

std::string Reason(int error, const Facts& facts) {
  std::string text = std::strerror(error);
  text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return error == EACCES || error == EPERM ? text + " for user " + facts.user : text;
}

// Paths that begin with neither "/" nor ".": the agent uses the base folder instead. Keys without a value
// have a rule of their own.
void Replaced(const Facts& facts, Hits* hits, bool essential) {
  for (const PathRow& row : PATHS) {
    const Setting& path = facts.Of(row.key);
    if (!Given(facts, row) || row.essential != essential) continue;
    const char first = path.value.empty() ? '\n' : path.value[0];
    if (first == '/' || first == '.' || first == '\n' || first == '\r') continue;
    hits->Add(path.line, row.key, {row.key, path.value, path.text, row.consequence});
  }
}
void ReplacedFiles(const Facts& facts, Hits* hits) {
  Replaced(facts, hits, true);
}
void ReplacedFolders(const Facts& facts, Hits* hits) {
  Replaced(facts, hits, false);
}

void OtherDots(const Facts& facts, Hits* hits) {
  for (const PathRow& row : PATHS) {
    const Setting& path = facts.Of(row.key);
    if (Given(facts, row) && path.value.starts_with('.') && !path.value.starts_with("./"))
      hits->Add(path.line, row.key, {row.key, path.value, path.text});
  }
}

void BasesWithoutSlash(const Facts& facts, Hits* hits) {
  for (const char* name : {"BASE_PATH", "DEBUG_PATH"}) {
    const Setting& base = facts.Of(name);
    if (base.text.empty() || base.text.ends_with('/')) continue;
    for (const PathRow& row : PATHS) {
      const Setting& path = facts.Of(row.key);
      if (!Given(facts, row) || std::string_view(row.base) != name || !path.value.starts_with("./")) continue;
      hits->Add(base.line, name, {name, base.text, row.key, path.text});
      break;
    }
  }
}

void FoldersWithoutSlash(const Facts& facts, Hits* hits) {
  for (const PathRow& row : PATHS) {
    const Setting& path = facts.Of(row.key);
    if (row.folder && Given(facts, row) && !path.text.ends_with('/'))
      hits->Add(path.line, row.key, {row.key, path.text, path.text});
  }
}

void RelativePaths(const Facts& facts, Hits* hits) {
  for (const PathRow& row : PATHS) {
    const Setting& path = facts.Of(row.key);
    if (row.used(facts) && !path.text.starts_with('/')) hits->Add(path.line, row.key, {row.key, path.text});
  }
}

void StartScript(const Facts& facts, Hits* hits) {
  if (!Restarts(facts)) return;
  const Setting& path = facts.Of("SHELL_FILE");
  const Look& look = facts.LookAt("SHELL_FILE");
  if (look.error != 0) {
    hits->Add(path.line, "SHELL_FILE", {path.text, Reason(look.error, facts)});
  } else if (!look.regular) {
    hits->Add(path.line, "SHELL_FILE", {path.text, "it is no file"});
  } else if ((look.mode & 0111) == 0) {
    hits->Add(path.line, "SHELL_FILE", {path.text, "it is not executable"});
  } else if (look.execute != 0) {
    hits->Add(path.line, "SHELL_FILE", {path.text, Reason(look.execute, facts)});
  }
}

void OpenStartScript(const Facts& facts, Hits* hits) {
  const Look& look = facts.LookAt("SHELL_FILE");
  if (Restarts(facts) && look.error == 0 && look.regular && (look.mode & S_IWOTH) != 0)
    hits->Add(facts.Of("SHELL_FILE").line, "SHELL_FILE", {look.path, facts.user});
}

// Why the file cannot be attached, empty when it can.
std::string AttachmentFault(const Facts& facts) {
  const Setting& path = facts.Of("CFG_FILE");
  const Look& look = facts.LookAt("CFG_FILE");
  const int error = look.error != 0 ? look.error : look.read;
  if (error != 0) return Reason(error, facts);
  return look.regular ? "" : path.text + " is no file";
}

void Attachment(const Facts& facts, Hits* hits) {
  if (!MailsRestarts(facts)) return;
  const Setting& path = facts.Of("CFG_FILE");
  // The folder alone is how a mail goes without one.
  if (facts.SkipsBad() && (path.line == 0 || path.text == facts.Text("BASE_PATH"))) return;
  const std::string fault = AttachmentFault(facts);
  const std::string name = path.text.substr(path.text.rfind('/') + 1);
  if (!fault.empty()) {
    hits->Add(path.line, "CFG_FILE", {fault, facts.SkipsBad() ? MAIL_WITHOUT : MAIL_LOST});
  } else if (!facts.ByUrl() && name.find_first_of("'\"") != std::string::npos) {
    hits->Add(path.line, "CFG_FILE", {"a quote in the file's name", MAIL_LOST});
  }
}

void Unwritable(const Facts& facts, Hits* hits) {
  for (const FolderRow& row : FOLDERS) {
    const Look& look = facts.LookAt(row.key);
    if (!row.used(facts) || look.path.empty() || look.fill == 0) continue;
    hits->Add(facts.Of(row.key).line, row.key,
              {row.key, look.path, Reason(look.fill, facts), row.consequence});
  }
}

constexpr Rule RULES[] = {
    {"path-replaced", Level::ERROR, "{} {}: without \"./\" it became the folder {}; {}", ReplacedFiles},
    {"folder-replaced", Level::WARNING, "{} {}: without \"./\" it became the folder {}; {}", ReplacedFolders},
    {"path-dots", Level::WARNING, "{} {}: the base took the place of its first two characters, it became {}",
     OtherDots},
    {"base-slash", Level::WARNING, "{} {} does not end with \"/\": {} became {}", BasesWithoutSlash},
    {"folder-slash", Level::WARNING,
     "{} {} does not end with \"/\": its dated folders are {}20260131 and the like", FoldersWithoutSlash},
    {"path-relative", Level::WARNING,
     "{}: \"{}\" is looked for in the folder in which the agent happens to run", RelativePaths},
    {"start-script", Level::ERROR, "SHELL_FILE {}: {}; no engine is ever started", StartScript},
    {"start-script-open", Level::WARNING,
     "SHELL_FILE {} may be written by everybody, who can so run anything as user {}", OpenStartScript},
    {"attachment", Level::WARNING, "CFG_FILE: {}; {}", Attachment},
    {"folder-unwritable", Level::WARNING, "{} {}: {}; {}", Unwritable},
};

}  // namespace

const std::span<const Rule> PATH_RULES = RULES;

}  // namespace ctl
