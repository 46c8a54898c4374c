#include "base/collection.h"

namespace dossync {

void SelectionCollection::clear() {
  entries_.clear();
  for (auto& m : index_) m.clear();
  cursor_ = 0;
}

void SelectionCollection::reserve(size_t count, int member) {
  entries_.reserve(entries_.size() + count);
  if (member >= 1 && member <= 3) index_[member - 1].reserve(index_[member - 1].size() + count);
}

void SelectionCollection::add(const std::string& companyNum, const std::string& contactNum,
                              const std::string& outlookId) {
  Entry e{companyNum, contactNum, outlookId};
  int32_t pos = static_cast<int32_t>(entries_.size());
  for (int m = 0; m < 3; ++m) {
    if (!e[m].empty()) index_[m].emplace(e[m], pos);  // keeps the first position
  }
  entries_.push_back(std::move(e));
}

void SelectionCollection::remove(int32_t position) {
  if (position < 0 || position >= count()) return;
  entries_.erase(entries_.begin() + position);
  // Positions after it move down by one: index anew.
  for (auto& m : index_) m.clear();
  for (int32_t pos = 0; pos < count(); ++pos)
    for (int m = 0; m < 3; ++m)
      if (!entries_[pos][m].empty()) index_[m].emplace(entries_[pos][m], pos);
  if (cursor_ > static_cast<size_t>(position)) --cursor_;
}

int32_t SelectionCollection::indexOf(const std::string& value, int member) const {
  if (member < 1 || member > 3) return -1;
  auto it = index_[member - 1].find(value);
  return it == index_[member - 1].end() ? -1 : it->second;
}

int32_t SelectionCollection::indexOf(int32_t value, int member) const {
  return indexOf(std::to_string(value), member);
}

std::string SelectionCollection::currentItem() const {
  if (atEnd()) return "";
  for (const auto& m : entries_[cursor_]) {
    if (!m.empty()) return m;
  }
  return "";
}

std::string SelectionCollection::member(int member) const {
  if (atEnd() || member < 1 || member > 3) return "";
  return entries_[cursor_][member - 1];
}

}  // namespace dossync
