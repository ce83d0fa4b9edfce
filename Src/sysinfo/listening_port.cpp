#include "sysinfo/listening_port.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string>

#include "base/unique_handles.h"

namespace sysinfo {
namespace {

constexpr unsigned TCP_STATE_LISTEN = 0x0A;
constexpr size_t TCP_TABLE_CHUNK = 16384;
constexpr int TCP_ROW_FIELDS = 5;  // row number, local address, remote address, state, queues

struct TcpRow {
  uint32_t port;
  uint32_t state;
  uint32_t waiting;
};

// The hexadecimal number behind the last colon of a field.
std::optional<uint32_t> HexBehindColon(std::string_view field) {
  field.remove_prefix(field.rfind(':') + 1);
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number, 16);
  if (error != std::errc() || end != field.data() + field.size()) return std::nullopt;
  return number;
}

// Nothing for the headline and for a line that is cut.
std::optional<TcpRow> ParseTcpRow(std::string_view line) {
  std::array<std::string_view, TCP_ROW_FIELDS> fields;
  size_t at = 0;
  for (std::string_view& field : fields) {
    at = line.find_first_not_of(' ', at);
    if (at == std::string_view::npos) return std::nullopt;
    const size_t end = std::min(line.find(' ', at), line.size());
    field = line.substr(at, end - at);
    at = end;
  }
  const auto port = HexBehindColon(fields[1]);
  const auto state = HexBehindColon(fields[3]);
  const auto waiting = HexBehindColon(fields[4]);
  if (!port || !state || !waiting) return std::nullopt;
  return TcpRow{*port, *state, *waiting};
}

bool ReadTcpTable(const std::string& path, uint16_t port, ListeningPort* found) {
  const base::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.Valid()) return false;
  std::array<char, TCP_TABLE_CHUNK> chunk;
  size_t kept = 0;  // of a row that the last read cut
  while (true) {
    const ssize_t got = ::read(file.Get(), chunk.data() + kept, chunk.size() - kept);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return got == 0;
    const std::string_view text(chunk.data(), kept + static_cast<size_t>(got));
    const size_t whole = text.rfind('\n') + 1;
    if (!AddListeners(text.substr(0, whole), port, found)) return true;
    kept = text.size() - whole;
    if (kept == chunk.size()) return true;  // no such row is that long
    std::copy(text.begin() + static_cast<ptrdiff_t>(whole), text.end(), chunk.begin());
  }
}

}  // namespace

bool AddListeners(std::string_view text, uint16_t port, ListeningPort* found) {
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const auto row = ParseTcpRow(text.substr(at, end - at));
    at = end + 1;
    if (!row) continue;
    if (row->state != TCP_STATE_LISTEN) return false;
    if (row->port != port) continue;
    found->listening = true;
    found->waiting = std::max(found->waiting, row->waiting);
  }
  return true;
}

int ReadListeningPort(uint16_t port, ListeningPort* found, const char* proc_root) {
  const std::string folder = std::string(proc_root) + "/net/";
  *found = {};
  const bool four = ReadTcpTable(folder + "tcp", port, found);
  const bool six = ReadTcpTable(folder + "tcp6", port, found);
  return four || six ? 1 : 0;
}

}  // namespace sysinfo
