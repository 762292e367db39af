#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/ArticleHeader.h"
#include "paperloom/model/ColourSet.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/model/Section.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

// The front page: its sections in their order, the sponsored cards kept apart from them, and the
// metadata of exactly these sections in the same order.
class PAPERLOOM_EXPORT StreamProtocol {
 public:
  virtual ~StreamProtocol() = default;
  virtual const std::optional<ColourSet>& premiumColourSet() const = 0;
  virtual const std::optional<LabelColourSet>& premiumLabelColourSet() const = 0;
  virtual const SectionList& sections() const = 0;
  virtual const ArticleHeaderList& sponsoredArticles() const = 0;
  // Never null.
  virtual const std::shared_ptr<const AppMetadataProtocol>& appMetadata() const = 0;
};

class PAPERLOOM_EXPORT Stream final : public StreamProtocol {
 public:
  struct Fields {
    std::optional<ColourSet> premiumColourSet;
    std::optional<LabelColourSet> premiumLabelColourSet;
    SectionList sections;
    ArticleHeaderList sponsoredArticles;
    std::shared_ptr<const AppMetadataProtocol> appMetadata;
  };

  explicit Stream(Fields&& fields) : fields_(std::move(fields)) {}

  // Bad sections are dropped; a bad sponsored card, or a section without metadata, fails the
  // stream. The document's metadata becomes the current app metadata of the shared data
  // coordinator as soon as it is read, even when the rest of the document then fails.
  [[nodiscard]] static Result<std::shared_ptr<const StreamProtocol>> parse(const JSONObject& json);

  // A copy with only those section cards for which the predicate is true; an empty one keeps all.
  // Sections left without a card stay, and sponsored cards are not filtered.
  std::shared_ptr<const StreamProtocol> streamWithArticleHeadersFilteredUsing(
      const std::function<bool(const ArticleHeaderProtocol&)>& articleHeaderFilter) const;

  const std::optional<ColourSet>& premiumColourSet() const override {
    return fields_.premiumColourSet;
  }
  const std::optional<LabelColourSet>& premiumLabelColourSet() const override {
    return fields_.premiumLabelColourSet;
  }
  const SectionList& sections() const override { return fields_.sections; }
  const ArticleHeaderList& sponsoredArticles() const override { return fields_.sponsoredArticles; }
  const std::shared_ptr<const AppMetadataProtocol>& appMetadata() const override {
    return fields_.appMetadata;
  }

 private:
  Fields fields_;
};

}  // namespace paperloom
