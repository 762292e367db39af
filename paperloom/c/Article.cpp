// Articles with their parts, pictures and new accounts, read from C.

#include "paperloom/c/internal/Enumerations.h"
#include "paperloom/c/internal/Records.h"
#include "paperloom/c/paperloom.h"
#include "paperloom/model/Renditions.h"

using namespace paperloom;
using namespace paperloom::c;

namespace {

// What `read` finds in the block, when its kind has such a part.
template <class Result, class Read>
Result ofBlock(const paperloom_block* block, Read read) {
  return block != nullptr ? std::visit(read, record(block).value) : Result{};
}

}  // namespace

paperloom_text paperloom_author_name(const paperloom_author* author) {
  return textOf(author, &Author::name);
}

paperloom_text paperloom_author_job_title(const paperloom_author* author) {
  return textOf(author, &Author::jobTitle);
}

enum paperloom_asset_type paperloom_asset_type(const paperloom_asset* asset) {
  return asset != nullptr ? enumerator(record(asset).type) : PAPERLOOM_ASSET_NONE;
}

paperloom_text paperloom_asset_caption(const paperloom_asset* asset) {
  return textOf(asset, &Asset::caption);
}

paperloom_text paperloom_asset_copyright(const paperloom_asset* asset) {
  return textOf(asset, &Asset::copyright);
}

paperloom_text paperloom_asset_alt_text(const paperloom_asset* asset) {
  return textOf(asset, &Asset::altText);
}

paperloom_text paperloom_asset_video_embed_id(const paperloom_asset* asset) {
  return textOf(asset, &Asset::videoEmbedId);
}

paperloom_text paperloom_asset_video_duration(const paperloom_asset* asset) {
  return textOf(asset, &Asset::videoDuration);
}

size_t paperloom_asset_rendition_count(const paperloom_asset* asset) {
  return countOf(asset, &Asset::renditions);
}

const paperloom_rendition* paperloom_asset_rendition_at(const paperloom_asset* asset,
                                                        size_t index) {
  return partAt<paperloom_rendition>(asset, &Asset::renditions, index);
}

const paperloom_rendition* paperloom_asset_rendition_for(const paperloom_asset* asset, double width,
                                                         double pixel_density) {
  if (asset == nullptr) return nullptr;
  return handle<paperloom_rendition>(renditionFor(record(asset), width, pixel_density));
}

paperloom_text paperloom_rendition_url(const paperloom_rendition* rendition) {
  return textOf(rendition, &Asset::Rendition::url);
}

int64_t paperloom_rendition_width(const paperloom_rendition* rendition) {
  return valueOf(rendition, &Asset::Rendition::width);
}

int64_t paperloom_rendition_height(const paperloom_rendition* rendition) {
  return valueOf(rendition, &Asset::Rendition::height);
}

// The article.

paperloom_text paperloom_article_headline(const paperloom_article* article) {
  return textOf(article, &ArticleProtocol::headline);
}

enum paperloom_article_type paperloom_article_type(const paperloom_article* article) {
  return article != nullptr ? enumerator(record(article).type()) : PAPERLOOM_ARTICLE_UNKNOWN;
}

paperloom_text paperloom_article_page_id(const paperloom_article* article) {
  return textOf(article, &ArticleProtocol::pageID);
}

paperloom_text paperloom_article_website_url(const paperloom_article* article) {
  return textOf(article, &ArticleProtocol::websiteURL);
}

paperloom_text paperloom_article_ad_zone(const paperloom_article* article) {
  return textOf(article, &ArticleProtocol::adZone);
}

paperloom_text paperloom_article_business_segment(const paperloom_article* article) {
  return textOf(article, &ArticleProtocol::businessSegment);
}

bool paperloom_article_is_premium(const paperloom_article* article) {
  return valueOf(article, &ArticleProtocol::isPremium);
}

bool paperloom_article_is_sponsored(const paperloom_article* article) {
  return valueOf(article, &ArticleProtocol::sponsored);
}

bool paperloom_article_can_inject_outbrain(const paperloom_article* article) {
  return valueOf(article, &ArticleProtocol::canInjectOutbrain);
}

enum paperloom_call_to_action paperloom_article_call_to_action(const paperloom_article* article) {
  return article != nullptr ? enumerator(record(article).callToAction()) : PAPERLOOM_CALL_NONE;
}

enum paperloom_wall_type paperloom_article_wall_type(const paperloom_article* article) {
  return article != nullptr ? enumerator(record(article).wallType()) : PAPERLOOM_WALL_NONE;
}

bool paperloom_article_published_time(const paperloom_article* article, int64_t* time) {
  return article != nullptr && give(record(article).publishedTime(), time);
}

bool paperloom_article_rating(const paperloom_article* article, int64_t* rating) {
  return article != nullptr && give(record(article).rating(), rating);
}

size_t paperloom_article_author_count(const paperloom_article* article) {
  return countOf(article, &ArticleProtocol::authors);
}

const paperloom_author* paperloom_article_author_at(const paperloom_article* article,
                                                    size_t index) {
  return partAt<paperloom_author>(article, &ArticleProtocol::authors, index);
}

const paperloom_block* paperloom_article_lead_content(const paperloom_article* article) {
  return partOf<paperloom_block>(article, &ArticleProtocol::leadContent);
}

size_t paperloom_article_content_count(const paperloom_article* article) {
  return countOf(article, &ArticleProtocol::contents);
}

const paperloom_block* paperloom_article_content_at(const paperloom_article* article,
                                                    size_t index) {
  return partAt<paperloom_block>(article, &ArticleProtocol::contents, index);
}

const paperloom_sponsor* paperloom_article_sponsor(const paperloom_article* article) {
  return partOf<paperloom_sponsor>(article, &ArticleProtocol::sponsor);
}

const paperloom_registration_wall* paperloom_article_registration_wall(
    const paperloom_article* article) {
  return partOf<paperloom_registration_wall>(article, &ArticleProtocol::registrationWallModel);
}

// Blocks.

enum paperloom_block_kind paperloom_block_kind(const paperloom_block* block) {
  return block != nullptr ? enumerator(record(block)) : PAPERLOOM_BLOCK_UNKNOWN;
}

paperloom_text paperloom_block_text(const paperloom_block* block) {
  return ofBlock<paperloom_text>(block, [](const auto& part) -> paperloom_text {
    if constexpr (requires { part.text; }) return text(part.text);
    if constexpr (requires { part.content; }) return text(part.content);
    if constexpr (requires { part.embedID; }) return text(part.embedID);
    if constexpr (requires { part.embedId; }) return text(part.embedId);
    return {};
  });
}

int32_t paperloom_block_heading_level(const paperloom_block* block) {
  return ofBlock<int32_t>(block, [](const auto& part) -> int32_t {
    if constexpr (requires { part.style; }) return static_cast<int32_t>(rawValue(part.style));
    return 0;
  });
}

const paperloom_asset* paperloom_block_asset(const paperloom_block* block) {
  return ofBlock<const paperloom_asset*>(block, [](const auto& part) -> const paperloom_asset* {
    if constexpr (requires { part.asset; }) return handle<paperloom_asset>(&part.asset);
    return nullptr;
  });
}

paperloom_text paperloom_block_particle(const paperloom_block* block, paperloom_text key) {
  return ofBlock<paperloom_text>(block, [&](const auto& part) -> paperloom_text {
    if constexpr (requires { part.particle; }) {
      const auto entry = part.particle.find(c::string(key).value_or(""));
      if (entry != part.particle.end()) return text(entry->second);
    }
    return {};
  });
}

bool paperloom_block_time(const paperloom_block* block, int64_t* time) {
  return ofBlock<bool>(block, [&](const auto& part) {
    if constexpr (requires { part.time; }) return give(std::optional(part.time), time);
    return false;
  });
}

// Sponsors and walls.

paperloom_text paperloom_sponsor_name(const paperloom_sponsor* sponsor) {
  return textOf(sponsor, &SponsorProtocol::name);
}

paperloom_text paperloom_sponsor_byline(const paperloom_sponsor* sponsor) {
  return textOf(sponsor, &SponsorProtocol::byline);
}

paperloom_text paperloom_sponsor_image_url(const paperloom_sponsor* sponsor) {
  return textOf(sponsor, &SponsorProtocol::imageUrl);
}

paperloom_text paperloom_sponsor_url(const paperloom_sponsor* sponsor) {
  return textOf(sponsor, &SponsorProtocol::url);
}

paperloom_text paperloom_sponsor_campaign_id(const paperloom_sponsor* sponsor) {
  return textOf(sponsor, &SponsorProtocol::campaignId);
}

paperloom_text paperloom_registration_wall_headline(const paperloom_registration_wall* wall) {
  return textOf(wall, &RegistrationWallProtocol::headline);
}

enum paperloom_dismiss_type paperloom_registration_wall_dismiss_type(
    const paperloom_registration_wall* wall) {
  return wall != nullptr ? enumerator(record(wall).dismissType()) : PAPERLOOM_DISMISS_NONE;
}

paperloom_text paperloom_registration_wall_colour(const paperloom_registration_wall* wall,
                                                  int32_t colour) {
  return wall != nullptr ? colourOf(record(wall).wallDecorationColours(), colour)
                         : paperloom_text{};
}

paperloom_text paperloom_registration_wall_register_button_text(
    const paperloom_registration_wall* wall) {
  return textOf(wall, &RegistrationWallProtocol::registerButtonText);
}

paperloom_text paperloom_registration_wall_login_button_text(
    const paperloom_registration_wall* wall) {
  return textOf(wall, &RegistrationWallProtocol::loginButtonText);
}

paperloom_text paperloom_registration_wall_channel(const paperloom_registration_wall* wall) {
  return textOf(wall, &RegistrationWallProtocol::channel);
}

// Pictures.

int32_t paperloom_image_width(const paperloom_image* image) {
  return valueOf(image, &Image::width);
}

int32_t paperloom_image_height(const paperloom_image* image) {
  return valueOf(image, &Image::height);
}

const uint8_t* paperloom_image_pixels(const paperloom_image* image) {
  return image != nullptr ? record(image).pixels().data() : nullptr;
}

// New accounts.

using Registration = RegistrationResponseModelProtocol;

paperloom_text paperloom_registration_id(const paperloom_registration* registration) {
  return textOf(registration, &Registration::id);
}

paperloom_text paperloom_registration_email(const paperloom_registration* registration) {
  return textOf(registration, &Registration::email);
}

paperloom_text paperloom_registration_first_name(const paperloom_registration* registration) {
  return textOf(registration, &Registration::firstName);
}

paperloom_text paperloom_registration_last_name(const paperloom_registration* registration) {
  return textOf(registration, &Registration::lastName);
}

bool paperloom_registration_marketing_email_opt_in(const paperloom_registration* registration) {
  return valueOf(registration, &Registration::marketingEmailOptIn);
}

bool paperloom_registration_marketing_phone_opt_in(const paperloom_registration* registration) {
  return valueOf(registration, &Registration::marketingPhoneOptIn);
}

bool paperloom_registration_marketing_post_opt_in(const paperloom_registration* registration) {
  return valueOf(registration, &Registration::marketingPostOptIn);
}

bool paperloom_registration_marketing_sms_opt_in(const paperloom_registration* registration) {
  return valueOf(registration, &Registration::marketingSMSOptIn);
}

paperloom_text paperloom_registration_token_type(const paperloom_registration* registration) {
  return registration != nullptr ? text(record(registration).token()->tokenType())
                                 : paperloom_text{};
}

paperloom_text paperloom_registration_livefyre_token(const paperloom_registration* registration) {
  return registration != nullptr ? text(record(registration).token()->livefyreToken())
                                 : paperloom_text{};
}

int64_t paperloom_registration_token_expiry(const paperloom_registration* registration) {
  return registration != nullptr
             ? record(registration).token()->expiresIn().time_since_epoch().count()
             : 0;
}
