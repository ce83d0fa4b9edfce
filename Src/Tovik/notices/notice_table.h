// What a notice can say: the sentence and the priority of each, in one table.
#ifndef TOVIK_NOTICES_NOTICE_TABLE_H
#define TOVIK_NOTICES_NOTICE_TABLE_H

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace notices {

// In a sentence, where a text stands: one that tells a notice from another, and one that does not (a time, a
// process id).
inline constexpr std::string_view NOTICE_TEXT = "{}";
inline constexpr std::string_view PASSING_NOTICE_TEXT = "{~}";

// How many texts a sentence takes.
constexpr size_t NoticeTextPlaces(std::string_view notice_sentence) {
  size_t notice_text_places = 0;
  for (size_t at = 0; at < notice_sentence.size(); ++at)
    if (notice_sentence.substr(at).starts_with(NOTICE_TEXT) ||
        notice_sentence.substr(at).starts_with(PASSING_NOTICE_TEXT))
      ++notice_text_places;
  return notice_text_places;
}

enum class Notice {
  NO_CONFIGURATION,
  BAD_KEY,
  ALREADY_RUNNING,
  NO_START,
  ENGINE_DEAD,
  NAME_MISSING,
  PORT_SILENT,
  SCRIPT_DONE,
  SCRIPT_FAILED,
  SCRIPT_LASTS,
  CHANNELS_UNWATCHED,
  MAIL_LOST,
  MAIL_REFUSED,
  MAIL_WITHOUT_FILE,
  POST_LOST,
  REPORT_LOST,
  BAD_RECIPIENTS
};

// sd-daemon(3). An error is something that nobody watches, starts or tells any more; a warning what may
// become one.
inline constexpr int ERROR = 3;
inline constexpr int WARNING = 4;
inline constexpr int NOTICE = 5;

struct NoticeRow {
  Notice notice;
  int priority;
  const char* sentence;
};
// clang-format off
inline constexpr NoticeRow NOTICES[] = {
    {Notice::NO_CONFIGURATION, ERROR, "The agent does not start: the configuration {} cannot be read: {}"},
    {Notice::BAD_KEY, ERROR, "The agent does not start: {} in {} {}"},
    {Notice::ALREADY_RUNNING, ERROR, "The agent does not start: process {} bears its name {} (WATCHDOG_NAME) already"},
    {Notice::NO_START, ERROR, "The agent does not start: {}"},
    {Notice::ENGINE_DEAD, ERROR, "The engine is dead: no process is named {} (PROC_NAME); {} is run"},
    {Notice::NAME_MISSING, ERROR, "No process is named {} (PROC_NAME), but port {} (ASR_PORT) listens: the name is "
        "wrong, or another program has the port; {} is run"},
    {Notice::PORT_SILENT, WARNING, "Process {~} is named {} (PROC_NAME), but port {} (ASR_PORT) {}: name or port may "
        "be wrong, or the engine does not come up"},
    {Notice::SCRIPT_DONE, NOTICE, "The start script {} ended with status 0 after {~} s"},
    {Notice::SCRIPT_FAILED, ERROR, "The start script {} {} after {~} s"},
    {Notice::SCRIPT_LASTS, ERROR, "The start script {} has not come back after {} s: until it does, the engine and "
        "its thresholds are not checked; it has to start the engine in the background"},
    {Notice::CHANNELS_UNWATCHED, WARNING, "The channels are not watched: port {} (ASR_PORT) did not answer {}"},
    {Notice::MAIL_LOST, ERROR, "The mail \"{~}\" was not delivered by {}: {}"},
    {Notice::MAIL_REFUSED, ERROR, "The mail server {} refused recipients of a mail that others got: {}"},
    {Notice::MAIL_WITHOUT_FILE, WARNING, "Mails go out without a file: {}"},
    {Notice::POST_LOST, ERROR, "The post \"{~}\" was not delivered to {}: {}"},
    {Notice::REPORT_LOST, ERROR, "A report was not delivered to the management server {}: {}"},
    {Notice::BAD_RECIPIENTS, ERROR, "The recipients' file {} {}"},
};
// clang-format on

constexpr const NoticeRow& NoticeRowOf(Notice notice) {
  return *std::find_if(std::begin(NOTICES), std::end(NOTICES),
                       [notice](const NoticeRow& row) { return row.notice == notice; });
}

}  // namespace notices

#endif
