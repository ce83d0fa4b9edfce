// What the operator's tool reads that others may have written: its records, cores, the kernel's texts, and
// whatever it shows.
#include "ctl/accept_queue.h"
#include "ctl/backoff.h"
#include "ctl/claim.h"
#include "ctl/core_file.h"
#include "ctl/evidence_parts.h"
#include "ctl/near_name.h"
#include "ctl/pause.h"
#include "ctl/process_table.h"
#include "ctl/restart_state.h"
#include "ctl/start_record.h"
#include "ctl/text.h"
#include "ctl/verdict.h"
#include "fuzz/fuzz.h"
#include "sysinfo/listening_port.h"

namespace {

using namespace ctl;

void CheckShown(const std::string& text) {
  const std::string shown = Shown(text);
  HOLDS(shown.size() <= SHOWN_BYTES);
  HOLDS(shown.find_first_of(std::string_view("\0\n\r\t\x1b\x7f", 6)) == shown.npos);
  HOLDS(ToUtf8(shown) == shown && Printable(shown, 2 * SHOWN_BYTES) == shown);
  HOLDS(DisplayWidth(Padded(shown, 40)) >= 40);
}

void CheckRecords(const std::string& text) {
  if (const auto record = ParseStartLine(text)) HOLDS(ParseStartLine(StartLine(*record)).has_value());
  const std::string state = StateText(ParseState(text));
  HOLDS(StateText(ParseState(state)) == state);
  const auto pause = ParsePause(text, {1000, 1000, "boot"});
  HOLDS(!pause || (pause->seconds_left > 0 && pause->seconds_left <= LONGEST_PAUSE));
  if (const auto claim = ParseClaim(text)) HOLDS(ClaimText(*claim) == text);
  const StartRow row = SeenDead(ParseState(text).row, {}, "boot", 5000);
  const int64_t wait = SecondsToWait(row, {}, 5000);
  HOLDS(wait >= 0 && wait <= BackoffRule{}.last);
}

}  // namespace

void fuzz_ctl(const std::string& text) {
  fuzz::Quickly(text, [&] { CheckShown(text); });
  CheckRecords(text);
  const auto core = ParseCore(text);
  HOLDS(!core || core->name.size() <= 16);
  const auto process = ParseProcessStat(text);
  HOLDS(!process || process->pid > 0);
  sysinfo::ListeningPort found;
  sysinfo::AddListeners(text, 9100, &found);
  HOLDS(MemoryGroupFolder(text, "/g").find("/../") == std::string::npos);
  UnitIn(text);
  ParseUnitWord("a.service", text);
  const std::string last = LastLines(text, 50);
  HOLDS(std::count(last.begin(), last.end(), '\n') <= 50);
  LastFigures(text);
  const std::string_view names[] = {"history", text};
  NearName(text, names);
}
