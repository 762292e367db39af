#include "apps/reader/Keyring.h"

#ifdef PAPERLOOM_LIBSECRET
#include <libsecret/secret.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

#include "apps/reader/Files.h"
#include "apps/reader/SharedLibrary.h"
#include "apps/reader/Signals.h"
#include "apps/reader/StatusLine.h"

namespace paperloom::reader {
namespace {

using Kind = Keyring::Answer::Kind;

constexpr std::chrono::seconds patience{3};
constexpr std::chrono::seconds patienceWithPeople{120};

// The functions of libsecret, and of the glib below it, under their own names.
struct Library {
  SharedLibrary library{"libsecret-1.so.0"};
#define PAPERLOOM_TAKE(function) \
  decltype(&::function) function = library.take<decltype(&::function)>(#function)
  PAPERLOOM_TAKE(g_bus_get_sync);
  PAPERLOOM_TAKE(g_cancellable_cancel);
  PAPERLOOM_TAKE(g_cancellable_new);
  PAPERLOOM_TAKE(g_dbus_connection_call_sync);
  PAPERLOOM_TAKE(g_dbus_connection_set_exit_on_close);
  PAPERLOOM_TAKE(g_error_free);
  PAPERLOOM_TAKE(g_error_matches);
  PAPERLOOM_TAKE(g_hash_table_insert);
  PAPERLOOM_TAKE(g_hash_table_new);
  PAPERLOOM_TAKE(g_hash_table_unref);
  PAPERLOOM_TAKE(g_list_append);
  PAPERLOOM_TAKE(g_list_free);
  PAPERLOOM_TAKE(g_object_ref);
  PAPERLOOM_TAKE(g_object_unref);
  PAPERLOOM_TAKE(g_str_equal);
  PAPERLOOM_TAKE(g_str_hash);
  PAPERLOOM_TAKE(g_variant_get);
  PAPERLOOM_TAKE(g_variant_new);
  PAPERLOOM_TAKE(g_variant_unref);
  PAPERLOOM_TAKE(secret_collection_for_alias_sync);
  PAPERLOOM_TAKE(secret_collection_get_locked);
  PAPERLOOM_TAKE(secret_error_get_quark);
  PAPERLOOM_TAKE(secret_item_delete_sync);
  PAPERLOOM_TAKE(secret_item_get_attributes);
  PAPERLOOM_TAKE(secret_item_get_locked);
  PAPERLOOM_TAKE(secret_item_get_secret);
  PAPERLOOM_TAKE(secret_item_load_secret_sync);
  PAPERLOOM_TAKE(secret_service_get_sync);
  PAPERLOOM_TAKE(secret_service_search_sync);
  PAPERLOOM_TAKE(secret_service_store_sync);
  PAPERLOOM_TAKE(secret_service_unlock_sync);
  PAPERLOOM_TAKE(secret_value_get);
  PAPERLOOM_TAKE(secret_value_new);
  PAPERLOOM_TAKE(secret_value_unref);
  PAPERLOOM_TAKE(g_hash_table_lookup);
#undef PAPERLOOM_TAKE
};

const Library& lib() {
  // Never unloaded: a thread may be left in it.
  static const auto& functions = *new Library;
  return functions;
}

constexpr const char* folderKey = "folder";
constexpr const char* nameKey = "name";

const SecretSchema* schema() {
  static const SecretSchema value = [] {
    SecretSchema made{};
    made.name = "paperloom.Login";
    made.flags = SECRET_SCHEMA_NONE;
    made.attributes[0] = {folderKey, SECRET_SCHEMA_ATTRIBUTE_STRING};
    made.attributes[1] = {nameKey, SECRET_SCHEMA_ATTRIBUTE_STRING};
    return made;
  }();
  return &value;
}

struct Unref {
  void operator()(gpointer object) const { lib().g_object_unref(object); }
  void operator()(GHashTable* table) const { lib().g_hash_table_unref(table); }
  void operator()(SecretValue* value) const { lib().secret_value_unref(value); }
};
template <class T>
using Handle = std::unique_ptr<T, Unref>;

// Holds the texts that it points to only as long as they live.
Handle<GHashTable> attributesOf(const std::string& folder, const std::string* name) {
  Handle<GHashTable> table(lib().g_hash_table_new(lib().g_str_hash, lib().g_str_equal));
  const auto insert = [&](const char* key, const std::string& value) {
    lib().g_hash_table_insert(table.get(), const_cast<char*>(key),
                              const_cast<char*>(value.c_str()));
  };
  insert(folderKey, folder);
  if (name != nullptr) insert(nameKey, *name);
  return table;
}

void tell(const Descriptor& event) {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(event.get(), &one, sizeof one);
}

// The error of one call.
class Error {
 public:
  Error() = default;
  ~Error() {
    if (error_ != nullptr) lib().g_error_free(error_);
  }
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;

  GError** out() { return &error_; }
  explicit operator bool() const { return error_ != nullptr; }
  Kind kind() const {
    const bool locked =
        lib().g_error_matches(error_, lib().secret_error_get_quark(), SECRET_ERROR_IS_LOCKED) != 0;
    return locked ? Kind::locked : Kind::gone;
  }

 private:
  GError* error_ = nullptr;
};

// Ends calls that take too long.
class Limit {
 public:
  Limit()
      : cancellable_(lib().g_cancellable_new()),
        over_(::eventfd(0, EFD_CLOEXEC)),
        watcher_([this] { watch(); }) {}
  ~Limit() {
    tell(over_);
    watcher_.join();
  }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

  GCancellable* get() const { return cancellable_.get(); }

 private:
  void watch() {
    pollfd over{over_.get(), POLLIN, 0};
    const auto limit = std::chrono::milliseconds(patience);
    if (::poll(&over, 1, static_cast<int>(limit.count())) == 0) {
      lib().g_cancellable_cancel(cancellable_.get());
    }
  }

  Handle<GCancellable> cancellable_;
  Descriptor over_;
  std::thread watcher_;
};

// A bus that would have to be started first has no secrets of this session.
bool mayHaveBus() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address != nullptr) {
    return *address != '\0';
  }
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  std::error_code ignored;
  return folder != nullptr &&
         std::filesystem::exists(std::filesystem::path(folder) / "bus", ignored);
}

Handle<GDBusConnection> connect(const Limit& limit) {
  Error error;
  Handle<GDBusConnection> bus(lib().g_bus_get_sync(G_BUS_TYPE_SESSION, limit.get(), error.out()));
  // The end of the bus is not the end of this program.
  if (bus) lib().g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  return bus;
}

Handle<SecretService> serviceOf(const Limit& limit) {
  if (!mayHaveBus() || !lib().library.isComplete() || !connect(limit)) return {};
  Error error;
  return Handle<SecretService>(
      lib().secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, limit.get(), error.out()));
}

// The items found, each released with this object.
class Items {
 public:
  explicit Items(GList* list) : list_(list) {}
  ~Items() {
    for (GList* each = list_; each != nullptr; each = each->next) lib().g_object_unref(each->data);
    lib().g_list_free(list_);
  }
  Items(const Items&) = delete;
  Items& operator=(const Items&) = delete;

  GList* first() const { return list_; }
  static SecretItem* at(const GList* entry) { return static_cast<SecretItem*>(entry->data); }

 private:
  GList* list_;
};

// The desktop's dialog, on a thread of its own.
struct Dialog {
  Dialog(SecretService* on, gpointer locked)
      : service(static_cast<SecretService*>((lib().g_object_ref)(on))),
        object(static_cast<GObject*>((lib().g_object_ref)(locked))),
        over(::eventfd(0, EFD_CLOEXEC)) {}

  void ask() {
    Error error;
    GList* wanted = lib().g_list_append(nullptr, object.get());
    GList* unlocked = nullptr;
    isUnlocked = lib().secret_service_unlock_sync(service.get(), wanted, nullptr, &unlocked,
                                                  error.out()) > 0;
    lib().g_list_free(wanted);
    const Items released(unlocked);
    tell(over);
  }

  Handle<SecretService> service;
  Handle<GObject> object;
  Descriptor over;
  std::atomic<bool> isUnlocked = false;
};

// Asks the person to unlock it. After Ctrl-C, or when nobody answers, the dialog's thread is left
// to itself: a call of libsecret's that is cancelled while its dialog is open never ends.
bool askToUnlock(SecretService* service, gpointer object) {
  using Clock = std::chrono::steady_clock;
  const auto dialog = std::make_shared<Dialog>(service, object);
  std::thread([dialog] { dialog->ask(); }).detach();
  Waiting waiting("the desktop's keyring");
  const auto deadline = Clock::now() + patienceWithPeople;
  while (Clock::now() < deadline) {
    std::array<pollfd, 2> waitingFor = {pollfd{dialog->over.get(), POLLIN, 0},
                                        pollfd{Signals::fileDescriptor(), POLLIN, 0}};
    const int tick = waiting.untilTick();
    ::poll(waitingFor.data(), waitingFor.size(), tick < 0 ? 1'000 : tick);
    Signals::throwIfReceived();
    if (waitingFor[0].revents != 0) break;
    waiting.tick();
  }
  return dialog->isUnlocked;
}

}  // namespace

bool Keyring::runs() const {
  if (folder_.empty() || !mayHaveBus() || !lib().library.isComplete()) return false;
  const Limit limit;
  const auto bus = connect(limit);
  if (!bus) return false;
  Error error;
  GVariant* reply = lib().g_dbus_connection_call_sync(
      bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "NameHasOwner", lib().g_variant_new("(s)", "org.freedesktop.secrets"), nullptr,
      G_DBUS_CALL_FLAGS_NONE, -1, limit.get(), error.out());
  if (reply == nullptr) return false;
  gboolean owned = FALSE;
  lib().g_variant_get(reply, "(b)", &owned);
  lib().g_variant_unref(reply);
  return owned != FALSE;
}

Keyring::Answer Keyring::unlock(Ask ask) const {
  const Limit limit;
  const auto service = serviceOf(limit);
  if (!service) return {Kind::gone};
  Error error;
  const Handle<SecretCollection> collection(lib().secret_collection_for_alias_sync(
      service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, limit.get(), error.out()));
  if (error) return {error.kind()};
  if (!collection) return {Kind::locked};  // one would be made, with a dialog
  if (lib().secret_collection_get_locked(collection.get()) == 0) return {Kind::done};
  const bool done = ask == Ask::yes && askToUnlock(service.get(), collection.get());
  return {done ? Kind::done : Kind::locked};
}

Keyring::Answer Keyring::keep(const std::string& name, const std::string& secret) const {
  if (const Answer ready = unlock(Ask::no); ready.kind != Kind::done) return ready;
  const Limit limit;
  const auto service = serviceOf(limit);
  if (!service) return {Kind::gone};
  const auto attributes = attributesOf(folder_, &name);
  const Handle<SecretValue> value(
      lib().secret_value_new(secret.data(), static_cast<gssize>(secret.size()), "text/plain"));
  Error error;
  const bool kept = lib().secret_service_store_sync(service.get(), schema(), attributes.get(),
                                                    SECRET_COLLECTION_DEFAULT, "Paperloom login",
                                                    value.get(), limit.get(), error.out()) != 0;
  return {kept ? Kind::done : error ? error.kind() : Kind::gone};
}

Keyring::Answer Keyring::find(const std::string& name, Ask ask) const {
  const Limit limit;
  const auto service = serviceOf(limit);
  if (!service) return {Kind::gone};
  const auto attributes = attributesOf(folder_, &name);
  Error error;
  const Items items(lib().secret_service_search_sync(service.get(), schema(), attributes.get(),
                                                     SECRET_SEARCH_NONE, limit.get(), error.out()));
  if (error) return {error.kind()};
  if (items.first() == nullptr) return {Kind::missing};
  SecretItem* const item = Items::at(items.first());
  if (lib().secret_item_get_locked(item) != 0) {
    if (ask == Ask::no || !askToUnlock(service.get(), item)) return {Kind::locked};
  }
  const Limit loadingLimit;  // a person may have taken all the time of the other
  Error loading;
  if (lib().secret_item_load_secret_sync(item, loadingLimit.get(), loading.out()) == 0) {
    return {loading ? loading.kind() : Kind::gone};
  }
  const Handle<SecretValue> value(lib().secret_item_get_secret(item));
  if (!value) return {Kind::gone};
  gsize size = 0;
  const char* const text = lib().secret_value_get(value.get(), &size);
  return {Kind::done, std::string(text, size)};
}

Keyring::Answer Keyring::removeAllBut(const std::string& name) const {
  const Limit limit;
  const auto service = serviceOf(limit);
  if (!service) return {Kind::gone};
  const auto attributes = attributesOf(folder_, nullptr);
  Error error;
  const Items items(lib().secret_service_search_sync(service.get(), schema(), attributes.get(),
                                                     SECRET_SEARCH_ALL, limit.get(), error.out()));
  if (error) return {error.kind()};
  Answer answer{Kind::done};
  for (const GList* each = items.first(); each != nullptr; each = each->next) {
    SecretItem* const item = Items::at(each);
    const Handle<GHashTable> own(lib().secret_item_get_attributes(item));
    const auto* const itsName =
        static_cast<const char*>(lib().g_hash_table_lookup(own.get(), nameKey));
    if (itsName != nullptr && name == itsName) continue;
    Error deleting;
    const bool locked = lib().secret_item_get_locked(item) != 0;  // a dialog would come
    if (locked || lib().secret_item_delete_sync(item, limit.get(), deleting.out()) == 0) {
      answer.kind = locked ? Kind::locked : Kind::gone;
    }
  }
  return answer;
}

}  // namespace paperloom::reader

#else

namespace paperloom::reader {

bool Keyring::runs() const { return false; }
Keyring::Answer Keyring::unlock(Ask) const { return {}; }
Keyring::Answer Keyring::keep(const std::string&, const std::string&) const { return {}; }
Keyring::Answer Keyring::find(const std::string&, Ask) const { return {}; }
Keyring::Answer Keyring::removeAllBut(const std::string&) const { return {}; }

}  // namespace paperloom::reader

#endif
