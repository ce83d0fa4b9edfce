#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "system/harness.h"

namespace harness {
namespace {

// Standard output or error of a child.
void Redirect(int target, const std::string& path, int flags) {
  const int fd = open(path.c_str(), flags | O_CLOEXEC, 0644);
  if (fd < 0 || dup2(fd, target) < 0) _exit(126);
}

[[noreturn]] void Execute(const Process::Options& options, std::vector<char*>& words, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(126);
  for (const std::string& entry : options.environment) {
    // The entries outlive the call: until execve.
    if (entry.find('=') != std::string::npos) {
      putenv(strdup(entry.c_str()));
    } else {
      unsetenv(entry.c_str());
    }
  }
  Redirect(0, "/dev/null", O_RDONLY);
  if (!options.out.empty()) Redirect(1, options.out, O_WRONLY | O_CREAT | O_APPEND);
  if (!options.err.empty()) Redirect(2, options.err, O_WRONLY | O_CREAT | O_APPEND);
  execv(options.program.c_str(), words.data());
  _exit(127);
}

std::string Field(const std::string& line, const std::string& name) {
  const std::string start = "\"" + name + "\": \"";
  const size_t from = line.find(start);
  if (from == std::string::npos) return {};
  const size_t begin = from + start.size();
  return line.substr(begin, line.find('"', begin) - begin);
}

std::vector<std::string> Joined(std::vector<std::string> first, const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace

bool WaitFor(const std::function<bool()>& condition, milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(milliseconds(10));
  }
  return true;
}

std::string ReadFile(const std::string& path) {
  const std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  // Not by iterators: those throw on a process that ends while its file in /proc is read.
  if (in) text << in.rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, std::string_view content, mode_t mode) {
  std::ofstream(path, std::ios::binary) << content;
  if (chmod(path.c_str(), mode) != 0) throw std::runtime_error("cannot write " + path);
}

size_t Count(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

Folder::Folder() {
  std::string pattern = std::filesystem::temp_directory_path().string() + "/agent test XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern + "/";
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Process::Process(const Options& options) {
  std::vector<char*> words;
  words.reserve(options.words.size() + 1);
  for (const std::string& word : options.words) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) Execute(options, words, parent);
}

Process::~Process() {
  if (pid_ < 0 || !Alive()) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

bool Process::Alive() {
  return Wait(milliseconds(0)) == -1;
}

void Process::Signal(int number) const {
  kill(pid_, number);
}

int Process::Wait(milliseconds limit) {
  WaitFor([this] { return status_ != -1 || waitpid(pid_, &status_, WNOHANG) != 0; }, limit);
  return status_;
}

Peer::Peer(const Folder& folder, const std::string& name, const std::string& script,
           const std::vector<std::string>& words)
    : out_(folder / (name + ".out")),
      process_({.program = "/usr/bin/python3",
                .words = Joined({"python3", PEERS_FOLDER "/" + script}, words),
                .out = out_,
                .err = folder / "peers.err"}) {
  const bool up = WaitFor([this] { return ReadFile(out_).ends_with('\n'); });
  if (!up) throw std::runtime_error(script + ": " + ReadFile(folder / "peers.err"));
  port_ = std::stoi(ReadFile(out_).substr(strlen("port ")));
}

ManagementServer::ManagementServer(const Folder& folder, const std::string& name,
                                   const std::string& behaviour, const std::string& interval)
    : Peer(folder, name, "mgmt_server.py",
           {"--record", folder / (name + ".jsonl"), "--behaviour", behaviour, "--interval", interval}),
      record_(folder / (name + ".jsonl")) {}

std::vector<Frame> ManagementServer::Frames() const {
  std::vector<Frame> frames;
  std::ifstream in(record_);
  for (std::string line; std::getline(in, line);) {
    if (Field(line, "event") != "frame") continue;
    const double time = std::stod(line.substr(line.find("\"time\": ") + strlen("\"time\": ")));
    frames.push_back({time, Field(line, "header"), Field(line, "body"), Field(line, "extra")});
  }
  return frames;
}

std::vector<Frame> ManagementServer::Reports() const {
  std::vector<Frame> reports = Frames();
  std::erase_if(reports, [](const Frame& frame) { return frame.body.starts_with("OPEN "); });
  return reports;
}

size_t ManagementServer::CountBodies(std::string_view prefix) const {
  size_t count = 0;
  for (const Frame& frame : Reports()) count += frame.body.starts_with(prefix) ? 1 : 0;
  return count;
}

DeadPort::DeadPort(Kind kind) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  // Bound and not listening: nobody else gets the port, and a connection is refused.
  const bool taken = bind(socket_.Get(), generic, size) == 0 &&
                     getsockname(socket_.Get(), generic, &size) == 0 &&
                     (kind == Kind::REFUSING || listen(socket_.Get(), SOMAXCONN) == 0);
  if (!taken) throw std::runtime_error("no port to be had");
  port_ = ntohs(address.sin_port);
}

bool DeadPort::Visited() const {
  pollfd waiting{socket_.Get(), POLLIN, 0};
  return poll(&waiting, 1, 0) == 1;
}

}  // namespace harness
