#include "ctl/tool.h"

#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>

#include "ctl/commands.h"
#include "ctl/near_name.h"
#include "ctl/output.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr int FIRST_ROW = 1000;  // what getopt_long returns for our first row
constexpr size_t NAME_COLUMNS = 12;
constexpr size_t OPTION_COLUMNS = 24;

std::vector<Option> WithCommon(std::span<const Option> own) {
  std::vector<Option> rows(CommonOptions().begin(), CommonOptions().end());
  rows.insert(rows.end(), own.begin(), own.end());
  return rows;
}

// The rows in the form that getopt_long takes.
struct GetoptTables {
  std::string letters;
  std::vector<option> names;

  GetoptTables(std::span<const Option> rows, bool stopAtWord) : letters(stopAtWord ? "+:" : ":") {
    for (size_t i = 0; i < rows.size(); ++i) {
      const bool takes = rows[i].argument != nullptr;
      names.push_back(
          {rows[i].name, takes ? required_argument : no_argument, nullptr, FIRST_ROW + static_cast<int>(i)});
      if (rows[i].letter == 0) continue;
      letters += rows[i].letter;
      if (takes) letters += ':';
    }
    names.push_back({});
  }
};

std::string OptionComplaint(std::span<const Option> rows, int result, const char* word) {
  if (result == ':') return "option " + Shown(word) + " lacks its argument";
  if (optopt >= FIRST_ROW)
    return "option --" + std::string(rows[optopt - FIRST_ROW].name) + " takes no argument";
  if (optopt != 0) return "no option -" + Shown(std::string(1, static_cast<char>(optopt)));
  const std::string_view written = std::string_view(word).substr(2);
  std::vector<std::string_view> names;
  for (const Option& row : rows) names.emplace_back(row.name);
  const std::string_view near = NearName(written.substr(0, written.find('=')), names);
  return "no option " + Shown(word) + (near.empty() ? "" : ", --" + std::string(near) + "?");
}

const Option& RowOf(std::span<const Option> rows, int result) {
  if (result >= FIRST_ROW) return rows[static_cast<size_t>(result - FIRST_ROW)];
  return *std::find_if(rows.begin(), rows.end(), [&](const Option& row) { return row.letter == result; });
}

void Take(const Option& row, Parsed* parsed) {
  const std::string_view name = row.name;
  if (name == "config") {
    parsed->call.config = optarg;
  } else if (name == "json") {
    parsed->call.json = true;
  } else if (name == "help") {
    parsed->help = true;
  } else if (name == "version") {
    parsed->version = true;
  } else {
    parsed->call.given.emplace_back(name, optarg == nullptr ? "" : optarg);
  }
}

// Reads the options: those before the first word (stopAtWord), or all. Returns the index of the first word
// that is not an option.
int TakeOptions(int argc, char** argv, std::span<const Option> rows, bool stopAtWord, Parsed* parsed) {
  const GetoptTables tables(rows, stopAtWord);
  optind = 0;
  opterr = 0;
  int result = 0;
  while ((result = getopt_long(argc, argv, tables.letters.c_str(), tables.names.data(), nullptr)) != -1) {
    if (result == '?' || result == ':') {
      if (parsed->complaint.empty()) parsed->complaint = OptionComplaint(rows, result, argv[optind - 1]);
    } else {
      Take(RowOf(rows, result), parsed);
    }
  }
  return optind;
}

std::string Rows(std::span<const Option> rows) {
  std::string text;
  for (const Option& row : rows) {
    std::string names = row.letter != 0 ? std::string("-") + row.letter + ", " : "    ";
    names += std::string("--") + row.name;
    if (row.argument != nullptr) names += std::string(" ") + row.argument;
    text += "  " + Padded(names, OPTION_COLUMNS) + "  " + row.help + "\n";
  }
  return text;
}

int Complaint(const Parsed& parsed) {
  Complain(parsed.complaint);
  const std::string command = parsed.command == nullptr ? "" : std::string(" ") + parsed.command->name;
  Complain("see dunrasttctl" + command + " --help");
  return CANNOT_TELL;
}

int Run(int argc, char** argv) {
  const Parsed parsed = ParseCommandLine(argc, argv);
  if (parsed.version) {
    Print(std::string("dunrasttctl ") + VERSION + "\n");
    return ALL_WELL;
  }
  if (parsed.help) {
    Print(parsed.command == nullptr ? HelpText() : HelpText(*parsed.command));
    return ALL_WELL;
  }
  const Command* command = parsed.command;
  if (command == nullptr) return Complaint(parsed);
  const bool anyway = command->runs_operands && !parsed.call.operands.empty();
  if (!parsed.complaint.empty() && !anyway) return Complaint(parsed);
  if (!parsed.complaint.empty()) Complain(parsed.complaint);
  return command->run(parsed.call);
}

}  // namespace

const std::string* Call::Value(std::string_view option) const {
  const auto found =
      std::find_if(given.rbegin(), given.rend(), [&](const auto& one) { return one.first == option; });
  return found == given.rend() ? nullptr : &found->second;
}

Parsed ParseCommandLine(int argc, char** argv) {
  Parsed parsed;
  const int at = TakeOptions(argc, argv, CommonOptions(), true, &parsed);
  if (at >= argc) {
    if (parsed.complaint.empty()) parsed.complaint = "no command";
    return parsed;
  }
  parsed.command = FindCommand(argv[at]);
  if (parsed.command == nullptr) {
    parsed.complaint = "no command " + Shown(argv[at]) + NearNameHint(argv[at], CommandNames());
    return parsed;
  }
  const std::vector<Option> rows = WithCommon(parsed.command->options);
  const int first = at + TakeOptions(argc - at, argv + at, rows, parsed.command->runs_operands, &parsed);
  parsed.call.operands = {argv + first, argv + argc};
  return parsed;
}

std::string HelpText() {
  std::string text =
      "dunrasttctl tells what became of the speech engine and of the agent that watches it.\n\n"
      "Usage: dunrasttctl [-f FILE] [--json] COMMAND ...\n\nCommands:\n";
  for (const Command* command : Commands()) {
    text += "  " + Padded(command->name, NAME_COLUMNS) + command->help + "\n";
  }
  text += "\nOptions, before or behind the command:\n" + Rows(CommonOptions()) + "\nExit status:\n";
  for (const ExitRow& row : EXIT_STATUSES)
    text += "  " + std::to_string(row.status) + "  " + row.meaning + "\n";
  return text;
}

std::string HelpText(const Command& command) {
  std::string text =
      std::string(command.help) + "\n\nUsage: dunrasttctl " + command.name + " " + command.usage + "\n";
  if (!command.options.empty()) text += "\nOptions:\n" + Rows(command.options);
  return text + "\nOptions of every command:\n" + Rows(CommonOptions());
}

int RunTool(int argc, char** argv) {
  try {
    const int status = Run(argc, argv);
    if (std::fflush(stdout) == 0) return status;
    Complain("standard output takes no more");
  } catch (const std::exception& failure) {
    Complain(failure.what());
  }
  return CANNOT_TELL;
}

}  // namespace ctl
