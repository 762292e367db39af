#include "apps/reader/FindingsReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/reader/RecordJSON.h"
#include "apps/reader/Text.h"
#include "paperloom/Version.h"
#include "paperloom/platform/URL.h"

namespace paperloom::reader {
namespace {

using Severity = ParseFinding::Severity;

std::size_t countOf(const std::vector<ParseFinding>& findings, Severity severity) {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [&](const ParseFinding& finding) { return finding.severity == severity; }));
}

std::string position(const ParseFinding& finding) {
  return fmt::format("{}:{}", finding.place.line, finding.place.column);
}

// Text for XML 1.0, which has no control characters, not even escaped.
std::string xml(std::string_view text) {
  std::string escaped;
  for (const char c : printable(text)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// A file's name as a relative reference (RFC 3986), so that "a:b.json" is no scheme.
std::string reference(const std::string& name) {
  if (const auto url = URL::parse(name); url && !url->host().empty()) return name;
  std::string encoded = name.starts_with('/') ? "file://" : "";
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain =
        std::isalnum(byte) != 0 || std::string_view("-._~/").find(c) != std::string_view::npos;
    encoded += isPlain ? std::string(1, c) : fmt::format("%{:02X}", byte);
  }
  return encoded;
}

}  // namespace

bool needsWork(const std::vector<CheckedDocument>& documents) {
  return std::any_of(documents.begin(), documents.end(), [](const CheckedDocument& document) {
    return countOf(document.findings, Severity::note) < document.findings.size();
  });
}

void printFindings(Output& output, const std::vector<CheckedDocument>& documents) {
  const Style& style = output.style();
  std::size_t counts[3] = {};
  for (const CheckedDocument& document : documents) {
    for (const ParseFinding& finding : document.findings) {
      ++counts[static_cast<std::size_t>(finding.severity)];
      output.line(fmt::format("{}:{}: {}: {} {}", printableText(document.name), position(finding),
                              style.bold(caseName(finding.severity)),
                              printableText(finding.message),
                              style.dim(fmt::format("[{}]", finding.rule))));
      if (!finding.place.path.empty()) {
        output.line("    " + style.dim(printableText(finding.place.path)));
      }
    }
  }
  output.sentence(fmt::format("{}: {}, {}, {}.", count(documents.size(), "document"),
                              count(counts[0], "error"), count(counts[1], "warning"),
                              count(counts[2], "note")));
}

std::string findingsAsJSON(const std::vector<CheckedDocument>& documents) {
  JSON findings = JSON::array();
  for (const CheckedDocument& document : documents) {
    for (const ParseFinding& finding : document.findings) {
      findings.push_back({{"document", document.name},
                          {"path", finding.place.path},
                          {"line", finding.place.line},
                          {"column", finding.place.column},
                          {"severity", caseName(finding.severity)},
                          {"rule", finding.rule},
                          {"message", finding.message}});
    }
  }
  return dump({{"findings", std::move(findings)}, {"documents", documents.size()}});
}

std::string findingsAsJUnit(const std::vector<CheckedDocument>& documents) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"paperloom check\">\n";
  for (const CheckedDocument& document : documents) {
    const auto& findings = document.findings;
    const std::size_t notes = countOf(findings, Severity::note);
    const std::string name = xml(document.name);
    text += fmt::format(
        "  <testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" errors=\"0\" skipped=\"0\">\n", name,
        std::max<std::size_t>(findings.size(), 1), findings.size() - notes);
    if (findings.empty()) {
      text += fmt::format("    <testcase classname=\"{}\" name=\"nothing found\"/>\n", name);
    }
    for (const ParseFinding& finding : findings) {
      const std::string words =
          xml(fmt::format("{}: {} at {}", caseName(finding.severity), finding.message,
                          finding.place.path.empty() ? "the document" : finding.place.path));
      const bool isNote = finding.severity == Severity::note;
      text += fmt::format("    <testcase classname=\"{}\" name=\"{} {}\">\n", name,
                          position(finding), xml(finding.rule));
      text += isNote ? fmt::format("      <system-out>{}</system-out>\n", words)
                     : fmt::format("      <failure type=\"{}\" message=\"{}\"/>\n",
                                   xml(finding.rule), words);
      text += "    </testcase>\n";
    }
    text += "  </testsuite>\n";
  }
  return text + "</testsuites>";
}

std::string findingsAsSARIF(const std::vector<CheckedDocument>& documents,
                            const std::vector<ParseRule>& rules) {
  JSON descriptions = JSON::array();
  for (const ParseRule& rule : rules) {
    descriptions.push_back({{"id", rule.name}, {"shortDescription", {{"text", rule.text}}}});
  }
  JSON results = JSON::array();
  for (const CheckedDocument& document : documents) {
    for (const ParseFinding& finding : document.findings) {
      JSON location = {
          {"physicalLocation",
           {{"artifactLocation", {{"uri", reference(document.name)}}},
            {"region",
             {{"startLine", finding.place.line}, {"startColumn", finding.place.column}}}}}};
      if (!finding.place.path.empty()) {
        location["logicalLocations"] =
            JSON::array({JSON{{"fullyQualifiedName", finding.place.path}}});
      }
      results.push_back({{"ruleId", finding.rule},
                         {"level", caseName(finding.severity)},
                         {"message", {{"text", finding.message}}},
                         {"locations", JSON::array({std::move(location)})}});
    }
  }
  const JSON tool = {{"driver",
                      {{"name", "paperloom"},
                       {"version", reinterpret_cast<const char*>(PaperloomVersionString)},
                       {"rules", std::move(descriptions)}}}};
  return dump({{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
               {"version", "2.1.0"},
               {"runs", JSON::array({JSON{{"tool", tool},
                                          {"columnKind", "unicodeCodePoints"},
                                          {"results", std::move(results)}}})}});
}

}  // namespace paperloom::reader
