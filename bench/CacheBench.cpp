#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "bench/Ratios.h"
#include "bench/ScratchFolder.h"
#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/internal/base/Checksum.h"

namespace paperloom::bench {
namespace {

constexpr std::int64_t megabyte = 1'048'576;
constexpr std::int64_t capacity = 2'000 * megabyte;

URLRequest requestFor(std::int64_t i) {
  URLRequest request(*URL::parse("https://news.example.com/articles/" + std::to_string(i)));
  request.headers = {{"Accept", "application/json"}, {"Accept-Encoding", "gzip, deflate"}};
  return request;
}

CachedURLResponse answerOf(std::int64_t size) {
  std::string body;
  std::mt19937_64 random(1);
  while (body.size() < static_cast<std::size_t>(size)) body += std::to_string(random());
  body.resize(static_cast<std::size_t>(size));
  const Date now = currentDate();
  return {{*URL::parse("https://news.example.com/articles/1"),
           200,
           {{"Date", "Tue, 14 Nov 2023 22:13:20 GMT"},
            {"Content-Type", "application/json"},
            {"Cache-Control", "max-age=300, stale-if-error=86400"},
            {"ETag", "\"0123456789abcdef\""},
            {"Last-Modified", "Tue, 14 Nov 2023 22:00:00 GMT"},
            {"Vary", "Accept-Encoding"},
            {"Content-Length", std::to_string(size)},
            {"Server", "example"}}},
          Data(std::move(body)),
          now,
          now};
}

// Sixteen megabytes of rows of one size: more than SQLite's own cache holds.
std::int64_t rowsOf(std::int64_t size) {
  return std::max<std::int64_t>(16, std::min<std::int64_t>(4'000, 16 * megabyte / size));
}

// A cache with that many answers of one size on disk, made once.
struct Filled {
  Filled(std::int64_t size, std::int64_t count) : rows(count) {
    const auto answer = answerOf(size);
    URLCache cache(0, capacity, folder.path);
    for (std::int64_t i = 0; i < count; ++i) cache.storeCachedResponse(answer, requestFor(i));
    file = cache.diskFile();
  }
  ScratchFolder folder;
  std::filesystem::path file;
  std::int64_t rows;
};

const Filled& filled(std::int64_t size, std::int64_t rows) {
  static std::map<std::pair<std::int64_t, std::int64_t>, std::unique_ptr<Filled>> all;
  auto& one = all[{size, rows}];
  if (!one) one = std::make_unique<Filled>(size, rows);
  return *one;
}

class Order {  // the same random walk for everybody
 public:
  explicit Order(std::int64_t rows) : pick_(0, rows - 1) {}
  std::int64_t next() { return pick_(random_); }

 private:
  std::mt19937_64 random_{42};
  std::uniform_int_distribution<std::int64_t> pick_;
};

void lookUp(benchmark::State& state, URLCache& cache, std::int64_t rows) {
  std::vector<URLRequest> requests;
  for (std::int64_t i = 0; i < rows; ++i) requests.push_back(requestFor(i));
  for (const URLRequest& request : requests) cache.cachedResponse(request);
  Order order(rows);
  for (auto _ : state) {
    auto found = cache.cachedResponse(requests[static_cast<std::size_t>(order.next())]);
    if (!found) state.SkipWithError("missing");
    benchmark::DoNotOptimize(found);
  }
}

void memoryRead(benchmark::State& state) {
  const Filled& source = filled(state.range(0), rowsOf(state.range(0)));
  URLCache cache(400 * megabyte, capacity, source.folder.path);
  lookUp(state, cache, source.rows);
}

void diskRead(benchmark::State& state) {
  const std::int64_t rows = state.range(1) != 0 ? state.range(1) : rowsOf(state.range(0));
  const Filled& source = filled(state.range(0), rows);
  URLCache cache(0, capacity, source.folder.path);
  lookUp(state, cache, rows);
}

struct Bare {
  explicit Bare(const std::filesystem::path& file, const char* sql) {
    if (sqlite3_open(file.c_str(), &database) != SQLITE_OK) std::abort();
    sqlite3_exec(database,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA page_size=2048;"
                 "PRAGMA wal_autocheckpoint=2048;"
                 "CREATE TABLE IF NOT EXISTS answers(id INTEGER PRIMARY KEY, sum INTEGER, "
                 "head BLOB, body BLOB)",
                 nullptr, nullptr, nullptr);
    if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) != SQLITE_OK) std::abort();
  }
  ~Bare() {
    sqlite3_finalize(statement);
    sqlite3_close(database);
  }
  sqlite3* database = nullptr;
  sqlite3_stmt* statement = nullptr;
};

void sqliteRead(benchmark::State& state) {
  const Filled& source = filled(state.range(0), rowsOf(state.range(0)));
  std::vector<sqlite3_int64> ids;
  {
    const Bare list(source.file, "SELECT id FROM answers");
    while (sqlite3_step(list.statement) == SQLITE_ROW) {
      ids.push_back(sqlite3_column_int64(list.statement, 0));
    }
  }
  const Bare bare(source.file, "SELECT sum, head, body FROM answers WHERE id = ?1");
  Order order(source.rows);
  for (auto _ : state) {
    sqlite3_bind_int64(bare.statement, 1, ids[static_cast<std::size_t>(order.next())]);
    if (sqlite3_step(bare.statement) != SQLITE_ROW) state.SkipWithError("missing");
    const auto* head = static_cast<const char*>(sqlite3_column_blob(bare.statement, 1));
    const auto* body = static_cast<const char*>(sqlite3_column_blob(bare.statement, 2));
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(bare.statement, 2));
    // The bytes are needed after the statement is reset.
    std::string kept(body, length);
    benchmark::DoNotOptimize(head);
    benchmark::DoNotOptimize(kept.data());
    sqlite3_reset(bare.statement);
  }
}

void fileRead(benchmark::State& state) {
  const ScratchFolder folder;
  const std::int64_t rows = rowsOf(state.range(0));
  const std::string body(answerOf(state.range(0)).data.view());
  for (std::int64_t i = 0; i < rows; ++i) {
    std::ofstream(folder.path / std::to_string(i), std::ios::binary) << body;
  }
  Order order(rows);
  for (auto _ : state) {
    const std::string name = folder.path / std::to_string(order.next());
    std::FILE* file = std::fopen(name.c_str(), "rb");
    std::string kept(body.size(), '\0');
    if (std::fread(kept.data(), 1, kept.size(), file) != kept.size()) std::abort();
    std::fclose(file);
    benchmark::DoNotOptimize(kept.data());
  }
}

void storeInto(benchmark::State& state, URLCache& cache, std::int64_t rows, std::int64_t size) {
  const auto answer = answerOf(size);
  Order order(rows);
  for (auto _ : state) cache.storeCachedResponse(answer, requestFor(order.next()));
}

void memoryStore(benchmark::State& state) {
  URLCache cache(400 * megabyte, 0, "");
  storeInto(state, cache, rowsOf(state.range(0)), state.range(0));
}

void diskStore(benchmark::State& state) {
  const std::int64_t rows = state.range(1) != 0 ? state.range(1) : rowsOf(state.range(0));
  const Filled& source = filled(state.range(0), rows);
  URLCache cache(0, capacity, source.folder.path);
  storeInto(state, cache, rows, state.range(0));
}

void sqliteStore(benchmark::State& state) {
  const ScratchFolder folder;
  const Bare bare(folder.path / "bare.sqlite",
                  "INSERT OR REPLACE INTO answers VALUES(?1,?2,?3,?4)");
  const std::string head(500, 'h');
  const std::string body(answerOf(state.range(0)).data.view());
  const std::int64_t rows = rowsOf(state.range(0));
  const auto store = [&](std::int64_t i) {
    const auto id = static_cast<sqlite3_int64>(internal::checksum(std::to_string(i), 0) >> 1);
    sqlite3_bind_int64(bare.statement, 1, id);
    sqlite3_bind_int64(bare.statement, 2, i);
    sqlite3_bind_blob(bare.statement, 3, head.data(), static_cast<int>(head.size()), nullptr);
    sqlite3_bind_blob(bare.statement, 4, body.data(), static_cast<int>(body.size()), nullptr);
    if (sqlite3_step(bare.statement) != SQLITE_DONE) std::abort();
    sqlite3_reset(bare.statement);
  };
  for (std::int64_t i = 0; i < rows; ++i) store(i);
  Order order(rows);
  for (auto _ : state) store(order.next());
}

void fileStore(benchmark::State& state) {
  const ScratchFolder folder;
  const std::string body(answerOf(state.range(0)).data.view());
  Order order(rowsOf(state.range(0)));
  for (auto _ : state) {
    const auto name = folder.path / std::to_string(order.next());
    const auto next = folder.path / "next";
    std::FILE* file = std::fopen(next.c_str(), "wb");
    if (std::fwrite(body.data(), 1, body.size(), file) != body.size()) std::abort();
    std::fclose(file);
    std::filesystem::rename(next, name);
  }
}

void checksumOf(benchmark::State& state) {
  const std::string body(answerOf(state.range(0)).data.view());
  for (auto _ : state) benchmark::DoNotOptimize(internal::checksum(body, 0));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// From a cache that a kill has left behind, with its log: the first look-up opens it.
double millisecondsToOpenAfterAKill(std::int64_t entries) {
  const ScratchFolder left;
  {
    const ScratchFolder folder;
    const auto answer = answerOf(2'048);
    URLCache cache(0, capacity, folder.path);
    for (std::int64_t i = 0; i < entries; ++i) cache.storeCachedResponse(answer, requestFor(i));
    for (const char* name : {"cache.sqlite", "cache.sqlite-wal"}) {
      std::filesystem::copy(folder.path / name, left.path / name);
    }
  }
  const URLCache cache(0, capacity, left.path);
  const auto start = std::chrono::steady_clock::now();
  if (!cache.cachedResponse(requestFor(entries - 1))) std::abort();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

#define EACH_SIZE(function) BENCHMARK(function)->Arg(2'048)->Arg(20'480)->Arg(megabyte)
#define EACH_SIZE_AND_COUNT(function) \
  BENCHMARK(function)                 \
      ->Args({2'048, 0})              \
      ->Args({20'480, 0})             \
      ->Args({megabyte, 0})           \
      ->Args({2'048, 10'000})         \
      ->Args({2'048, 100'000})

EACH_SIZE(memoryRead);
EACH_SIZE(sqliteRead);
EACH_SIZE_AND_COUNT(diskRead);
EACH_SIZE(fileRead);
EACH_SIZE(checksumOf);
EACH_SIZE(memoryStore);
EACH_SIZE(sqliteStore);
EACH_SIZE_AND_COUNT(diskStore);
EACH_SIZE(fileStore);

void printRatios(const BestTimes& times) {
  for (const char* size : {"2048", "20480", "1048576"}) {
    const std::string name(size);
    const double disk = times.of("diskRead/" + name + "/0");
    const double store = times.of("diskStore/" + name + "/0");
    if (disk == 0 || store == 0) continue;
    const bool isUsual = size == std::string_view("20480");
    const auto row = [&](const std::string& what, double ours, const char* peer, double theirs,
                         const char* wanted = "for information") {
      printRatio((what + "-" + name + "/" + peer).c_str(), ours, theirs, wanted);
    };
    row("cache-disk-read", disk, "sqlite", times.of("sqliteRead/" + name),
        isUsual ? "<= 1.5" : "for information");
    row("cache-disk-read", disk, "file", times.of("fileRead/" + name));
    row("cache-checksum", times.of("checksumOf/" + name), "disk-read", disk);
    row("cache-store", store, "sqlite", times.of("sqliteStore/" + name));
    row("cache-store", store, "file", times.of("fileStore/" + name));
    printRatio(("cache-memory-read-microseconds-" + name).c_str(),
               times.of("memoryRead/" + name) * 1e6, isUsual ? "< 5" : "for information");
  }
  const auto growth = [&](const char* what, const std::string& name) {
    const double many = times.of(name + "/2048/100000");
    if (many != 0) printRatio(what, many, times.of(name + "/2048/10000"), "<= 1.5");
  };
  growth("cache-disk-read-100000/10000", "diskRead");
  growth("cache-store-100000/10000", "diskStore");
  printRatio("cache-open-after-kill-milliseconds-10000", millisecondsToOpenAfterAKill(10'000),
             "< 200");
}

}  // namespace
}  // namespace paperloom::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  paperloom::bench::BestTimes times(paperloom::bench::BestTimes::Clock::processor);
  benchmark::RunSpecifiedBenchmarks(&times);
  paperloom::bench::printRatios(times);
  return 0;
}
