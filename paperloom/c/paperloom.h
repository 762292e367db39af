/*
 * Paperloom for C, and for every language that can call C. Functions, structs and values that stand
 * here keep their meaning and their binary form in every later version: this interface only grows.
 *
 * Answers. A request returns at once. Later, whatever its arguments and however it ends, its
 * callback is called exactly once, with an answer: a code, a text for people, and what was asked
 * for.
 *
 * Threads. All functions but paperloom_run_pending() may be called on any thread, and within
 * callbacks. Callbacks run on the thread that calls paperloom_run_pending(), within that call and
 * never within another; the one exception, paperloom_configuration.keep_tokens, says so. None of
 * these functions throws, and no callback may throw or jump out. When memory runs out the process
 * ends.
 *
 * Lifetime. There is one rule: an answer that a function returns is the caller's, who ends it with
 * paperloom_answer_release(); an answer that a callback is given lives as long as that call, and
 * longer when the callback holds it with paperloom_answer_retain(). Every document, part of a
 * document, text and byte that is read from an answer lives as long as that answer. Answers and
 * what is read from them never change and may be read on several threads at once. Clients are ended
 * with paperloom_client_release(). What a function is given it copies before it returns.
 *
 * Nothing there. Every function takes NULL in place of a handle, and any index. What cannot be read
 * is NULL for a handle, a text of NULL and 0, the count 0, false, 0 for a number, and the first
 * value of an enumeration. An enumeration is taken as int32_t: a value that it does not have reads
 * as nothing, or is an invalid argument. Enumerations grow, too: take a value that you do not know
 * as the first.
 */
#ifndef PAPERLOOM_C_PAPERLOOM_H
#define PAPERLOOM_C_PAPERLOOM_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* UTF-8 text: `length` bytes, not counting a NUL byte that follows those that the library gives. No
 * text at all is NULL and 0; an empty one is not NULL. Texts are taken as they are, so one with a
 * NUL byte inside is whole. */
typedef struct paperloom_text {
  const char* data;
  size_t length;
} paperloom_text;

/* The text of a C string, which it borrows. */
paperloom_text paperloom_text_from(const char* string);

/* major * 1000000 + minor * 1000 + patch, and "major.minor.patch". Everything here is there since
 * 1.0 unless it says otherwise. */
uint32_t paperloom_version(void);
paperloom_text paperloom_version_text(void);

/* ---- The host's loop ------------------------------------------------------------------------- */

/* Polls readable while callbacks wait to be run. One for the whole process; only poll it. */
int paperloom_file_descriptor(void);
/* Runs the callbacks that wait, and returns how many pieces of work that was; never waits. On one
 * thread at a time, not within a callback. In a program that uses the C++ library too, this is its
 * main queue. */
size_t paperloom_run_pending(void);

/* ---- Where files lie ------------------------------------------------------------------------- */

/* For the whole process, before the first client is made; a later call holds for what is opened
 * after it. The name, "paperloom" at first, is that of a folder below the user's cache and
 * configuration folders: false, and no change, unless it can be one. */
bool paperloom_set_application_name(paperloom_text name);
/* An empty text, or none, returns to the user's folder. */
void paperloom_set_caches_directory(paperloom_text path);
void paperloom_set_settings_directory(paperloom_text path);

/* Seconds since content was last fetched fresh from the network, kept across launches; 0 when that
 * lies in the future, and counted from the first call on a new machine. May wait for the disk. */
double paperloom_time_elapsed_since_last_request(void);

/* ---- Answers --------------------------------------------------------------------------------- */

enum paperloom_code {
  PAPERLOOM_OK = 0,
  PAPERLOOM_PARSING_FAILED = 1,      /* a document that does not hold what it must */
  PAPERLOOM_NETWORK_ERROR = 2,       /* no usable answer of the service */
  PAPERLOOM_CONFIGURATION_ERROR = 3, /* the client lacks what the request needs, a URL mostly */
  PAPERLOOM_INVALID_ARGUMENT = 4,    /* nothing was sent */
  PAPERLOOM_CANCELLED = 5,           /* by paperloom_cancel() or paperloom_client_release() */
  PAPERLOOM_IMAGE_FAILED = 6,        /* not fetched, or no picture that can be read */
  PAPERLOOM_STATUS_FAILED = 7,       /* an HTTP status that is no success: see _status() */
  PAPERLOOM_WRONG_CREDENTIALS = 8,   /* of a login */
  PAPERLOOM_LOGIN_REQUIRED = 9,      /* the tokens are accepted no more: log in again */
  PAPERLOOM_IDENTITY_FAILED = 10,    /* any other failure of a login, a check or a registration */
  PAPERLOOM_BAD_REQUEST = 11,        /* what the service refuses to make an account of */
  PAPERLOOM_DUPLICATE_ACCOUNT = 12,  /* the account is there already */
  PAPERLOOM_TIMEOUT = 13             /* a registration without an answer; it may have been made */
};

/* Where the document of an answer came from; unknown without a document, and for one that a client
 * has kept. */
enum paperloom_source {
  PAPERLOOM_SOURCE_UNKNOWN = 0,
  PAPERLOOM_SOURCE_NETWORK = 1,     /* whole from the server */
  PAPERLOOM_SOURCE_CACHE = 2,       /* a stored copy */
  PAPERLOOM_SOURCE_REVALIDATED = 3, /* a stored copy that the server has just confirmed */
  PAPERLOOM_SOURCE_STALE = 4,       /* a stored copy past its freshness, as the directives allow */
  PAPERLOOM_SOURCE_LIBRARY = 5      /* shipped with the library */
};

enum paperloom_entitlement {
  PAPERLOOM_ENTITLEMENT_UNKNOWN = 0,
  PAPERLOOM_ENTITLEMENT_PREMIUM = 1,
  PAPERLOOM_ENTITLEMENT_NOT_PREMIUM = 2
};

/* The tokens that prove a login. The host keeps them, as it would a password. */
typedef struct paperloom_tokens {
  size_t size; /* sizeof(paperloom_tokens), set by the host */
  paperloom_text access_token;
  paperloom_text refresh_token;
  paperloom_text id_token;
} paperloom_tokens;

typedef struct paperloom_answer paperloom_answer;
typedef struct paperloom_app_metadata paperloom_app_metadata;
typedef struct paperloom_stream paperloom_stream;
typedef struct paperloom_article paperloom_article;
typedef struct paperloom_image paperloom_image;
typedef struct paperloom_registration paperloom_registration;

/* `user_data` is what the request was given; the library never looks at it. */
typedef void (*paperloom_callback)(void* user_data, const paperloom_answer* answer);

/* Holds the answer once more, and returns it; each hold is ended by a release. */
const paperloom_answer* paperloom_answer_retain(const paperloom_answer* answer);
void paperloom_answer_release(const paperloom_answer* answer);

/* PAPERLOOM_INVALID_ARGUMENT for NULL. */
enum paperloom_code paperloom_answer_code(const paperloom_answer* answer);
/* What went wrong, in words for people; empty for PAPERLOOM_OK. Holds no token and no password. */
paperloom_text paperloom_answer_text(const paperloom_answer* answer);
/* The HTTP status that the service answered a content request with, also where a copy took the
 * place of the answer: so 404, 410 and 500 are told apart. 0 when no answer came, such as without a
 * network. Of an identity request that of PAPERLOOM_STATUS_FAILED alone. */
int32_t paperloom_answer_status(const paperloom_answer* answer);
enum paperloom_source paperloom_answer_source(const paperloom_answer* answer);
/* Whether the server gave no usable answer, and the stored copy took its place. */
bool paperloom_answer_is_from_cache(const paperloom_answer* answer);
/* Of a stored copy: its age in seconds, and when it, or its last validation, was received, in
 * milliseconds since 1970. False, and no change, where it is not known. */
bool paperloom_answer_age(const paperloom_answer* answer, int64_t* age);
bool paperloom_answer_fetched_at(const paperloom_answer* answer, int64_t* time);

/* Where the document came from in words for people, as of its arrival: "from the cache, fetched 3
 * minutes ago". No text where it is not known. */
paperloom_text paperloom_answer_source_text(const paperloom_answer* answer);

/* What was asked for; NULL when it was something else, or failed. */
const paperloom_app_metadata* paperloom_answer_app_metadata(const paperloom_answer* answer);
const paperloom_stream* paperloom_answer_stream(const paperloom_answer* answer);
const paperloom_article* paperloom_answer_article(const paperloom_answer* answer);
const paperloom_image* paperloom_answer_image(const paperloom_answer* answer);
const paperloom_registration* paperloom_answer_registration(const paperloom_answer* answer);
/* The body that paperloom_warm() found or fetched; any bytes. */
paperloom_text paperloom_answer_body(const paperloom_answer* answer);
enum paperloom_entitlement paperloom_answer_entitlement(const paperloom_answer* answer);
/* The tokens of a login, a refresh or a registration (which may lack a refresh token), and those
 * that an entitlement check had to refresh. Fills what lies within tokens->size; false, and no
 * change, when there are none: then the host's tokens stay good. */
bool paperloom_answer_tokens(const paperloom_answer* answer, paperloom_tokens* tokens);

/* ---- Clients --------------------------------------------------------------------------------- */

/* How a client is set up. A field left at 0 or without a text has its default:
 *   paperloom_configuration configuration = {.size = sizeof configuration};
 */
typedef struct paperloom_header {
  paperloom_text name;
  paperloom_text value;
} paperloom_header;

typedef struct paperloom_pin {
  paperloom_text host;
  paperloom_text key;
} paperloom_pin;

typedef struct paperloom_configuration {
  size_t size;                 /* sizeof(paperloom_configuration), set by the host */
  paperloom_text content_url;  /* the root of the content service */
  paperloom_text identity_url; /* the root of the identity service */

  int64_t request_timeout;     /* milliseconds without a byte, connecting included; 20000 */
  int64_t resource_timeout;    /* milliseconds for a whole request; 600000 */
  int32_t connections;         /* to one host at a time; 6 */
  int64_t maximum_body_size;   /* bytes, after decoding; 32 MiB */
  paperloom_text certificates; /* path of a PEM file trusted beside the system's */
  paperloom_text proxy;        /* URL; else http_proxy, https_proxy, all_proxy and no_proxy count */

  /* Folders below that of the caches, or absolute; an empty text keeps the cache in memory. */
  paperloom_text cache_folder;          /* "url-cache" */
  int64_t cache_memory;                 /* bytes; 8 MiB */
  int64_t cache_disk;                   /* bytes; 100 MiB */
  paperloom_text identity_cache_folder; /* "auth-url-cache", 10 MiB in memory and on disk */

  /* Called with the tokens that every refresh brings, before anything is done with them: the
   * service may have ended the old ones, so a host that keeps them here loses no login whatever
   * comes after. ON A THREAD OF THE LIBRARY, possibly after paperloom_client_release() until the
   * last identity request is answered. `tokens` lives as long as the call. */
  void (*keep_tokens)(void* keep_user_data, const paperloom_tokens* tokens);
  void* keep_user_data;

  paperloom_text user_agent_product; /* what User-Agent begins with, as "ExampleNews/2.1" */
  /* Fields of every request. Those that say nothing of the user, such as Accept-Language, go to
   * every server; all others, such as an app's key, to the origins (scheme, host and port) of
   * content_url, of identity_url and of the URLs in `header_origins`. */
  const paperloom_header* headers;
  size_t header_count;
  const paperloom_text* header_origins;
  size_t header_origin_count;
  /* The public keys that the server of a host may have, as "sha256//" and the base64 of the SHA-256
   * of the key; one that fits is enough, so give one to fall back on. A host that is named is
   * reached over https alone, and with such a key alone. */
  const paperloom_pin* pins;
  size_t pin_count;
} paperloom_configuration;

typedef struct paperloom_client paperloom_client;

/* NULL when the configuration cannot be used: a struct of a smaller size than that of 1.0, a URL
 * that is no http or https URL, a number below 0. Then `failure`, unless it is NULL, is set to an
 * answer that says why; to NULL otherwise. Opens no file and no connection. */
paperloom_client* paperloom_client_create(const paperloom_configuration* configuration,
                                          const paperloom_answer** failure);
/* Ends the client. Its content requests are answered with PAPERLOOM_CANCELLED, its identity
 * requests as usual, both still by paperloom_run_pending(). Waits until no thread is at work for
 * the content. */
void paperloom_client_release(paperloom_client* client);

/* The last configuration document and the last stream that the client received; NULL at first. */
const paperloom_answer* paperloom_client_app_metadata(const paperloom_client* client);
const paperloom_answer* paperloom_client_stream(const paperloom_client* client);

/* ---- Content --------------------------------------------------------------------------------- */

/* Names a request of this process while it is under way; 0 names none. */
typedef uint64_t paperloom_request;

/* The configuration document: how sections are displayed. */
paperloom_request paperloom_request_app_metadata(paperloom_client* client,
                                                 paperloom_callback callback, void* user_data);
/* The front page with `count` sections, named by their uids, in that order. What a list of none
 * means is the service's to say. */
paperloom_request paperloom_request_stream(paperloom_client* client, const paperloom_text* sections,
                                           size_t count, paperloom_callback callback,
                                           void* user_data);
/* The front page that is shipped with the library. Needs a content URL like the other. */
paperloom_request paperloom_request_offline_stream(paperloom_client* client,
                                                   paperloom_callback callback, void* user_data);
/* The article or picture at `url`, as a card or an asset gives it. */
paperloom_request paperloom_request_article(paperloom_client* client, paperloom_text url,
                                            paperloom_callback callback, void* user_data);
paperloom_request paperloom_request_image(paperloom_client* client, paperloom_text url,
                                          paperloom_callback callback, void* user_data);
/* The front page, and an article, for which a copy that was fetched or confirmed no more than
 * `seconds` ago will do: it is the answer then, without traffic. An older one is asked after,
 * however fresh it calls itself. */
paperloom_request paperloom_request_stream_if_older(paperloom_client* client,
                                                    const paperloom_text* sections, size_t count,
                                                    int64_t seconds, paperloom_callback callback,
                                                    void* user_data);
paperloom_request paperloom_request_article_if_older(paperloom_client* client, paperloom_text url,
                                                     int64_t seconds, paperloom_callback callback,
                                                     void* user_data);
/* Makes sure that the cache has an answer for `url`, so that it can be read offline; with
 * `force_refresh` the server is asked even so. The source says whether it was there already. May
 * wait for the disk. */
paperloom_request paperloom_warm(paperloom_client* client, paperloom_text url, bool force_refresh,
                                 paperloom_callback callback, void* user_data);

/* What a front page is warmed with. A field left at 0 or without a text has its default:
 *   paperloom_warming_plan plan = {.size = sizeof plan, .front_page = true};
 */
typedef struct paperloom_warming_plan {
  size_t size;                     /* sizeof(paperloom_warming_plan), set by the host */
  const paperloom_text* documents; /* URLs, fetched first of all */
  size_t document_count;
  /* The front page with these sections, then its articles and the pictures of its cards from the
   * top down, then the pictures within the articles. */
  bool front_page;
  const paperloom_text* sections;
  size_t section_count;
  bool force_refresh; /* ask the server also for what is in the cache */
  /* Pictures are fetched as they are shown where there is room for so many points, on a display of
   * so many pixels a point. */
  double picture_width;  /* 600 */
  double pixel_density;  /* 1 */
  int64_t maximum_bytes; /* taken from the network, beside the front page itself; 100 MiB */
  int64_t maximum_time;  /* milliseconds; what is not there by then is left out; 600000 */
} paperloom_warming_plan;

/* One document that is done with, and how far all are. */
typedef struct paperloom_warmed_document {
  size_t size; /* of the library's struct */
  paperloom_text url;
  int32_t code; /* a paperloom_code; PAPERLOOM_OK when it is there */
  int32_t
      source; /* PAPERLOOM_SOURCE_NETWORK or, when it was there already, PAPERLOOM_SOURCE_CACHE */
  int32_t status; /* of PAPERLOOM_STATUS_FAILED */
  size_t done;
  size_t total;  /* as far as is known: articles bring their pictures */
  int64_t bytes; /* taken from the network so far */
} paperloom_warmed_document;

/* `document` lives as long as the call. */
typedef void (*paperloom_warming_progress)(void* user_data,
                                           const paperloom_warmed_document* document);

enum paperloom_warming_end {
  PAPERLOOM_WARMING_COMPLETE = 0,
  PAPERLOOM_WARMING_OUT_OF_BYTES = 1,
  PAPERLOOM_WARMING_OUT_OF_TIME = 2
};

/* What has come of a warming. */
typedef struct paperloom_warming_sum {
  size_t size; /* sizeof(paperloom_warming_sum), set by the host */
  int32_t end; /* a paperloom_warming_end */
  size_t fetched;
  size_t cached_already;
  size_t failed;
  size_t left_out;       /* for want of bytes or time, or too large */
  int64_t bytes;         /* taken from the network */
  size_t lost;           /* fetched, but not on the disk: paperloom_answer_lost_at() */
  paperloom_text reason; /* why most likely, in words for people */
} paperloom_warming_sum;

/* Fills the cache with what the user may open without a network, one document at a time.
 * `progress`, unless it is NULL, is told of each document, on the thread of callbacks and before
 * `callback`, with the same `user_data`. The answer is PAPERLOOM_OK also when bytes or time ran
 * out; without a front page it says why there is none. Can be cancelled. */
paperloom_request paperloom_warm_front_page(paperloom_client* client,
                                            const paperloom_warming_plan* plan,
                                            paperloom_warming_progress progress,
                                            paperloom_callback callback, void* user_data);
/* The sum of a warming that was not cancelled. Fills what lies within sum->size; false, and no
 * change, when there is none. */
bool paperloom_answer_warming_sum(const paperloom_answer* answer, paperloom_warming_sum* sum);
/* The URL of a document that was fetched and could not be kept. */
paperloom_text paperloom_answer_lost_at(const paperloom_answer* answer, size_t index);

/* Ends a content request: unless its callback has run, it will be called with PAPERLOOM_CANCELLED.
 * False, and no effect, for identity requests, which may have changed an account, and for requests
 * that are answered. */
bool paperloom_cancel(paperloom_client* client, paperloom_request request);

/* ---- What happens ---------------------------------------------------------------------------- */

/* Of what kind an event is, and what it fills beside its kind. Everything else is 0 or no text. */
enum paperloom_event_kind {
  PAPERLOOM_EVENT_UNKNOWN = 0,
  PAPERLOOM_EVENT_REQUEST_STARTED = 1, /* request, method, url, in_background */
  /* request, url, status (0 without an answer), failed, source, server_failed, bytes, duration */
  PAPERLOOM_EVENT_REQUEST_ANSWERED = 2,
  PAPERLOOM_EVENT_COPY_KEPT = 3,        /* url, bytes */
  PAPERLOOM_EVENT_COPY_REFUSED = 4,     /* url, reason */
  PAPERLOOM_EVENT_SECTION_DROPPED = 5,  /* index, reason */
  PAPERLOOM_EVENT_CARD_DROPPED = 6,     /* section, index, reason */
  PAPERLOOM_EVENT_TOKENS_REFRESHED = 7, /* failed; server_failed unless the service refused them */
  PAPERLOOM_EVENT_WARMING_PROGRESS = 8  /* url, failed, done, total, bytes */
};

/* What has happened. No event holds a header, a body, a token or a password; its URL comes without
 * user, query and fragment. */
typedef struct paperloom_event {
  size_t size;        /* of the library's struct */
  int32_t kind;       /* a paperloom_event_kind */
  int32_t status;     /* of HTTP */
  int32_t source;     /* a paperloom_source */
  bool in_background; /* the library's own request: it refreshes a copy that was served stale */
  bool failed;
  bool server_failed; /* and a stored copy took the place of its answer */
  uint64_t request;   /* names it, in its answer too; no paperloom_request */
  paperloom_text method;
  paperloom_text url;
  paperloom_text reason;  /* in words for people */
  paperloom_text section; /* uid of the section that a card stands in */
  size_t index;           /* of a section or card in its document */
  size_t done;
  size_t total;
  int64_t bytes;    /* of bodies; from the network, for an answer and for progress */
  int64_t duration; /* microseconds */
} paperloom_event;

/* `event` and its texts live as long as the call. */
typedef void (*paperloom_event_callback)(void* user_data, const paperloom_event* event);

/* Has `callback` told of every event of the process, by paperloom_run_pending(), in the order in
 * which they happened. One at a time: another one takes its place, NULL takes it away; a program
 * that uses the C++ library too has the same one. What it replaces is not called any more by a
 * later paperloom_run_pending(). */
void paperloom_set_event_callback(paperloom_event_callback callback, void* user_data);

/* ---- Identity -------------------------------------------------------------------------------- */

enum paperloom_credential_type {
  PAPERLOOM_EMAIL_AND_PASSWORD = 0,
  PAPERLOOM_SUBSCRIBER_NUMBER = 1 /* the C++ library's kxNumber */
};

enum paperloom_linked_detail {
  PAPERLOOM_LINKED_EMAIL = 0,
  PAPERLOOM_LINKED_FACEBOOK = 1,
  PAPERLOOM_LINKED_GOOGLE = 2
};

typedef struct paperloom_new_account {
  size_t size; /* sizeof(paperloom_new_account), set by the host */
  paperloom_text email;
  paperloom_text password;
  paperloom_text first_name;
  paperloom_text last_name;
  bool marketing_opt_in; /* by e-mail */
} paperloom_new_account;

/* Brings tokens and the entitlement; one that cannot be learned counts as not premium. */
paperloom_request paperloom_login(paperloom_client* client, int32_t type, paperloom_text identifier,
                                  paperloom_text password, paperloom_callback callback,
                                  void* user_data);
/* What the tokens are entitled to. They are refreshed once when the access token is refused: the
 * answer has new tokens then. */
paperloom_request paperloom_check_entitlement(paperloom_client* client,
                                              const paperloom_tokens* tokens,
                                              paperloom_callback callback, void* user_data);
/* New tokens, and what they are entitled to. */
paperloom_request paperloom_refresh_tokens(paperloom_client* client, const paperloom_tokens* tokens,
                                           paperloom_callback callback, void* user_data);
paperloom_request paperloom_register(paperloom_client* client, const paperloom_new_account* account,
                                     paperloom_callback callback, void* user_data);
/* Removes a way of signing in from the account of the tokens. The e-mail address is looked at for
 * PAPERLOOM_LINKED_EMAIL alone. */
paperloom_request paperloom_unlink(paperloom_client* client, int32_t detail,
                                   const paperloom_tokens* tokens, paperloom_text email,
                                   paperloom_callback callback, void* user_data);

/* ---- Documents ------------------------------------------------------------------------------- */

typedef struct paperloom_section_metadata paperloom_section_metadata;
typedef struct paperloom_global_metadata paperloom_global_metadata;
typedef struct paperloom_fallback_cards paperloom_fallback_cards;
typedef struct paperloom_section paperloom_section;
typedef struct paperloom_card paperloom_card;
typedef struct paperloom_author paperloom_author;
typedef struct paperloom_asset paperloom_asset;
typedef struct paperloom_rendition paperloom_rendition;
typedef struct paperloom_block paperloom_block;
typedef struct paperloom_sponsor paperloom_sponsor;
typedef struct paperloom_registration_wall paperloom_registration_wall;

/* The three colours of a set, hexadecimal texts as the service writes them. */
enum paperloom_colour {
  PAPERLOOM_COLOUR_PRIMARY = 0,
  PAPERLOOM_COLOUR_SECONDARY = 1,
  PAPERLOOM_COLOUR_ACCESSIBLE = 2
};

/* What a label lies on. */
enum paperloom_background { PAPERLOOM_BACKGROUND_NORMAL = 0, PAPERLOOM_BACKGROUND_SECONDARY = 1 };

/* Whether the reader may hide a section, and whether it starts shown. */
enum paperloom_customization {
  PAPERLOOM_CUSTOMIZATION_NONE = 0,
  PAPERLOOM_ALWAYS_ENABLED = 1,
  PAPERLOOM_ENABLED_BY_DEFAULT = 2,
  PAPERLOOM_DISABLED_BY_DEFAULT = 3
};

enum paperloom_article_type {
  PAPERLOOM_ARTICLE_UNKNOWN = 0,
  PAPERLOOM_ARTICLE_STANDARD = 1,
  PAPERLOOM_ARTICLE_VIDEO = 2,
  PAPERLOOM_ARTICLE_LIVE = 3,
  PAPERLOOM_ARTICLE_COMMENT = 4
};

enum paperloom_card_type {
  PAPERLOOM_CARD_NONE = 0,
  PAPERLOOM_CARD_SMALL = 1,
  PAPERLOOM_CARD_MEDIUM = 2,
  PAPERLOOM_CARD_BESPOKE = 3,
  PAPERLOOM_CARD_ADVERT = 4
};

enum paperloom_asset_type {
  PAPERLOOM_ASSET_NONE = 0,
  PAPERLOOM_ASSET_IMAGE = 1,
  PAPERLOOM_ASSET_VIDEO = 2
};

/* One block of a body. A block of a kind that the library does not know keeps its place. */
enum paperloom_block_kind {
  PAPERLOOM_BLOCK_UNKNOWN = 0,
  PAPERLOOM_BLOCK_HEADING = 1,
  PAPERLOOM_BLOCK_BODY = 2,
  PAPERLOOM_BLOCK_BLOCKQUOTE = 3,
  PAPERLOOM_BLOCK_EMBED = 4,
  PAPERLOOM_BLOCK_IMAGE = 5,
  PAPERLOOM_BLOCK_VIDEO = 6,
  PAPERLOOM_BLOCK_YOUTUBE = 7,
  PAPERLOOM_BLOCK_TWEET = 8,
  PAPERLOOM_BLOCK_PARTICLE = 9,
  PAPERLOOM_BLOCK_LIVEPOST = 10
};

/* What the reader is asked to do before reading on. */
enum paperloom_call_to_action {
  PAPERLOOM_CALL_NONE = 0,
  PAPERLOOM_CALL_LOGIN_OR_PURCHASE = 1,
  PAPERLOOM_CALL_PURCHASE = 2
};

/* What stands between the reader and an article. */
enum paperloom_wall_type {
  PAPERLOOM_WALL_NONE = 0,
  PAPERLOOM_WALL_REGISTRATION = 1,
  PAPERLOOM_WALL_PAY = 2
};

/* Whether the reader may close a wall. */
enum paperloom_dismiss_type {
  PAPERLOOM_DISMISS_NONE = 0,
  PAPERLOOM_DISMISS_HARD = 1,
  PAPERLOOM_DISMISS_SOFT = 2
};

/* The configuration document. Its global part is never NULL. */
size_t paperloom_app_metadata_section_metadata_count(const paperloom_app_metadata* app_metadata);
const paperloom_section_metadata* paperloom_app_metadata_section_metadata_at(
    const paperloom_app_metadata* app_metadata, size_t index);
const paperloom_global_metadata* paperloom_app_metadata_global_metadata(
    const paperloom_app_metadata* app_metadata);

/* What holds for every section. */
paperloom_text paperloom_global_metadata_premium_colour(
    const paperloom_global_metadata* global_metadata, int32_t colour);
paperloom_text paperloom_global_metadata_premium_label_colour(
    const paperloom_global_metadata* global_metadata, int32_t background);
const paperloom_fallback_cards* paperloom_global_metadata_fallback_cards(
    const paperloom_global_metadata* global_metadata);

/* How one section is displayed. It has fallback cards only as a carousel. */
paperloom_text paperloom_section_metadata_uid(const paperloom_section_metadata* section_metadata);
paperloom_text paperloom_section_metadata_display_name(
    const paperloom_section_metadata* section_metadata);
paperloom_text paperloom_section_metadata_colour(const paperloom_section_metadata* section_metadata,
                                                 int32_t colour);
enum paperloom_customization paperloom_section_metadata_customization(
    const paperloom_section_metadata* section_metadata);
bool paperloom_section_metadata_displays_as_carousel(
    const paperloom_section_metadata* section_metadata);
bool paperloom_section_metadata_shows_sponsored(const paperloom_section_metadata* section_metadata);
const paperloom_fallback_cards* paperloom_section_metadata_fallback_cards(
    const paperloom_section_metadata* section_metadata);

/* Identifiers of the cards to show when a section has too little content. */
size_t paperloom_fallback_cards_standard_count(const paperloom_fallback_cards* fallback_cards);
paperloom_text paperloom_fallback_cards_standard_at(const paperloom_fallback_cards* fallback_cards,
                                                    size_t index);
size_t paperloom_fallback_cards_premium_count(const paperloom_fallback_cards* fallback_cards);
paperloom_text paperloom_fallback_cards_premium_at(const paperloom_fallback_cards* fallback_cards,
                                                   size_t index);

/* The front page. Its metadata is that of exactly its sections, in their order. */
size_t paperloom_stream_section_count(const paperloom_stream* stream);
const paperloom_section* paperloom_stream_section_at(const paperloom_stream* stream, size_t index);
size_t paperloom_stream_sponsored_card_count(const paperloom_stream* stream);
const paperloom_card* paperloom_stream_sponsored_card_at(const paperloom_stream* stream,
                                                         size_t index);
const paperloom_app_metadata* paperloom_stream_app_metadata(const paperloom_stream* stream);
paperloom_text paperloom_stream_premium_colour(const paperloom_stream* stream, int32_t colour);
paperloom_text paperloom_stream_premium_label_colour(const paperloom_stream* stream,
                                                     int32_t background);

/* A section of the stream, and its cards in the order of the front page. */
paperloom_text paperloom_section_uid(const paperloom_section* section);
paperloom_text paperloom_section_page_id(const paperloom_section* section);
size_t paperloom_section_card_count(const paperloom_section* section);
const paperloom_card* paperloom_section_card_at(const paperloom_section* section, size_t index);

/* The card of one article; `url` is where the article itself is. */
paperloom_text paperloom_card_identifier(const paperloom_card* card);
paperloom_text paperloom_card_url(const paperloom_card* card);
paperloom_text paperloom_card_headline(const paperloom_card* card);
enum paperloom_article_type paperloom_card_article_type(const paperloom_card* card);
enum paperloom_card_type paperloom_card_type(const paperloom_card* card);
bool paperloom_card_is_premium(const paperloom_card* card);
bool paperloom_card_is_sponsored(const paperloom_card* card);
paperloom_text paperloom_card_video_duration(const paperloom_card* card);
const paperloom_asset* paperloom_card_asset(const paperloom_card* card);
size_t paperloom_card_author_count(const paperloom_card* card);
const paperloom_author* paperloom_card_author_at(const paperloom_card* card, size_t index);

/* Who wrote it; the title may be absent. */
paperloom_text paperloom_author_name(const paperloom_author* author);
paperloom_text paperloom_author_job_title(const paperloom_author* author);

/* An image or a video. A rendition comes before all that are at least as wide and as high. */
enum paperloom_asset_type paperloom_asset_type(const paperloom_asset* asset);
paperloom_text paperloom_asset_caption(const paperloom_asset* asset);
paperloom_text paperloom_asset_copyright(const paperloom_asset* asset);
paperloom_text paperloom_asset_alt_text(const paperloom_asset* asset);
paperloom_text paperloom_asset_video_embed_id(const paperloom_asset* asset);
paperloom_text paperloom_asset_video_duration(const paperloom_asset* asset);
size_t paperloom_asset_rendition_count(const paperloom_asset* asset);
const paperloom_rendition* paperloom_asset_rendition_at(const paperloom_asset* asset, size_t index);
/* The rendition to show where there is room for `width` points, on a display of `pixel_density`
 * pixels a point: the narrowest that has enough pixels, else the widest. */
const paperloom_rendition* paperloom_asset_rendition_for(const paperloom_asset* asset, double width,
                                                         double pixel_density);

/* In pixels. */
paperloom_text paperloom_rendition_url(const paperloom_rendition* rendition);
int64_t paperloom_rendition_width(const paperloom_rendition* rendition);
int64_t paperloom_rendition_height(const paperloom_rendition* rendition);

/* What an article says of itself. */
paperloom_text paperloom_article_headline(const paperloom_article* article);
enum paperloom_article_type paperloom_article_type(const paperloom_article* article);
paperloom_text paperloom_article_page_id(const paperloom_article* article);
paperloom_text paperloom_article_website_url(const paperloom_article* article);
paperloom_text paperloom_article_ad_zone(const paperloom_article* article);
paperloom_text paperloom_article_business_segment(const paperloom_article* article);
bool paperloom_article_is_premium(const paperloom_article* article);
bool paperloom_article_is_sponsored(const paperloom_article* article);
bool paperloom_article_can_inject_outbrain(const paperloom_article* article);
enum paperloom_call_to_action paperloom_article_call_to_action(const paperloom_article* article);
enum paperloom_wall_type paperloom_article_wall_type(const paperloom_article* article);
/* False, and no change, without one. Times are milliseconds since 1970, UTC. */
bool paperloom_article_published_time(const paperloom_article* article, int64_t* time);
bool paperloom_article_rating(const paperloom_article* article, int64_t* rating);
size_t paperloom_article_author_count(const paperloom_article* article);
const paperloom_author* paperloom_article_author_at(const paperloom_article* article, size_t index);
/* An image, a video or unknown. */
const paperloom_block* paperloom_article_lead_content(const paperloom_article* article);
size_t paperloom_article_content_count(const paperloom_article* article);
const paperloom_block* paperloom_article_content_at(const paperloom_article* article, size_t index);
const paperloom_sponsor* paperloom_article_sponsor(const paperloom_article* article);
const paperloom_registration_wall* paperloom_article_registration_wall(
    const paperloom_article* article);

/* What a block of a body is: which of the functions below answer for it. */
enum paperloom_block_kind paperloom_block_kind(const paperloom_block* block);
/* Of a heading, body or quote; the content of an embed; the identifier of a video or message of
 * another service. */
paperloom_text paperloom_block_text(const paperloom_block* block);
/* 1 to 6. */
int32_t paperloom_block_heading_level(const paperloom_block* block);
/* Of an image or a video. */
const paperloom_asset* paperloom_block_asset(const paperloom_block* block);
/* The entry "text" or "embedSrc" of a particle, an interactive element. */
paperloom_text paperloom_block_particle(const paperloom_block* block, paperloom_text key);
/* Of the post of a live blog; false, and no change, for other blocks. */
bool paperloom_block_time(const paperloom_block* block, int64_t* time);

/* `image_url` is that of the logo, `url` where a tap on the sponsor leads. */
paperloom_text paperloom_sponsor_name(const paperloom_sponsor* sponsor);
paperloom_text paperloom_sponsor_byline(const paperloom_sponsor* sponsor);
paperloom_text paperloom_sponsor_image_url(const paperloom_sponsor* sponsor);
paperloom_text paperloom_sponsor_url(const paperloom_sponsor* sponsor);
paperloom_text paperloom_sponsor_campaign_id(const paperloom_sponsor* sponsor);

/* The wall in front of an article, as a host draws it. */
paperloom_text paperloom_registration_wall_headline(
    const paperloom_registration_wall* registration_wall);
enum paperloom_dismiss_type paperloom_registration_wall_dismiss_type(
    const paperloom_registration_wall* registration_wall);
paperloom_text paperloom_registration_wall_colour(
    const paperloom_registration_wall* registration_wall, int32_t colour);
paperloom_text paperloom_registration_wall_register_button_text(
    const paperloom_registration_wall* registration_wall);
paperloom_text paperloom_registration_wall_login_button_text(
    const paperloom_registration_wall* registration_wall);
paperloom_text paperloom_registration_wall_channel(
    const paperloom_registration_wall* registration_wall);

/* Pixels of four bytes (red, green, blue, alpha, which is not multiplied in), rows from the top
 * without padding: width * height * 4 bytes. */
int32_t paperloom_image_width(const paperloom_image* image);
int32_t paperloom_image_height(const paperloom_image* image);
const uint8_t* paperloom_image_pixels(const paperloom_image* image);

/* What the identity service says of a new account. Its tokens: paperloom_answer_tokens(). */
paperloom_text paperloom_registration_id(const paperloom_registration* registration);
paperloom_text paperloom_registration_email(const paperloom_registration* registration);
paperloom_text paperloom_registration_first_name(const paperloom_registration* registration);
paperloom_text paperloom_registration_last_name(const paperloom_registration* registration);
bool paperloom_registration_marketing_email_opt_in(const paperloom_registration* registration);
bool paperloom_registration_marketing_phone_opt_in(const paperloom_registration* registration);
bool paperloom_registration_marketing_post_opt_in(const paperloom_registration* registration);
bool paperloom_registration_marketing_sms_opt_in(const paperloom_registration* registration);
paperloom_text paperloom_registration_token_type(const paperloom_registration* registration);
paperloom_text paperloom_registration_livefyre_token(const paperloom_registration* registration);
/* When the access token ends, in milliseconds since 1970. */
int64_t paperloom_registration_token_expiry(const paperloom_registration* registration);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
