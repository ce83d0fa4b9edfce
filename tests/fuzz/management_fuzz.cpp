// A management server's replies. All bytes of the connection are sent at its start.
#include "DIOSVC/CDIOSVC.h"
#include "DIOSVC/frames.h"
#include "DIOSVC/report_types.h"
#include "fuzz/fuzz.h"
#include "support/support.h"

FUZZ_TARGET(text) {
  static const support::Listener listener;
  CDIOSVC service;
  HOLDS(service.initialize_svc(0, "127.0.0.1", listener.Port(), 0, "", -1) == 1);
  const base::UniqueFd peer = listener.Accept();
  support::Send(peer.Get(), text);
  ::shutdown(peer.Get(), SHUT_WR);

  const int32_t figures[] = {12, 40};
  const long result = service.DIO_SVC_PROC(REPORT_RESOURCE_USAGE, figures);
  const size_t open = text.find("OPEN_OK", frames::HEADER_SIZE);
  const bool acknowledged =
      open != text.npos && text.find("DATA_RECEIVE_OK", open + 7 + frames::HEADER_SIZE) != text.npos;
  HOLDS(result == -1 || (result == 1 && acknowledged));
}
