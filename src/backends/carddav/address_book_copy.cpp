#include "backends/carddav/address_book_copy.h"

#include <cctype>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

#include "backends/vcard/atomic_file.h"
#include "backends/vcard/card_merge.h"
#include "backends/vcard/entry_id.h"
#include "base/error.h"

namespace fs = std::filesystem;

namespace dossync::carddav {
namespace {

constexpr int kMergeAttempts = 5;

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::string percentDecoded(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size() && hexValue(s[i + 1]) >= 0 && hexValue(s[i + 2]) >= 0) {
      out += static_cast<char>(hexValue(s[i + 1]) * 16 + hexValue(s[i + 2]));
      i += 2;
    } else {
      out += s[i];
    }
  }
  return out;
}

bool endsWithVcf(const std::string& name) {
  if (name.size() < 4) return false;
  std::string tail = name.substr(name.size() - 4);
  for (auto& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return tail == ".vcf";
}

bool ok2xx(long status) {
  return status >= 200 && status < 300;
}

RuntimeError conflict(const std::string& what) {
  return RuntimeError(kEditConflict, what, "carddav");
}

}  // namespace

AddressBookCopy::AddressBookCopy(std::string url, DavOptions options, fs::path profileDir,
                                 std::function<void(const std::string&)> warn,
                                 vdir::CardConflict conflict)
    : url_(std::move(url)),
      options_(std::move(options)),
      warn_(std::move(warn)),
      conflict_(conflict),
      dir_(profileDir / "contacts"),
      state_(profileDir / "carddav-state") {
  loadState();
}

AddressBookCopy::RefreshCounts AddressBookCopy::lastRefresh() const {
  std::lock_guard lock(mutex_);
  return last_;
}

void AddressBookCopy::logon(const std::string& password) {
  // The clients (and their connections) stay while the password does; the writer's client
  // may be sending cards of an earlier run's saves only until that run returned, so a new
  // password, which replaces it, never meets one in use.
  if (!reader_ || password != options_.password) {
    options_.password = password;
    reader_ = std::make_unique<DavClient>(url_, options_);
    writer_ = std::make_unique<DavClient>(url_, options_);
  }
  DavClient::CollectionInfo info = reader_->probe();
  if (!info.isAddressBook)
    throw RuntimeError(kServerRejected,
                       reader_->collectionUrl() + " is not an address book (a CardDAV collection)",
                       "carddav");
  syncCollection_ = info.syncCollection;
  refresh();
}

std::string AddressBookCopy::fileFor(const std::string& href) const {
  if (auto it = byHref_.find(href); it != byHref_.end()) return it->second;
  std::string base = href;
  while (!base.empty() && base.back() == '/') base.pop_back();
  base = percentDecoded(base.substr(base.find_last_of('/') + 1));
  std::string stem = endsWithVcf(base) ? base.substr(0, base.size() - 4) : base;
  if (vdir::isPlainUid(stem) && stem.size() <= 96) return stem + ".vcf";
  return "~" + vdir::hash128(href) + ".vcf";
}

std::string AddressBookCopy::hrefFor(const std::string& file) const {
  if (auto it = files_.find(file); it != files_.end()) return it->second.href;
  return reader_->collectionPath() + file;
}

bool AddressBookCopy::followed(const std::string& href) const {
  if (reader_->contains(href)) return true;
  if (warn_)
    warn_("The server at " + reader_->collectionUrl() + " lists " + href +
          ", which is outside the address book; skipped");
  return false;
}

RuntimeError AddressBookCopy::outside(const std::string& href, const std::string& file) const {
  return RuntimeError(kServerRejected,
                      "The card " + file + " is known at " + href + ", outside the address book " +
                          reader_->collectionUrl() + "; not sent there",
                      "carddav");
}

// carddav-state: "token\t<token>", then "card\t<file>\t<href>\t<etag>" and "gone\t<file>"
// lines; the last line about a file counts.
void AddressBookCopy::loadState() {
  std::ifstream in(state_, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    std::vector<std::string> f;
    std::stringstream ss(line);
    for (std::string part; std::getline(ss, part, '\t');) f.push_back(part);
    if (f.size() == 2 && f[0] == "token") {
      token_ = f[1];
    } else if (f.size() >= 3 && f[0] == "card") {
      files_[f[1]] = Known{f[2], f.size() > 3 ? f[3] : ""};
    } else if (f.size() == 2 && f[0] == "gone") {
      files_.erase(f[1]);
    }
  }
  for (const auto& [file, known] : files_) byHref_[known.href] = file;
}

void AddressBookCopy::saveState() {
  std::string text = "token\t" + token_ + "\n";
  for (const auto& [file, known] : files_)
    text += "card\t" + file + "\t" + known.href + "\t" + known.etag + "\n";
  vdir::writeFileAtomically(state_, text, true);
}

void AddressBookCopy::appendState(const std::vector<std::string>& lines) {
  if (lines.empty()) return;
  std::ofstream out(state_, std::ios::binary | std::ios::app);
  for (const auto& line : lines) out << line << "\n";
}

void AddressBookCopy::writeCopy(const std::string& file, const std::string& text) {
  vdir::writeFileAtomically(dir_ / file, text, true);
}

void AddressBookCopy::removeCopy(const std::string& file) {
  std::error_code ec;
  fs::remove(dir_ / file, ec);
}

void AddressBookCopy::download(DavClient& client, const std::vector<DavClient::Member>& members) {
  std::vector<std::string> hrefs;
  for (const auto& m : members) hrefs.push_back(m.href);
  if (hrefs.empty()) return;
  auto cards = client.multiget(hrefs);
  last_.requests += (hrefs.size() + 99) / 100;
  for (const auto& card : cards) {
    std::string file = fileFor(card.href);
    if (card.status == 404) {  // gone between the listing and now
      removeCopy(file);
      if (auto it = files_.find(file); it != files_.end()) {
        byHref_.erase(it->second.href);
        files_.erase(it);
      }
      continue;
    }
    writeCopy(file, card.data);
    files_[file] = Known{card.href, card.etag};
    byHref_[card.href] = file;
    ++last_.downloaded;
  }
}

void AddressBookCopy::refresh() {
  std::lock_guard lock(mutex_);
  last_ = RefreshCounts{};
  std::vector<DavClient::Member> changed;
  std::vector<std::string> removed;
  bool complete = true;  // the answer lists every member: what it leaves out is gone
  bool done = false;
  if (syncCollection_) {
    DavClient::SyncResult r;
    try {
      r = reader_->syncCollection(token_);
    } catch (const RuntimeError& e) {
      // A server that offers the report but refuses it is listed instead, from now on.
      if (e.number() != kServerRejected) throw;
      syncCollection_ = false;
      r.tokenInvalid = true;
    }
    ++last_.requests;
    if (!r.tokenInvalid) {
      complete = token_.empty();
      last_.incremental = !complete;
      token_ = r.token;
      changed = std::move(r.changed);
      removed = std::move(r.removed);
      done = true;
    } else {
      token_.clear();
    }
  }
  if (!done) {
    changed = reader_->listMembers();
    ++last_.requests;
    // A server that offers no token is listed in full every time; the next refresh of one
    // that does starts from its new token.
    if (syncCollection_) {
      try {
        auto r = reader_->syncCollection("");
        ++last_.requests;
        if (!r.tokenInvalid) token_ = r.token;
      } catch (const RuntimeError& e) {
        if (e.number() != kServerRejected) throw;
        syncCollection_ = false;
      }
    }
  }
  std::erase_if(changed, [this](const DavClient::Member& m) { return !followed(m.href); });
  std::erase_if(removed, [this](const std::string& href) { return !reader_->contains(href); });
  std::vector<DavClient::Member> fetch;
  std::set<std::string> listed;
  for (const auto& m : changed) {
    std::string file = fileFor(m.href);
    listed.insert(file);
    auto it = files_.find(file);
    bool same = it != files_.end() && !m.etag.empty() && it->second.etag == m.etag &&
                fs::exists(dir_ / file);
    if (!same) fetch.push_back(m);
  }
  for (const auto& href : removed) {
    std::string file = fileFor(href);
    removeCopy(file);
    if (files_.erase(file)) ++last_.removed;
    byHref_.erase(href);
  }
  if (complete) {
    // Whatever the copy holds that the server did not list is gone there.
    std::vector<std::string> stale;
    for (const auto& [file, known] : files_)
      if (!listed.count(file)) stale.push_back(file);
    std::error_code ec;
    for (fs::directory_iterator it(dir_, ec), end; !ec && it != end; it.increment(ec)) {
      std::string name = it->path().filename().string();
      if (endsWithVcf(name) && name[0] != '.' && !listed.count(name) && !files_.count(name))
        stale.push_back(name);
    }
    for (const auto& file : stale) {
      removeCopy(file);
      if (auto it = files_.find(file); it != files_.end()) {
        byHref_.erase(it->second.href);
        files_.erase(it);
      }
      ++last_.removed;
    }
  }
  download(*reader_, fetch);
  saveState();
}

std::string AddressBookCopy::resolve(DavClient& client, const Upload& up, DavClient::Put put,
                                     DavClient::WriteResult result, std::string* etag) {
  std::string url = client.urlOf(put.href);
  for (int attempt = 0;; ++attempt) {
    if (result.error) throw *result.error;
    if (ok2xx(result.status)) {
      *etag = result.etag;
      return put.body;
    }
    if (attempt >= kMergeAttempts)
      throw conflict("The card " + url + " kept changing on the server; " + up.file +
                     " was not written (try again)");
    if (put.create)  // a new card's name is taken (412), or the server refuses it
      throw conflict("A card named " + url + " exists on the server already; not replaced");
    if (result.status == 404) {
      // Deleted on the server since it was read: made again with what this item holds.
      put.ifMatch.clear();
      put.create = true;
    } else {  // 412: changed on the server since it was read
      auto theirs = client.get(put.href);
      if (theirs.status == 404) {
        put.ifMatch.clear();
        put.create = true;
      } else {
        if (!vdir::sameCardMeaning(theirs.data, put.body))
          put.body = vdir::mergeCardChanges(up.base, up.text, theirs.data, conflict_);
        if (vdir::sameCardMeaning(theirs.data, put.body)) {  // nothing of ours left to send
          *etag = theirs.etag;
          return theirs.data;
        }
        put.ifMatch = theirs.etag;
      }
    }
    result = client.put(put);
  }
}

std::vector<vdir::CardRemote::Outcome> AddressBookCopy::upload(const std::vector<Upload>& batch) {
  std::vector<Outcome> outcomes(batch.size());
  std::vector<DavClient::Put> puts;
  std::vector<size_t> which;
  {
    std::lock_guard lock(mutex_);
    for (size_t i = 0; i < batch.size(); ++i) {
      const Upload& up = batch[i];
      auto known = files_.find(up.file);
      if (!up.isNew && known != files_.end() && !up.current.empty() &&
          vdir::sameCardMeaning(up.current, up.text)) {
        outcomes[i].unchanged = true;
        continue;
      }
      DavClient::Put put;
      put.href = hrefFor(up.file);
      if (!writer_->contains(put.href)) {
        outcomes[i].error = outside(put.href, up.file);
        continue;
      }
      put.body = up.text;
      if (known != files_.end() && !known->second.etag.empty())
        put.ifMatch = known->second.etag;
      else
        put.create = up.isNew || known == files_.end();
      puts.push_back(std::move(put));
      which.push_back(i);
    }
  }
  if (puts.empty()) return outcomes;
  auto results = writer_->putMany(puts);
  std::vector<std::string> lines;
  for (size_t k = 0; k < puts.size(); ++k) {
    size_t i = which[k];
    std::string etag;
    try {
      // An update without a known etag is sent as a create: a 412 then means the card is
      // there, and it is merged like any other change made on the server.
      DavClient::Put put = puts[k];
      if (put.create && !batch[i].isNew && results[k].status == 412) put.create = false;
      outcomes[i].text = resolve(*writer_, batch[i], put, results[k], &etag);
    } catch (const RuntimeError& e) {
      outcomes[i].error = e;
      continue;
    }
    std::lock_guard lock(mutex_);
    files_[batch[i].file] = Known{puts[k].href, etag};
    byHref_[puts[k].href] = batch[i].file;
    lines.push_back("card\t" + batch[i].file + "\t" + puts[k].href + "\t" + etag);
  }
  std::lock_guard lock(mutex_);
  appendState(lines);
  return outcomes;
}

void AddressBookCopy::publishEvent(const std::string& uid, const std::string& ics) {
  std::lock_guard lock(mutex_);
  if (!calendar_) calendar_ = reader_->findEventCalendar();
  if (calendar_->empty()) return;
  DavClient::Put put;
  put.href = *calendar_ + uid + ".ics";
  put.body = ics;
  put.contentType = "text/calendar";
  auto result = reader_->put(put);
  if (result.status / 100 != 2)
    throw RuntimeError(kServerRejected,
                       "The server did not take the appointment " + put.href + " (" +
                           std::to_string(result.status) + ")",
                       "carddav");
}

void AddressBookCopy::remove(const std::string& file) {
  std::lock_guard lock(mutex_);
  auto known = files_.find(file);
  std::string href = hrefFor(file);
  if (!reader_->contains(href)) throw outside(href, file);
  auto result = reader_->remove(href, known != files_.end() ? known->second.etag : "");
  if (result.status == 412)
    throw conflict("The card " + reader_->urlOf(href) +
                   " changed on the server since it was read; it was not deleted");
  if (known != files_.end()) {
    byHref_.erase(known->second.href);
    files_.erase(known);
  }
  appendState({"gone\t" + file});
}

}  // namespace dossync::carddav
