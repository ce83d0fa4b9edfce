#include <algorithm>
#include <string>

#include "ctl/status_forms.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr size_t TEXT_LIMIT = 1000;

// 'label'=value[unit];[warning];[critical];[minimum];[maximum]: empty ends are left out.
struct Datum {
  std::string label;
  std::optional<uint64_t> value;
  const char* unit = "";
  std::string warning;
  std::string critical;
  std::string maximum;
};

std::string DatumText(const Datum& datum) {
  std::string text = datum.label + "=" + std::to_string(*datum.value) + datum.unit + ";" + datum.warning +
                     ";" + datum.critical + ";0;" + datum.maximum;
  if (datum.maximum.empty()) text.pop_back();
  return text;
}

// The range that warns from this figure on: alone, N means 0 to N.
std::string From(int64_t figure) {
  return figure > 0 ? std::to_string(figure - 1) : "";
}

void AddPort(const Picture& seen, std::vector<Datum>* data) {
  const auto& queue = seen.port.queue;
  if (queue && queue->listening) {
    Datum waiting{"waiting", queue->waiting, "", "", "", ""};
    if (queue->room) {
      waiting.warning = From((int64_t{*queue->room} + 1) / 2);
      waiting.critical = std::to_string(*queue->room);
      waiting.maximum = std::to_string(uint64_t{*queue->room} + 1);
    }
    data->push_back(waiting);
  }
  if (seen.port.overflows) data->push_back({"overflows", seen.port.overflows, "c", "", "", ""});
}

void AddEngine(const Picture& seen, std::vector<Datum>* data) {
  const auto& engine = seen.engine.process;
  if (!engine || engine->Zombie()) return;
  data->push_back(
      {"uptime", static_cast<uint64_t>(std::max<time_t>(seen.time - engine->start, 0)), "s", "", "", ""});
  if (engine->rss)
    data->push_back(
        {"memory", engine->rss, "B", "", "", seen.host_memory ? std::to_string(*seen.host_memory) : ""});
  if (engine->threads) data->push_back({"threads", engine->threads, "", "", "", ""});
  if (engine->fds && engine->fd_limit)
    data->push_back({"descriptors", engine->fds, "",
                     From(static_cast<int64_t>(*engine->fd_limit - *engine->fd_limit / 10)), "",
                     std::to_string(*engine->fd_limit)});
}

void AddFigure(const char* label, const std::optional<Figure>& figure, std::vector<Datum>* data) {
  if (!figure || figure->value < 0) return;
  data->push_back({label, static_cast<uint64_t>(figure->value), "%", From(figure->limit), "", "100"});
}

std::string Data(const Picture& seen) {
  std::vector<Datum> data;
  AddPort(seen, &data);
  AddEngine(seen, &data);
  if (seen.log) {
    AddFigure("cpu", seen.log->cpu, &data);
    AddFigure("channels", seen.log->channels, &data);
  }
  if (seen.hang) data.push_back({"deaded", static_cast<uint64_t>(DeadedChecks(seen)), "", "0", "", ""});
  if (seen.restarts)
    data.push_back({"restarts_hour", static_cast<uint64_t>(seen.restarts->hour), "", "0", "", ""});
  std::string text;
  for (const Datum& datum : data) text += " " + DatumText(datum);
  return text.empty() ? "" : " |" + text;
}

}  // namespace

std::string StatusPlugin(const Picture& seen, const Findings& findings) {
  std::string text = VerdictText(seen, findings);
  for (size_t i = 1; i < findings.size(); ++i) text += "; " + findings[i].text;
  text = Printable(text, TEXT_LIMIT);
  std::replace(text.begin(), text.end(), '|', '/');  // it begins the data
  return std::string("DUNRASTT ") + VerdictName(WorstOf(findings)) + " - " + text + Data(seen) + "\n";
}

}  // namespace ctl
