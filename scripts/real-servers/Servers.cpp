#include "Servers.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <list>
#include <memory>
#include <stdexcept>
#include <thread>

#include "Relay.h"
#include "paperloom/testing/ScriptedServer.h"

namespace paperloom::servers {
namespace {

using namespace std::chrono_literals;

}  // namespace

Program::Program(std::vector<std::string> command, const std::filesystem::path& log)
    : process_(-1) {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  process_ = fork();
  if (process_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const int output = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

Program::~Program() {
  signal(SIGTERM);
  for (int i = 0; i < 300 && isRunning(); ++i) std::this_thread::sleep_for(10ms);
  signal(SIGKILL);
  if (process_ > 0) waitpid(process_, nullptr, 0);
}

void Program::signal(int number) const {
  if (process_ > 0) kill(process_, number);
}

bool Program::isRunning() {
  if (process_ > 0 && waitpid(process_, nullptr, WNOHANG) != 0) process_ = -1;
  return process_ > 0;
}

Server::Server(std::vector<std::string> command, const std::filesystem::path& configuration,
               Values values) {
  std::ifstream file(configuration);
  std::list<test::Listener> taken;  // all at once, so that no two are the same
  std::filesystem::path made =
      std::filesystem::path(values.at("FOLDER")) / configuration.filename();
  std::ofstream out(made);
  for (std::string text; std::getline(file, text, '@');) {
    out << text;
    if (!std::getline(file, text, '@')) break;
    const auto known = values.find(text);
    if (known == values.end()) {
      const std::string& origin = taken.emplace_back().origin;
      ports_[text] = std::stoi(origin.substr(origin.find(':') + 1));
      values[text] = std::to_string(ports_[text]);
    }
    out << values[text];
  }
  out.close();
  taken.clear();
  command.push_back(made);
  program_ = std::make_unique<Program>(command, made.string() + ".log");
  for (int i = 0; i < 1000; ++i) {
    if (isReady()) return;
    if (!program_->isRunning()) break;
    std::this_thread::sleep_for(10ms);
  }
  throw std::runtime_error(command[0] + " does not start: see " + made.string() + ".log");
}

bool Server::isReady() {
  for (const auto& [name, port] : ports_) {
    const int connection = connectTo(port);
    if (connection < 0) return false;
    close(connection);
  }
  return true;
}

}  // namespace paperloom::servers
