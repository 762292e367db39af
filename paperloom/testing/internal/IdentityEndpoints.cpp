#include "paperloom/testing/internal/IdentityEndpoints.h"

#include <charconv>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "paperloom/platform/Date.h"

namespace paperloom::sample {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr std::size_t shortestAuthKey = 8;

HttpReply withBody(int status, const ordered_json& body) {
  HttpReply reply;
  reply.status = status;
  reply.headers = {{"Cache-Control", "no-store"}};
  if (status == 401) reply.headers.emplace_back("WWW-Authenticate", "Token realm=\"lantern\"");
  reply.body = body.dump(2) + "\n";
  return reply;
}

HttpReply failure(int status, std::string_view reason) {
  return withBody(status, {{"error", reason}});
}

HttpReply badRequest() { return failure(400, "the request is not what this call takes"); }

HttpReply tokensReply(const tl::expected<IdentityStore::Tokens, int>& tokens,
                      std::string_view refusal) {
  if (!tokens) return failure(tokens.error(), refusal);
  return withBody(200, {{"accessToken", tokens->accessToken},
                        {"refreshToken", tokens->refreshToken},
                        {"idToken", tokens->idToken}});
}

// The body as an object that has exactly these members, all of them texts.
std::optional<json> textMembers(const std::string& body, std::initializer_list<const char*> names) {
  json object = json::parse(body, nullptr, false);
  if (!object.is_object() || object.size() != names.size()) return std::nullopt;
  for (const char* name : names) {
    const auto member = object.find(name);
    if (member == object.end() || !member->is_string()) return std::nullopt;
  }
  return object;
}

std::string text(const json& object, const char* name) {
  return object.at(name).get<std::string>();
}

std::optional<int> statusAfter(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) return std::nullopt;
  name.remove_prefix(prefix.size());
  int status = 0;
  const auto [stop, error] = std::from_chars(name.data(), name.data() + name.size(), status);
  if (error != std::errc{} || stop != name.data() + name.size() || status < 200 || status > 599) {
    return std::nullopt;
  }
  return status;
}

// The misbehaviour that a name asks for, as sampleProvocations() lists them.
std::optional<HttpReply> provoked(std::string_view name) {
  name = name.substr(0, name.find('@'));
  if (const auto status = statusAfter(name, "answer-")) {
    return failure(*status, "the name asked for this");
  }
  HttpReply reply = withBody(200, {{"accessToken", "a token that nobody will read to its end"}});
  if (const auto status = statusAfter(name, "empty-")) {
    reply.status = *status;
    reply.body.clear();
  } else if (name == "garbled") {
    reply.body = "<html>The service is being repaired</html>";
  } else if (name == "silence") {
    reply.delivery = HttpReply::Delivery::silent;
  } else if (name == "cut") {
    reply.delivery = HttpReply::Delivery::cut;
    reply.cutBodyAt = reply.body.size() / 2;
  } else {
    return std::nullopt;
  }
  return reply;
}

}  // namespace

HttpReply IdentityEndpoints::answer(const HttpRequest& request) {
  const std::string_view call = std::string_view(request.path).substr(sizeof "/identity/" - 1);
  const bool isPost = request.method == "POST";
  if (call == "entitlement") {
    const bool isGet = request.method == "GET" || request.method == "HEAD";
    return isGet ? entitlement(request) : failure(405, "this call is a GET");
  }
  const bool known = call == "token" || call == "refreshToken" || call == "register/account" ||
                     call == "delete/email" || call == "delete/facebook" || call == "delete/google";
  if (!known) return failure(404, "there is no such call");
  if (!isPost) return failure(405, "this call is a POST");
  const auto type = request.header("Content-Type");
  if (!type || !type->starts_with("application/json")) {
    return failure(415, "this call takes JSON");
  }
  if (call == "token") return token(request);
  if (call == "refreshToken") return refreshToken(request);
  if (call == "register/account") return registerAccount(request);
  return removeLink(call == "delete/email"      ? IdentityStore::Link::email
                    : call == "delete/facebook" ? IdentityStore::Link::facebook
                                                : IdentityStore::Link::google,
                    request);
}

HttpReply IdentityEndpoints::token(const HttpRequest& request) {
  const auto body = textMembers(request.body, {"identifier", "authKey", "credentialType"});
  if (!body) return badRequest();
  const std::string identifier = text(*body, "identifier");
  const std::string credentialType = text(*body, "credentialType");
  if (credentialType != "EMAIL_PASSWORD" && credentialType != "KX_NUMBER") return badRequest();
  if (auto reply = provoked(identifier)) return *reply;
  return tokensReply(
      store_.login(identifier, text(*body, "authKey"), credentialType, currentDate()),
      "no account has this identifier and key");
}

HttpReply IdentityEndpoints::refreshToken(const HttpRequest& request) {
  const auto body = textMembers(request.body, {"refreshToken"});
  if (!body) return badRequest();
  const std::string refreshToken = text(*body, "refreshToken");
  if (auto reply = provoked(refreshToken)) return *reply;
  return tokensReply(store_.refresh(refreshToken, currentDate()), "this token cannot be refreshed");
}

HttpReply IdentityEndpoints::entitlement(const HttpRequest& request) {
  const std::string accessToken = request.header("Authorization").value_or("");
  if (auto reply = provoked(accessToken)) return *reply;
  const int status = store_.entitlement(accessToken, currentDate());
  if (status == 200) return withBody(200, {{"entitlement", "premium"}});
  if (status == 403) return withBody(403, {{"entitlement", "notPremium"}});
  return failure(status, "the entitlement cannot be told for this token");
}

HttpReply IdentityEndpoints::registerAccount(const HttpRequest& request) {
  json body = json::parse(request.body, nullptr, false);
  if (!body.is_object()) return badRequest();
  const auto optIn = body.find("marketingEmailOptIn");
  if (optIn == body.end() || !optIn->is_boolean()) return badRequest();
  const bool marketingEmailOptIn = optIn->get<bool>();
  body.erase(optIn);
  const auto texts = textMembers(body.dump(), {"email", "firstName", "lastName", "authKey"});
  if (!texts) return badRequest();

  const IdentityStore::NewAccount wanted{text(*texts, "email"), text(*texts, "authKey"),
                                         text(*texts, "firstName"), text(*texts, "lastName")};
  if (auto reply = provoked(wanted.email)) return *reply;
  const auto at = wanted.email.find('@');
  if (at == 0 || at == std::string::npos || at + 1 == wanted.email.size() ||
      wanted.authKey.size() < shortestAuthKey) {
    return failure(400, "the e-mail is none, or the key has fewer than 8 characters");
  }
  const auto made = store_.registerAccount(wanted, currentDate());
  if (!made) {
    return failure(made.error(), made.error() == 409 ? "this e-mail has an account already"
                                                     : "no more accounts are taken");
  }
  const auto lifetime = std::chrono::duration_cast<std::chrono::seconds>(store_.tokenLifetime());
  ordered_json token = {{"accessToken", made->tokens.accessToken},
                        {"expiresIn", lifetime.count()},
                        {"idToken", made->tokens.idToken},
                        {"livefyreToken", "comments-" + made->id.substr(made->id.rfind('/') + 1)},
                        {"tokenType", "Bearer"}};
  if (!wanted.email.starts_with("no-refresh")) token["refreshToken"] = made->tokens.refreshToken;
  return withBody(201, {{"@id", made->id},
                        {"token", token},
                        {"email", wanted.email},
                        {"firstName", wanted.firstName},
                        {"lastName", wanted.lastName},
                        {"marketingEmailOptIn", marketingEmailOptIn},
                        {"marketingPhoneOptIn", false},
                        {"marketingPostOptIn", false},
                        {"marketingSMSOptIn", false}});
}

HttpReply IdentityEndpoints::removeLink(IdentityStore::Link link, const HttpRequest& request) {
  const bool isEmail = link == IdentityStore::Link::email;
  const auto body = isEmail ? textMembers(request.body, {"email", "token"})
                            : textMembers(request.body, {"token"});
  if (!body) return badRequest();
  const std::string email = isEmail ? text(*body, "email") : std::string();
  const std::string token = text(*body, "token");
  if (auto reply = provoked(token)) return *reply;
  if (auto reply = provoked(email)) return *reply;
  const int status = store_.removeLink(link, token, email, currentDate());
  if (status == 200) return withBody(200, {{"removed", true}});
  return failure(status, status == 401 ? "this token is not accepted"
                                       : "the account has no such sign-in details");
}

}  // namespace paperloom::sample
