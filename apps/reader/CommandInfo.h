#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace paperloom::reader {

// The command line as it is declared, for what is made from the declaration: help, the manual page,
// completion, and guesses at what was meant.

struct OptionInfo {
  std::vector<std::string> names;  // "-h", "--help"; none for an argument
  std::string value;               // "FILE"; empty for a flag
  std::string text;
  std::vector<std::string> choices;  // the values there are; none when any will do
  std::string group;
  bool required = false;
  bool repeated = false;
};

struct CommandInfo {
  std::string name;
  std::string text;
  std::string group;
  std::vector<OptionInfo> options;
  std::vector<OptionInfo> arguments;
  std::vector<CommandInfo> commands;
};

CommandInfo describe(const CLI::App& app);

// Accepts only these values, which help and completion then show.
CLI::Option* oneOf(CLI::Option* option, const std::vector<std::string>& choices);

// A whole number of 0 or more, with one of the units after it or none.
using Units = std::map<std::string, std::int64_t>;
extern const Units timeUnits;  // in seconds
extern const Units byteUnits;
CLI::Option* amount(CLI::Option* option, Units units);

// "a, b or c"
std::string alternatives(const std::vector<std::string>& words);

// "; did you mean NAME?" for the name that differs from `word` by little more than a slip of the
// finger; empty when none does.
std::string guess(const std::string& word, const std::vector<std::string>& names);

// "paperloom cache explain [OPTIONS] URL"
std::string usageOf(const std::string& path, const CommandInfo& command);
// "-h, --help", "--out FILE", "URL..."
std::string labelOf(const OptionInfo& option);
// The text with the choices after it.
std::string textOf(const OptionInfo& option);

}  // namespace paperloom::reader
