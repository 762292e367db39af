#include <regex>
#include <sstream>

#include "tests/reader/AccountFixture.h"

namespace paperloom::test {
namespace {

// The shapes of docs/reader-json.md, by the titles of their blocks.
class JSONShapeTest : public AccountFixture {
 protected:
  JSONShapeTest() {
    std::istringstream page(test::contentOf(PAPERLOOM_READER_JSON));
    std::string title;
    std::string block;
    for (std::string line; std::getline(page, line);) {
      if (line.starts_with("### ")) title = line.substr(4);
      if (line == "```json") block = "\n";
      if (line == "```") shapes_[title] = JSON::parse(std::exchange(block, ""));
      if (!block.empty() && !line.starts_with("```")) block += line;
    }
  }

  static bool isOf(const JSON& value, const std::string& type) {
    if (type == "string") return value.is_string();
    if (type == "integer") return value.is_number_integer();
    if (type == "number") return value.is_number();
    if (type == "boolean") return value.is_boolean();
    if (type == "null") return value.is_null();
    if (type == "object") return value.is_object();
    static const std::regex date(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)");
    return type == "date" && value.is_string() && std::regex_match(value.get<std::string>(), date);
  }

  bool fits(const JSON& value, const JSON& shape) const {
    if (shape.is_object()) {
      if (!value.is_object() || value.size() != shape.size()) return false;
      return std::all_of(shape.items().begin(), shape.items().end(), [&](const auto& entry) {
        return value.contains(entry.key()) && fits(value[entry.key()], entry.value());
      });
    }
    if (shape.is_array()) {
      if (!value.is_array()) return false;
      return std::all_of(value.begin(), value.end(),
                         [&](const JSON& each) { return fits(each, shape[0]); });
    }
    std::string rest = shape.get<std::string>() + " or ";
    for (std::size_t end; (end = rest.find(" or ")) != std::string::npos; rest.erase(0, end + 4)) {
      const std::string name = rest.substr(0, end);
      const JSON& named = shapes_.at("shapes");
      if (named.contains(name) ? fits(value, named[name]) : isOf(value, name)) return true;
    }
    return false;
  }

  // Runs a command and holds every document that it prints against the shapes.
  void check(std::vector<std::string> arguments, const std::string& title,
             const std::string& input = "", const std::string& other = "") {
    arguments.insert(arguments.begin(), "--json");
    const auto outcome = reader_.run(arguments, input);
    std::istringstream out(outcome.out);
    const bool isLines = arguments[1] == "warm" || arguments[1] == "keep";
    int count = 0;
    for (std::string text; std::getline(out, text, isLines ? '\n' : '\0'); ++count) {
      const JSON value = JSON::parse(text, nullptr, false);
      EXPECT_TRUE(fits(value, shapes_.at(title)) ||
                  (!other.empty() && fits(value, shapes_.at(other))))
          << arguments[1] << " is no " << title << ": " << text << outcome.error;
    }
    EXPECT_GT(count, 0) << arguments[1];
  }

  std::map<std::string, JSON> shapes_;
};

TEST_F(JSONShapeTest, areThoseThatAreWrittenDown) {
  const std::string cache = "cache, cache stats";
  const std::string login = "login, entitlement, unlink";
  check({"elapsed"}, "elapsed");
  check({"config"}, "config");
  check({"stream"}, "stream, offline");
  check({"offline"}, "stream, offline");
  for (const auto& entry : std::filesystem::directory_iterator(PAPERLOOM_SAMPLE_ARTICLES)) {
    check({"article", "articles/" + entry.path().stem().string()}, "article");
  }
  check({"image", "images/gallery-320.png"}, "image");
  check({"check", "config", "-"}, "check", "{\"a\": 1}");
  check({"warm", "config", "nosuch"}, "warm", "", "error");
  check({"keep", "mine", "articles/storm-edda-live"}, "warm", "", "keep");
  check({"kept"}, "kept");
  check({"drop", "mine"}, "drop");
  check({"cache"}, cache);
  check({"cache", "list"}, "cache list");
  check({"cache", "explain", "config"}, "cache explain");
  check({"cache", "clear"}, "cache clear");
  check({"account"}, "account, nobody logged in");
  check({"login", "reader@lantern.example"}, "outcome that failed", "wrong");
  check({"login", "premium@lantern.example"}, login, "lighthouse-7");
  check({"account"}, "account");
  check({"entitlement"}, login);
  check({"refresh"}, "refresh");
  check({"unlink", "google"}, login);
  check({"logout"}, "logout");
  check({"register", "new@lantern.example", "--first-name", "A", "--last-name", "L"}, "register",
        "tide-mill-1");
  for (const auto& failing : std::vector<std::vector<std::string>>{{"article", "nosuch"},
                                                                   {"article", "77"},
                                                                   {"article", "--nosuch"},
                                                                   {"stream", "--sections", "x"},
                                                                   {"parse", "stream", "-"},
                                                                   {"frobnicate"}}) {
    check(failing, "error");
  }
}

}  // namespace
}  // namespace paperloom::test
