#pragma once

#include <string>
#include <vector>

#include "apps/reader/Output.h"
#include "paperloom/model/ParseFindings.h"

namespace paperloom::reader {

// A document that was checked: the file, "-", or its URL.
struct CheckedDocument {
  std::string name;
  std::vector<ParseFinding> findings;
};

// Whether there is an error or a warning.
bool needsWork(const std::vector<CheckedDocument>& documents);

// For people, a finding a line as compilers write them, and a sum.
void printFindings(Output& output, const std::vector<CheckedDocument>& documents);

// {"findings": [...], "documents": N}
std::string findingsAsJSON(const std::vector<CheckedDocument>& documents);
// A suite a document; errors and warnings are its failures.
std::string findingsAsJUnit(const std::vector<CheckedDocument>& documents);
// SARIF 2.1.0, with `rules` as what the documents were held to.
std::string findingsAsSARIF(const std::vector<CheckedDocument>& documents,
                            const std::vector<ParseRule>& rules);

}  // namespace paperloom::reader
