// What "check" judges by: the file, the values that the agent takes from it, the files that it names, the
// host. Rules look at nothing else.
#ifndef CTL_CHECK_FACTS_H
#define CTL_CHECK_FACTS_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/config_pieces.h"

namespace ctl {

// One key as the agent works with it.
struct Setting {
  std::string value;   // as the line has it
  std::string text;    // what became of it: paths made absolute; in figures for a number
  int64_t number = 0;  // of a text: its leading number
  bool is_number = false;
  bool is_option = false;  // a number that counts as absent beyond its bounds
  size_t line = 0;         // the line that counts; 0: the key is missing
};

// One management server, in the agent's table or beyond its end.
struct ServerLine {
  size_t line = 0;
  std::string key;
  std::string value;
  std::string address;
  int64_t port = 0;
};

// What the file system says of a path to the user who looks.
struct Look {
  std::string path;
  int error = 0;  // errno when it cannot be looked at; the rest then counts for nothing
  bool regular = false;
  bool folder = false;
  mode_t mode = 0;
  // errno of each access, 0: allowed.
  int read = 0;
  int write = 0;
  int execute = 0;
  // Whether files can be made in it (a folder that is missing: in the nearest one above): errno.
  int fill = 0;
  std::string text;  // of a recipient file
};

struct CertificateFacts {
  bool unusable = false;      // certificate and key together
  bool no_authority = false;  // the authorities' certificates
  std::optional<int64_t> days_left;
};

struct NamedProcess {
  pid_t pid;
  std::string name;
  bool agent;  // its program is the agent
};

struct HostFacts {
  int first_port = 0;  // of those that outgoing connections take
  int last_port = -1;
  bool hides_processes = false;
  std::vector<NamedProcess> named;  // processes with the engine's or the agent's name
  int64_t engine_pid_file = 0;      // the figure in SVC_PID_FILE
};

// The agent that runs with this file.
struct AgentFacts {
  bool running = false;
  pid_t pid = 0;
  std::time_t started = 0;
};

struct Facts {
  std::string file;
  mode_t mode = 0;
  std::time_t changed = 0;
  std::string user;
  bool as_user = true;  // false: nobody could look as that user
  bool root = false;    // the user is root
  std::vector<ConfigPiece> pieces;
  std::map<std::string, Setting, std::less<>> settings;  // every key of the agent
  std::vector<ServerLine> servers;
  std::map<std::string, Look, std::less<>> looks;  // by key, for those that name a file or folder
  CertificateFacts certificate;
  HostFacts host;
  AgentFacts agent;

  // Of a key that this agent does not know: missing, 0.
  const Setting& Of(std::string_view key) const;
  int64_t Number(std::string_view key) const { return Of(key).number; }
  const std::string& Text(std::string_view key) const { return Of(key).text; }
  const Look& LookAt(std::string_view key) const;
  bool Mails() const { return Number("SEND_EMAIL_CHECK") != 0; }
  bool Posts() const { return Number("SEND_WEBHOOK_CHECK") != 0; }
  // Mail leaves by MAIL_URL.
  bool ByUrl() const { return !Text("MAIL_URL").empty(); }
  // Lists are read by the line, and what cannot be used of them or attached is left out.
  bool SkipsBad() const { return Number("MAIL_SKIP_BAD") != 0; }
};

}  // namespace ctl

#endif
