#include "paperloom/platform/OfflineSets.h"

#include <fcntl.h>
#include <simdjson.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <map>
#include <system_error>
#include <utility>

#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/internal/base/Checksum.h"
#include "paperloom/platform/internal/base/PrivateFolders.h"
#include "paperloom/platform/internal/http/CacheControl.h"
#include "paperloom/platform/internal/offline/OfflineSetFile.h"

namespace paperloom {
namespace {

using internal::OfflineSetEntry;
using internal::OfflineSetFile;
using internal::OwnedFile;
using std::filesystem::path;

constexpr std::string_view wholeEnding = ".set";
constexpr std::string_view newEnding = ".new";

// A name is any text; what is made of it is the name of a file.
std::string fileNameFor(const std::string& name) {
  std::string text;
  for (const std::uint64_t seed : {0U, 1U}) {
    std::array<char, 16> digits{};
    const auto end =
        std::to_chars(digits.begin(), digits.end(), internal::checksum(name, seed), 16);
    text.append(16 - static_cast<std::size_t>(end.ptr - digits.begin()), '0');
    text.append(digits.begin(), end.ptr);
  }
  return text;
}

std::string wordsOf(int error) {
  if (error == ENOSPC || error == EDQUOT || error == EFBIG) return "the disk is full";
  return "the folder of the sets cannot be written: " + std::generic_category().message(error);
}

std::string_view withoutFragment(std::string_view url) { return url.substr(0, url.find('#')); }

OwnedFile openToRead(const path& file) {
  return OwnedFile(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
}

// The files of a folder with this ending, without it.
std::vector<std::string> namesIn(const path& folder, std::string_view ending) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator each(folder, error), end; !error && each != end;
       each.increment(error)) {
    std::string name = each->path().filename().string();
    if (!name.ends_with(ending)) continue;
    name.resize(name.size() - ending.size());
    names.push_back(std::move(name));
  }
  return names;
}

bool isTheSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// The file at a path, to be written by nobody else while this lives. Whoever is interrupted leaves
// it behind without the lock.
OwnedFile lockedFile(const path& file, int flags) {
  for (;;) {
    OwnedFile opened(::open(file.c_str(), flags | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!opened || !opened.info()) return OwnedFile();
    if (::flock(opened.descriptor(), LOCK_EX | LOCK_NB) != 0) {
      errno = EWOULDBLOCK;
      return OwnedFile();
    }
    struct stat named {};
    const auto own = opened.info();
    // Its last owner has moved or removed it between the two.
    if (::lstat(file.c_str(), &named) == 0 && own && named.st_ino == own->st_ino) return opened;
  }
}

}  // namespace

struct OfflineSets::Store {
  Store(std::int64_t bytes, path name) : capacity(bytes), given(std::move(name)) {}

  path folder() const {
    return given.is_absolute() ? given : ApplicationDirectories::dataDirectory() / given;
  }

  struct Opened {
    struct stat info {};
    std::shared_ptr<const OfflineSetFile> file;
  };

  // The sets as they are now; those that have not changed stay open.
  std::map<std::string, std::shared_ptr<const OfflineSetFile>> files() {
    const path place = folder();
    std::map<std::string, Opened> now;
    const MutexLock lock(mutex);
    for (const std::string& name : namesIn(place, wholeEnding)) {
      OwnedFile file = openToRead(place / (name + std::string(wholeEnding)));
      const auto info = file ? file.info() : std::nullopt;
      if (!info) continue;
      const auto known = opened.find(name);
      if (known != opened.end() && isTheSame(known->second.info, *info)) {
        now.insert(*known);
      } else {
        now[name] = {*info, std::make_shared<OfflineSetFile>(std::move(file), *info, name)};
      }
    }
    opened.swap(now);
    std::map<std::string, std::shared_ptr<const OfflineSetFile>> all;
    for (const auto& [name, each] : opened) all[name] = each.file;
    return all;
  }

  // Where the set of that name lies; a damaged one may have lost it and go by that of its file.
  std::optional<path> fileOf(const std::string& name) {
    for (const auto& [fileName, file] : files()) {
      if (file->set().name == name) return folder() / (fileName + std::string(wholeEnding));
    }
    return {};
  }

  std::int64_t bytesBeside(const std::string& fileName) const {
    std::int64_t bytes = 0;
    for (const std::string& name : namesIn(folder(), wholeEnding)) {
      std::error_code error;
      const auto size =
          std::filesystem::file_size(folder() / (name + std::string(wholeEnding)), error);
      if (!error && name != fileName) bytes += static_cast<std::int64_t>(size);
    }
    return bytes;
  }

  // What nobody is at any more.
  void sweep() const {
    for (const std::string& name : namesIn(folder(), newEnding)) {
      const path file = folder() / (name + std::string(newEnding));
      if (lockedFile(file, 0)) ::unlink(file.c_str());
    }
  }

  const std::int64_t capacity;
  const path given;
  Mutex mutex;
  std::map<std::string, Opened> opened PAPERLOOM_GUARDED_BY(mutex);
};

OfflineSets::OfflineSets(std::int64_t capacity, path folder)
    : store_(std::make_shared<Store>(capacity, std::move(folder))) {}

OfflineSets::~OfflineSets() = default;

std::int64_t OfflineSets::capacity() const { return store_->capacity; }

std::vector<OfflineSet> OfflineSets::sets() const {
  store_->sweep();
  std::vector<OfflineSet> all;
  for (const auto& [fileName, file] : store_->files()) all.push_back(file->set());
  std::sort(all.begin(), all.end(),
            [](const OfflineSet& a, const OfflineSet& b) { return a.name < b.name; });
  return all;
}

std::optional<OfflineSet> OfflineSets::set(const std::string& name) const {
  for (const auto& [fileName, file] : store_->files()) {
    if (file->set().name == name) return file->set();
  }
  return {};
}

bool OfflineSets::remove(const std::string& name) {
  const auto file = store_->fileOf(name);
  return file && ::unlink(file->c_str()) == 0;
}

std::optional<CachedURLResponse> OfflineSets::copy(const URL& url) const {
  const std::string_view key = withoutFragment(url.absoluteString());
  std::vector<std::pair<Date, std::shared_ptr<const OfflineSetFile>>> holders;
  for (const auto& [fileName, file] : store_->files()) {
    if (const auto time = file->timeOf(key)) holders.emplace_back(*time, file);
  }
  std::sort(holders.begin(), holders.end(),
            [](const auto& a, const auto& b) { return a.first > b.first; });
  for (const auto& [time, file] : holders) {
    if (auto found = file->read(key)) return found;
  }
  return {};
}

struct OfflineSets::Writer::State {
  std::shared_ptr<Store> store;
  path folder;
  std::string fileName;
  OwnedFile file;
  OfflineSet set;
  std::vector<OfflineSetEntry> entries;
  std::int64_t size = 0;
  std::int64_t left = 0;  // of the capacity, for this set
  std::string trouble;    // from then on nothing is added

  path newFile() const { return folder / (fileName + std::string(newEnding)); }

  ~State() {
    if (file) ::unlink(newFile().c_str());
  }

  bool append(std::string_view bytes) {
    if (trouble.empty() && static_cast<std::int64_t>(bytes.size()) > left - size) {
      trouble = "the sets would grow beyond their capacity";
    }
    while (trouble.empty() && !bytes.empty()) {
      const ssize_t count = ::write(file.descriptor(), bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) trouble = wordsOf(errno);
      if (count == 0) trouble = wordsOf(ENOSPC);
      if (count <= 0) break;
      bytes.remove_prefix(static_cast<std::size_t>(count));
      size += count;
    }
    return trouble.empty();
  }

  // All of it on the disk before it takes the place of the old one.
  bool putInPlace() {
    const OwnedFile lock(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock || ::flock(lock.descriptor(), LOCK_EX) != 0) {
      trouble = wordsOf(errno);
      return false;
    }
    if (size > store->capacity - store->bytesBeside(fileName)) {
      trouble = "the sets would grow beyond their capacity";
      return false;
    }
    const path whole = folder / (fileName + std::string(wholeEnding));
    if (::fsync(file.descriptor()) != 0 || ::rename(newFile().c_str(), whole.c_str()) != 0) {
      trouble = wordsOf(errno);
      return false;
    }
    ::fsync(lock.descriptor());
    file = OwnedFile();
    return true;
  }
};

OfflineSets::Writer::Writer(std::unique_ptr<State> state) : state_(std::move(state)) {}
OfflineSets::Writer::Writer(Writer&& other) noexcept = default;
OfflineSets::Writer& OfflineSets::Writer::operator=(Writer&& other) noexcept = default;
OfflineSets::Writer::~Writer() = default;

tl::expected<OfflineSets::Writer, std::string> OfflineSets::write(
    const std::string& name, std::vector<OfflineSet::Root> roots) {
  if (name.empty() || name.size() > longestName || !simdjson::validate_utf8(name)) {
    return tl::unexpected<std::string>("the name of a set is a text of 1 to " +
                                       std::to_string(longestName) + " bytes");
  }
  auto state = std::make_unique<Writer::State>();
  state->store = store_;
  state->folder = store_->folder();
  internal::createPrivateFolders(state->folder);
  if (!internal::isOwnFolder(state->folder)) {
    return tl::unexpected<std::string>("the folder of the sets is not there, or not this user's");
  }
  store_->sweep();
  state->fileName = fileNameFor(name);
  state->set.name = name;
  state->set.roots = std::move(roots);
  state->file = lockedFile(state->newFile(), O_CREAT);
  if (!state->file) {
    return tl::unexpected<std::string>(errno == EWOULDBLOCK ? "the set is being fetched already"
                                                            : wordsOf(errno));
  }
  state->left = store_->capacity - store_->bytesBeside(state->fileName);
  if (::ftruncate(state->file.descriptor(), 0) != 0 ||
      !state->append(internal::offlineSetHead(name))) {
    return tl::unexpected(state->trouble.empty() ? wordsOf(errno) : state->trouble);
  }
  return Writer(std::move(state));
}

tl::expected<OfflineSets::Writer::Added, std::string> OfflineSets::Writer::add(
    const URL& url, const CachedURLResponse& response) {
  // RFC 9111 section 5.2.2.5.
  if (internal::CacheControl(response.response.headers).has("no-store")) {
    addMissing(url);
    return Added::forbidden;
  }
  auto address = URL::parse(withoutFragment(url.absoluteString()));
  OfflineSetEntry entry{address ? *std::move(address) : url, response,
                        static_cast<std::uint64_t>(state_->size), response.data.size(), 0};
  entry.checksum = internal::checksum(response.data.view(), entry.offset);
  entry.head.data = Data();
  if (!state_->append(response.data.view())) return tl::unexpected(state_->trouble);
  state_->entries.push_back(std::move(entry));
  return Added::kept;
}

void OfflineSets::Writer::addMissing(const URL& url) { state_->set.missing.push_back(url); }

tl::expected<OfflineSet, std::string> OfflineSets::Writer::commit() {
  State& state = *state_;
  state.set.fetchedAt = currentDate();
  const bool isInPlace = state.append(internal::offlineSetTail(
                             state.set, state.entries, static_cast<std::uint64_t>(state.size))) &&
                         state.putInPlace();
  if (!isInPlace) return tl::unexpected(state.trouble);
  for (const OfflineSetEntry& entry : state.entries) state.set.urls.push_back(entry.url);
  state.set.bytes = state.size;
  return state.set;
}

}  // namespace paperloom
