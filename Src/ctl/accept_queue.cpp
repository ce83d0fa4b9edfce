#include "ctl/accept_queue.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <ctime>
#include <memory>

#include "sysinfo/listening_port.h"

namespace ctl {
namespace {

constexpr timeval ANSWER_LIMIT = {0, 200'000};

struct SocketCloser {
  void operator()(mnl_socket* socket) const { ::mnl_socket_close(socket); }
};
using DiagSocket = std::unique_ptr<mnl_socket, SocketCloser>;

struct Search {
  uint16_t port;
  AcceptQueue* queue;
};

int TakeSixOnly(const nlattr* attribute, void* data) {
  if (mnl_attr_get_type(attribute) == INET_DIAG_SKV6ONLY && mnl_attr_get_payload_len(attribute) >= 1)
    *static_cast<bool*>(data) = mnl_attr_get_u8(attribute) != 0;
  return MNL_CB_OK;
}

// Whether connections to 127.0.0.1 reach this listener: one of IPv6 takes them unless it is for IPv6 only.
bool TakesLoopback(const nlmsghdr* header, const inet_diag_msg* row) {
  const auto* words = row->id.idiag_src;
  if (row->idiag_family == AF_INET) return words[0] == htonl(INADDR_ANY) || ntohl(words[0]) >> 24 == 127;
  if ((words[0] | words[1] | words[2] | words[3]) != 0)
    return (words[0] | words[1]) == 0 && words[2] == htonl(0xffff) && ntohl(words[3]) >> 24 == 127;
  bool six_only = false;
  mnl_attr_parse(header, sizeof *row, TakeSixOnly, &six_only);
  return !six_only;
}

// For a listener, the "receive queue" is what waits and the "send queue" the backlog.
int TakeRow(const nlmsghdr* header, void* data) {
  const auto* search = static_cast<const Search*>(data);
  const auto* row = static_cast<const inet_diag_msg*>(mnl_nlmsg_get_payload(header));
  if (header->nlmsg_len < mnl_nlmsg_size(sizeof *row)) return MNL_CB_OK;
  if (ntohs(row->id.idiag_sport) != search->port) return MNL_CB_OK;
  AcceptQueue& queue = *search->queue;
  const bool loopback = TakesLoopback(header, row) || (queue.listening && queue.at_loopback);
  if (!queue.listening || row->idiag_rqueue >= queue.waiting)
    queue = {true, row->idiag_rqueue, row->idiag_wqueue, loopback};
  queue.at_loopback = loopback;
  return MNL_CB_OK;
}

bool Ask(mnl_socket* socket, uint8_t family) {
  std::array<char, 256> buffer{};
  nlmsghdr* header = mnl_nlmsg_put_header(buffer.data());
  header->nlmsg_type = SOCK_DIAG_BY_FAMILY;
  header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  header->nlmsg_seq = family;
  auto* request =
      static_cast<inet_diag_req_v2*>(mnl_nlmsg_put_extra_header(header, sizeof(inet_diag_req_v2)));
  request->sdiag_family = family;
  request->sdiag_protocol = IPPROTO_TCP;
  request->idiag_states = 1U << TCP_LISTEN;
  return mnl_socket_sendto(socket, header, header->nlmsg_len) >= 0;
}

bool Dump(mnl_socket* socket, uint8_t family, Search* search) {
  if (!Ask(socket, family)) return false;
  alignas(nlmsghdr) std::array<char, 8192> answer;
  int more = MNL_CB_OK;
  while (more == MNL_CB_OK) {
    const ssize_t got = mnl_socket_recvfrom(socket, answer.data(), answer.size());
    if (got <= 0) return false;
    more = mnl_cb_run(answer.data(), static_cast<size_t>(got), family, mnl_socket_get_portid(socket), TakeRow,
                      search);
  }
  return more == MNL_CB_STOP;
}

bool ReadBySockDiag(uint16_t port, AcceptQueue* queue) {
  const DiagSocket socket(mnl_socket_open2(NETLINK_SOCK_DIAG, SOCK_CLOEXEC));
  if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) return false;
  ::setsockopt(mnl_socket_get_fd(socket.get()), SOL_SOCKET, SO_RCVTIMEO, &ANSWER_LIMIT, sizeof ANSWER_LIMIT);
  Search search = {port, queue};
  const bool four = Dump(socket.get(), AF_INET, &search);
  const bool six = Dump(socket.get(), AF_INET6, &search);
  return four || six;
}

}  // namespace

std::optional<AcceptQueue> ReadAcceptQueue(uint16_t port) {
  AcceptQueue queue;
  if (ReadBySockDiag(port, &queue)) return queue;
  sysinfo::ListeningPort found;
  if (sysinfo::ReadListeningPort(port, &found) != 1) return std::nullopt;
  return AcceptQueue{found.listening, found.waiting, std::nullopt, true};
}

std::string AcceptQueueWords(int64_t port, const std::optional<AcceptQueue>& queue) {
  const std::string name = "port " + std::to_string(port);
  if (!queue) return name + " not known";
  if (!queue->listening) return name + " not listening";
  const std::string room = queue->room ? " of " + std::to_string(*queue->room) : "";
  return name + " listening, " + std::to_string(queue->waiting) + room + " waiting";
}

}  // namespace ctl
