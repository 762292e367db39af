#include <fmt/format.h>

#include <iostream>

#include "apps/reader/Commands.h"
#include "apps/reader/FailureJSON.h"
#include "apps/reader/Identity.h"
#include "apps/reader/IdentityJSON.h"
#include "apps/reader/IdentityWords.h"
#include "apps/reader/Password.h"
#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

constexpr auto accountGroup = "Account";
constexpr auto dots = "••••••••";

Account requireAccount(const AccountStore& store) {
  auto account = store.load();
  if (!account) throw Failure("nobody is logged in; see `paperloom login --help`");
  return std::move(*account);
}

// Prints an outcome: its case for programs, `sentence` for people. A case that is a failure ends
// the command as one.
void report(Host& host, const JSON& json, const std::string& sentence, bool failed) {
  if (failed) {
    const auto name = json["case"].get<std::string>();
    Failure failure(name == "error" ? sentence : fmt::format("{}: {}", name, sentence), 1, name);
    failure.details = json.value("details", sentence);
    failure.isPrinted = host.json();
    JSON whole = json;
    whole.update(toJSON(failure));
    if (host.json()) host.output().line(dump(whole));
    throw failure;
  }
  if (host.json()) return host.output().line(dump(json));
  host.output().sentence(sentence);
}

// A remark beside the outcome.
void tell(const std::string& note) {
  if (!note.empty()) std::cerr << note << "\n";
}

void login(Host& host, const std::string& identifier, const std::string& passwordFile) {
  const std::string password = readPassword(passwordFile);
  Identity identity(host, accountStore(host));
  const LoginOperationResult result = identity.login(identifier, password);
  tell(identity.store().note());
  report(host, toJSON(result), sentence(result), result.value.index() > 1);
}

void entitlement(Host& host) {
  Identity identity(host, accountStore(host));
  const auto result = identity.check(requireAccount(identity.store()));
  tell(identity.store().note());
  report(host, toJSON(result), sentence(result, identity.isRefreshed()), result.value.index() > 1);
}

void refresh(Host& host) {
  Identity identity(host, accountStore(host));
  const auto result = identity.refresh(requireAccount(identity.store()));
  tell(identity.store().note());
  report(host, toJSON(result), sentence(result, identity.isRefreshed()), result.value.index() > 0);
}

void registerAccount(Host& host, RegistrationOperation::Arguments arguments,
                     const std::string& passwordFile) {
  arguments.authKey = readPassword(passwordFile);
  Identity identity(host, accountStore(host));
  const auto result = identity.registerAccount(arguments);
  tell(identity.store().note());
  report(host, toJSON(result), sentence(result), result.value.index() > 1);
}

void unlink(Host& host, const std::string& kind, const std::optional<std::string>& email) {
  using Link = Identity::Link;
  static const std::map<std::string, Link> links = {
      {"email", Link::email}, {"facebook", Link::facebook}, {"google", Link::google}};
  const Link link = links.at(kind);
  if (email && link != Link::email) {
    throw usageFailure(fmt::format("--email means nothing to `unlink {}`", kind));
  }
  Identity identity(host, accountStore(host));
  const Account account = requireAccount(identity.store());
  const bool knowsAddress =
      account.credentialType == rawValue(AuthenticationLoginCredentialType::emailAndPassword);
  if (link == Link::email && !email && !knowsAddress) {
    throw usageFailure("the login is none by e-mail; say the address to remove with --email");
  }
  const auto error = identity.unlink(link, account, email.value_or(account.identifier));
  if (!error) {
    return report(host, {{"case", "success"}}, fmt::format("The {} sign-in is removed.", kind),
                  false);
  }
  report(host, {{"case", caseName(error->which())}, {"details", error->details()}},
         unlinkSentence(*error), true);
}

void account(Host& host) {
  const auto stored = accountStore(host).peek();
  if (host.json()) {
    JSON json = {{"loggedIn", stored.has_value()}};
    if (stored) {
      json.update({{"identifier", stored->identifier},
                   {"credentialType", stored->credentialType},
                   {"premium", stored->premium ? JSON(*stored->premium) : JSON()},
                   {"checkedAt", stored->checkedAt ? toJSON(*stored->checkedAt) : JSON()},
                   {"tokensIn", stored->keyringName.empty() ? "account.json" : "keyring"},
                   {"accessToken", dots},
                   {"refreshToken", dots},
                   {"idToken", dots}});
    }
    return host.output().line(dump(json));
  }
  if (!stored) return host.output().line("Nobody is logged in.");
  const auto row = [&](std::string_view name, std::string_view value) {
    host.output().row(host.style().dim(name), 15, std::string(value));
  };
  row("logged in as", printableLine(stored->identifier));
  row("premium", !stored->premium ? "not known" : *stored->premium ? "yes" : "no");
  if (stored->checkedAt) row("checked", dateAndTime(*stored->checkedAt));
  row("tokens in", stored->keyringName.empty() ? printableText(host.file("account.json").string())
                                               : "the desktop's keyring");
  row("access token", dots);
  row("refresh token", dots);
  row("id token", dots);
}

void logout(Host& host) {
  AccountStore store = accountStore(host);
  const bool removed = store.remove();
  tell(store.note());
  if (host.json()) return host.output().line(dump({{"removed", removed}}));
  host.output().line(removed ? "Logged out." : "Nobody was logged in.");
}

void addPasswordFile(CLI::App* command, std::string& file) {
  command
      ->add_option("--password-file", file,
                   "Read the password from the first line of a file, - for standard input, "
                   "instead of a prompt")
      ->type_name("FILE");
}

}  // namespace

void addAccountCommands(CLI::App& app, Action& action) {
  struct Arguments {
    std::string identifier;
    std::string passwordFile;
    std::string link;
    std::optional<std::string> address;
    RegistrationOperation::Arguments registration;
  };
  auto arguments = std::make_shared<Arguments>();
  const auto add = [&](const char* name, const char* help, Action run) {
    auto* command = app.add_subcommand(name, help);
    command->group(accountGroup);
    command->callback([&action, run = std::move(run)] { action = run; });
    return command;
  };

  auto* command = add("login", "Log in; the password is asked for", [arguments](Host& host) {
    login(host, arguments->identifier, arguments->passwordFile);
  });
  command->add_option("identifier", arguments->identifier, "E-mail address or subscriber number")
      ->required();
  addPasswordFile(command, arguments->passwordFile);

  add("entitlement", "Ask what the account may read; refresh once if need be", entitlement);
  add("refresh", "Get new tokens, then ask what the account may read", refresh);

  command = add("register", "Make an account; the password is asked for", [arguments](Host& host) {
    registerAccount(host, arguments->registration, arguments->passwordFile);
  });
  auto& registration = arguments->registration;
  command->add_option("email", registration.email, "E-mail address")->required();
  command->add_option("--first-name", registration.firstName, "First name")
      ->required()
      ->type_name("NAME");
  command->add_option("--last-name", registration.lastName, "Last name")
      ->required()
      ->type_name("NAME");
  command->add_flag("--marketing", registration.martketingOptIn, "Say yes to e-mail marketing");
  addPasswordFile(command, arguments->passwordFile);

  command = add("unlink", "Remove a way of signing in from the account",
                [arguments](Host& host) { unlink(host, arguments->link, arguments->address); });
  oneOf(command->add_option("link", arguments->link, "The way of signing in"),
        {"email", "facebook", "google"})
      ->required();
  command
      ->add_option("--email", arguments->address,
                   "The e-mail address to remove, when it is not the one logged in with")
      ->type_name("ADDRESS");

  add("account", "Who is logged in; secrets are shown as dots", account);
  add("logout", "Forget the account on this computer", logout);
}

}  // namespace paperloom::reader
