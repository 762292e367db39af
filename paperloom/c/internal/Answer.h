#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "paperloom/c/paperloom.h"
#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/identity/RegistrationResponseModel.h"
#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/Article.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/model/Stream.h"
#include "paperloom/network/CacheWarmerRequestResult.h"
#include "paperloom/network/FrontPageWarmer.h"
#include "paperloom/network/ProvenanceWords.h"
#include "paperloom/platform/Data.h"
#include "paperloom/platform/Image.h"

namespace paperloom::c {

// The tokens of an answer. Those of a new account may lack a refresh token.
struct Tokens {
  std::string accessToken;
  std::optional<std::string> refreshToken;
  std::string idToken;
};

paperloom_tokens borrowed(const Tokens& tokens);
Tokens tokensOf(const ContentAuthorisationProtocol& authorisation);

using Document = std::variant<std::monostate, std::shared_ptr<const AppMetadataProtocol>,
                              std::shared_ptr<const StreamProtocol>,
                              std::shared_ptr<const ArticleProtocol>, std::shared_ptr<const Image>,
                              std::shared_ptr<const RegistrationResponseModelProtocol>, Data>;

struct Outcome {
  enum paperloom_code code = PAPERLOOM_OK;
  std::string text{};
  Document document{};
  int status = 0;
  std::optional<Provenance> provenance{};  // of the document
  enum paperloom_entitlement entitlement = PAPERLOOM_ENTITLEMENT_UNKNOWN;
  std::optional<Tokens> tokens{};
  std::optional<WarmingSum> warming{};
};

Outcome failure(const PaperloomError& error);
Outcome outcomeOf(const CacheWarmerRequestResult& result);

}  // namespace paperloom::c

// Immutable but for the count of those who hold it.
struct paperloom_answer {
  explicit paperloom_answer(paperloom::c::Outcome result) : outcome(std::move(result)) {
    if (outcome.provenance) sourceText = paperloom::describe(*outcome.provenance);
  }

  const paperloom::c::Outcome outcome;
  std::optional<std::string> sourceText;
  mutable std::atomic<int> holds{1};
};
