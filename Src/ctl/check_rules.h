// The rules of "check": what is wrong with a configuration, and what that will cause.
#ifndef CTL_CHECK_RULES_H
#define CTL_CHECK_RULES_H

#include <cstddef>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/check_facts.h"

namespace ctl {

// An error keeps the engine from being watched or started, or an alarm from leaving; a warning may; a note is
// worth knowing.
enum class Level { ERROR, WARNING, NOTE };
const char* LevelName(Level level);

struct CheckFinding {
  const char* id;
  Level level;
  std::string file;  // the configuration, or a file that it names
  size_t line;       // 0: none
  std::string key;   // empty: none
  std::string text;  // UTF-8, fit to be shown
};

class Hits;

struct Rule {
  const char* id;
  Level level;
  const char* sentence;  // each {} takes the next word of a hit
  void (*judge)(const Facts& facts, Hits* hits);
};

// Collects what a rule finds.
class Hits {
 public:
  Hits(const Rule& rule, std::string file, std::vector<CheckFinding>* findings)
      : rule_(rule), file_(std::move(file)), findings_(findings) {}
  // The words replace the {} of the rule's sentence, made fit to be shown (Shown in text.h).
  void Add(size_t line, std::string_view key, std::initializer_list<std::string_view> words);
  // The same for a line of another file.
  void AddIn(const std::string& file, size_t line, std::string_view key,
             std::initializer_list<std::string_view> words);

 private:
  const Rule& rule_;
  std::string file_;
  std::vector<CheckFinding>* findings_;
};

// The tables of rules, one per subject.
extern const std::span<const Rule> LINE_RULES;
extern const std::span<const Rule> PATH_RULES;
extern const std::span<const Rule> VALUE_RULES;
extern const std::span<const Rule> CHANNEL_RULES;
extern const std::span<const Rule> RECIPIENT_RULES;

// Everything that the rules find: first by line of the configuration, then what has no line, then other
// files.
std::vector<CheckFinding> Judge(const Facts& facts);

}  // namespace ctl

#endif
