#pragma once

#include <sys/resource.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/testing/TemporaryFolder.h"

namespace paperloom::test {

// How the reader is run. Its environment holds nothing but what is said here and a few harmless
// defaults.
struct ReaderRun {
  std::vector<std::string> arguments;
  std::string input;            // of standard input, which ends after it
  bool inputStaysOpen = false;  // or rather not before the reader does
  std::vector<std::pair<std::string, std::string>> environment;
  // Standard input and output are a terminal of 100 columns, in which `input` is typed.
  bool terminal = false;
  bool errorToTerminal = false;  // standard error, too
  // The input is given once the terminal shows this.
  std::string typeAfter;
  // Standard output is this file.
  std::string outputFile;
  std::vector<int> closed;             // descriptors that the reader starts without
  rlim_t largestFile = RLIM_INFINITY;  // as if the disk were full behind it
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

// Runs it without input or output and ends it by force right before its n-th operation (from 0) on
// a file below `folder` whose name has `part` in it; false when it ended by itself before that.
bool runReaderUntil(const std::vector<std::string>& arguments, int operation,
                    const std::filesystem::path& folder, const std::string& part);

// A reader with a data folder of its own, removed with this object.
class Reader {
 public:
  // Arguments for every run, after the data folder.
  explicit Reader(std::vector<std::string> always = {}) : always_(std::move(always)) {}

  ReaderOutcome run(std::vector<std::string> arguments, std::string input = {}) const;
  // The same with anything else that `run` says; its arguments come last.
  ReaderOutcome run(ReaderRun run) const;

  // runReaderUntil() for its own folder.
  bool runUntil(std::vector<std::string> arguments, int operation, const std::string& part) const;

  const std::filesystem::path& folder() const { return folder_.path(); }

 private:
  std::vector<std::string> withCommon(std::vector<std::string> arguments) const;

  TemporaryFolder folder_;
  std::vector<std::string> always_;
};

}  // namespace paperloom::test
