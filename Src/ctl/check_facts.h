// What "check" judges: the configuration file, the values that the agent takes from it, the files that it
// names, the host. The rules look at nothing else.
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
  std::string text;    // the value in use: a path made absolute, a number in digits
  int64_t number = 0;  // the value in use; of a text, the number that it begins with
  bool is_number = false;
  bool is_option = false;  // a number out of its bounds counts as absent
  size_t line = 0;         // the line that counts; 0: the key is missing
};

// The line of one management server, also of one too many for the agent's table.
struct ServerLine {
  size_t line = 0;
  std::string key;
  std::string value;
  std::string address;
  int64_t port = 0;
};

// What the user who runs the check sees at a path.
struct Look {
  std::string path;
  int error = 0;  // errno when it cannot be examined; only path and fill are valid then
  bool regular = false;
  bool folder = false;
  mode_t mode = 0;
  // errno of each kind of access; 0: allowed.
  int read = 0;
  int write = 0;
  int execute = 0;
  // errno of creating a file in it, or of creating the path itself when it is missing; 0: allowed.
  int fill = 0;
  std::string text;  // of a recipient file
};

struct CertificateFacts {
  bool unusable = false;             // certificate and key cannot be used together
  bool no_authority = false;         // the authorities' certificates cannot be loaded
  std::optional<int64_t> days_left;  // a part of a day counts as one; below 0: expired
};

struct NamedProcess {
  pid_t pid;
  std::string name;
  bool agent;  // its program is the agent
};

struct HostFacts {
  int first_port = 0;  // the range of ports for outgoing connections
  int last_port = -1;
  bool hides_processes = false;
  std::vector<NamedProcess> named;  // processes with the engine's or the agent's name
  int64_t engine_pid_file = 0;      // the number in SVC_PID_FILE
  bool port_listens = false;        // ASR_PORT
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
  bool as_user = true;  // false: the check could not run as that user
  bool root = false;    // the user is root
  std::vector<ConfigPiece> pieces;
  std::map<std::string, Setting, std::less<>> settings;  // every key of the agent
  std::vector<ServerLine> servers;
  std::map<std::string, Look, std::less<>> looks;  // by key, for those that name a file or folder
  CertificateFacts certificate;
  HostFacts host;
  AgentFacts agent;

  // For a key that this agent does not know: an empty setting, number 0.
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
