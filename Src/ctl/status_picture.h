// What `status` saw of the agent and its engine. An empty optional is not known.
#ifndef CTL_STATUS_PICTURE_H
#define CTL_STATUS_PICTURE_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "ctl/accept_queue.h"
#include "ctl/agent_config.h"
#include "ctl/pause.h"

namespace ctl {

struct ProcessSeen {
  pid_t pid = 0;
  char state = ' ';  // the kernel's letter
  time_t start = 0;
  std::string user;
  std::optional<uint64_t> rss;  // bytes
  std::optional<uint64_t> threads;
  std::optional<uint64_t> fds;
  std::optional<uint64_t> fd_limit;
  bool Zombie() const { return state == 'Z' || state == 'X'; }
  bool Stopped() const { return state == 'T' || state == 't'; }
};

struct AgentPicture {
  bool known = false;                  // one was found, or it is certain that there is none
  std::optional<ProcessSeen> process;  // empty: it does not run
  std::optional<pid_t> file_pid;       // the pid in its PID file
  std::string file_name;               // name of another process that has this pid now; empty: none
  std::optional<bool> config_newer;
  time_t config_time = 0;
};

struct EnginePicture {
  bool known = false;
  std::optional<ProcessSeen> process;  // a living one before a zombie; empty: none
  std::optional<pid_t> file_pid;
};

struct PortPicture {
  std::optional<AcceptQueue> queue;
  std::optional<uint32_t> second_look;  // connections waiting a moment later
  std::optional<uint64_t> overflows;    // of all listeners of this host since its boot
};

// A figure in the agent's log, with the threshold beside it.
struct Figure {
  int64_t value = 0;
  int64_t limit = 0;
  time_t time = 0;
};

// The last alarm that went to people.
struct Told {
  time_t time = 0;
  std::string what;  // "Cpu Check"
  bool mail = false;
  bool chat = false;
};

// A destination whose last delivery failed.
struct Undelivered {
  std::string channel;      // mail, chat, server
  std::string destination;  // ADDRESS:PORT of a server
  std::string reason;
  time_t since = 0;  // time of the first failure in a row
};

struct MainLogPicture {
  std::optional<Figure> cpu;
  std::optional<Figure> memory;
  std::optional<Figure> channels;
  std::optional<bool> channels_watched;
  std::optional<Told> told;
  std::vector<Undelivered> undelivered;
  std::vector<time_t> restarts;
  time_t first = 0;  // times of the first and last line read; 0: none
  time_t last = 0;
};

struct HangPicture {
  std::string last;  // "alived", "deaded - disconnect", "deaded - process"
  time_t time = 0;
  time_t since = 0;  // time of the first such line in a row
  int64_t in_a_row = 0;
  bool Deaded() const { return last.starts_with("deaded"); }
};

struct RestartsPicture {
  int64_t hour = 0;
  int64_t day = 0;
  bool whole = false;  // a full day was read; false: there may be more restarts
  time_t last = 0;     // 0: none
  std::string verdict;
  std::string evidence;
};

struct NotKnown {
  std::string what;
  std::string why;
};

struct Picture {
  time_t time = 0;
  std::string host;
  std::optional<AgentConfig> config;
  AgentPicture agent;
  EnginePicture engine;
  PortPicture port;
  std::optional<uint64_t> host_memory;  // bytes
  std::optional<MainLogPicture> log;
  std::vector<Undelivered> servers;
  std::optional<HangPicture> hang;
  std::optional<RestartsPicture> restarts;
  std::optional<Pause> pause;
  std::string record_hidden;        // why record and pause cannot be read; empty: they can
  std::vector<NotKnown> not_known;  // what the verdict had to do without
};

}  // namespace ctl

#endif
