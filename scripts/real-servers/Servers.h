#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace paperloom::servers {

// A program that runs until this object goes, or until this process does.
class Program {
 public:
  Program(std::vector<std::string> command, const std::filesystem::path& log);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  void signal(int number) const;
  bool isRunning();

 private:
  pid_t process_;
};

// nginx, HAProxy or Apache on loopback ports of the kernel's choice. `configuration` is a template:
// what it says between two @ is replaced by `values`, or by a free port. Throws when the server
// cannot be had.
class Server {
 public:
  using Values = std::map<std::string, std::string>;
  Server(std::vector<std::string> command, const std::filesystem::path& configuration,
         Values values);

  int port(const std::string& name) const { return ports_.at(name); }
  void signal(int number) const { program_->signal(number); }

 private:
  bool isReady();

  std::map<std::string, int> ports_;
  std::unique_ptr<Program> program_;
};

}  // namespace paperloom::servers
