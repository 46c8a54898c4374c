// The state of the two-way runs in the synchronisation database: table TwoWayPairs, one row per
// pair of a (scheme, data file), read once per run and written a row at a time when it changes.
#pragma once

#include "base/hash.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace dossync {
class clsOutlookSynchronization;
}

namespace dossync::twoway {

struct PairRow {
  int32_t pairID = 0;  // 0: not stored yet
  int32_t companyNum = -1;
  int32_t contactNum = -1;
  std::string outlookID;
  bool deleted = false;
  // The base: whether the pair has one; its text is read when needed. The hashes of all the
  // host's and all the item's values it holds: a pair whose sides hash the same is known not to
  // have changed without reading its base. Whoever sets `base` sets them too.
  bool hasBase = false;
  uint64_t hostHash = 0, itemHash = 0;
  std::string base;  // compact JSON (Base::encode), once read or made; "" when none
};

// A hash of a record's values, in order (FNV-1a); hashOn folds one more value into a hash, so
// that hashValues(a + b) == hashOn(...hashOn(hashValues(a), b[0])..., b[n]).
// The start is not FNV's usual offset basis (one digit short): hashes kept in the state table
// were made with it, so it stays.
inline constexpr uint64_t kHashStart = 1469598103934665603ull;
uint64_t hashOn(uint64_t hash, const std::string& value);
uint64_t hashValues(const std::vector<std::string>& values, size_t from = 0,
                    size_t to = static_cast<size_t>(-1));
uint64_t combine(uint64_t a, uint64_t b);

// What both sides held after the last run that merged the pair: per half (the company's columns,
// the contact's), each column's host text and item text. A half without a base is merged as if
// everything had changed on both sides.
struct Base {
  using Half = std::map<std::string, std::pair<std::string, std::string>>;  // column -> host, item
  std::optional<Half> company, contact;
  static Base decode(const std::string& json);
  std::string encode() const;  // "" when neither half has a base
  // The half's values of a column: ("", "") when the half has none for it.
  static std::pair<std::string, std::string> of(const Half& half, const std::string& column);
};

class PairStore {
 public:
  // Makes the table when it is missing, except in a preview (nothing is made then, and the run
  // starts from no pairs and writes none).
  PairStore(clsOutlookSynchronization& component, int32_t info);
  // The pairs of the component's scheme, data file and information type, in PairID order
  // (their base's hashes, not its text).
  std::vector<PairRow> load();
  // The text of a pair's base.
  std::string baseText(int32_t pairID);
  // Stores the row with its base and hashes (a new one gets its PairID; the row lets go of its
  // base text, read again through baseText when needed) / removes it.
  void save(PairRow& row);
  void remove(const PairRow& row);

 private:
  std::string statement(const std::string& condition) const;
  int32_t scheme_;
  std::string dataFile_;
  int32_t info_;
  bool exists_ = true;
};

}  // namespace dossync::twoway
