// Splits a line of the configuration file into key and value.
#ifndef TOVIK_CONFIG_CONFIG_LINE_H
#define TOVIK_CONFIG_CONFIG_LINE_H

#include <string>

// Reads one line after the other. A line without a value (a key with nothing after it, not even a line end)
// takes the value of the line before.
class ConfigLine {
 public:
  // Reads a line. Returns false for a comment and for a line without a word; key and value then stay as they
  // are.
  bool Take(const char* configLine);

  const std::string& Key() const { return lineKey_; }
  const std::string& Value() const { return lineValue_; }

 private:
  std::string lineKey_;
  std::string lineValue_;
};

// Removes blanks, tabs and line ends from the end of a value, but not always all of them: the n-th one is
// removed only while more than n characters are left.
void TrimValue(std::string* lineValue);

#endif
