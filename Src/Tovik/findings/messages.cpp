#include "Tovik/findings/messages.h"

#include "base/format.h"

std::string RestartMessage(const char* process) {
  return base::Format("%s is Die and Restart", process);
}

std::string OverMessage(const char* process, const char* what, int figure, int limit) {
  return base::Format("%s System %s[%d %%] Config %s[%d %%] is check", process, what, figure, what, limit);
}

std::string HangMessage(const char* process, const char* verdict, int64_t times) {
  return base::Format("%s health check : %s, %lld in a row", process, verdict, static_cast<long long>(times));
}
