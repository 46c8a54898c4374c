#include "backends/vdir/contact_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

#include "backends/vcard/atomic_file.h"
#include "backends/vcard/contact_card.h"
#include "backends/vcard/entry_id.h"
#include "backends/vcard/posix_io.h"
#include "backends/vdir/vdir_items.h"
#include "base/error.h"

namespace fs = std::filesystem;

namespace dossync::vdir {
namespace {

bool isCardFile(std::string_view name) {
  if (name.size() <= 4 || name[0] == '.') return false;
  return value::equalsIgnoreCase(name.substr(name.size() - 4), ".vcf");
}

// The folder held open while it is scanned, so that each file is opened by its name alone;
// -1 when it cannot be opened (then files are opened by their paths).
class OpenDir {
 public:
  explicit OpenDir(const fs::path& dir)
      : fd_(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~OpenDir() {
    if (fd_ >= 0) ::close(fd_);
  }
  OpenDir(const OpenDir&) = delete;
  OpenDir& operator=(const OpenDir&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

// The temporary files of card writes that a killed run left behind go as the folder is opened.
ContactFolder::ContactFolder(fs::path dir, std::string storeId, WarnFunction warn,
                             std::shared_ptr<CardRemote> remote)
    : dir_(std::move(dir)),
      storeId_(std::move(storeId)),
      warn_(std::move(warn)),
      writer_(dir_, std::move(remote)) {
  removeStaleTemporaryFiles(dir_, [](std::string_view name) { return isCardFile(name); });
}

ContactFolder::~ContactFolder() {
  try {
    flush();
  } catch (const RuntimeError& e) {
    if (warn_) warn_(e.description());
  } catch (...) {
  }
}

int32_t ContactFolder::count() {
  ensureIndex();
  return static_cast<int32_t>(entries_.size());
}

void ContactFolder::ensureIndex() {
  if (built_) return;
  scan();
  built_ = true;
}

// While our own cards are being written the folder's time says nothing about others' changes;
// they show once the writer is done.
void ContactFolder::refreshIfChanged() {
  if (!built_ || writer_.busy()) return;
  settle();
  if (writer_.dirTime() != writer_.knownDirTime()) scan();
}

std::optional<ContactFolder::Stamp> ContactFolder::stampOf(const std::string& file) const {
  return stampOfFile(dir_ / file);
}

bool ContactFolder::exists(const std::string& file) const {
  std::error_code ec;
  return fs::exists(dir_ / file, ec);
}

bool ContactFolder::taken(const std::string& file) const {
  if (inFlight_.count(file) || entries_.count(file)) return true;
  return !built_ && exists(file);  // once the index is built, a file made since fails the save
}

void ContactFolder::settle() {
  for (const auto& result : writer_.collect()) apply(result);
}

void ContactFolder::apply(const CardWriter::Result& result) {
  bool last = true;
  if (auto it = inFlight_.find(result.file); it != inFlight_.end()) {
    last = --it->second == 0;
    if (last) inFlight_.erase(it);
  }
  if (result.error) {
    failed_.push_back(*result.error);
    failedSinceAsked_ = true;
    writeAtOnce_ = true;
    // What the index says of that file is unsure now: a new one is not there, an old one is
    // read again when next found or scanned (its stamp stays unknown).
    if (result.isNew && last) drop(result.file);
    return;
  }
  if (!last) return;
  if (auto it = entries_.find(result.file); it != entries_.end() && result.stamp)
    it->second.stamp = *result.stamp;
}

void ContactFolder::awaitWrite(const std::string& file) {
  if (!inFlight_.count(file)) return;
  writer_.drain();
  settle();
}

void ContactFolder::flush() {
  writer_.drain();
  settle();
  if (failed_.empty()) return;
  RuntimeError first = failed_.front();
  size_t more = failed_.size() - 1;
  failed_.clear();
  if (more == 0) throw first;
  throw RuntimeError(first.number(), first.remedy(),
                     first.description() + " (and " + std::to_string(more) +
                         " more contact files could not be written)",
                     first.source());
}

void ContactFolder::finish() {
  flush();
  if (!unsynced_) return;
  unsynced_ = false;
#ifndef _WIN32
  int fd = ::open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  int err = fd < 0 ? errno : 0;
  if (fd >= 0) {
#ifdef __linux__
    if (::syncfs(fd) != 0) err = errno;
#else
    if (::fsync(fd) != 0) err = errno;
#endif
    ::close(fd);
  }
  if (err != 0) {
    failedSinceAsked_ = true;
    throw fileError("Cannot flush the contact files of " + dir_.string() + " to the disk", err);
  }
#endif
}

bool ContactFolder::takeFailure() {
  bool failed = failedSinceAsked_;
  failedSinceAsked_ = false;
  return failed;
}

// Every *.vcf of the folder, rereading only files whose time or size changed since the last
// scan. The folder's time is taken first, so a change made during the scan shows next time.
void ContactFolder::scan() {
  writer_.drain();
  settle();
  writer_.setKnownDirTime(writer_.dirTime());
  std::vector<std::string> names;
  std::error_code ec;
  for (fs::directory_iterator it(dir_, ec), end; !ec && it != end; it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (isCardFile(name)) names.push_back(std::move(name));
  }
  if (ec) warn_("Cannot list the contact folder " + dir_.string() + ": " + ec.message());
  std::sort(names.begin(), names.end());

  OpenDir folder(dir_);
  auto stampOfName = [&](const std::string& name) -> std::optional<Stamp> {
    if (folder.fd() < 0) return stampOf(name);
    struct stat st {};
    if (::fstatat(folder.fd(), name.c_str(), &st, 0) != 0 || !S_ISREG(st.st_mode))
      return std::nullopt;
    return fileStamp(st);
  };

  // Files unchanged since the last scan keep their entries; the others are read, those of a
  // large folder by two threads (reading and checking touch nothing of the folder but its
  // files). Only the keys of a card are kept (readCardKeys); its stamp is the one it was read
  // with. Files the folder knows nothing of need no stamp beforehand.
  struct Todo {
    const std::string* name;
    Stamp stamp;
    std::optional<Entry> entry;
    std::string problem;
    bool repaired = false;
  };
  Entries fresh;
  fresh.reserve(names.size());
  std::map<std::string, Stamp> reported;
  std::vector<Todo> todo;
  filesById_.clear();  // they point into the entries, which move now
  filesByFileAs_.clear();
  order_.clear();
  orderStale_ = true;
  for (const auto& name : names) {
    auto old = entries_.find(name);
    auto r = reported_.find(name);
    if (old != entries_.end() || r != reported_.end()) {
      auto stamp = stampOfName(name);
      if (!stamp) continue;
      if (old != entries_.end() && old->second.stamp == *stamp) {
        fresh.insert(entries_.extract(old));  // the entry itself moves over, not a copy
        continue;
      }
      if (r != reported_.end() && r->second == *stamp) {
        reported.emplace(name, *stamp);  // already reported, still the same bad file
        continue;
      }
    }
    todo.push_back(Todo{&name, Stamp{}, std::nullopt, {}, false});
  }
  auto readSome = [this, &todo, &folder](size_t from, size_t to) {
    for (size_t i = from; i < to; ++i) {
      Todo& t = todo[i];
      auto file = readFile(*t.name, &t.problem, folder.fd());
      if (!file) continue;
      t.stamp = file->stamp;
      t.repaired = file->repaired;
      try {
        t.entry = entryFor(*t.name, readCardKeys(file->text), file->stamp);
      } catch (const RuntimeError& e) {
        t.problem = "Skipped malformed contact file " + pathOf(*t.name) + ": " + e.description();
      }
    }
  };
  size_t half = todo.size() >= 256 ? todo.size() / 2 : todo.size();
  std::thread helper;
  if (half < todo.size()) helper = std::thread(readSome, half, todo.size());
  readSome(0, half);
  if (helper.joinable()) helper.join();
  for (auto& t : todo) {
    if (t.entry && t.repaired)
      warn_("Contact file " + pathOf(*t.name) +
            " holds bytes that are not UTF-8 text (or NUL); they read as U+FFFD");
    if (t.entry) {
      fresh.emplace(*t.name, std::move(*t.entry));
    } else if (!t.problem.empty()) {
      warn_(t.problem);
      reported.emplace(*t.name, t.stamp);
    }
  }
  entries_ = std::move(fresh);
  reported_ = std::move(reported);
  orderStale_ = true;
  rebuildMaps();
}

std::optional<ContactFolder::FileText> ContactFolder::readFile(const std::string& file,
                                                               std::string* problem,
                                                               int dirFd) const {
  // Never waits: a FIFO or a device under a card's name is opened without blocking and left.
  constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
  int fd =
      dirFd >= 0 ? ::openat(dirFd, file.c_str(), kFlags) : ::open((dir_ / file).c_str(), kFlags);
  if (fd < 0) {
    int err = errno;
    if (err != ENOENT && err != ENOTDIR && problem)
      *problem = "Cannot read contact file " + pathOf(file) + ": " + std::strerror(err);
    return std::nullopt;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {  // not a file
    ::close(fd);
    return std::nullopt;
  }
  FileText out;
  out.stamp = fileStamp(st);
  int err = readAll(fd, &out.text, static_cast<size_t>(st.st_size));
  ::close(fd);
  if (err != 0) {
    if (problem) *problem = "Cannot read contact file " + pathOf(file) + ": " + std::strerror(err);
    return std::nullopt;
  }
  out.text = readableText(out.text, &out.repaired);
  return out;
}

std::optional<ContactFolder::ReadCard> ContactFolder::read(const std::string& file,
                                                           std::string* problem) {
  awaitWrite(file);
  if (lastRead_ && lastRead_->file == file) {
    if (auto now = stampOf(file); now && *now == lastRead_->read.source.stamp)
      return lastRead_->read;
  }
  auto text = readFile(file, problem);
  if (!text) return std::nullopt;
  try {
    ReadCard out{parseVcard(text->text), Source{std::move(text->text), text->stamp}};
    lastRead_ = LastRead{file, out};
    return out;
  } catch (const RuntimeError& e) {
    if (problem)
      *problem = "Skipped malformed contact file " + pathOf(file) + ": " + e.description();
    return std::nullopt;
  }
}

ContactFolder::Entry ContactFolder::entryFor(const std::string& file, const CardKeys& keys,
                                             Stamp stamp) const {
  Entry e;
  e.entryId = entryIdFor(keys.uid, file);
  e.cls = keys.group ? outlook::olDistributionList : outlook::olContact;
  if (e.cls == outlook::olContact) e.fileAsKey = value::foldCase(keys.fileAs);
  e.stamp = stamp;
  return e;
}

void ContactFolder::map(Entries::iterator it) {
  filesById_.emplace(it->second.entryId, &it->first);
  if (it->second.cls == outlook::olContact)
    filesByFileAs_.emplace(it->second.fileAsKey, &it->first);
}

void ContactFolder::unmap(Entries::iterator it) {
  auto remove = [&](FileIndex& index, std::string_view key) {
    auto [from, to] = index.equal_range(key);
    for (auto at = from; at != to; ++at) {
      if (at->second == &it->first) {
        index.erase(at);
        return;
      }
    }
  };
  remove(filesById_, it->second.entryId);
  if (it->second.cls == outlook::olContact) remove(filesByFileAs_, it->second.fileAsKey);
}

void ContactFolder::rebuildMaps() {
  filesById_.clear();
  filesByFileAs_.clear();
  filesById_.reserve(entries_.size());
  filesByFileAs_.reserve(entries_.size());
  for (auto it = entries_.begin(); it != entries_.end(); ++it) map(it);
}

std::vector<std::string> ContactFolder::filesUnder(const FileIndex& index, std::string_view key) {
  std::vector<std::string> files;
  auto [from, to] = index.equal_range(key);
  for (auto at = from; at != to; ++at) files.push_back(*at->second);
  std::sort(files.begin(), files.end());
  return files;
}

// Updating a known file keeps its place (and costs a look-up); a new file or a removed one
// makes the walk order be made again when next needed.
void ContactFolder::put(const std::string& file, Entry entry) {
  auto it = entries_.find(file);
  if (it != entries_.end() && it->second.entryId == entry.entryId && it->second.cls == entry.cls &&
      it->second.fileAsKey == entry.fileAsKey) {
    it->second.stamp = entry.stamp;  // same keys: the maps stay as they are
    return;
  }
  if (it != entries_.end()) {
    unmap(it);
    it->second = std::move(entry);
  } else {
    it = entries_.emplace(file, std::move(entry)).first;
    orderStale_ = true;
  }
  map(it);
}

void ContactFolder::drop(const std::string& file) {
  auto it = entries_.find(file);
  if (it == entries_.end()) return;
  unmap(it);
  entries_.erase(it);
  orderStale_ = true;
}

std::optional<CardKeys> ContactFolder::refreshEntry(const std::string& file,
                                                    const std::optional<ReadCard>& card,
                                                    const std::string& problem) {
  if (!problem.empty()) warn_(problem);
  if (!card) {
    drop(file);
    return std::nullopt;
  }
  CardKeys keys = cardKeys(card->card);
  put(file, entryFor(file, keys, card->source.stamp));
  return keys;
}

outlook::ItemPtr ContactFolder::makeItem(const std::string& file, ReadCard read, bool group) {
  if (group)
    return std::make_shared<VdirDistListItem>(shared_from_this(), file, std::move(read.card));
  return std::make_shared<VdirContactItem>(
      shared_from_this(), file, ContactCard(std::move(read.card)), std::move(read.source));
}

outlook::ItemPtr ContactFolder::itemAt(size_t index) {
  ensureIndex();
  if (index >= entries_.size())
    throw RuntimeError(kSubscriptOutOfRange,
                       "Item " + std::to_string(index + 1) + " is out of range: " + dir_.string() +
                           " holds " + std::to_string(entries_.size()) + " items",
                       "vdir");
  if (orderStale_) {
    order_.clear();
    order_.reserve(entries_.size());
    for (const auto& entry : entries_) order_.push_back(&entry.first);
    std::sort(order_.begin(), order_.end(),
              [](const std::string* a, const std::string* b) { return *a < *b; });
    orderStale_ = false;
  }
  std::string file = *order_[index];
  std::string problem;
  auto card = read(file, &problem);
  if (!card) {
    throw RuntimeError(kOutlookOperationFailed,
                       problem.empty() ? "Contact file vanished: " + pathOf(file) : problem,
                       "vdir");
  }
  // Keep the entry where it is (the walk goes on by position) but note what it holds now.
  CardKeys keys = cardKeys(card->card);
  put(file, entryFor(file, keys, card->source.stamp));
  return makeItem(file, std::move(*card), keys.group);
}

outlook::ItemPtr ContactFolder::findByFileAs(const std::string& fileAs) {
  ensureIndex();
  for (const auto& file : filesUnder(filesByFileAs_, value::foldCase(fileAs))) {
    std::string problem;
    auto card = read(file, &problem);
    auto keys = refreshEntry(file, card, problem);
    if (keys && !keys->group && value::equalsIgnoreCase(keys->fileAs, fileAs))
      return makeItem(file, std::move(*card), false);
  }
  return nullptr;
}

outlook::ItemPtr ContactFolder::findById(const std::string& entryId) {
  // A plain UID names its file: before the index is built, that file alone may answer.
  if (!built_ && isPlainUid(entryId)) {
    std::string direct = entryId + ".vcf";
    auto card = read(direct, nullptr);
    if (card && entryIdFor(cardUid(card->card), direct) == entryId) {
      bool group = isGroupCard(card->card);
      return makeItem(direct, std::move(*card), group);
    }
  }
  ensureIndex();
  std::vector<std::string> files = filesUnder(filesById_, entryId);
  // A plain UID also names its file: another program's new card is found without a rescan.
  if (isPlainUid(entryId)) {
    std::string direct = entryId + ".vcf";
    if (std::find(files.begin(), files.end(), direct) == files.end() && exists(direct))
      files.push_back(direct);
  }
  for (const auto& file : files) {
    std::string problem;
    auto card = read(file, &problem);
    auto keys = refreshEntry(file, card, problem);
    if (keys && entryIdFor(keys->uid, file) == entryId)
      return makeItem(file, std::move(*card), keys->group);
  }
  return nullptr;
}

std::shared_ptr<outlook::ContactItem> ContactFolder::newContact() {
  ContactCard card;
  card.setUid(newUid());
  return std::make_shared<VdirContactItem>(shared_from_this(), "", std::move(card));
}

bool ContactFolder::store(const std::string& file, const Vcard& card, bool isNew,
                          const Source* source) {
  settle();
  std::string text = writeVcard(card);
  // Saved without a change: a file still as it was read holds this very text. (After a failed
  // write every save goes to the disk, so that its own failure shows.)
  if (!isNew && source && !writeAtOnce_ && text == source->text && !inFlight_.count(file)) {
    if (auto now = stampOf(file); now && *now == source->stamp) {
      if (built_) put(file, entryFor(file, cardKeys(card), *now));
      return false;
    }
  }
  Apartment& a = apartment();
  unsynced_ = true;
  if (writeAtOnce_ || a.procedureDepth == 0) {
    auto result = writer_.writeNow(file, text, isNew, source ? source->text : std::string());
    if (result.error) throw *result.error;
    writeAtOnce_ = !failed_.empty();
    if (built_ && result.stamp) put(file, entryFor(file, cardKeys(card), *result.stamp));
    return true;
  }
  a.finishWhenIdle(shared_from_this());
  writer_.submit(file, std::move(text), isNew, source ? source->text : std::string());
  ++inFlight_[file];
  if (built_) put(file, entryFor(file, cardKeys(card), Stamp{}));
  return true;
}

void ContactFolder::remove(const std::string& file) {
  writer_.drain();
  settle();
  if (writer_.remote()) writer_.remote()->remove(file);
  fs::path target = dir_ / file;
  auto before = writer_.dirTime();
  bool current = built_ && before && before == writer_.knownDirTime();
  std::error_code ec;
  if (!fs::remove(target, ec) && ec && ec != std::errc::no_such_file_or_directory)
    throw fileError("Cannot delete contact file " + target.string(), ec.value());
  if (!built_) return;
  drop(file);
  if (current) writer_.setKnownDirTime(writer_.dirTime());
}

}  // namespace dossync::vdir
