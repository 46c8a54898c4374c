#include "twoway/pair_state.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "base/hash.h"
#include "base/platform.h"
#include "base/utility.h"
#include "base/value.h"
#include "core/apartment.h"
#include "core/recordset.h"
#include "core/synchronization.h"
#include "interfaces/catalog.h"

namespace dossync::twoway {
namespace {

constexpr const char* kTable = "TwoWayPairs";

store::TableDef pairsTable() {
  auto integer = [](const char* name) {
    return store::ColumnDef{name, store::adInteger, 0, {{"NullAble", true}}};
  };
  auto text = [](const char* name, int32_t size) {
    return store::ColumnDef{
        name, store::adVarWChar, size, {{"NullAble", true}, {"Jet OLEDB:Allow Zero Length", true}}};
  };
  return {kTable,
          {{"PairID", store::adInteger, 0, {{"AutoIncrement", true}, {"NullAble", true}}},
           integer("SchemeNum"),
           text("DataFileID", 20),
           integer("InfoType"),
           integer("CompanyNum"),
           integer("ContactNum"),
           text("OutlookID", 255),
           integer("Deleted"),
           // The base's two hashes ("" without a base), so that a run reads them alone.
           text("Hashes", 40),
           {"Base",
            store::adLongVarWChar,
            0,
            {{"NullAble", true}, {"Jet OLEDB:Allow Zero Length", true}}},
           {"DateLastSync", store::adDate, 0, {{"NullAble", true}}}}};
}

int32_t number(const std::string& text) {
  return value::isBlank(text) || !value::isNumeric(text) ? -1 : value::toLong(text);
}

std::string hex(uint64_t v) {
  static const char digits[] = "0123456789abcdef";
  std::string out(16, '0');
  for (int i = 15; i >= 0; --i, v >>= 4) out[static_cast<size_t>(i)] = digits[v & 15];
  return out;
}

bool fromHex(std::string_view text, uint64_t& v) {
  if (text.size() != 16) return false;
  v = 0;
  for (char c : text) {
    int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    if (d < 0) return false;
    v = v << 4 | static_cast<uint64_t>(d);
  }
  return true;
}

// The Hashes column: the host's and the item's hash, "<16 hex> <16 hex>".
std::string hashesText(const PairRow& row) {
  return row.hasBase ? hex(row.hostHash) + " " + hex(row.itemHash) : "";
}
bool hashesFrom(const std::string& text, uint64_t& hostHash, uint64_t& itemHash) {
  return text.size() == 33 && text[16] == ' ' &&
         fromHex(std::string_view(text).substr(0, 16), hostHash) &&
         fromHex(std::string_view(text).substr(17, 16), itemHash);
}

}  // namespace

uint64_t hashOn(uint64_t h, const std::string& value) {
  return hash::fnv1aByte(hash::fnv1a(value, h), 0x1f);
}

uint64_t hashValues(const std::vector<std::string>& values, size_t from, size_t to) {
  uint64_t h = kHashStart;
  for (size_t i = from; i < values.size() && i < to; ++i) h = hashOn(h, values[i]);
  return h;
}

uint64_t combine(uint64_t a, uint64_t b) {
  return a * hash::kFnvPrime ^ (b + 0x9e3779b97f4a7c15ull);
}

Base Base::decode(const std::string& text) {
  Base base;
  if (text.empty()) return base;
  nlohmann::json j = nlohmann::json::parse(text, nullptr, false);
  if (!j.is_object()) return base;  // an unreadable base is no base: the pair is merged anew
  auto half = [&](const char* key, std::optional<Half>& out) {
    auto it = j.find(key);
    if (it == j.end() || !it->is_object()) return;
    out.emplace();
    for (auto& [column, v] : it->items()) {
      if (v.is_string()) {
        (*out)[column] = {v.get<std::string>(), v.get<std::string>()};
      } else if (v.is_array() && v.size() == 2 && v[0].is_string() && v[1].is_string()) {
        (*out)[column] = {v[0].get<std::string>(), v[1].get<std::string>()};
      }
    }
  };
  // Rows of earlier versions hold the hashes here too ("h", "i"): the Hashes column is what
  // counts, so they are passed over (and left out when the row is written again).
  half("co", base.company);
  half("ct", base.contact);
  return base;
}

std::string Base::encode() const {
  if (!company && !contact) return "";
  nlohmann::json j = nlohmann::json::object();
  auto half = [&](const char* key, const std::optional<Half>& h) {
    if (!h) return;
    nlohmann::json o = nlohmann::json::object();
    for (const auto& [column, v] : *h) {
      if (v.first.empty() && v.second.empty()) continue;
      if (v.first == v.second) {
        o[column] = v.first;
      } else {
        o[column] = nlohmann::json::array({v.first, v.second});
      }
    }
    j[key] = std::move(o);
  };
  half("co", company);
  half("ct", contact);
  return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::pair<std::string, std::string> Base::of(const Half& half, const std::string& column) {
  auto it = half.find(column);
  return it == half.end() ? std::pair<std::string, std::string>{} : it->second;
}

PairStore::PairStore(clsOutlookSynchronization& c, int32_t info)
    : scheme_(c.SchemeID()), dataFile_(c.DataFileUniqueID()), info_(info) {
  hostdb::IDataAccess& db = hostdb::syncDatabase();
  const std::string path = c.SyncDatabaseLocation();
  const std::string source = "PROVIDER=Microsoft.Jet.OLEDB.4.0;Data Source=" + path + ";";
  auto connection = platform::create<store::IConnection>(platform::kAdoConnection);
  connection->setCursorLocation(store::adUseClient);
  connection->open(source);
  struct Closer {
    std::shared_ptr<store::IConnection>& c;
    ~Closer() {
      try {
        if (c->isOpen()) c->close();
      } catch (...) {
      }
    }
  } closer{connection};
  auto catalog = platform::create<store::ICatalog>(platform::kAdoxCatalog);
  catalog->setActiveConnection(connection);
  for (const std::string& name : catalog->tableNames())
    if (value::equalsIgnoreCase(name, kTable)) return;
  if (db.previewing()) {
    exists_ = false;
    return;
  }
  // The other connection makes the table: what this one holds is committed first, and its next
  // read sees the table.
  db.idle();
  catalog->appendTable(pairsTable());
}

std::string PairStore::statement(const std::string& condition) const {
  return std::string("SELECT TwoWayPairs.* FROM TwoWayPairs WHERE ") + condition + ";";
}

std::vector<PairRow> PairStore::load() {
  std::vector<PairRow> rows;
  if (!exists_) return rows;
  hostdb::Recordset rs(hostdb::syncDatabase(),
                       statement("SchemeNum = " + std::to_string(scheme_) + " AND DataFileID = '" +
                                 hostdb::sqlQuoted(dataFile_) +
                                 "' AND InfoType = " + std::to_string(info_) + " ORDER BY PairID"));
  while (!rs.eof()) {
    PairRow r;
    r.pairID = number(rs.read("PairID"));
    r.companyNum = number(rs.read("CompanyNum"));
    r.contactNum = number(rs.read("ContactNum"));
    r.outlookID = rs.read("OutlookID");
    r.deleted = number(rs.read("Deleted")) > 0;
    // The base itself is read only for a pair that changed (baseText): all of them at once
    // would be most of a run's memory.
    std::string hashes = rs.read("Hashes");
    r.hasBase = !hashes.empty();
    if (r.hasBase && !hashesFrom(hashes, r.hostHash, r.itemHash)) r.hostHash = r.itemHash = 0;
    rows.push_back(std::move(r));
    rs.next();
  }
  return rows;
}

std::string PairStore::baseText(int32_t pairID) {
  if (!exists_ || pairID <= 0) return "";
  hostdb::Recordset rs(hostdb::syncDatabase(), statement("PairID = " + std::to_string(pairID)));
  return rs.hasRow() ? rs.read("Base") : std::string();
}

void PairStore::save(PairRow& row) {
  row.hasBase = !row.base.empty();
  if (!row.hasBase) row.hostHash = row.itemHash = 0;
  if (!exists_) return;
  const std::vector<std::pair<const char*, std::string>> values = {
      {"CompanyNum", std::to_string(row.companyNum)},
      {"ContactNum", std::to_string(row.contactNum)},
      {"OutlookID", row.outlookID},
      {"Deleted", row.deleted ? "1" : "0"},
      {"Hashes", hashesText(row)},
      {"Base", row.base},
      {"DateLastSync", value::toText(value::now())}};
  if (row.pairID <= 0) {
    hostdb::Recordset rs(hostdb::syncDatabase(), statement("PairID = -1"), hostdb::kLockOptimistic);
    rs.addNew();
    int32_t id = number(rs.read("PairID"));
    rs.set("SchemeNum", std::to_string(scheme_));
    rs.set("DataFileID", dataFile_);
    rs.set("InfoType", std::to_string(info_));
    for (const auto& [column, v] : values) rs.set(column, v);
    rs.save();
    row.pairID = id;
  } else {
    hostdb::Recordset rs(hostdb::syncDatabase(),
                         statement("PairID = " + std::to_string(row.pairID)),
                         hostdb::kLockOptimistic);
    if (!rs.hasRow())
      throw RuntimeError(kNoCurrentRecord,
                         "Pair " + std::to_string(row.pairID) + " is missing from TwoWayPairs");
    for (const auto& [column, v] : values) rs.write(column, v);
  }
  std::string().swap(row.base);  // stored: a run keeps no base it is done with
}

void PairStore::remove(const PairRow& row) {
  if (!exists_ || row.pairID <= 0) return;
  hostdb::Recordset rs(hostdb::syncDatabase(), statement("PairID = " + std::to_string(row.pairID)),
                       hostdb::kLockOptimistic);
  if (rs.hasRow()) rs.remove();
}

}  // namespace dossync::twoway
