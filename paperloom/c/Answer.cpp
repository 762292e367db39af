#include "paperloom/c/internal/Answer.h"

#include <utility>

#include "paperloom/c/internal/Enumerations.h"
#include "paperloom/c/internal/Records.h"
#include "paperloom/c/internal/Struct.h"
#include "paperloom/c/internal/Text.h"

namespace paperloom::c {
namespace {

template <class Handle>
const Handle* documentOf(const paperloom_answer* answer) {
  if (answer == nullptr) return nullptr;
  using Item = std::shared_ptr<const Record<Handle>>;
  const auto* document = std::get_if<Item>(&answer->outcome.document);
  return document != nullptr ? handle<Handle>(document->get()) : nullptr;
}

const Provenance* provenanceOf(const paperloom_answer* answer) {
  if (answer == nullptr || !answer->outcome.provenance) return nullptr;
  return &*answer->outcome.provenance;
}

}  // namespace

paperloom_tokens borrowed(const Tokens& tokens) {
  return {sizeof(paperloom_tokens), text(tokens.accessToken), text(tokens.refreshToken),
          text(tokens.idToken)};
}

Tokens tokensOf(const ContentAuthorisationProtocol& authorisation) {
  return {authorisation.accessToken(), authorisation.refreshToken(), authorisation.idToken()};
}

Outcome failure(const PaperloomError& error) {
  switch (error.which()) {
    case PaperloomError::Case::parsingFailed:
      return {PAPERLOOM_PARSING_FAILED, error.details()};
    case PaperloomError::Case::networkError:
      return {PAPERLOOM_NETWORK_ERROR, error.details()};
    case PaperloomError::Case::configurationError:
      break;
  }
  return {PAPERLOOM_CONFIGURATION_ERROR, error.details()};
}

Outcome outcomeOf(const CacheWarmerRequestResult& result) {
  struct Outcomes {
    Outcome operator()(const cachewarmer::Success& fetched) const {
      return {.document = fetched.data.value_or(Data()), .provenance = Provenance{}};
    }
    Outcome operator()(const cachewarmer::SuccessFromCache& found) const {
      return {.document = found.data.value_or(Data()),
              .provenance = Provenance{.source = Provenance::Source::cache}};
    }
    Outcome operator()(const cachewarmer::FailedStatusCode& failed) const {
      return {.code = PAPERLOOM_STATUS_FAILED,
              .text = "the server answered with status " + std::to_string(failed.statusCode),
              .status = failed.statusCode};
    }
    Outcome operator()(const cachewarmer::NetworkError&) const {
      return {PAPERLOOM_NETWORK_ERROR, "no answer came"};
    }
  };
  return std::visit(Outcomes{}, result);
}

}  // namespace paperloom::c

using namespace paperloom::c;

const paperloom_answer* paperloom_answer_retain(const paperloom_answer* answer) {
  if (answer != nullptr) ++answer->holds;
  return answer;
}

void paperloom_answer_release(const paperloom_answer* answer) {
  if (answer != nullptr && --answer->holds == 0) delete answer;
}

enum paperloom_code paperloom_answer_code(const paperloom_answer* answer) {
  return answer != nullptr ? answer->outcome.code : PAPERLOOM_INVALID_ARGUMENT;
}

paperloom_text paperloom_answer_text(const paperloom_answer* answer) {
  return answer != nullptr ? text(answer->outcome.text) : paperloom_text{};
}

int32_t paperloom_answer_status(const paperloom_answer* answer) {
  return answer != nullptr ? answer->outcome.status : 0;
}

enum paperloom_source paperloom_answer_source(const paperloom_answer* answer) {
  const auto* provenance = provenanceOf(answer);
  return provenance != nullptr ? enumerator(provenance->source) : PAPERLOOM_SOURCE_UNKNOWN;
}

bool paperloom_answer_is_from_cache(const paperloom_answer* answer) {
  const auto* provenance = provenanceOf(answer);
  return provenance != nullptr && provenance->fromCache;
}

bool paperloom_answer_age(const paperloom_answer* answer, int64_t* age) {
  const auto* provenance = provenanceOf(answer);
  return provenance != nullptr && give(provenance->age, age);
}

bool paperloom_answer_fetched_at(const paperloom_answer* answer, int64_t* time) {
  const auto* provenance = provenanceOf(answer);
  return provenance != nullptr && give(provenance->fetchedAt, time);
}

paperloom_text paperloom_answer_source_text(const paperloom_answer* answer) {
  return answer != nullptr ? text(answer->sourceText) : paperloom_text{};
}

enum paperloom_entitlement paperloom_answer_entitlement(const paperloom_answer* answer) {
  return answer != nullptr ? answer->outcome.entitlement : PAPERLOOM_ENTITLEMENT_UNKNOWN;
}

const paperloom_app_metadata* paperloom_answer_app_metadata(const paperloom_answer* answer) {
  return documentOf<paperloom_app_metadata>(answer);
}

const paperloom_stream* paperloom_answer_stream(const paperloom_answer* answer) {
  return documentOf<paperloom_stream>(answer);
}

const paperloom_article* paperloom_answer_article(const paperloom_answer* answer) {
  return documentOf<paperloom_article>(answer);
}

const paperloom_image* paperloom_answer_image(const paperloom_answer* answer) {
  return documentOf<paperloom_image>(answer);
}

const paperloom_registration* paperloom_answer_registration(const paperloom_answer* answer) {
  return documentOf<paperloom_registration>(answer);
}

paperloom_text paperloom_answer_body(const paperloom_answer* answer) {
  if (answer == nullptr) return {};
  const auto* body = std::get_if<paperloom::Data>(&answer->outcome.document);
  return body != nullptr ? text(*body) : paperloom_text{};
}

bool paperloom_answer_tokens(const paperloom_answer* answer, paperloom_tokens* tokens) {
  if (answer == nullptr || !answer->outcome.tokens) return false;
  return writeStruct(borrowed(*answer->outcome.tokens), tokens);
}
