#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "paperloom/model/ArticleType.h"
#include "paperloom/model/Asset.h"
#include "paperloom/model/Author.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/model/RawValue.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

// How large a card is drawn, or what it stands for.
enum class CardType { small, medium, bespoke, advert };

template <>
inline constexpr auto rawValues<CardType> = std::to_array<std::pair<CardType, std::string_view>>({
    {CardType::small, "small"},
    {CardType::medium, "medium"},
    {CardType::bespoke, "bespoke"},
    {CardType::advert, "advert"},
});

// The card of one article on the front page.
class PAPERLOOM_EXPORT ArticleHeaderProtocol {
 public:
  virtual ~ArticleHeaderProtocol() = default;
  virtual const std::string& identifier() const = 0;
  // Where the article itself is.
  virtual const paperloom::URL& URL() const = 0;
  virtual ArticleType articleType() const = 0;
  virtual const std::string& headline() const = 0;
  virtual const std::vector<Author>& authors() const = 0;
  virtual bool isPremium() const = 0;
  virtual CardType cardType() const = 0;
  virtual const std::optional<Asset>& cardAsset() const = 0;
  virtual const std::optional<std::string>& videoDuration() const = 0;
  virtual bool sponsored() const = 0;
};

using ArticleHeaderList = std::vector<std::shared_ptr<const ArticleHeaderProtocol>>;

class PAPERLOOM_EXPORT ArticleHeader final : public ArticleHeaderProtocol {
 public:
  using CardType = paperloom::CardType;

  struct Fields {
    std::string identifier;
    paperloom::URL URL;
    ArticleType articleType = ArticleType::unknown;
    std::string headline;
    std::vector<Author> authors;
    bool isPremium = false;
    CardType cardType = CardType::small;
    std::optional<Asset> cardAsset;
    std::optional<std::string> videoDuration;
    bool sponsored = false;
  };

  explicit ArticleHeader(Fields&& fields) : fields_(std::move(fields)) {}

  // Headline, URL and identifier are required; a bad asset only leaves the card without one.
  [[nodiscard]] static Result<std::shared_ptr<const ArticleHeaderProtocol>> parse(
      const JSONObject& json);

  const std::string& identifier() const override { return fields_.identifier; }
  const paperloom::URL& URL() const override { return fields_.URL; }
  ArticleType articleType() const override { return fields_.articleType; }
  const std::string& headline() const override { return fields_.headline; }
  const std::vector<Author>& authors() const override { return fields_.authors; }
  bool isPremium() const override { return fields_.isPremium; }
  CardType cardType() const override { return fields_.cardType; }
  const std::optional<Asset>& cardAsset() const override { return fields_.cardAsset; }
  const std::optional<std::string>& videoDuration() const override { return fields_.videoDuration; }
  bool sponsored() const override { return fields_.sponsored; }

 private:
  Fields fields_;
};

}  // namespace paperloom
