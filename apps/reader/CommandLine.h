#pragma once

#include <CLI/CLI.hpp>

#include "apps/reader/Commands.h"

namespace paperloom::reader {

// The declaration of the whole command line, and what it was found to ask for.
class CommandLine {
 public:
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // Prints what --help and --version ask for and returns false; throws Failure for what is not
  // understood.
  bool parse(int argc, char** argv);

  const GlobalOptions& global() const { return global_; }
  const Action& action() const { return action_; }

 private:
  void addGlobalOptions();
  void addOwnCommands();
  // The command that was given, and the words that lead to it.
  const CLI::App& given(std::string& path) const;
  void printHelp(Output& output, const CLI::App& command, const std::string& path) const;
  void help(Output& output, const std::vector<std::string>& words) const;
  std::string sentenceFor(const CLI::ParseError& error) const;
  // What may have been meant by a word or an option that means nothing.
  std::string guessFor(const std::string& word) const;

  CLI::App app_;
  GlobalOptions global_;
  Action action_;
};

}  // namespace paperloom::reader
