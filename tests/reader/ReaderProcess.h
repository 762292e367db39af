#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace paperloom::test {

// How the reader is run. Its environment holds nothing but what is said here and a few harmless
// defaults.
struct ReaderRun {
  std::vector<std::string> arguments;
  std::string input;  // of standard input, which ends after it
  std::vector<std::pair<std::string, std::string>> environment;
  // Standard input and output are a terminal of 100 columns, in which `input` is typed.
  bool terminal = false;
  // The input is given once the terminal shows this.
  std::string typeAfter;
  // Standard output is this file.
  std::string outputFile;
  // Asked again and again; SIGINT is sent once when it is true.
  std::function<bool()> interruptWhen;
};

struct ReaderOutcome {
  int status = -1;  // 128 + signal when one ended it
  std::string out;
  std::string error;
};

// Runs the real executable to its end; a hang of a minute ends it by force.
ReaderOutcome runReader(const ReaderRun& run);

// A reader with a data folder of its own, removed with this object.
class Reader {
 public:
  // Arguments for every run, after the data folder.
  explicit Reader(std::vector<std::string> always = {}) : always_(std::move(always)) {}

  ReaderOutcome run(std::vector<std::string> arguments, std::string input = {}) const;
  // The same with anything else that `run` says; its arguments come last.
  ReaderOutcome run(ReaderRun run) const;

  const std::filesystem::path& folder() const { return folder_.path(); }

 private:
  TemporaryFolder folder_;
  std::vector<std::string> always_;
};

}  // namespace paperloom::test
