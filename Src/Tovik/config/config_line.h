// One line of the configuration file: key and value.
#ifndef TOVIK_CONFIG_CONFIG_LINE_H
#define TOVIK_CONFIG_CONFIG_LINE_H

#include <string>

// Reads one line after the other. The value of a line that has none (a key with nothing behind it, not even a
// line end) is the one of the line before.
class ConfigLine {
 public:
  // False for a comment and for a line without a word: key and value stay as they are.
  bool Take(const char* line);

  const std::string& Key() const { return key_; }
  const std::string& Value() const { return value_; }

 private:
  std::string key_;
  std::string value_;
};

// Removes blanks, tabs and line ends from the end of a value, fewer the shorter it gets: the n-th is only
// removed while more than n characters are left.
void TrimValue(std::string* value);

// The configuration file's name: "%s" (the first one) gives the name itself, "%%" a percent sign, all else
// stands.
std::string ConfigFileName(const std::string& name);

#endif
