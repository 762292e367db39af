#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <tl/expected.hpp>
#include <vector>

#include "paperloom/platform/Date.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/URL.h"
#include "paperloom/platform/URLResponse.h"

namespace paperloom {

// Documents that are kept together for the time without a network, such as a front page with its
// articles and pictures.
struct OfflineSet {
  // What the set was made of; the rest is what that leads to.
  struct Root {
    enum class Kind { document, article, frontPage };
    Kind kind = Kind::document;
    URL url;
  };

  std::string name;
  std::vector<Root> roots{};
  std::vector<URL> urls{};     // of all its documents
  std::vector<URL> missing{};  // what the server does not have, or forbids to keep
  std::int64_t bytes = 0;      // on disk
  Date fetchedAt{};
  // A file that cannot be read any more has a name, and nothing else that counts.
  bool isDamaged = false;
};

// The sets of a user, a file each below one folder. What is kept there is evicted by nothing: it
// stays until it is replaced as a whole or removed, and has a capacity of its own. FrontPageWarmer
// fetches a set, ContentSessionManager answers from all of them when the server does not.
//
// Every function but the constructor waits for the disk. Safe from any thread, and beside other
// processes. Files may be missing or damaged at any time; links, devices and what belongs to
// another user are left alone.
class PAPERLOOM_EXPORT OfflineSets {
 public:
  static constexpr std::int64_t defaultCapacity = std::int64_t{500} * 1024 * 1024;
  static constexpr std::size_t longestName = 1000;

  // `folder` is a name relative to ApplicationDirectories::dataDirectory(), or an absolute path.
  // Nothing is opened before first use.
  explicit OfflineSets(std::int64_t capacity = defaultCapacity,
                       std::filesystem::path folder = "kept");
  ~OfflineSets();
  OfflineSets(const OfflineSets&) = delete;
  OfflineSets& operator=(const OfflineSets&) = delete;

  std::int64_t capacity() const;
  // All of them, by name; damaged ones, too. What interrupted work has left behind is removed.
  std::vector<OfflineSet> sets() const;
  std::optional<OfflineSet> set(const std::string& name) const;
  // False when there is none of the name. Also one that is damaged goes.
  bool remove(const std::string& name);

  // The newest document that any set holds for the URL, whatever its fragment.
  std::optional<CachedURLResponse> copy(const URL& url) const;

  // A set while it is made. Nobody sees anything of it before commit(), which puts it in the place
  // of the set of its name; without that, or when the process ends, the old one stays. One thread
  // at a time.
  class PAPERLOOM_EXPORT Writer {
   public:
    Writer(Writer&& other) noexcept;
    Writer& operator=(Writer&& other) noexcept;
    ~Writer();

    enum class Added { kept, forbidden };  // by no-store
    // A sentence without a full stop says why nothing more can be added: the disk is full, or the
    // set grows beyond what the others leave of the capacity.
    [[nodiscard]] tl::expected<Added, std::string> add(const URL& url,
                                                       const CachedURLResponse& response);
    void addMissing(const URL& url);
    // What the set is now; or why it could not be put in place, while the old one stays.
    [[nodiscard]] tl::expected<OfflineSet, std::string> commit();

   private:
    friend class OfflineSets;
    struct State;
    explicit Writer(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
  };

  // Begins the next version of a set. Fails, with a sentence, for a name that is empty, too long or
  // no UTF-8, while another process or thread is at the same set, and when the folder cannot be
  // written.
  [[nodiscard]] tl::expected<Writer, std::string> write(const std::string& name,
                                                        std::vector<OfflineSet::Root> roots);

 private:
  struct Store;
  std::shared_ptr<Store> store_;
};

}  // namespace paperloom
