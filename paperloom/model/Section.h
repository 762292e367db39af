#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/model/ArticleHeader.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// A section of the front page with its cards in their order.
class PAPERLOOM_EXPORT SectionProtocol {
 public:
  virtual ~SectionProtocol() = default;
  virtual const std::string& uid() const = 0;
  virtual const ArticleHeaderList& articleHeaders() const = 0;
  virtual const std::optional<std::string>& pageID() const = 0;
};

using SectionList = std::vector<std::shared_ptr<const SectionProtocol>>;

class PAPERLOOM_EXPORT Section final : public SectionProtocol {
 public:
  Section(std::string uid, ArticleHeaderList articleHeaders, std::optional<std::string> pageID)
      : uid_(std::move(uid)),
        articleHeaders_(std::move(articleHeaders)),
        pageID_(std::move(pageID)) {}

  // Bad cards are dropped.
  [[nodiscard]] static Result<std::shared_ptr<const SectionProtocol>> parse(const JSONObject& json);

  const std::string& uid() const override { return uid_; }
  const ArticleHeaderList& articleHeaders() const override { return articleHeaders_; }
  const std::optional<std::string>& pageID() const override { return pageID_; }

 private:
  std::string uid_;
  ArticleHeaderList articleHeaders_;
  std::optional<std::string> pageID_;
};

}  // namespace paperloom
