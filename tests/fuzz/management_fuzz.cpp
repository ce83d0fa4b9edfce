// A management server's replies: everything that it sends in one connection is there from the beginning.
#include <cctype>

#include "DIOSVC/CDIOSVC.h"
#include "DIOSVC/frames.h"
#include "fuzz/fuzz.h"
#include "support/support.h"

namespace {

size_t AnnouncedLength(std::string_view header) {
  std::string_view digits = header.substr(9, 6);
  while (!digits.empty() && std::isspace(static_cast<unsigned char>(digits[0])) != 0) digits.remove_prefix(1);
  if (digits.starts_with('-')) return 0;
  if (digits.starts_with('+')) digits.remove_prefix(1);
  size_t length = 0;
  for (; !digits.empty() && std::isdigit(static_cast<unsigned char>(digits[0])) != 0;
       digits.remove_prefix(1)) {
    length = length * 10 + size_t(digits[0] - '0');
  }
  return length;
}

// Takes a reply off the stream; whether it is the one expected.
bool Acknowledges(std::string_view* stream, std::string_view expected) {
  if (stream->size() < frames::HEADER_SIZE) return false;
  const size_t length = AnnouncedLength(*stream);
  stream->remove_prefix(frames::HEADER_SIZE);
  if (stream->size() < length) return false;
  const bool result = stream->substr(0, length).starts_with(expected);
  stream->remove_prefix(length);
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const support::Listener listener;
  CDIOSVC service;
  HOLDS(service.initialize_svc(0, "127.0.0.1", listener.Port(), 0, "", -1) == 1);
  base::UniqueFd peer = listener.Accept();
  HOLDS(::send(peer.Get(), data, size, MSG_NOSIGNAL) == ssize_t(size));
  ::shutdown(peer.Get(), SHUT_WR);

  const int32_t figures[] = {12, 40};
  const long result = service.DIO_SVC_PROC(frames::REPORT_RESOURCE_USAGE, figures);
  const std::string text = fuzz::Text(data, size);
  std::string_view stream = text;
  const bool taken = Acknowledges(&stream, "OPEN_OK") && Acknowledges(&stream, "DATA_RECEIVE_OK");
  HOLDS(result == (taken ? 1 : -1));
  return 0;
}
