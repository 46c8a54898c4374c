// An index of one column kept in this process: the host's database belongs to the host
// and is never given an index of ours. It maps the folded text of every non-null value
// (value::foldCase, so finds compare without regard to case) to the rowids that hold it, in
// ascending order, and each rowid back to its key so that a write can move it.
// The owner (sql::Database) builds it with one scan, keeps it up to date with its own writes and
// builds it anew when another connection has changed the database.
// Thread use: that of its connection.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>

namespace dossync::sql {

class ColumnIndex {
 public:
  // Files a row under a key already folded (moving it from the key it had).
  void add(int64_t rowid, std::string foldedKey);
  void remove(int64_t rowid);
  // The rowids whose value folds to the key, ascending; nullptr when none.
  const std::set<int64_t>* find(const std::string& foldedKey) const;

 private:
  std::unordered_map<std::string, std::set<int64_t>> rows_;
  std::unordered_map<int64_t, const std::string*> keyOf_;
};

}  // namespace dossync::sql
