// What SQLite tells of its tables and how a SQLite database hands out auto-numbers, written once
// against any engine (sql/engine.h) that speaks to a SQLite file: the native engine and the ODBC
// engine over the SQLite ODBC driver share it.
// Thread use: that of the engine given.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "backends/sql/engine.h"

namespace dossync::sqlite {

// The description of a table from sqlite_master and PRAGMA table_info; for a view that only
// renames a table ("SELECT * FROM T"), viewOf is set to T instead. nullptr when neither.
std::shared_ptr<sql::TableInfo> describeTable(sql::Engine& engine, const std::string& name,
                                              std::string& viewOf);

// Auto-numbers handed out ahead of the insert, kept by one connection: the numbers it promised
// and the statements that take them, by table.
class KeyReserver {
 public:
  static constexpr int kAttempts = 1000;  // a key is taken in at most this many tries
  // How many rows the statement that just ran changed.
  using ChangedRows = std::function<int64_t(sql::EngineStatement&)>;
  explicit KeyReserver(ChangedRows changed) : changed_(std::move(changed)) {}
  // The table's next number, taken in its row of sqlite_sequence; throws sql::StaleSnapshot when
  // the write cannot join the open snapshot, RuntimeError kDatabaseLocked when every try lost.
  int64_t reserve(sql::Engine& engine, const sql::TableInfo& table);
  void clear() {
    steps_.clear();
    reserved_.clear();
  }

 private:
  struct Steps {
    std::unique_ptr<sql::EngineStatement> read, update, insert;
  };
  ChangedRows changed_;
  std::unordered_map<std::string, int64_t> reserved_;
  std::unordered_map<std::string, Steps> steps_;
};

}  // namespace dossync::sqlite
