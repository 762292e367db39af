#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSONListener.h"

namespace paperloom {

// Where something stands in a document.
struct ParsePlace {
  std::string path;  // RFC 6901
  std::size_t line = 1;
  std::size_t column = 1;  // in characters
};

// One thing about a document that its writers would want to know.
struct ParseFinding {
  enum class Severity {
    error,    // a part that the library leaves out, or for which it refuses the whole document
    warning,  // a value that it replaces by a default
    note,     // all else: what is never read, what is unusual
  };

  ParsePlace place{};  // of the key at fault, or of its object where the key is missing
  Severity severity = Severity::note;
  std::string rule{};     // the name of a ParseRule
  std::string message{};  // what is wrong, and what a reader sees
};

// "error", "warning" or "note".
constexpr std::string_view caseName(ParseFinding::Severity severity) {
  switch (severity) {
    case ParseFinding::Severity::error:
      return "error";
    case ParseFinding::Severity::warning:
      return "warning";
    case ParseFinding::Severity::note:
      return "note";
  }
  return "";
}

// The address of another document, where a document has it.
struct ParsedLink {
  enum class Kind { article, picture };

  Kind kind = Kind::article;
  std::string url;  // as it stands there
  ParsePlace place;
  // What is said of a picture's size, and where; 0 when nothing is.
  std::int64_t width = 0;
  std::int64_t height = 0;
  ParsePlace widthPlace;
  ParsePlace heightPlace;
};

// What documents are held to.
struct ParseRule {
  std::string_view name;  // "invalid-url"
  std::string_view text;  // in plain words
};

// All of them. Any thread.
[[nodiscard]] PAPERLOOM_EXPORT const std::vector<ParseRule>& parseRules();

// Gathers what a parser drops, replaces by a default or never reads of one document, and what is
// unusual in it:
//
//   ParseFindings findings;
//   const auto article = ArticleParser().parse(data, &findings);
//   for (const ParseFinding& finding : findings.list()) ...
//
// One object may be used for one document after the other, by one thread at a time.
class PAPERLOOM_EXPORT ParseFindings final : public JSONListener {
 public:
  ParseFindings();
  ParseFindings(const ParseFindings&) = delete;
  ParseFindings& operator=(const ParseFindings&) = delete;
  ~ParseFindings() override;

  // Of the document that was parsed last, in the order of its text. There are at most a thousand;
  // a last one says when there would be more.
  [[nodiscard]] const std::vector<ParseFinding>& list() const;
  // The articles and pictures that its cards, blocks and sponsors lead to, those of what has been
  // left out not among them, in the order of the text.
  [[nodiscard]] const std::vector<ParsedLink>& links() const;

  void decoded(const JSONDocument* document, std::string_view text) override;
  void asked(std::size_t object, std::string_view key) override;
  void mistyped(std::size_t object, std::string_view key, Kind kind) override;
  void refused(std::size_t object, std::string_view key, std::string_view rule,
               std::string_view accepted) override;
  void failed(std::size_t object) override;
  void leftOut(std::size_t object, std::string_view effect) override;
  void ended(bool parsed) override;

 private:
  class Gathering;

  std::unique_ptr<Gathering> gathering_;
  std::vector<ParseFinding> list_;
  std::vector<ParsedLink> links_;
};

}  // namespace paperloom
