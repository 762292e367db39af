#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/model/ArticleContentItem.h"
#include "paperloom/model/ArticleType.h"
#include "paperloom/model/Author.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/model/RegistrationWall.h"
#include "paperloom/model/Sponsor.h"
#include "paperloom/model/WallType.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// One whole news article.
class PAPERLOOM_EXPORT ArticleProtocol {
 public:
  virtual ~ArticleProtocol() = default;
  virtual const std::string& headline() const = 0;
  virtual ArticleType type() const = 0;
  virtual const std::vector<Author>& authors() const = 0;
  virtual const std::optional<Date>& publishedTime() const = 0;
  virtual bool isPremium() const = 0;
  // An Image, a Video or Unknown.
  virtual const ArticleContentItem& leadContent() const = 0;
  virtual const std::vector<ArticleContentItem>& contents() const = 0;
  virtual const std::optional<std::int64_t>& rating() const = 0;
  virtual const std::optional<std::string>& pageID() const = 0;
  virtual bool sponsored() const = 0;
  // Null unless the article is sponsored.
  virtual const std::shared_ptr<const SponsorProtocol>& sponsor() const = 0;
  virtual const std::optional<URL>& websiteURL() const = 0;
  virtual CallToAction callToAction() const = 0;
  // The place of the article among the advertising zones; may be empty.
  virtual const std::string& adZone() const = 0;
  virtual const std::string& businessSegment() const = 0;
  // May be null.
  virtual const std::shared_ptr<const RegistrationWallProtocol>& registrationWallModel() const = 0;
  // A pay wall when there is a call to action, else the registration wall if there is one. Being
  // premium alone sets up no wall.
  virtual WallType wallType() const = 0;
  // Whether outside recommendations may be placed in the article: it is neither sponsored nor
  // premium and has no wall.
  virtual bool canInjectOutbrain() const = 0;
};

class PAPERLOOM_EXPORT Article final : public ArticleProtocol {
 public:
  struct Fields {
    std::string headline;
    ArticleType type = ArticleType::unknown;
    std::vector<Author> authors;
    std::optional<Date> publishedTime;
    bool isPremium = false;
    ArticleContentItem leadContent;
    std::vector<ArticleContentItem> contents;
    std::optional<std::int64_t> rating;
    std::optional<std::string> pageID;
    bool sponsored = false;
    std::shared_ptr<const SponsorProtocol> sponsor;
    std::optional<URL> websiteURL;
    CallToAction callToAction = CallToAction::none;
    std::string adZone;
    std::string businessSegment;
    std::shared_ptr<const RegistrationWallProtocol> registrationWallModel;
  };

  explicit Article(Fields&& fields) : fields_(std::move(fields)) {}

  // Only the headline is required; an article that calls itself sponsored needs a good sponsor,
  // and a registration wall that is there has to be good. On any thread.
  [[nodiscard]] static Result<Article> parse(const JSONObject& json);

  // For the owner, on one thread, before the article is handed on.
  void setRegistrationWallModel(std::shared_ptr<const RegistrationWallProtocol> wall) {
    fields_.registrationWallModel = std::move(wall);
  }

  const std::string& headline() const override { return fields_.headline; }
  ArticleType type() const override { return fields_.type; }
  const std::vector<Author>& authors() const override { return fields_.authors; }
  const std::optional<Date>& publishedTime() const override { return fields_.publishedTime; }
  bool isPremium() const override { return fields_.isPremium; }
  const ArticleContentItem& leadContent() const override { return fields_.leadContent; }
  const std::vector<ArticleContentItem>& contents() const override { return fields_.contents; }
  const std::optional<std::int64_t>& rating() const override { return fields_.rating; }
  const std::optional<std::string>& pageID() const override { return fields_.pageID; }
  bool sponsored() const override { return fields_.sponsored; }
  const std::shared_ptr<const SponsorProtocol>& sponsor() const override { return fields_.sponsor; }
  const std::optional<URL>& websiteURL() const override { return fields_.websiteURL; }
  CallToAction callToAction() const override { return fields_.callToAction; }
  const std::string& adZone() const override { return fields_.adZone; }
  const std::string& businessSegment() const override { return fields_.businessSegment; }
  const std::shared_ptr<const RegistrationWallProtocol>& registrationWallModel() const override {
    return fields_.registrationWallModel;
  }
  WallType wallType() const override;
  bool canInjectOutbrain() const override;

 private:
  Fields fields_;
};

}  // namespace paperloom
