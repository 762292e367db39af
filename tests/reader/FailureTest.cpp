#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "paperloom/testing/SampleService.h"
#include "tests/reader/ReaderProcess.h"

namespace paperloom::test {
namespace {

TEST(FailureTest, isOneLineThatSaysWhatAndAnExitStatus) {
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
    EXPECT_EQ(outcome.out.empty(), arguments.empty() || arguments[0] != "--json") << outcome.out;
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
  check({"article", "7"}, 1, "error: no story 7 on the front page printed last");
  check({"image", service->baseURL() + "/config"}, 1, "error: no image can be loaded from ");
  check({"--content-url", "nonsense", "config"}, 1, "error: --content-url is not an http");
  check({"article", service->baseURL() + "/none"}, 1,
        "error: the service has no such story (404)\n");
  check({"image", service->baseURL() + "/none"}, 1,
        "error: the service has no such picture (404)\n");
  check({"serve", "--port", port}, 1, "error: ");
  check({}, 2, "error: say a command; ");
  check({"frobnicate"}, 2, "error: there is no such command or option: frobnicate; --help ");
  check({"article"}, 2, "error: url is required; ");
  check({"steram"}, 2, "error: there is no such command or option: steram; did you mean stream?\n");
  check({"cache", "lst"}, 2,
        "error: there is more than this command understands; did you mean list");
  check({"stream", "--section=a"}, 2,
        "error: there is more than this command understands: --section; did you mean --sections?");
  check({"help", "cache", "explane"}, 2,
        "error: there is no command explane; did you mean explain");
  check({"parse", "poem", "-"}, 2, "error: kind: poem is not article, authorisation, ");
  check({"serve", "--port", "70000"}, 2, "error: --port: ");
  check({"serve", "--status", "news"}, 2, "error: ");
  check({"warm"}, 2, "error: name the URLs to warm, or say --stream\n");
  check({"warm", "--stream", "http://h/a"}, 2, "error: name the URLs to warm");
  check({"stream", "--sections", "nosuch"}, 1,
        "error: there is no section nosuch; there are news, ");
  check({"login", "a@b", "--password=hunter2"}, 2,
        "error: there is more than this command understands: --password; ");
  check({"--json", "demo"}, 2, "error: the demo is for people");
  check({"--json", "image", "--out", "-", "images/gallery-320.png"}, 2, "error: --json and --out");
}

TEST(FailureTest, outputThatCannotBeWrittenIsOne) {
  const ReaderRun run{.arguments = {"offline"}, .outputFile = "/dev/full"};
  const ReaderOutcome outcome = Reader().run(run);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, "error: the output cannot be written: No space left on device\n");
}

TEST(FailureTest, ofAStandardStreamThatIsClosedHarmsNoFile) {
  const Reader reader;
  for (const auto& closed : std::vector<std::vector<int>>{{0}, {1}, {2}, {0, 1, 2}}) {
    const ReaderRun run{.arguments = {"stream"}, .closed = closed};
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
  std::vector<std::string> arguments = {};
};

const std::pair<std::string, std::string> term{"TERM", "xterm-256color"};
const std::pair<std::string, std::string> noColour{"NO_COLOR", "1"};
const TerminalCase terminals[] = {
    {"pipe", false, {term, {"COLORTERM", "truecolor"}}, false},
    {"pipe, forced", false, {term, {"CLICOLOR_FORCE", "1"}}, true},
    {"pipe, forced by level", false, {{"FORCE_COLOR", "3"}}, true},
    {"pipe, wished", false, {noColour}, true, {"--color=always"}},
    {"NO_COLOR", true, {term, noColour}, false},
    {"NO_COLOR and forced", true, {term, noColour, {"FORCE_COLOR", "1"}}, false},
    {"FORCE_COLOR=0", true, {term, {"FORCE_COLOR", "0"}}, false},
    {"unwished", true, {term}, false, {"--color", "never"}},
    {"dumb", true, {{"TERM", "dumb"}}, false},
    {"colours", true, {term}, true},
};

TEST(TerminalTest, showsColoursAndPicturesOnlyWhereItCan) {
  for (const TerminalCase& each : terminals) {
    SCOPED_TRACE(each.name);
    for (const auto& arguments : {std::vector<std::string>{"offline"},
                                  {"article", "articles/harbour-barrier-vote"},
                                  {"image", "images/gallery-320.png"},
                                  {"warm", "config"}}) {
      ReaderRun run;
      run.arguments = each.arguments;
      run.arguments.insert(run.arguments.end(), arguments.begin(), arguments.end());
      run.terminal = each.terminal;
      run.environment = each.environment;
      run.typeAfter = "\x1b[c";
      run.input = "\x1b[?62c";
      const ReaderOutcome outcome = Reader().run(run);
      EXPECT_EQ(outcome.status, 0) << outcome.error;
      const bool escapes = outcome.out.find('\x1b') != std::string::npos;
      const bool isPlain = arguments[0] == "warm" || (arguments[0] == "image" && !each.terminal);
      EXPECT_EQ(escapes, each.colours && !isPlain) << arguments[0];
    }
  }
}

TEST(TerminalTest, isShownPicturesAsItSaysThatItTakesThem) {
  const std::string kitty = "\x1b_Ga=T";
  const std::string sixel = "\x1bP0;1;0q";
  const std::string iterm2 = "\x1b]1337;File=";
  const std::string blocks = "\x1b[38;5;";
  const struct {
    std::vector<std::pair<std::string, std::string>> environment;
    std::string answer;  // to the questions
    std::string wish;
    std::string begin;
  } rows[] = {
      {{{"TERM", "xterm"}}, "\x1b_Gi=31;OK\x1b\\\x1b[?62;22c", "auto", kitty},
      {{{"TERM", "xterm"}}, "\x1b[6;20;10t\x1b[?62;4;22c", "auto", sixel},
      {{{"TERM", "xterm"}}, "\x1bP>|iTerm2 3.5\x1b\\\x1b[?62;22c", "auto", iterm2},
      {{{"TERM", "xterm"}}, "\x1b[?64;14;40c", "auto", ""},
      {{term}, "\x1b_Gi=31;ENOENT\x1b\\\x1b[6;;t\x1b[?62;22c", "auto", blocks},
      {{term}, "\x1b_Gi=31;OK\x1b\\\x1b[?62;4c", "never", ""},
      {{term}, "\x1b_Gi=31;OK\x1b\\\x1b[?62;4c", "symbols", blocks},
      {{{"TERM", "xterm-kitty"}}, "", "auto", kitty},
      {{{"TERM", "xterm-kitty"}, noColour}, "", "auto", ""},
      {{{"TERM", "foot"}}, "", "auto", sixel},
      {{term, {"TERM_PROGRAM", "iTerm.app"}}, "", "auto", iterm2},
      {{{"TERM", "dumb"}}, "", "kitty", kitty},
  };
  for (const auto& row : rows) {
    const ReaderRun run{.arguments = {"--pictures", row.wish, "image", "images/gallery-320.png"},
                        .input = row.answer,
                        .environment = row.environment,
                        .terminal = true,
                        .typeAfter = "\x1b[c"};
    const std::string out = Reader().run(run).out;
    for (const std::string& begin : {kitty, sixel, iterm2, blocks}) {
      EXPECT_EQ(out.find(begin) != std::string::npos, begin == row.begin)
          << row.wish << " " << ::testing::PrintToString(row.environment) << row.answer;
    }
    EXPECT_NE(out.find("320 x 200 pixels"), std::string::npos) << out;
  }
}

// Columns of a line without the codes that dress it, every character counting one.
std::size_t columnsOf(const std::string& line) {
  std::size_t columns = 0;
  bool inCode = false;
  for (const char c : line) {
    if (c == '\x1b') inCode = true;
    if (!inCode && c != '\r' && (static_cast<unsigned char>(c) & 0xC0) != 0x80) ++columns;
    if (c == 'm') inCode = false;
  }
  return columns;
}

TEST(TerminalTest, ofFortyColumnsIsWideEnough) {
  const Reader reader;
  for (const auto& arguments : std::vector<std::vector<std::string>>{{"--help"},
                                                                     {"help", "serve"},
                                                                     {"help", "cache", "explain"},
                                                                     {"login", "-h"},
                                                                     {"config"},
                                                                     {"stream"},
                                                                     {"article", "1"},
                                                                     {"article", "2"},
                                                                     {"cache"},
                                                                     {"cache", "list"},
                                                                     {"cache", "explain", "config"},
                                                                     {"elapsed"},
                                                                     {"account"},
                                                                     {"offline"}}) {
    const ReaderRun run{.arguments = arguments,
                        .input = "\x1b[?62c",
                        .environment = {term, {"COLUMNS", "40"}},
                        .terminal = true,
                        .typeAfter = "\x1b[c"};
    std::istringstream lines(reader.run(run).out);
    for (std::string line; std::getline(lines, line);) {
      if (line.find("\x1b_G") != std::string::npos) continue;  // with the question
      EXPECT_LE(columnsOf(line), 40U) << arguments[0] << ": " << line;
    }
  }
}

TEST(TerminalTest, hasLongOutputShownByThePagerAndShortOutputNot) {
  const struct {
    const char* pager;
    std::vector<std::string> arguments;
    const char* text;
    bool found;
  } rows[] = {
      {"sed s/News/PAGED/", {"stream"}, "PAGED", true},
      {"sed s/version/PAGED/", {"-V"}, "PAGED", false},
      {"sed s/logged/PAGED/", {"account"}, "PAGED", false},
      {"head -1", {"stream"}, "Weekend", false},
      {"nosuchpager", {"stream"}, "Weekend", true},
      {" ", {"stream"}, "Weekend", true},
  };
  for (const auto& row : rows) {
    const ReaderRun run{.arguments = row.arguments,
                        .environment = {term, {"PAGER", row.pager}, {"PATH", "/usr/bin:/bin"}},
                        .terminal = true};
    const ReaderOutcome outcome = Reader().run(run);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out.find(row.text) != std::string::npos, row.found) << row.pager;
  }
}

TEST(TerminalTest, isNotSpokenToByDocuments) {
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
}  // namespace paperloom::test
