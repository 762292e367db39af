#pragma once

#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "paperloom/platform/internal/base/Try.h"
#include "paperloom/platform/internal/sqlite/SQLite.h"

namespace paperloom::internal {

// What all calls below are made of: a text, prepared when it is first needed.
class SQLiteCallBase {
 protected:
  SQLiteCallBase(SQLiteDatabase& database, const char* sql) : database_(database), sql_(sql) {}

  template <class... Parameters>
  SQLiteStatus bind(const Parameters&... parameters) {
    if (!statement_) statement_ = TRY(database_.prepare(sql_));
    int index = 0;
    SQLiteStatus bound;
    ((bound = bound ? statement_.bind(++index, parameters) : bound), ...);
    return bound;
  }

  SQLiteDatabase& database_;
  const char* const sql_;
  SQLiteStatement statement_;
};

// An SQL statement that is called like a function: SQLiteCall<void(std::int64_t, SQLiteBlob)> takes
// the values of its parameters, SQLiteCall<std::tuple<...>(...)> gives its rows as well. Belongs to
// one thread at a time; the database must outlive it, at the same address.
template <class Signature>
class SQLiteCall;

template <class... Parameters>
class SQLiteCall<void(Parameters...)> : SQLiteCallBase {
 public:
  SQLiteCall(SQLiteDatabase& database, const char* sql) : SQLiteCallBase(database, sql) {}

  SQLiteStatus operator()(const std::type_identity_t<Parameters>&... parameters) {
    TRY(bind(parameters...));
    return statement_.run();
  }
};

template <class... Columns, class... Parameters>
class SQLiteCall<std::tuple<Columns...>(Parameters...)> : SQLiteCallBase {
 public:
  SQLiteCall(SQLiteDatabase& database, const char* sql) : SQLiteCallBase(database, sql) {}

  // The first row, if there is one.
  SQLiteResult<std::optional<std::tuple<Columns...>>> operator()(
      const std::type_identity_t<Parameters>&... parameters) {
    static_assert((std::is_same_v<Columns, std::int64_t> && ...), "bytes go with their row");
    std::optional<std::tuple<Columns...>> first;
    TRY(forEach(
        [&](Columns... columns) {
          if (!first) first.emplace(columns...);
        },
        parameters...));
    return first;
  }

  // Calls `visit` with the columns of each row.
  template <class Visit>
  SQLiteStatus forEach(const Visit& visit, const std::type_identity_t<Parameters>&... parameters) {
    TRY(bind(parameters...));
    auto row = statement_.step();
    for (; row && *row; row = statement_.step()) {
      visitRow(visit, std::index_sequence_for<Columns...>());
    }
    statement_.reset();
    if (!row) return tl::unexpected(row.error());
    return {};
  }

 private:
  template <class Column>
  Column column(std::size_t index) const {
    const int number = static_cast<int>(index);
    if constexpr (std::is_same_v<Column, SQLiteBlob>) {
      return {statement_.blob(number)};
    } else {
      return statement_.integer(number);
    }
  }
  template <class Visit, std::size_t... indices>
  void visitRow(const Visit& visit, std::index_sequence<indices...>) const {
    visit(column<Columns>(indices)...);
  }
};

}  // namespace paperloom::internal
