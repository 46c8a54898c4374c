#include "backends/sql/column_index.h"

namespace dossync::sql {

void ColumnIndex::add(int64_t rowid, std::string foldedKey) {
  remove(rowid);
  auto it = rows_.try_emplace(std::move(foldedKey)).first;
  it->second.insert(it->second.end(), rowid);  // rows mostly arrive in ascending order
  keyOf_[rowid] = &it->first;                  // node-based map: the key's address stays put
}

void ColumnIndex::remove(int64_t rowid) {
  auto at = keyOf_.find(rowid);
  if (at == keyOf_.end()) return;
  auto it = rows_.find(*at->second);
  keyOf_.erase(at);
  if (it == rows_.end()) return;
  it->second.erase(rowid);
  if (it->second.empty()) rows_.erase(it);
}

const std::set<int64_t>* ColumnIndex::find(const std::string& foldedKey) const {
  auto it = rows_.find(foldedKey);
  return it == rows_.end() ? nullptr : &it->second;
}

}  // namespace dossync::sql
