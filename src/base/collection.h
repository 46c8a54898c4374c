// The selection collection of the utilities library (companyCollection): an ordered list of
// triples (host company number, host contact number, Outlook identifier) with, as the wizard
// and the host fill it, one member set. Members are numbered 1 to 3 and held as text.
//
// Operations: clear, add, remove, empty test, count, index of a value in a member, a cursor walk
// (moveFirst, atEnd, currentItem, moveNext) and member reads of the current entry.
// indexOf is a hash look-up, so testing every row of a large table against a large selection
// stays linear. Single-threaded, like the apartment that owns it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/object.h"

namespace dossync {

class SelectionCollection : public Object {
 public:
  using Entry = std::array<std::string, 3>;

  void initialize() { clear(); }
  void clear();
  // Room for `count` more entries that fill member (1..3).
  void reserve(size_t count, int member);
  // Adds an entry; empty texts leave a member unfilled.
  void add(const std::string& companyNum, const std::string& contactNum,
           const std::string& outlookId);
  // Removes the entry at position (0-based); nothing for a position out of range.
  void remove(int32_t position);
  bool isEmpty() const { return entries_.empty(); }
  int32_t count() const { return static_cast<int32_t>(entries_.size()); }
  // Position (0-based) of the first entry whose member (1..3) equals value; -1 when absent.
  int32_t indexOf(const std::string& value, int member) const;
  int32_t indexOf(int32_t value, int member) const;
  bool contains(const std::string& value, int member) const { return indexOf(value, member) >= 0; }

  void moveFirst() { cursor_ = 0; }
  bool atEnd() const { return cursor_ >= entries_.size(); }
  void moveNext() { ++cursor_; }
  // The current entry's filled member (the first non-empty one), as text; "" at the end.
  std::string currentItem() const;
  // Member 1..3 of the current entry; "" at the end.
  std::string member(int member) const;

  const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<Entry> entries_;
  std::array<std::unordered_map<std::string, int32_t>, 3> index_;
  size_t cursor_ = 0;
};

}  // namespace dossync
