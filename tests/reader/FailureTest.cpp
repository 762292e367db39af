#include <gtest/gtest.h>

#include <fstream>

#include "paperloom/testing/SampleService.h"
#include "tests/reader/ReaderProcess.h"

namespace paperloom {
namespace {

using test::Reader;
using test::ReaderOutcome;
using test::ReaderRun;

TEST(Failure, isOneLineThatSaysWhatAndAnExitStatus) {
  const auto service = std::move(*sample::SampleService::start());
  const std::string port = std::to_string(service->port());
  // `error` is how the one line begins.
  const auto check = [](const std::vector<std::string>& arguments, int status,
                        const std::string& error, const std::string& input = "") {
    const ReaderOutcome outcome = Reader().run(arguments, input);
    SCOPED_TRACE(outcome.error);
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.error.rfind(error, 0), 0U) << "expected " << error;
    EXPECT_EQ(std::count(outcome.error.begin(), outcome.error.end(), '\n'), 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.error.find("hunter2"), std::string::npos);
  };
  const std::string parsing = "error: parsingFailed: ";
  check({"parse", "config", "-"}, 1, parsing + "failed to parse JSON into section meta data\n",
        R"({"sectionMetaData": [{}], "globalMetaData": {}})");
  check({"parse", "article", "-"}, 1, "error: decoder: ", "{\"headline\": ");
  check({"parse", "article", "-"}, 1,
        parsing + "failed to parse top level object in JSON Article\n", "[]");
  check({"parse", "authorisation", "-"}, 1,
        parsing + "Content Authorisation missing one or more tokens\n", "{}");
  check({"parse", "stream", "/nonexistent/file"}, 1, "error: cannot read /nonexistent/file: No ");
  check({"parse", "stream", "/"}, 1, "error: cannot read /: Is a directory\n");
  check({"article", "ftp://host/a"}, 1, "error: not an http or https URL: ftp://host/a\n");
  check({"article", "ftp://h/a  b\tc\x1b[1m"}, 1,
        "error: not an http or https URL: ftp://h/a  b c[1m\n");
  check({"parse", "stream", "/none/a  b"}, 1, "error: cannot read /none/a  b: No such file");
  check({"article", "%%%"}, 1, "error: not an http or https URL: %%%\n");
  check({"article", "7"}, 1, "error: the front page printed last has no story 7");
  check({"image", service->baseURL() + "/config"}, 1, "error: no image can be loaded from ");
  check({"--content-url", "nonsense", "config"}, 1, "error: --content-url is not an http");
  check({"article", service->baseURL() + "/none"}, 1,
        "error: the service has no such story (404)\n");
  check({"serve", "--port", port}, 1, "error: ");
  check({}, 2, "error: say a command; ");
  check({"frobnicate"}, 2, "error: there is no such command or option: frobnicate; ");
  check({"article"}, 2, "error: url is required; ");
  check({"parse", "poem", "-"}, 2, "error: kind: poem not in ");
  check({"serve", "--port", "70000"}, 2, "error: --port: ");
  check({"serve", "--status", "news"}, 2, "error: ");
  check({"warm"}, 2, "error: name the URLs to warm, or say --stream\n");
  check({"warm", "--stream", "http://h/a"}, 2, "error: name the URLs to warm");
  check({"login", "a@b", "--password=hunter2"}, 2,
        "error: there is more than this command understands: --password; ");
  check({"--json", "demo"}, 2, "error: the demo is for people");
}

TEST(Failure, outputThatCannotBeWrittenIsOne) {
  ReaderRun run;
  run.arguments = {"offline"};
  run.outputFile = "/dev/full";
  const ReaderOutcome outcome = Reader().run(run);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, "error: the output cannot be written: No space left on device\n");
}

TEST(Failure, ofAStandardStreamThatIsClosedHarmsNoFile) {
  const Reader reader;
  for (const auto& closed : std::vector<std::vector<int>>{{0}, {1}, {2}, {0, 1, 2}}) {
    ReaderRun run;
    run.arguments = {"stream"};
    run.closed = closed;
    EXPECT_EQ(reader.run(run).status, 0);
    EXPECT_NE(reader.run({"cache", "list"}).out.find("/stream"), std::string::npos)
        << ::testing::PrintToString(closed);
  }
}

struct TerminalCase {
  const char* name;
  bool terminal;
  std::vector<std::pair<std::string, std::string>> environment;
  bool colours;
};

const TerminalCase terminals[] = {
    {"pipe", false, {{"TERM", "xterm-256color"}, {"COLORTERM", "truecolor"}}, false},
    {"NO_COLOR", true, {{"TERM", "xterm-256color"}, {"NO_COLOR", "1"}}, false},
    {"dumb", true, {{"TERM", "dumb"}}, false},
    {"colours", true, {{"TERM", "xterm-256color"}}, true},
};

TEST(Terminal, showsColoursAndPicturesOnlyWhereItCan) {
  for (const TerminalCase& each : terminals) {
    SCOPED_TRACE(each.name);
    for (const auto& arguments : {std::vector<std::string>{"offline"},
                                  {"article", "articles/harbour-barrier-vote"},
                                  {"image", "images/gallery-320.png"},
                                  {"warm", "config"}}) {
      ReaderRun run;
      run.arguments = arguments;
      run.terminal = each.terminal;
      run.environment = each.environment;
      const ReaderOutcome outcome = Reader().run(run);
      EXPECT_EQ(outcome.status, 0) << outcome.error;
      const bool escapes = outcome.out.find('\x1b') != std::string::npos;
      EXPECT_EQ(escapes, each.colours && arguments[0] != "warm") << arguments[0];
    }
  }
}

TEST(Terminal, isNotSpokenToByDocuments) {
  const std::string article =
      "{\"headline\": \"\\u001b]0;owned\\u0007 \\u009b2J \\u202eabc\", \"body\": [{\"type\": "
      "\"text\", \"text\": \"one\\u001b[31m\\rtwo\\u0008\"}], \"authors\": [{\"name\": "
      "\"\\u001bc\"}]}";
  for (const TerminalCase& each : terminals) {
    ReaderRun run;
    const Reader reader;
    std::ofstream(reader.folder() / "article.json") << article;
    run.arguments = {"parse", "article", (reader.folder() / "article.json").string()};
    run.terminal = each.terminal;
    run.environment = each.environment;
    const ReaderOutcome outcome = reader.run(run);
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    for (const char* bad :
         {"\x1b]", "\x1b[31", "\033c", "\x07", "\x08", "\xc2\x9b", "\xe2\x80\xae"}) {
      EXPECT_EQ(outcome.out.find(bad), std::string::npos) << each.name;
    }
    EXPECT_NE(outcome.out.find("one[31m two"), std::string::npos) << outcome.out;
  }
}

}  // namespace
}  // namespace paperloom
