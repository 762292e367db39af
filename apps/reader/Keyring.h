#pragma once

#include <string>

namespace paperloom::reader {

// The desktop's secret service on the session bus, which keeps secrets behind the person's login.
// It may be locked and may go away at any moment. Every function may be called from any thread; one
// that talks to the service waits for it: for three seconds, or, where a person is to unlock it,
// for two minutes and until Ctrl-C.
class Keyring {
 public:
  struct Answer {
    enum class Kind { done, missing, locked, gone };
    Kind kind = Kind::gone;
    std::string secret{};
  };
  // Whether the person may be asked to unlock it, by the desktop's own dialog.
  enum class Ask { no, yes };

  // Secrets are told from those of other readers by the folder of the settings.
  explicit Keyring(std::string folder = {}) : folder_(std::move(folder)) {}

  // Whether it runs; false also where the program was built without it, or its library is missing.
  bool runs() const;

  // Makes it ready to keep secrets.
  Answer unlock(Ask ask) const;
  // Adds a secret; `name` is one that was never used before.
  Answer keep(const std::string& name, const std::string& secret) const;
  Answer find(const std::string& name, Ask ask) const;
  // Removes what is kept under other names; an empty one removes everything.
  Answer removeAllBut(const std::string& name) const;

 private:
  std::string folder_;
};

}  // namespace paperloom::reader
