#include "report/report_file.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_set>

#ifdef DOSSYNC_HAVE_ZSTD
#include <zstd.h>
#endif

#include "base/error.h"

namespace dossync::report {
namespace {

using json = nlohmann::ordered_json;

// zstd's frame magic number, as it lies in the file.
constexpr unsigned char kZstdMagic[4] = {0x28, 0xB5, 0x2F, 0xFD};
constexpr size_t kStoredBlock = 128 * 1024;  // a stored block's largest size (the window's)

// The item a record names when it says none: an Outlook item's own entry id, or the pairing.
const std::string& usualOutlookId(const RecordPlan& r) {
  return r.kind == "outlook-item" ? r.key : r.pairedWith;
}

// Of a new item's changes, those from nothing: its values, kept once each under "fields"; the
// others (from a default the item had, as Gender's 0) stay changes.
bool fromNothing(const RecordPlan& r, const Change& c) {
  return r.action == "create-item" && c.target == "item" && c.beforeKnown && c.before.empty();
}

// A record's line leaves out what it would say of most records: chosen, found by nothing,
// the usual item, empty lists.
json recordJson(const RecordPlan& r) {
  json out = json::object();
  out["kind"] = r.kind;
  out["key"] = r.key;
  if (!r.name.empty()) out["name"] = r.name;
  out["action"] = r.action;
  if (!r.selected) out["selected"] = false;
  if (!r.pairedWith.empty()) out["pairedWith"] = r.pairedWith;
  if (r.outlookId != usualOutlookId(r)) out["outlookId"] = r.outlookId;
  if (r.foundBy != "none") out["foundBy"] = r.foundBy;
  if (!r.contactFoundBy.empty()) out["contactFoundBy"] = r.contactFoundBy;
  // A field set twice keeps its second value as a change, so that nothing is lost.
  json fields = json::object(), changes = json::array();
  std::unordered_set<std::string_view> inFields;  // an ordered_json's look-up walks its keys
  for (const auto& c : r.changes) {
    if (fromNothing(r, c) && inFields.insert(c.field).second) {
      fields[c.field] = c.after;
    } else {
      // [target, field, old, new], or [target, field, new] when the old value was never read.
      changes.push_back(c.beforeKnown ? json::array({c.target, c.field, c.before, c.after})
                                      : json::array({c.target, c.field, c.after}));
    }
  }
  if (!fields.empty()) out["fields"] = std::move(fields);
  if (!changes.empty()) out["changes"] = std::move(changes);
  if (!r.added.empty()) out["added"] = addedJson(r.added);
  if (!r.conflicts.empty()) out["conflicts"] = conflictsJson(r.conflicts);
  if (!r.notes.empty()) out["notes"] = r.notes;
  if (!r.warnings.empty()) out["warnings"] = r.warnings;
  if (!r.errors.empty()) out["errors"] = errorsJson(r.errors);
  return out;
}

// Whether the text is well-formed UTF-8: what json::dump writes as it is (and refuses else).
bool wellFormedUtf8(std::string_view s) {
  for (size_t i = 0; i < s.size();) {
    auto b = static_cast<unsigned char>(s[i++]);
    if (b < 0x80) continue;
    size_t more = b >= 0xC2 && b <= 0xDF   ? 1
                  : b >= 0xE0 && b <= 0xEF ? 2
                  : b >= 0xF0 && b <= 0xF4 ? 3
                                           : 0;
    if (more == 0 || s.size() - i < more) return false;
    // The second byte's range rules out overlong forms, surrogates and code points past U+10FFFF.
    unsigned char lo = b == 0xE0 ? 0xA0 : b == 0xF0 ? 0x90 : 0x80;
    unsigned char hi = b == 0xED ? 0x9F : b == 0xF4 ? 0x8F : 0xBF;
    for (size_t k = 0; k < more; ++k, ++i) {
      auto c = static_cast<unsigned char>(s[i]);
      if (c < (k == 0 ? lo : 0x80) || c > (k == 0 ? hi : 0xBF)) return false;
    }
  }
  return true;
}

// A JSON string as json::dump writes it, without a JSON value made first. Text that is not
// UTF-8 goes through the library, which refuses it.
// How many leading bytes of the text are plain ASCII that JSON writes as it is (no control
// character, quote or backslash), eight at a time.
size_t plainAsciiPrefix(std::string_view s) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL, kHigh = 0x8080808080808080ULL;
  auto hasZeroByte = [&](uint64_t x) { return (x - kOnes) & ~x & kHigh; };
  size_t i = 0;
  for (; i + 8 <= s.size(); i += 8) {
    uint64_t x;
    std::memcpy(&x, s.data() + i, 8);
    // Bytes past ASCII, below 0x20, '"' or '\\' stop the run.
    uint64_t stop = (x & kHigh) | ((x - 0x20 * kOnes) & ~x & kHigh) |
                    hasZeroByte(x ^ ('"' * kOnes)) | hasZeroByte(x ^ ('\\' * kOnes));
    if (stop) break;
  }
  for (; i < s.size(); ++i) {
    auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\') break;
  }
  return i;
}

void appendString(std::string& out, std::string_view s) {
  if (plainAsciiPrefix(s) == s.size()) {  // most texts: appended whole
    out += '"';
    out += s;
    out += '"';
    return;
  }
  if (!wellFormedUtf8(s)) {
    out += json(std::string(s)).dump();
    return;
  }
  // The characters with a short escape, and the letter of each.
  static constexpr std::string_view kShort = "\"\\\b\f\n\r\t", kLetters = "\"\\bfnrt";
  static constexpr char kHex[] = "0123456789abcdef";
  out += '"';
  size_t plain = 0;  // where the text not yet appended starts
  for (size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if ((c >= 0x20 || c < 0) && c != '"' && c != '\\') continue;  // bytes past ASCII too
    out.append(s, plain, i - plain);
    plain = i + 1;
    if (size_t k = kShort.find(c); k != std::string_view::npos) {
      out += '\\';
      out += kLetters[k];
    } else {
      out += "\\u00";
      out += kHex[(c >> 4) & 0xF];
      out += kHex[c & 0xF];
    }
  }
  out.append(s, plain);
  out += '"';
}

void appendMember(std::string& out, std::string_view name, std::string_view text) {
  out += ",\"";
  out += name;
  out += "\":";
  appendString(out, text);
}

// recordJson(r).dump(), written straight: the report's thread writes one such line for every
// record of a run.
std::string recordLine(const RecordPlan& r) {
  std::string out = "{\"kind\":";
  out.reserve(512);
  appendString(out, r.kind);
  appendMember(out, "key", r.key);
  if (!r.name.empty()) appendMember(out, "name", r.name);
  appendMember(out, "action", r.action);
  if (!r.selected) out += ",\"selected\":false";
  if (!r.pairedWith.empty()) appendMember(out, "pairedWith", r.pairedWith);
  if (r.outlookId != usualOutlookId(r)) appendMember(out, "outlookId", r.outlookId);
  if (r.foundBy != "none") appendMember(out, "foundBy", r.foundBy);
  if (!r.contactFoundBy.empty()) appendMember(out, "contactFoundBy", r.contactFoundBy);
  std::string fields, changes;
  std::vector<std::string_view> inFields;  // a record names a few dozen fields at most
  inFields.reserve(r.changes.size());
  auto firstOf = [&](std::string_view field) {
    if (std::find(inFields.begin(), inFields.end(), field) != inFields.end()) return false;
    inFields.push_back(field);
    return true;
  };
  for (const auto& c : r.changes) {
    if (fromNothing(r, c) && firstOf(c.field)) {
      fields += fields.empty() ? '{' : ',';
      appendString(fields, c.field);
      fields += ':';
      appendString(fields, c.after);
    } else {
      changes += changes.empty() ? '[' : ',';
      changes += '[';
      appendString(changes, c.target);
      changes += ',';
      appendString(changes, c.field);
      if (c.beforeKnown) {
        changes += ',';
        appendString(changes, c.before);
      }
      changes += ',';
      appendString(changes, c.after);
      changes += ']';
    }
  }
  if (!fields.empty()) out.append(",\"fields\":").append(fields) += '}';
  if (!changes.empty()) out.append(",\"changes\":").append(changes) += ']';
  // What few records hold goes through the library.
  if (!r.added.empty()) out.append(",\"added\":").append(addedJson(r.added).dump());
  if (!r.conflicts.empty()) out.append(",\"conflicts\":").append(conflictsJson(r.conflicts).dump());
  if (!r.notes.empty()) out.append(",\"notes\":").append(json(r.notes).dump());
  if (!r.warnings.empty()) out.append(",\"warnings\":").append(json(r.warnings).dump());
  if (!r.errors.empty()) out.append(",\"errors\":").append(errorsJson(r.errors).dump());
  out += '}';
  return out;
}

RecordPlan recordFrom(const json& j) {
  RecordPlan r;
  r.kind = j.at("kind").get<std::string>();
  r.key = j.at("key").get<std::string>();
  r.name = j.value("name", "");
  r.action = j.at("action").get<std::string>();
  r.selected = j.value("selected", true);
  r.pairedWith = j.value("pairedWith", "");
  r.outlookId = j.contains("outlookId") ? j["outlookId"].get<std::string>() : usualOutlookId(r);
  r.foundBy = j.value("foundBy", "none");
  r.contactFoundBy = j.value("contactFoundBy", "");
  if (auto f = j.find("fields"); f != j.end()) {
    for (const auto& [k, v] : f->items())
      r.changes.push_back({"item", k, "", v.get<std::string>()});
  }
  if (auto c = j.find("changes"); c != j.end()) {
    for (const auto& change : *c) {
      bool known = change.size() == 4;
      r.changes.push_back({change.at(0).get<std::string>(), change.at(1).get<std::string>(),
                           known ? change.at(2).get<std::string>() : "",
                           change.at(known ? 3 : 2).get<std::string>(), known});
    }
  }
  if (auto a = j.find("added"); a != j.end()) r.added = addedFrom(*a);
  if (auto c = j.find("conflicts"); c != j.end()) r.conflicts = conflictsFrom(*c);
  r.notes = j.value("notes", std::vector<std::string>{});
  r.warnings = j.value("warnings", std::vector<std::string>{});
  if (auto e = j.find("errors"); e != j.end()) r.errors = errorsFrom(*e);
  return r;
}

[[noreturn]] void notAReport(const std::filesystem::path& path, const std::string& why) {
  throw RuntimeError(kTypeMismatch, path.string() + " is not a dossync report: " + why);
}

}  // namespace

#ifdef DOSSYNC_HAVE_ZSTD
struct ReportWriter::Compressor {
  ZSTD_CCtx* cctx = ZSTD_createCCtx();
  std::vector<char> buffer = std::vector<char>(ZSTD_CStreamOutSize());
  Compressor() { ZSTD_CCtx_setParameter(cctx, ZSTD_c_compressionLevel, 1); }
  ~Compressor() { ZSTD_freeCCtx(cctx); }
};
#else
struct ReportWriter::Compressor {};
#endif

ReportWriter::ReportWriter(const std::filesystem::path& path, bool compress)
    : path_(path), out_(path, std::ios::binary | std::ios::trunc) {
  if (!out_) throw RuntimeError(kDiskIO, "Cannot write the report " + path.string());
#ifdef DOSSYNC_HAVE_ZSTD
  if (compress) zstd_ = std::make_unique<Compressor>();
#else
  (void)compress;
#endif
}

ReportWriter::~ReportWriter() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    queue_.clear();
  }
  work_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void ReportWriter::head(const RunPlan& plan) {
  json out = json::object();
  out["format"] = kReportFormat;
  out["kind"] = plan.kind;
  out["started"] = plan.started;
  json& settings = out["settings"] = json::object();
  for (const auto& [k, v] : plan.settings) settings[k] = v;
  line(out.dump());
}

void ReportWriter::record(RecordPlan record) {
  std::unique_lock lock(mutex_);
  if (failure_) std::rethrow_exception(failure_);
  if (!thread_.joinable()) thread_ = std::thread([this] { serve(); });
  room_.wait(lock, [&] { return queue_.size() < kMaxQueued; });
  queue_.push_back(std::move(record));
  if (queue_.size() >= kBatch) work_.notify_one();
}

void ReportWriter::serve() {
  std::unique_lock lock(mutex_);
  for (;;) {
    work_.wait(lock, [&] { return stopping_ || queue_.size() >= kBatch; });
    if (queue_.empty()) return;  // stopping, and every record is written
    std::deque<RecordPlan> batch;
    batch.swap(queue_);
    room_.notify_all();
    if (failure_) continue;  // what cannot be written is dropped
    lock.unlock();
    std::exception_ptr failed;
    try {
      for (const auto& r : batch) line(recordLine(r));
    } catch (...) {
      failed = std::current_exception();
    }
    batch.clear();
    lock.lock();
    if (failed && !failure_) failure_ = failed;
  }
}

void ReportWriter::finishRecords() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  work_.notify_one();
  if (thread_.joinable()) thread_.join();
  if (failure_) std::rethrow_exception(failure_);
}

void ReportWriter::tail(const RunPlan& plan, const std::vector<LateWarning>& late) {
  finishRecords();
  json out = json::object();
  out["finished"] = plan.finished;
  out["seconds"] = plan.seconds;
  out["interrupted"] = plan.interrupted;
  RunCounts counts = plan.counts.value_or(RunCounts{});
  out["records"] = counts.records;
  json& actions = out["actions"] = json::object();
  for (size_t i = 0; i < RunCounts::kActions; ++i)
    actions[RunCounts::kActionNames[i]] = counts.actions[i];
  out["errors"] = counts.errors;
  out["failed"] = counts.failed;
  out["conflicts"] = counts.conflicts;
  putTallies(out, plan);
  json lateWarnings = json::array(), lateRecords = json::array();
  for (const auto& w : late) {
    if (w.listed >= 0) {
      lateWarnings.push_back({{"record", w.listed}, {"warning", w.warning}});
    } else {
      json r = recordJson(w.record);
      r["before"] = w.before;
      r["warnings"].push_back(w.warning);
      lateRecords.push_back(std::move(r));
    }
  }
  if (!lateWarnings.empty()) out["lateWarnings"] = std::move(lateWarnings);
  if (!lateRecords.empty()) out["lateRecords"] = std::move(lateRecords);
  if (!plan.errors.empty()) out["outsideErrors"] = errorsJson(plan.errors);
  std::string text = out.dump() + "\n";
  write(text.data(), text.size(), true);
  out_.close();
  if (!out_) throw RuntimeError(kDiskIO, "Cannot write the report " + path_.string());
}

void ReportWriter::line(const std::string& text) {
  write(text.data(), text.size(), false);
  write("\n", 1, false);
}

void ReportWriter::write(const char* data, size_t size, bool end) {
#ifdef DOSSYNC_HAVE_ZSTD
  if (zstd_) {
    ZSTD_inBuffer in{data, size, 0};
    bool done = false;
    while (!done) {
      ZSTD_outBuffer out{zstd_->buffer.data(), zstd_->buffer.size(), 0};
      size_t left =
          ZSTD_compressStream2(zstd_->cctx, &out, &in, end ? ZSTD_e_end : ZSTD_e_continue);
      if (ZSTD_isError(left))
        throw RuntimeError(kDiskIO, "Cannot compress the report " + path_.string() + ": " +
                                        ZSTD_getErrorName(left));
      out_.write(zstd_->buffer.data(), static_cast<std::streamsize>(out.pos));
      done = end ? left == 0 : in.pos == in.size;
    }
    if (!out_) throw RuntimeError(kDiskIO, "Cannot write the report " + path_.string());
    return;
  }
#endif
  // Stored: a frame without content size or checksum, a window of one block, and blocks of the
  // bytes as they are (a 3-byte header: last-block flag, type 0, size).
  pending_.append(data, size);
  auto block = [&](size_t n, bool last) {
    if (!frameStarted_) {
      out_.write(reinterpret_cast<const char*>(kZstdMagic), 4);
      const char header[2] = {0x00, 0x38};  // no flags; window 2^(10+7) = 128 KiB
      out_.write(header, 2);
      frameStarted_ = true;
    }
    uint32_t h = static_cast<uint32_t>(n << 3) | (last ? 1u : 0u);
    const char bytes[3] = {static_cast<char>(h & 0xFF), static_cast<char>((h >> 8) & 0xFF),
                           static_cast<char>((h >> 16) & 0xFF)};
    out_.write(bytes, 3);
    out_.write(pending_.data(), static_cast<std::streamsize>(n));
    pending_.erase(0, n);
  };
  while (pending_.size() >= kStoredBlock && !(end && pending_.size() == kStoredBlock))
    block(kStoredBlock, false);
  if (end) block(pending_.size(), true);
  if (!out_) throw RuntimeError(kDiskIO, "Cannot write the report " + path_.string());
}

namespace {

// The file's bytes decoded, handed on a piece at a time. A frame cut short ends the text there.
template <class Take>
void decode(const std::filesystem::path& path, std::ifstream& in, Take&& take) {
  std::vector<char> input(1 << 16);
#ifdef DOSSYNC_HAVE_ZSTD
  std::unique_ptr<ZSTD_DCtx, size_t (*)(ZSTD_DCtx*)> dctx(ZSTD_createDCtx(), ZSTD_freeDCtx);
  std::vector<char> output(ZSTD_DStreamOutSize());
  while (in) {
    in.read(input.data(), static_cast<std::streamsize>(input.size()));
    ZSTD_inBuffer buf{input.data(), static_cast<size_t>(in.gcount()), 0};
    while (buf.pos < buf.size) {
      ZSTD_outBuffer out{output.data(), output.size(), 0};
      size_t r = ZSTD_decompressStream(dctx.get(), &out, &buf);
      if (ZSTD_isError(r)) notAReport(path, ZSTD_getErrorName(r));
      take(output.data(), out.pos);
    }
  }
#else
  // Stored blocks only: what this build writes.
  std::string bytes;
  while (in) {
    in.read(input.data(), static_cast<std::streamsize>(input.size()));
    bytes.append(input.data(), static_cast<size_t>(in.gcount()));
  }
  size_t at = 0;
  while (at + 6 <= bytes.size()) {
    if (std::memcmp(bytes.data() + at, kZstdMagic, 4) != 0 || bytes[at + 4] != 0)
      notAReport(path, "not a zstd frame this build reads");
    at += 6;
    for (bool last = false; !last && at + 3 <= bytes.size();) {
      auto b = [&](size_t i) {
        return static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + i]));
      };
      uint32_t h = b(0) | b(1) << 8 | b(2) << 16;
      if (((h >> 1) & 3) != 0) notAReport(path, "compressed, and this build has no zstd");
      last = h & 1;
      at += 3;
      size_t n = std::min<size_t>(h >> 3, bytes.size() - at);
      take(bytes.data() + at, n);
      at += n;
    }
  }
#endif
}

}  // namespace

RunPlan readReportFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw RuntimeError(kFileNotFound, "No report " + path.string());
  RunPlan plan;
  std::string name = path.filename().string();
  plan.id = name.size() > std::strlen(kReportExtension) &&
                    name.compare(name.size() - std::strlen(kReportExtension), std::string::npos,
                                 kReportExtension) == 0
                ? name.substr(0, name.size() - std::strlen(kReportExtension))
                : path.stem().string();
  bool headRead = false, tailRead = false;
  RunCounts listed;
  std::string text;
  auto takeLine = [&](const std::string& l) {
    if (tailRead) notAReport(path, "lines after its end");
    json j = json::parse(l);
    if (!headRead) {
      if (j.value("format", "") != kReportFormat) notAReport(path, "another format");
      plan.kind = j.at("kind").get<std::string>();
      plan.started = j.at("started").get<std::string>();
      for (const auto& [k, v] : j.at("settings").items())
        plan.settings.emplace_back(k, v.get<std::string>());
      headRead = true;
    } else if (j.contains("finished")) {
      tailRead = true;
      plan.finished = j["finished"].get<std::string>();
      plan.seconds = j.at("seconds").get<double>();
      plan.interrupted = j.at("interrupted").get<bool>();
      RunCounts& counts = plan.counts.emplace();
      counts.records = j.at("records").get<int32_t>();
      for (size_t i = 0; i < RunCounts::kActions; ++i)
        counts.actions[i] = j.at("actions").value(RunCounts::kActionNames[i], 0);
      counts.errors = j.at("errors").get<int32_t>();
      counts.failed = j.value("failed", 0);
      counts.conflicts = j.value("conflicts", 0);
      takeTallies(j, plan);
      for (const auto& w : j.value("lateWarnings", json::array())) {
        auto i = w.at("record").get<size_t>();
        if (i >= plan.records.size()) notAReport(path, "a late warning for no record");
        plan.records[i].warnings.push_back(w.at("warning").get<std::string>());
      }
      // Each goes before the listed record of its place; those placed alike keep their order.
      size_t inserted = 0;
      for (const auto& r : j.value("lateRecords", json::array())) {
        size_t at = std::min(r.at("before").get<size_t>() + inserted, plan.records.size());
        plan.records.insert(plan.records.begin() + static_cast<std::ptrdiff_t>(at), recordFrom(r));
        ++inserted;
      }
      if (auto e = j.find("outsideErrors"); e != j.end()) plan.errors = errorsFrom(*e);
    } else {
      plan.records.push_back(recordFrom(j));
      listed.add(plan.records.back());
    }
  };
  try {
    decode(path, in, [&](const char* data, size_t size) {
      text.append(data, size);
      size_t start = 0;
      for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        takeLine(text.substr(start, nl - start));
      text.erase(0, start);
    });
  } catch (const nlohmann::json::exception& e) {
    notAReport(path, e.what());
  }
  if (!headRead) notAReport(path, "no head line");
  if (!tailRead) {
    // Cut short: what was written, counted from the records listed.
    plan.interrupted = true;
    plan.counts = listed;
  }
  return plan;
}

}  // namespace dossync::report
