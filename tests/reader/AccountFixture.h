#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "paperloom/testing/SampleService.h"
#include "tests/reader/ReaderProcess.h"

namespace paperloom::test {

using JSON = nlohmann::ordered_json;

inline std::string contentOf(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A reader over a sample service.
class AccountFixture : public ::testing::Test {
 protected:
  // Runs a command, collects all that it says, and gives its case.
  std::string outcome(const std::vector<std::string>& arguments, const std::string& input = {}) {
    std::vector<std::string> all = {"--json"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    last_ = reader_.run(all, input);
    said_ += last_.out + last_.error;
    const JSON json = JSON::parse(last_.out, nullptr, false);
    return json.is_object() && json.contains("case") ? json["case"].get<std::string>() : "";
  }

  std::filesystem::path file() const { return reader_.folder() / "account.json"; }

  JSON stored() const { return JSON::parse(contentOf(file()), nullptr, false); }

  // Logs in as one of the two readers and gives the file that this makes.
  std::string loginAsPremium() {
    EXPECT_EQ(outcome({"login", "premium@lantern.example"}, "lighthouse-7"), "loggedInAndPremium");
    return contentOf(file());
  }
  std::string loginAsReader() {
    EXPECT_EQ(outcome({"login", "reader@lantern.example"}, "breakwater-3"),
              "loggedInAndNotPremium");
    return contentOf(file());
  }

  std::unique_ptr<sample::SampleService> service_ = std::move(*sample::SampleService::start());
  Reader reader_{{"--content-url", service_->baseURL(), "--identity-url", service_->identityURL()}};
  ReaderOutcome last_;
  std::string said_;
};

}  // namespace paperloom::test
