#include "paperloom/model/Article.h"

#include <array>

#include "paperloom/model/internal/Reading.h"

namespace paperloom {
namespace {

// The length in bytes of the white space or line break (Unicode's separators, tab, U+000A to
// U+000D and U+0085) at the start of `text`; 0 when there is none.
std::size_t spaceAtStart(std::string_view text) {
  if (text.empty()) return 0;
  const char first = text.front();
  if (first == ' ' || (first >= '\t' && first <= '\r')) return 1;
  constexpr std::array<std::string_view, 19> wide = {
      "\u0085", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003",
      "\u2004", "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A",
      "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};
  for (const std::string_view space : wide) {
    if (text.starts_with(space)) return space.size();
  }
  return 0;
}

std::string trimmed(std::string_view text) {
  while (const std::size_t length = spaceAtStart(text)) text.remove_prefix(length);
  for (;;) {
    if (text.empty()) break;
    // Back to the first byte of the last character: the text is valid UTF-8.
    std::size_t last = text.size() - 1;
    while (last > 0 && (static_cast<unsigned char>(text[last]) & 0xC0U) == 0x80U) --last;
    if (spaceAtStart(text.substr(last)) == 0) break;
    text = text.substr(0, last);
  }
  return std::string(text);
}

ArticleContentItem leadContent(const JSONObject& json) {
  const auto leadAsset = json.object("leadAsset");
  if (!leadAsset) return {};
  auto asset = Asset::parse(*leadAsset);
  if (!asset) {
    leaveOut(*leadAsset, "the article has no lead picture");
    return {};
  }
  if (asset->type == Asset::Type::Video) return {ArticleContentItem::Video{std::move(*asset)}};
  return {ArticleContentItem::Image{std::move(*asset)}};
}

// Null for an article that is not sponsored, whatever its "sponsor" holds.
Result<std::shared_ptr<const SponsorProtocol>> sponsorOf(const JSONObject& json, bool sponsored) {
  if (!sponsored) return nullptr;
  const auto sponsor = json.object("sponsor");
  if (!sponsor) return parsingFailed(json, "Sponsored article without sponsor info");
  return Sponsor::parse(*sponsor);
}

Result<std::shared_ptr<const RegistrationWallProtocol>> wallOf(const JSONObject& json) {
  const auto wall = json.object("registerWall");
  if (!wall) return nullptr;
  return RegistrationWall::parse(*wall);
}

}  // namespace

Result<Article> Article::parse(const JSONObject& json) {
  const auto headline = json.stringView("headline");
  if (!headline) return parsingFailed(json, "failed to parse JSON into article");
  const bool isSponsored = json.boolean("sponsored").value_or(false);
  auto sponsor = sponsorOf(json, isSponsored);
  if (!sponsor) return tl::make_unexpected(std::move(sponsor.error()));
  auto wall = wallOf(json);
  if (!wall) return tl::make_unexpected(std::move(wall.error()));

  return Article(Fields{
      .headline = trimmed(*headline),
      .type = caseUnder<ArticleType>(json, "type").value_or(ArticleType::unknown),
      .authors = Author::parseList(json.objects("authors").value_or(JSONObjectList())),
      .publishedTime = dateUnder(json, "datePublished"),
      .isPremium = json.boolean("premium").value_or(false),
      .leadContent = paperloom::leadContent(json),
      .contents = ArticleContentItem::parseBody(json.objects("body").value_or(JSONObjectList())),
      .rating = json.integer("starRating"),
      .pageID = json.string("pageId"),
      .sponsored = isSponsored,
      .sponsor = std::move(*sponsor),
      .websiteURL = urlUnder(json, "websiteUrl"),
      .callToAction = caseUnder<CallToAction>(json, "callToAction").value_or(CallToAction::none),
      .adZone = json.string("adZone").value_or(""),
      .businessSegment = json.string("businessSegment").value_or(""),
      .registrationWallModel = std::move(*wall)});
}

WallType Article::wallType() const {
  if (fields_.callToAction != CallToAction::none) return {WallType::PayWall{}};
  if (fields_.registrationWallModel) return {WallType::RegWall{fields_.registrationWallModel}};
  return {WallType::None{}};
}

bool Article::canInjectOutbrain() const {
  return !fields_.sponsored && !fields_.isPremium && wallType() == WallType{WallType::None{}};
}

}  // namespace paperloom
