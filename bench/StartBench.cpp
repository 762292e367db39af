// From the start of the reader's process to its end: what it prints at once, and the front page out
// of the disk cache.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/Ratios.h"
#include "bench/ScratchFolder.h"
#include "paperloom/testing/SampleService.h"

namespace paperloom::bench {
namespace {

// Runs the reader, its output dropped; false unless all went well.
bool run(std::vector<std::string> arguments) {
  std::vector<char*> words;
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addopen(&actions, output, "/dev/null", O_WRONLY, 0);
  }
  pid_t child = 0;
  const int failure = posix_spawn(&child, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  return failure == 0 && waitpid(child, &status, 0) == child && status == 0;
}

void measure(benchmark::State& state, const std::vector<std::string>& arguments) {
  if (!run(arguments)) state.SkipWithError("the reader fails");  // what it fetches is kept
  for (auto _ : state) {
    if (!run(arguments)) state.SkipWithError("the reader fails");
  }
}

}  // namespace
}  // namespace paperloom::bench

int main(int argc, char** argv) {
  using namespace paperloom;
  using namespace paperloom::bench;
  const auto service = std::move(*sample::SampleService::start());
  const ScratchFolder folder;
  // Its front page stays fresh for a minute, longer than the runs take.
  const std::vector<std::string> page = {PAPERLOOM_READER,   "stream",     "--content-url",
                                         service->baseURL(), "--data-dir", folder.path.string()};
  const std::vector<std::string> version = {PAPERLOOM_READER, "--version"};
  using benchmark::RegisterBenchmark;
  for (const auto& [name, words] : {std::pair("Version", version), std::pair("FrontPage", page)}) {
    RegisterBenchmark(name, measure, words)->Unit(benchmark::kMillisecond)->UseRealTime();
  }
  benchmark::Initialize(&argc, argv);
  BestTimes best;
  benchmark::RunSpecifiedBenchmarks(&best);
  constexpr double milliseconds = 1000;
  const double start = best.of("Version") * milliseconds;
  const double whole = best.of("FrontPage") * milliseconds;
  printRatio("reader-version-ms", start, "<= 5");
  printRatio("reader-front-page-from-disk-ms", whole, "<= 25");
  printRatio("reader-front-page-from-disk-beyond-its-start-ms", whole - start, "<= 8");
}
