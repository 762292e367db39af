#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "apps/reader/Commands.h"
#include "apps/reader/Signals.h"
#include "paperloom/testing/SampleAccounts.h"
#include "paperloom/testing/SampleService.h"

namespace paperloom::reader {
namespace {

struct ServeOptions {
  int port = 0;
  int latency = 0;
  std::string failures;
  std::string gone;
  std::vector<std::string> statuses;
  std::vector<std::string> cuts;
  std::vector<std::string> silent;
  bool deadCard = false;
  double tokenLifetime = 3600;
};

// A story to which one card of the front page leads.
constexpr std::string_view storyOfTheDeadCard = "/articles/tide-tables-1998";

// The service's own text form checks the values and words what is wrong with them.
sample::FaultPlan faultPlan(const ServeOptions& options) {
  std::string text = fmt::format("latency={}", options.latency);
  const auto add = [&](std::string_view name, const std::string& value) {
    if (!value.empty()) text += fmt::format(" {}={}", name, value);
  };
  add("failures", options.failures);
  add("gone", options.gone);
  for (const auto& status : options.statuses) add("status", status);
  if (options.deadCard) add("status", fmt::format("{}:404", storyOfTheDeadCard));
  for (const auto& cut : options.cuts) add("cut", cut);
  for (const auto& path : options.silent) add("silent", path);
  auto plan = sample::FaultPlan::parse(text);
  if (!plan) throw usageFailure(plan.error());
  return std::move(*plan);
}

void listAccounts(Host& host) {
  Output& output = host.output();
  output.line();
  output.line(host.style().bold("Accounts for `paperloom login`"));
  for (const sample::SampleAccount& account : sample::sampleAccounts()) {
    output.row(fmt::format("  {:<30} {}", account.identifier, account.authKey), 48,
               host.style().dim(account.behaviour));
  }
  output.line();
  output.sentence(host.style().bold("Names that provoke an answer, as e-mail or token"));
  for (const sample::SampleProvocation& provocation : sample::sampleProvocations()) {
    output.row(fmt::format("  {}", provocation.name), 33, host.style().dim(provocation.behaviour));
  }
  output.line();
}

void serve(Host& host, const ServeOptions& options) {
  sample::SampleServiceOptions settings;
  settings.port = options.port;
  settings.faults = faultPlan(options);
  settings.tokenLifetime =
      std::chrono::milliseconds(static_cast<long>(options.tokenLifetime * 1000));
  auto service = sample::SampleService::start(settings);
  if (!service) throw Failure(service.error());

  Output& output = host.output();
  if (host.json()) {
    nlohmann::ordered_json json;
    json["contentURL"] = (*service)->baseURL();
    json["identityURL"] = (*service)->identityURL();
    output.line(json.dump());
  } else {
    output.sentence(fmt::format("The sample service answers at {}", (*service)->baseURL()));
    output.sentence(fmt::format("Its identity endpoints are at {}", (*service)->identityURL()));
    listAccounts(host);
    output.line("Ctrl-C ends it.");
  }
  output.flush();
  try {
    host.waitUntil([] { return false; }, "");
  } catch (const Interrupted&) {
    (*service)->stop();  // this is how it is meant to end
  }
}

}  // namespace

void addServiceCommands(CLI::App& app, Action& action) {
  auto options = std::make_shared<ServeOptions>();
  auto* command = app.add_subcommand("serve", "Run the sample service alone, until Ctrl-C");
  command->group(toolsGroup);
  command->add_option("--port", options->port, "Port on 127.0.0.1; 0 lets the system choose")
      ->check(CLI::Range(0, 65535))
      ->option_text("N");
  command->add_option("--token-lifetime", options->tokenLifetime, "Seconds an access token lives")
      ->check(CLI::Range(0.001, 1e9))
      ->option_text("SECONDS");
  const std::string faults = "Faults";
  command->add_option("--latency", options->latency, "Wait so long before every answer")
      ->check(CLI::Range(0, 3'600'000))
      ->option_text("MILLISECONDS")
      ->group(faults);
  command->add_option("--status", options->statuses, "Answer paths that start so with this status")
      ->type_name("PATH:CODE")
      ->group(faults);
  command
      ->add_flag("--dead-card", options->deadCard,
                 "Answer the story of one card of the front page, the tide tables, with 404")
      ->group(faults);
  command
      ->add_option("--failures", options->failures,
                   "Answer this share of requests, 0 to 1, with 503")
      ->type_name("RATE[@SEED]")
      ->group(faults);
  command
      ->add_option("--cut", options->cuts, "Close the connection after so many bytes of the body")
      ->type_name("PATH:BYTES")
      ->group(faults);
  command->add_option("--silent", options->silent, "Never answer paths that start so")
      ->type_name("PATH")
      ->group(faults);
  command->add_option("--gone", options->gone, "Go away for good after so many requests")
      ->type_name("REQUESTS")
      ->group(faults);
  command->callback(
      [&action, options] { action = [options](Host& host) { serve(host, *options); }; });
}

}  // namespace paperloom::reader
