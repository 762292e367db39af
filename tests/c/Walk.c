/* Reads documents whose every text is named after the place it belongs to. */

#include <string.h>

#include "tests/c/Host.h"

/* What an accessor reads of a handle, and that it reads nothing of none. */
#define TEXT(accessor, handle, expected)   \
  CHECK(same(accessor(handle), expected)); \
  CHECK(accessor(NULL).data == NULL)
#define VALUE(accessor, handle, expected) \
  CHECK(accessor(handle) == (expected));  \
  CHECK(accessor(NULL) == 0)
#define COLOURS(accessor, handle, prefix)                                                \
  CHECK(same(accessor(handle, PAPERLOOM_COLOUR_PRIMARY), prefix "PrimaryColour"));       \
  CHECK(same(accessor(handle, PAPERLOOM_COLOUR_SECONDARY), prefix "SecondaryColour"));   \
  CHECK(same(accessor(handle, PAPERLOOM_COLOUR_ACCESSIBLE), prefix "AccessibleColour")); \
  CHECK(accessor(handle, 77).data == NULL);                                              \
  CHECK(accessor(NULL, PAPERLOOM_COLOUR_PRIMARY).data == NULL)
#define LABELS(accessor, handle)                                                \
  CHECK(same(accessor(handle, PAPERLOOM_BACKGROUND_NORMAL), "onNormal"));       \
  CHECK(same(accessor(handle, PAPERLOOM_BACKGROUND_SECONDARY), "onSecondary")); \
  CHECK(accessor(handle, -1).data == NULL);                                     \
  CHECK(accessor(NULL, PAPERLOOM_BACKGROUND_NORMAL).data == NULL)
/* A list of one. */
#define ONE(count, at, handle)  \
  VALUE(count, handle, 1);      \
  CHECK(at(handle, 1) == NULL); \
  CHECK(at(NULL, 0) == NULL)
#define ONE_TEXT(count, at, handle, expected) \
  VALUE(count, handle, 1);                    \
  CHECK(same(at(handle, 0), expected));       \
  CHECK(at(handle, 1).data == NULL);          \
  CHECK(at(NULL, 0).data == NULL)
#define NUMBER(accessor, handle, expected)                  \
  do {                                                      \
    int64_t number = -1;                                    \
    CHECK(accessor(handle, &number) && number == expected); \
    CHECK(!accessor(handle, NULL));                         \
    CHECK(!accessor(NULL, &number));                        \
  } while (0)

static void walk_asset(const paperloom_asset* asset) {
  VALUE(paperloom_asset_type, asset, PAPERLOOM_ASSET_VIDEO);
  TEXT(paperloom_asset_caption, asset, "caption");
  TEXT(paperloom_asset_copyright, asset, "copyright");
  TEXT(paperloom_asset_alt_text, asset, "altText");
  TEXT(paperloom_asset_video_embed_id, asset, "videoEmbedId");
  TEXT(paperloom_asset_video_duration, asset, "videoDuration");
  ONE(paperloom_asset_rendition_count, paperloom_asset_rendition_at, asset);
  const paperloom_rendition* rendition = paperloom_asset_rendition_at(asset, 0);
  CHECK(paperloom_asset_rendition_for(asset, 320, 2) == rendition);
  CHECK(paperloom_asset_rendition_for(NULL, 320, 2) == NULL);
  TEXT(paperloom_rendition_url, rendition, "rendition");
  VALUE(paperloom_rendition_width, rendition, 640);
  VALUE(paperloom_rendition_height, rendition, 480);
}

static void walk_author(const paperloom_author* author) {
  TEXT(paperloom_author_name, author, "name");
  TEXT(paperloom_author_job_title, author, "jobTitle");
}

static void walk_card(const paperloom_card* card) {
  TEXT(paperloom_card_identifier, card, "qrvId");
  TEXT(paperloom_card_url, card, "url");
  TEXT(paperloom_card_headline, card, "headline");
  TEXT(paperloom_card_video_duration, card, "videoDuration");
  VALUE(paperloom_card_article_type, card, PAPERLOOM_ARTICLE_LIVE);
  VALUE(paperloom_card_type, card, PAPERLOOM_CARD_BESPOKE);
  VALUE(paperloom_card_is_premium, card, true);
  VALUE(paperloom_card_is_sponsored, card, false);
  ONE(paperloom_card_author_count, paperloom_card_author_at, card);
  walk_author(paperloom_card_author_at(card, 0));
  CHECK(paperloom_card_asset(NULL) == NULL);
  walk_asset(paperloom_card_asset(card));
}

static void walk_metadata(const paperloom_app_metadata* metadata) {
  ONE(paperloom_app_metadata_section_metadata_count, paperloom_app_metadata_section_metadata_at,
      metadata);
  const paperloom_section_metadata* section =
      paperloom_app_metadata_section_metadata_at(metadata, 0);
  TEXT(paperloom_section_metadata_uid, section, "uid");
  TEXT(paperloom_section_metadata_display_name, section, "displayName");
  COLOURS(paperloom_section_metadata_colour, section, "section");
  VALUE(paperloom_section_metadata_customization, section, PAPERLOOM_ENABLED_BY_DEFAULT);
  VALUE(paperloom_section_metadata_displays_as_carousel, section, true);
  VALUE(paperloom_section_metadata_shows_sponsored, section, true);
  const paperloom_fallback_cards* cards = paperloom_section_metadata_fallback_cards(section);
  ONE_TEXT(paperloom_fallback_cards_standard_count, paperloom_fallback_cards_standard_at, cards,
           "standard");
  ONE_TEXT(paperloom_fallback_cards_premium_count, paperloom_fallback_cards_premium_at, cards,
           "premium");
  const paperloom_global_metadata* global = paperloom_app_metadata_global_metadata(metadata);
  COLOURS(paperloom_global_metadata_premium_colour, global, "global");
  LABELS(paperloom_global_metadata_premium_label_colour, global);
  CHECK(same(
      paperloom_fallback_cards_standard_at(paperloom_global_metadata_fallback_cards(global), 0),
      "global"));
  CHECK(paperloom_app_metadata_global_metadata(NULL) == NULL);
  CHECK(paperloom_section_metadata_fallback_cards(NULL) == NULL);
  CHECK(paperloom_global_metadata_fallback_cards(NULL) == NULL);
}

void walks_the_front_page(const char* url) {
  paperloom_client* client = new_client(url, NULL);
  struct slot front = {0}, configuration = {0};
  const paperloom_text uid = paperloom_text_from("uid");
  CHECK(paperloom_client_stream(client) == NULL);
  paperloom_request_stream(client, &uid, 1, take, &front);
  const paperloom_stream* stream = paperloom_answer_stream(wait_for(&front));
  paperloom_request_app_metadata(client, take, &configuration);
  walk_metadata(paperloom_answer_app_metadata(wait_for(&configuration)));

  ONE(paperloom_stream_section_count, paperloom_stream_section_at, stream);
  const paperloom_section* section = paperloom_stream_section_at(stream, 0);
  TEXT(paperloom_section_uid, section, "uid");
  TEXT(paperloom_section_page_id, section, "pageId");
  ONE(paperloom_section_card_count, paperloom_section_card_at, section);
  walk_card(paperloom_section_card_at(section, 0));
  ONE(paperloom_stream_sponsored_card_count, paperloom_stream_sponsored_card_at, stream);
  walk_card(paperloom_stream_sponsored_card_at(stream, 0));
  COLOURS(paperloom_stream_premium_colour, stream, "global");
  LABELS(paperloom_stream_premium_label_colour, stream);
  CHECK(paperloom_stream_app_metadata(NULL) == NULL);
  walk_metadata(paperloom_stream_app_metadata(stream));

  CHECK(paperloom_answer_stream(configuration.answer) == NULL);
  CHECK(paperloom_answer_body(front.answer).data == NULL);
  const paperloom_answer* last = paperloom_client_stream(client);
  CHECK(paperloom_answer_stream(last) == stream);
  paperloom_client_release(client);
  paperloom_answer_release(front.answer);
  CHECK(same(paperloom_section_uid(section), "uid")); /* the other answer holds it, too */
  paperloom_answer_release(last);
  paperloom_answer_release(configuration.answer);
}

static void walk_blocks(const paperloom_article* article) {
  static const struct {
    enum paperloom_block_kind kind;
    const char* text; /* NULL when it has none */
    int32_t level;
    bool has_asset;
  } rows[] = {{PAPERLOOM_BLOCK_BODY, "text", 0, false},
              {PAPERLOOM_BLOCK_HEADING, "heading", 3, false},
              {PAPERLOOM_BLOCK_IMAGE, NULL, 0, true},
              {PAPERLOOM_BLOCK_VIDEO, NULL, 0, true},
              {PAPERLOOM_BLOCK_YOUTUBE, "videoEmbedId", 0, false},
              {PAPERLOOM_BLOCK_TWEET, "tweetId", 0, false},
              {PAPERLOOM_BLOCK_PARTICLE, NULL, 0, false},
              {PAPERLOOM_BLOCK_LIVEPOST, NULL, 0, false},
              {PAPERLOOM_BLOCK_UNKNOWN, NULL, 0, false}};
  const size_t count = sizeof rows / sizeof *rows;
  VALUE(paperloom_article_content_count, article, count);
  CHECK(paperloom_article_content_at(article, count) == NULL);
  for (size_t i = 0; i < count; ++i) {
    const paperloom_block* block = paperloom_article_content_at(article, i);
    CHECK(paperloom_block_kind(block) == rows[i].kind);
    CHECK(rows[i].text != NULL ? same(paperloom_block_text(block), rows[i].text)
                               : paperloom_block_text(block).data == NULL);
    CHECK(paperloom_block_heading_level(block) == rows[i].level);
    CHECK((paperloom_block_asset(block) != NULL) == rows[i].has_asset);
    int64_t time = 0;
    CHECK(paperloom_block_time(block, &time) == (rows[i].kind == PAPERLOOM_BLOCK_LIVEPOST));
  }
  NUMBER(paperloom_block_time, paperloom_article_content_at(article, 7), 86400000);
  walk_asset(paperloom_block_asset(paperloom_article_content_at(article, 3)));
  const paperloom_block* particle = paperloom_article_content_at(article, 6);
  CHECK(same(paperloom_block_particle(particle, paperloom_text_from("embedSrc")), "embedSrc"));
  CHECK(paperloom_block_particle(particle, paperloom_text_from("other")).data == NULL);
  CHECK(paperloom_block_particle(NULL, paperloom_text_from("text")).data == NULL);
  CHECK(paperloom_block_asset(NULL) == NULL && paperloom_block_text(NULL).data == NULL);
  VALUE(paperloom_block_kind, particle, PAPERLOOM_BLOCK_PARTICLE);
  VALUE(paperloom_block_heading_level, particle, 0);
}

void walks_an_article(const char* url) {
  paperloom_client* client = new_client(url, NULL);
  struct slot slot = {0};
  char address[64] = {0};
  strcat(strncat(address, url, 48), "/article");
  paperloom_request_article(client, paperloom_text_from(address), take, &slot);
  const paperloom_article* article = paperloom_answer_article(wait_for(&slot));

  TEXT(paperloom_article_headline, article, "headline");
  TEXT(paperloom_article_page_id, article, "pageId");
  TEXT(paperloom_article_website_url, article, "websiteUrl");
  TEXT(paperloom_article_ad_zone, article, "adZone");
  TEXT(paperloom_article_business_segment, article, "businessSegment");
  VALUE(paperloom_article_type, article, PAPERLOOM_ARTICLE_COMMENT);
  VALUE(paperloom_article_is_premium, article, false);
  VALUE(paperloom_article_is_sponsored, article, true);
  VALUE(paperloom_article_can_inject_outbrain, article, false);
  VALUE(paperloom_article_call_to_action, article, PAPERLOOM_CALL_NONE);
  VALUE(paperloom_article_wall_type, article, PAPERLOOM_WALL_REGISTRATION);
  NUMBER(paperloom_article_published_time, article, 1000);
  NUMBER(paperloom_article_rating, article, 4);
  ONE(paperloom_article_author_count, paperloom_article_author_at, article);
  walk_author(paperloom_article_author_at(article, 0));
  CHECK(paperloom_block_kind(paperloom_article_lead_content(article)) == PAPERLOOM_BLOCK_VIDEO);
  CHECK(paperloom_article_lead_content(NULL) == NULL);
  walk_blocks(article);

  const paperloom_sponsor* sponsor = paperloom_article_sponsor(article);
  CHECK(paperloom_article_sponsor(NULL) == NULL);
  TEXT(paperloom_sponsor_name, sponsor, "name");
  TEXT(paperloom_sponsor_byline, sponsor, "byline");
  TEXT(paperloom_sponsor_image_url, sponsor, "image");
  TEXT(paperloom_sponsor_url, sponsor, "url");
  TEXT(paperloom_sponsor_campaign_id, sponsor, "campaignId");
  const paperloom_registration_wall* wall = paperloom_article_registration_wall(article);
  CHECK(paperloom_article_registration_wall(NULL) == NULL);
  TEXT(paperloom_registration_wall_headline, wall, "headline");
  TEXT(paperloom_registration_wall_register_button_text, wall, "registerButtonText");
  TEXT(paperloom_registration_wall_login_button_text, wall, "loginButtonText");
  TEXT(paperloom_registration_wall_channel, wall, "channel");
  VALUE(paperloom_registration_wall_dismiss_type, wall, PAPERLOOM_DISMISS_SOFT);
  COLOURS(paperloom_registration_wall_colour, wall, "wall");
  paperloom_answer_release(slot.answer);
  paperloom_client_release(client);
}
