// What a chat service's answer to a post means.
#ifndef TOVIK_ALARMS_WEBHOOK_ANSWER_H
#define TOVIK_ALARMS_WEBHOOK_ANSWER_H

#include <string>
#include <string_view>

namespace alarms {

// Empty when the answer says that the post was taken; else the status and the answer's words, one line of at
// most 300 bytes: "429: slow down". Redirections are not followed, so they count as not taken. expected is
// the body with which the service confirms a post; when it is empty, any body will do.
std::string Denial(long status, std::string_view body, std::string_view expected);

}  // namespace alarms

#endif
