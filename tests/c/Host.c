#include "tests/c/Host.h"

#include <poll.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

void take(void* user_data, const paperloom_answer* answer) {
  struct slot* slot = user_data;
  if (slot->answer == NULL) slot->answer = paperloom_answer_retain(answer);
  slot->thread = pthread_self();
  ++slot->calls;
}

const paperloom_answer* wait_for(struct slot* slot) {
  struct pollfd loop = {.fd = paperloom_file_descriptor(), .events = POLLIN};
  while (slot->answer == NULL && poll(&loop, 1, 20000) > 0) paperloom_run_pending();
  CHECK(slot->answer != NULL);
  return slot->answer;
}

bool same(paperloom_text text, const char* expected) {
  return text.data != NULL && text.length == strlen(expected) &&
         memcmp(text.data, expected, text.length + 1) == 0;
}

paperloom_client* new_client(const char* content_url, const char* identity_url) {
  const paperloom_configuration configuration = {
      .size = sizeof configuration,
      .content_url = paperloom_text_from(content_url),
      .identity_url = paperloom_text_from(identity_url),
      .request_timeout = 15000,
  };
  return paperloom_client_create(&configuration, NULL);
}

static enum paperloom_code code_of(struct slot* slot) {
  const enum paperloom_code code = paperloom_answer_code(wait_for(slot));
  CHECK((paperloom_answer_text(slot->answer).length == 0) == (code == PAPERLOOM_OK));
  return code;
}

static void empty(struct slot* slots, size_t count) {
  while (paperloom_run_pending() > 0) continue;
  for (size_t i = 0; i < count; ++i) {
    CHECK(slots[i].calls == 1);
    CHECK(pthread_equal(slots[i].thread, pthread_self()));
    paperloom_answer_release(slots[i].answer);
  }
}

void reads_the_sample_paper(const char* url) {
  paperloom_client* client = new_client(url, NULL);
  struct slot slots[9] = {{0}};
  const paperloom_text sections[] = {paperloom_text_from("news"), paperloom_text_from("sport")};
  paperloom_request_stream(client, sections, 2, take, &slots[0]);
  const paperloom_stream* stream = paperloom_answer_stream(wait_for(&slots[0]));
  CHECK(paperloom_stream_section_count(stream) == 2);
  CHECK(same(paperloom_section_uid(paperloom_stream_section_at(stream, 1)), "sport"));
  const paperloom_card* card = paperloom_section_card_at(paperloom_stream_section_at(stream, 0), 0);

  paperloom_request_article(client, paperloom_card_url(card), take, &slots[1]);
  const paperloom_article* article = paperloom_answer_article(wait_for(&slots[1]));
  CHECK(same(paperloom_article_headline(article), paperloom_card_headline(card).data));
  CHECK(paperloom_answer_source(slots[1].answer) == PAPERLOOM_SOURCE_NETWORK);
  paperloom_request_article(client, paperloom_card_url(card), take, &slots[6]);
  int64_t fetched_at = 0, age = -1;
  CHECK(paperloom_answer_source(wait_for(&slots[6])) == PAPERLOOM_SOURCE_CACHE);
  CHECK(!paperloom_answer_is_from_cache(slots[6].answer)); /* it is fresh: nobody was asked */
  CHECK(same(paperloom_answer_source_text(slots[1].answer), "from the network"));
  CHECK(paperloom_answer_source_text(NULL).data == NULL);
  CHECK(paperloom_answer_age(slots[6].answer, &age) && age >= 0 && age < 60);
  CHECK(paperloom_answer_fetched_at(slots[6].answer, &fetched_at) && fetched_at > 0);
  CHECK(!paperloom_answer_age(NULL, &age) && !paperloom_answer_fetched_at(slots[0].answer, NULL));
  CHECK(paperloom_time_elapsed_since_last_request() < 60);
  paperloom_request_article_if_older(client, paperloom_card_url(card), 600, take, &slots[7]);
  CHECK(paperloom_answer_source(wait_for(&slots[7])) == PAPERLOOM_SOURCE_CACHE);
  paperloom_request_stream_if_older(client, sections, 2, -1, take, &slots[8]);
  CHECK(paperloom_answer_source(wait_for(&slots[8])) == PAPERLOOM_SOURCE_REVALIDATED);

  const paperloom_rendition* rendition =
      paperloom_asset_rendition_at(paperloom_card_asset(card), 0);
  paperloom_request_image(client, paperloom_rendition_url(rendition), take, &slots[2]);
  const paperloom_image* image = paperloom_answer_image(wait_for(&slots[2]));
  CHECK(paperloom_image_width(image) == paperloom_rendition_width(rendition));
  CHECK(paperloom_image_height(image) == paperloom_rendition_height(rendition));
  CHECK(paperloom_image_pixels(image) != NULL && paperloom_image_pixels(NULL) == NULL);

  paperloom_warm(client, paperloom_card_url(card), false, take, &slots[3]);
  CHECK(paperloom_answer_source(wait_for(&slots[3])) == PAPERLOOM_SOURCE_CACHE);
  CHECK(paperloom_answer_body(slots[3].answer).length > 100);
  paperloom_warm(client, paperloom_card_url(card), true, take, &slots[4]);
  CHECK(paperloom_answer_source(wait_for(&slots[4])) == PAPERLOOM_SOURCE_NETWORK);

  paperloom_request_offline_stream(client, take, &slots[5]);
  CHECK(slots[5].calls == 0);
  CHECK(paperloom_answer_source(wait_for(&slots[5])) == PAPERLOOM_SOURCE_LIBRARY);
  CHECK(paperloom_stream_section_count(paperloom_answer_stream(slots[5].answer)) > 0);
  paperloom_client_release(client);
  empty(slots, 9);
}

/* `url` answers articles with 503 and pictures with 404. */
void answers_every_request_once(const char* url) {
  paperloom_client* client = new_client(url, NULL);
  paperloom_client* nowhere = new_client(NULL, NULL);
  const paperloom_text missing = {NULL, 0}, bad = paperloom_text_from("mailto:a@b");
  const paperloom_tokens tokens = {sizeof tokens, paperloom_text_from("access"),
                                   paperloom_text_from("refresh"), missing};
  char there[2][64] = {{0}};
  strcat(strncat(there[0], url, 40), "/articles/eel-count");
  strcat(strncat(there[1], url, 40), "/images/none.png");
  const paperloom_text article = paperloom_text_from(there[0]);
  const paperloom_text picture = paperloom_text_from(there[1]);

  struct slot slots[22] = {{0}};
  enum paperloom_code expected[22];
  size_t n = 0;
#define ASK(code, request, ...) \
  expected[n] = code;           \
  request(__VA_ARGS__, take, &slots[n++])
  ASK(PAPERLOOM_NETWORK_ERROR, paperloom_request_article, client, article);
  ASK(PAPERLOOM_STATUS_FAILED, paperloom_warm, client, article, true);
  ASK(PAPERLOOM_IMAGE_FAILED, paperloom_request_image, client, picture);
  ASK(PAPERLOOM_CONFIGURATION_ERROR, paperloom_request_app_metadata, nowhere);
  ASK(PAPERLOOM_CONFIGURATION_ERROR, paperloom_request_offline_stream, nowhere);
  ASK(PAPERLOOM_CONFIGURATION_ERROR, paperloom_check_entitlement, nowhere, &tokens);
  ASK(PAPERLOOM_CONFIGURATION_ERROR, paperloom_unlink, nowhere, PAPERLOOM_LINKED_GOOGLE, &tokens,
      missing);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_request_app_metadata, NULL);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_request_stream, client, &missing, 1);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_request_stream, client, NULL, 1);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_request_article, client, missing);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_request_article_if_older, client, bad, 9);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_request_stream_if_older, client, NULL, 1, 9);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_request_image, client, bad);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_warm, client, bad, false);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_login, NULL, 0, article, article);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_login, client, 9, article, article);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_login, client, 0, article, missing);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_refresh_tokens, client, NULL);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_register, client, NULL);
  ASK(PAPERLOOM_INVALID_ARGUMENT, paperloom_unlink, client, PAPERLOOM_LINKED_EMAIL, &tokens,
      missing);
  for (size_t i = 0; i < n; ++i) CHECK(slots[i].calls == 0);
  for (size_t i = 0; i < n; ++i) CHECK(code_of(&slots[i]) == expected[i]);
  CHECK(paperloom_answer_status(slots[0].answer) == 503);
  CHECK(paperloom_answer_status(slots[1].answer) == 503);
  CHECK(paperloom_answer_status(slots[2].answer) == 404);
  CHECK(paperloom_request_article(client, bad, NULL, NULL) == 0);
  CHECK(paperloom_request_article(client, article, NULL, NULL) != 0);
  CHECK(paperloom_answer_code(NULL) == PAPERLOOM_INVALID_ARGUMENT);
  paperloom_client_release(client);
  paperloom_client_release(nowhere);
  paperloom_client_release(NULL);
  paperloom_answer_release(NULL);
  empty(slots, n);
}

/* `url` never answers articles; identity answers take their time. */
void ends_what_a_released_client_leaves(const char* url, const char* identity_url) {
  paperloom_client* client = new_client(url, identity_url);
  char address[64] = {0};
  strcat(strncat(address, url, 40), "/articles/eel-count");
  struct slot slots[4] = {{0}};
  const paperloom_request first =
      paperloom_request_article(client, paperloom_text_from(address), take, &slots[0]);
  paperloom_request_article(client, paperloom_text_from(address), take, &slots[1]);
  const paperloom_request done =
      paperloom_request_article(client, paperloom_text_from(""), take, &slots[2]);
  const paperloom_request login = paperloom_login(
      client, PAPERLOOM_EMAIL_AND_PASSWORD, paperloom_text_from("premium@lantern.example"),
      paperloom_text_from("lighthouse-7"), take, &slots[3]);
  CHECK(!paperloom_cancel(client, login) && !paperloom_cancel(client, done));
  CHECK(paperloom_cancel(client, first) && slots[0].calls == 0);
  CHECK(code_of(&slots[0]) == PAPERLOOM_CANCELLED);
  CHECK(!paperloom_cancel(client, first) && !paperloom_cancel(NULL, first));
  CHECK(slots[1].calls == 0);
  paperloom_client_release(client);
  CHECK(code_of(&slots[1]) == PAPERLOOM_CANCELLED);
  CHECK(code_of(&slots[3]) == PAPERLOOM_OK);
  CHECK(paperloom_answer_entitlement(slots[3].answer) == PAPERLOOM_ENTITLEMENT_PREMIUM);
  empty(slots, 4);
}

struct keeper {
  int calls;
  char refresh_token[4096];
};

static void keep_tokens(void* user_data, const paperloom_tokens* tokens) {
  struct keeper* keeper = user_data;
  ++keeper->calls;
  snprintf(keeper->refresh_token, sizeof keeper->refresh_token, "%s", tokens->refresh_token.data);
}

void keeps_a_login(const char* identity_url) {
  struct keeper keeper = {0};
  const paperloom_configuration configuration = {.size = sizeof configuration,
                                                 .identity_url = paperloom_text_from(identity_url),
                                                 .keep_tokens = keep_tokens,
                                                 .keep_user_data = &keeper};
  paperloom_client* client = paperloom_client_create(&configuration, NULL);
  struct slot slots[7] = {{0}};
  paperloom_tokens tokens = {.size = sizeof tokens};

  /* The access token of this login is past its time. */
  paperloom_login(client, PAPERLOOM_EMAIL_AND_PASSWORD,
                  paperloom_text_from("expired@lantern.example"), paperloom_text_from("lowtide-5"),
                  take, &slots[0]);
  CHECK(code_of(&slots[0]) == PAPERLOOM_OK);
  CHECK(paperloom_answer_tokens(slots[0].answer, &tokens) && keeper.calls == 0);
  paperloom_check_entitlement(client, &tokens, take, &slots[1]);
  CHECK(code_of(&slots[1]) == PAPERLOOM_OK && keeper.calls == 1);
  CHECK(paperloom_answer_entitlement(slots[1].answer) == PAPERLOOM_ENTITLEMENT_PREMIUM);
  const paperloom_text old = tokens.refresh_token;
  CHECK(paperloom_answer_tokens(slots[1].answer, &tokens));
  CHECK(same(tokens.refresh_token, keeper.refresh_token) && !same(old, keeper.refresh_token));

  paperloom_check_entitlement(client, &tokens, take, &slots[2]);
  CHECK(code_of(&slots[2]) == PAPERLOOM_OK && keeper.calls == 1);
  CHECK(!paperloom_answer_tokens(slots[2].answer, &tokens));
  paperloom_refresh_tokens(client, &tokens, take, &slots[3]);
  CHECK(code_of(&slots[3]) == PAPERLOOM_OK && keeper.calls == 2);
  CHECK(paperloom_answer_tokens(slots[3].answer, &tokens));

  paperloom_login(client, PAPERLOOM_EMAIL_AND_PASSWORD,
                  paperloom_text_from("reader@lantern.example"), paperloom_text_from("wrong"), take,
                  &slots[4]);
  CHECK(code_of(&slots[4]) == PAPERLOOM_WRONG_CREDENTIALS);
  tokens.access_token = tokens.refresh_token = paperloom_text_from("made up");
  paperloom_check_entitlement(client, &tokens, take, &slots[5]);
  CHECK(code_of(&slots[5]) == PAPERLOOM_LOGIN_REQUIRED);
  paperloom_login(client, PAPERLOOM_SUBSCRIBER_NUMBER, paperloom_text_from("KX204417"),
                  paperloom_text_from("quayside-9"), take, &slots[6]);
  CHECK(code_of(&slots[6]) == PAPERLOOM_OK);
  paperloom_client_release(client);
  empty(slots, 7);
}

void makes_and_unlinks_accounts(const char* identity_url) {
  paperloom_client* client = new_client(NULL, identity_url);
  struct slot slots[7] = {{0}};
  const paperloom_text email = paperloom_text_from("new@lantern.example");
  const paperloom_new_account account = {.size = sizeof account,
                                         .email = email,
                                         .password = paperloom_text_from("password"),
                                         .first_name = paperloom_text_from("First"),
                                         .last_name = paperloom_text_from("Last"),
                                         .marketing_opt_in = true};
  paperloom_register(client, &account, take, &slots[0]);
  CHECK(code_of(&slots[0]) == PAPERLOOM_OK);
  const paperloom_registration* made = paperloom_answer_registration(slots[0].answer);
  CHECK(same(paperloom_registration_email(made), email.data));
  CHECK(same(paperloom_registration_first_name(made), "First"));
  CHECK(same(paperloom_registration_last_name(made), "Last"));
  CHECK(paperloom_registration_marketing_email_opt_in(made));
  CHECK(!paperloom_registration_marketing_phone_opt_in(made));
  CHECK(paperloom_registration_id(made).length > 0 && paperloom_registration_id(NULL).data == NULL);
  CHECK(paperloom_registration_token_expiry(made) > 0);
  CHECK(paperloom_registration_token_expiry(NULL) == 0);
  CHECK(paperloom_registration_token_type(made).length > 0);
  CHECK(paperloom_registration_livefyre_token(NULL).data == NULL);
  paperloom_tokens tokens = {.size = sizeof tokens};
  CHECK(paperloom_answer_tokens(slots[0].answer, &tokens));

  paperloom_register(client, &account, take, &slots[1]);
  CHECK(code_of(&slots[1]) == PAPERLOOM_DUPLICATE_ACCOUNT);
  const paperloom_text none = {NULL, 0};
  paperloom_unlink(client, PAPERLOOM_LINKED_EMAIL, &tokens, email, take, &slots[2]);
  CHECK(code_of(&slots[2]) == PAPERLOOM_OK);

  /* An account that all three details are linked to. */
  paperloom_login(client, PAPERLOOM_EMAIL_AND_PASSWORD,
                  paperloom_text_from("premium@lantern.example"),
                  paperloom_text_from("lighthouse-7"), take, &slots[6]);
  CHECK(paperloom_answer_tokens(wait_for(&slots[6]), &tokens));
  paperloom_unlink(client, PAPERLOOM_LINKED_FACEBOOK, &tokens, none, take, &slots[3]);
  CHECK(code_of(&slots[3]) == PAPERLOOM_OK);
  paperloom_unlink(client, PAPERLOOM_LINKED_GOOGLE, &tokens, none, take, &slots[4]);
  CHECK(code_of(&slots[4]) == PAPERLOOM_OK);
  tokens.access_token = paperloom_text_from("made up");
  paperloom_unlink(client, PAPERLOOM_LINKED_GOOGLE, &tokens, none, take, &slots[5]);
  CHECK(code_of(&slots[5]) == PAPERLOOM_NETWORK_ERROR);
  CHECK(same(paperloom_answer_text(slots[5].answer), "Response code 401"));
  paperloom_client_release(client);
  empty(slots, 7);
}

struct heard {
  struct slot slot; /* first: it takes the answer */
  paperloom_client* client;
  size_t documents, missing, total;
  int64_t bytes;
  int events[PAPERLOOM_EVENT_WARMING_PROGRESS + 1];
};

static void hear(void* user_data, const paperloom_event* event) {
  struct heard* heard = user_data;
  ++heard->events[event->kind];
  if (event->kind == PAPERLOOM_EVENT_REQUEST_STARTED) CHECK(same(event->method, "GET"));
  if (event->kind == PAPERLOOM_EVENT_REQUEST_ANSWERED) {
    CHECK(event->failed == (event->status == 0) && event->duration > 0 && event->request != 0);
  }
  if (event->kind == PAPERLOOM_EVENT_COPY_KEPT) CHECK(event->bytes > 0 && event->url.length > 0);
}

static void progress(void* user_data, const paperloom_warmed_document* document) {
  struct heard* heard = user_data;
  CHECK(heard->slot.calls == 0 && document->url.length > 0);
  CHECK(document->done == ++heard->documents && document->done <= document->total);
  if (document->code != PAPERLOOM_OK) {
    CHECK(document->code == PAPERLOOM_STATUS_FAILED && document->status == 404);
    ++heard->missing;
  }
  heard->total = document->total;
  heard->bytes = document->bytes;
}

static void stop(void* user_data, const paperloom_warmed_document* document) {
  struct heard* heard = user_data;
  CHECK(heard->documents++ == 0 && document->done == 1);
  paperloom_client_release(heard->client);
}

/* `url` answers /images with 404. */
void warms_a_front_page(const char* url) {
  const paperloom_text sections[] = {paperloom_text_from("news"), paperloom_text_from("sport")};
  const paperloom_warming_plan plan = {
      .size = sizeof plan, .front_page = true, .sections = sections, .section_count = 2};
  paperloom_warming_plan other = plan, bad[] = {plan, plan, plan};
  paperloom_warming_sum sum = {.size = sizeof sum};
  struct heard all = {.client = new_client(url, NULL)}, none = {.client = all.client}, refused[3];
  paperloom_set_event_callback(hear, &all);
  paperloom_warm_front_page(all.client, &plan, progress, take, &all);
  CHECK(code_of(&all.slot) == PAPERLOOM_OK);
  CHECK(paperloom_answer_warming_sum(all.slot.answer, &sum));
  CHECK(sum.end == PAPERLOOM_WARMING_COMPLETE && sum.size == sizeof sum);
  CHECK(sum.fetched > 0 && sum.failed > 0 && sum.failed == all.missing && sum.left_out == 0);
  CHECK(sum.fetched + sum.failed == all.documents && all.total == all.documents);
  CHECK(sum.bytes == all.bytes && sum.bytes > 0 && sum.lost == 0);
  CHECK(paperloom_answer_lost_at(all.slot.answer, 0).data == NULL);
  while (paperloom_run_pending() > 0) continue;
  CHECK(all.events[PAPERLOOM_EVENT_WARMING_PROGRESS] == (int)all.documents);
  CHECK(all.events[PAPERLOOM_EVENT_REQUEST_STARTED] ==
        all.events[PAPERLOOM_EVENT_REQUEST_ANSWERED]);
  CHECK(all.events[PAPERLOOM_EVENT_REQUEST_STARTED] > (int)all.documents); /* and the front page */
  CHECK(all.events[PAPERLOOM_EVENT_COPY_KEPT] >= (int)sum.fetched);
  paperloom_set_event_callback(NULL, NULL);

  const paperloom_text culture = paperloom_text_from("culture"); /* nothing of it is there yet */
  other.sections = &culture;
  other.section_count = 1;
  other.maximum_bytes = 1;
  paperloom_warm_front_page(all.client, &other, NULL, take, &none.slot);
  CHECK(code_of(&none.slot) == PAPERLOOM_OK);
  CHECK(paperloom_answer_warming_sum(none.slot.answer, &sum));
  CHECK(sum.end == PAPERLOOM_WARMING_OUT_OF_BYTES && sum.left_out > 0 && sum.fetched == 0);

  bad[0].size = 8;
  bad[1].maximum_time = -1;
  bad[2].documents = sections;
  bad[2].document_count = 1;
  for (size_t i = 0; i < 3; ++i) {
    refused[i] = (struct heard){.client = all.client};
    CHECK(paperloom_warm_front_page(all.client, &bad[i], progress, take, &refused[i]) == 0);
    CHECK(code_of(&refused[i].slot) == PAPERLOOM_INVALID_ARGUMENT);
    empty(&refused[i].slot, 1);
  }

  /* A client that is released while it warms, from within. */
  struct heard ended = {.client = all.client};
  paperloom_warm_front_page(all.client, &plan, stop, take, &ended);
  CHECK(code_of(&ended.slot) == PAPERLOOM_CANCELLED && ended.documents == 1);
  CHECK(!paperloom_answer_warming_sum(ended.slot.answer, &sum));
  empty(&all.slot, 1);
  empty(&none.slot, 1);
  empty(&ended.slot, 1);
  CHECK(all.events[PAPERLOOM_EVENT_WARMING_PROGRESS] == (int)all.documents);
}

void reads_structs_of_other_versions(const char* url) {
  struct {
    paperloom_configuration known;
    char later[64];
  } newer = {.known = {.size = sizeof newer}};
  memset(newer.later, 'x', sizeof newer.later);
  paperloom_client* client = paperloom_client_create(&newer.known, NULL);
  CHECK(client != NULL);
  paperloom_client_release(client);

  const paperloom_text none = {NULL, 0};
  const paperloom_pin nowhere = {none, none};
  paperloom_configuration refused[] = {
      {.size = offsetof(paperloom_configuration, keep_user_data)},
      {.size = 0},
      {.size = sizeof refused[0], .content_url = paperloom_text_from("file:///etc")},
      {.size = sizeof refused[0], .identity_url = paperloom_text_from("")},
      {.size = sizeof refused[0], .cache_disk = -1},
      {.size = sizeof refused[0], .connections = -1},
      {.size = sizeof refused[0], .header_origins = &none, .header_origin_count = 1},
      {.size = sizeof refused[0], .pins = &nowhere, .pin_count = 1}};
  for (size_t i = 0; i < sizeof refused / sizeof *refused; ++i) {
    const paperloom_answer* failure = NULL;
    CHECK(paperloom_client_create(&refused[i], &failure) == NULL);
    CHECK(paperloom_answer_code(failure) == PAPERLOOM_INVALID_ARGUMENT);
    CHECK(paperloom_answer_text(failure).length > 0);
    paperloom_answer_release(failure);
  }
  CHECK(paperloom_client_create(NULL, NULL) == NULL);

  /* What is set reaches the session. */
  const paperloom_configuration narrow = {.size = sizeof narrow,
                                          .content_url = paperloom_text_from(url),
                                          .maximum_body_size = 10,
                                          .cache_folder = paperloom_text_from("")};
  const paperloom_pin pin = {paperloom_text_from("127.0.0.1"), paperloom_text_from("sha256//")};
  const paperloom_header key = {paperloom_text_from("X-App-Key"), paperloom_text_from("secret")};
  paperloom_configuration pinned = narrow, named = narrow;
  named.maximum_body_size = 0;
  pinned.pins = &pin;
  named.headers = &key;
  pinned.pin_count = named.header_count = 1;
  const paperloom_configuration* const set[] = {&narrow, &pinned, &named};
  for (size_t i = 0; i < 3; ++i) {
    client = paperloom_client_create(set[i], NULL);
    struct slot slot = {0};
    paperloom_request_app_metadata(client, take, &slot);
    CHECK(code_of(&slot) == (i < 2 ? PAPERLOOM_NETWORK_ERROR : PAPERLOOM_OK));
    paperloom_client_release(client);
    empty(&slot, 1);
  }

  CHECK(!paperloom_set_application_name(paperloom_text_from("a/b")));
}
