#include "ctl/pause.h"

#include <cerrno>

#include "ctl/duration.h"
#include "ctl/json_fields.h"
#include "ctl/output.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr const char* FILE_NAME = "pause";
constexpr size_t TEXT_LIMIT = 8192;
constexpr int64_t MS = 1000;

}  // namespace

std::optional<Pause> ParsePause(const std::string& text, const Moment& now) {
  const Json json = ParseObject(text);
  const auto until = NumberField(json, "until_ms");
  if (!until || TextField(json, "boot_id") != now.boot_id || now.boot_id.empty()) return std::nullopt;
  if (*until <= now.boot_ms || *until > now.boot_ms + LONGEST_PAUSE * MS) return std::nullopt;
  const int64_t left = (*until - now.boot_ms + MS - 1) / MS;
  return Pause{left, now.wall + left, Printable(TextField(json, "by").value_or("?")),
               Printable(TextField(json, "reason").value_or("?"))};
}

std::optional<Pause> ReadPause(const RecordFolder& folder, const Moment& now) {
  const auto text = folder.Read(FILE_NAME, TEXT_LIMIT);
  return text ? ParsePause(*text, now) : std::nullopt;
}

std::string PauseWords(const Pause& pause) {
  return "paused by " + pause.by + " until " + LocalTime(pause.until, "%H:%M:%S") + " (" +
         DurationWords(pause.seconds_left) + " left): " + pause.reason;
}

int WritePause(const RecordFolder& folder, const Moment& now, int64_t seconds, const std::string& by,
               const std::string& reason) {
  Json json = JsonObject();
  json["boot_id"] = now.boot_id;
  json["until_ms"] = now.boot_ms + seconds * MS;
  json["by"] = by;
  json["reason"] = reason;
  return folder.Replace(FILE_NAME, JsonText(json) + "\n");
}

int RemovePause(const RecordFolder& folder) {
  if (folder.Remove(FILE_NAME) == 0) return 1;
  return errno == ENOENT ? 0 : -1;
}

}  // namespace ctl
