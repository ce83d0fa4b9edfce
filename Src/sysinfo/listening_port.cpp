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
  uint32_t local_port;
  uint32_t tcp_state;
  uint32_t accept_queue;
};

// The hexadecimal number behind the last colon of a field.
std::optional<uint32_t> HexBehindColon(std::string_view tcp_field) {
  tcp_field.remove_prefix(tcp_field.rfind(':') + 1);
  uint32_t hex = 0;
  const auto [hex_end, hex_error] =
      std::from_chars(tcp_field.data(), tcp_field.data() + tcp_field.size(), hex, 16);
  if (hex_error != std::errc() || hex_end != tcp_field.data() + tcp_field.size()) return std::nullopt;
  return hex;
}

// Nothing for the headline and for a line that is cut.
std::optional<TcpRow> ParseTcpRow(std::string_view tcp_line) {
  std::array<std::string_view, TCP_ROW_FIELDS> tcp_fields;
  size_t tcp_field_start = 0;
  for (std::string_view& tcp_field : tcp_fields) {
    tcp_field_start = tcp_line.find_first_not_of(' ', tcp_field_start);
    if (tcp_field_start == std::string_view::npos) return std::nullopt;
    const size_t field_end = std::min(tcp_line.find(' ', tcp_field_start), tcp_line.size());
    tcp_field = tcp_line.substr(tcp_field_start, field_end - tcp_field_start);
    tcp_field_start = field_end;
  }
  const auto local_port = HexBehindColon(tcp_fields[1]);
  const auto tcp_state = HexBehindColon(tcp_fields[3]);
  const auto accept_queue = HexBehindColon(tcp_fields[4]);
  if (!local_port || !tcp_state || !accept_queue) return std::nullopt;
  return TcpRow{*local_port, *tcp_state, *accept_queue};
}

bool ReadTcpTable(const std::string& table_path, uint16_t port, ListeningPort* port_found) {
  const base::UniqueFd tcp_table(::open(table_path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!tcp_table.Valid()) return false;
  std::array<char, TCP_TABLE_CHUNK> table_chunk;
  size_t cut_row_size = 0;  // of a row that the last read cut
  while (true) {
    const size_t table_room = table_chunk.size() - cut_row_size;
    const ssize_t table_bytes = ::read(tcp_table.Get(), table_chunk.data() + cut_row_size, table_room);
    if (table_bytes < 0 && errno == EINTR) continue;
    if (table_bytes <= 0) return table_bytes == 0;
    const std::string_view tcp_rows(table_chunk.data(), cut_row_size + static_cast<size_t>(table_bytes));
    const size_t whole_rows_size = tcp_rows.rfind('\n') + 1;
    if (!AddListeners(tcp_rows.substr(0, whole_rows_size), port, port_found)) return true;
    cut_row_size = tcp_rows.size() - whole_rows_size;
    if (cut_row_size == table_chunk.size()) return true;  // no such row is that long
    std::copy(tcp_rows.begin() + static_cast<ptrdiff_t>(whole_rows_size), tcp_rows.end(),
              table_chunk.begin());
  }
}

}  // namespace

bool AddListeners(std::string_view tcp_rows, uint16_t port, ListeningPort* port_found) {
  for (size_t row_start = 0; row_start < tcp_rows.size();) {
    const size_t row_end = std::min(tcp_rows.find('\n', row_start), tcp_rows.size());
    const auto tcp_row = ParseTcpRow(tcp_rows.substr(row_start, row_end - row_start));
    row_start = row_end + 1;
    if (!tcp_row) continue;
    if (tcp_row->tcp_state != TCP_STATE_LISTEN) return false;
    if (tcp_row->local_port != port) continue;
    port_found->listening = true;
    port_found->waiting = std::max(port_found->waiting, tcp_row->accept_queue);
  }
  return true;
}

int ReadListeningPort(uint16_t port, ListeningPort* port_found, const char* proc_root) {
  const std::string tcp_folder = std::string(proc_root) + "/net/";
  *port_found = {};
  const bool tcp4_read = ReadTcpTable(tcp_folder + "tcp", port, port_found);
  const bool tcp6_read = ReadTcpTable(tcp_folder + "tcp6", port, port_found);
  return tcp4_read || tcp6_read ? 1 : 0;
}

}  // namespace sysinfo
