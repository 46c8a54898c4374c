// One profile's contacts/ folder as a session sees it: the files, and an index over them so
// that look-ups by entry id and by FileAs (folded, value::foldCase) cost a hash look-up and one
// file read, not a walk.
//
// Opening the folder removes the temporary files of card writes that a killed run left behind
// (atomic_file.h: ours only, and only those more than an hour old).
// The index is built on first use by reading every *.vcf (hidden files and other names are
// ignored; a file that does not parse is reported through `warn` once and left out). Building it
// checks each file whole but keeps only its keys (readCardKeys): the index grows with the folder,
// parsed cards do not; a card is parsed whole when an item is made of it. It is kept
// up to date by this session's saves and deletes. Changes by other programs are picked up:
//   - a look-up by entry id that misses the index tries <id>.vcf directly;
//   - a hit is always read from its file and checked, so a stale entry is corrected, not used;
//   - refreshIfChanged() (called whenever the folder object is handed out) rereads the files
//     whose time or size changed when the folder's own modification time moved.
// Order of the walk: by file name (bytes), which is stable across runs.
//
// Saves made while a procedure of the component runs are written behind its back
// (card_writer.h), in order, and all of them are done when its outermost procedure returns
// (the folder is an IdleTask of the apartment): store() answers once the card is in the index,
// and reading a card still being written waits for it. A write that fails is that procedure's
// error (or, should the folder close first, reported through `warn`); from then on saves are
// written at once, so that each later failure shows on its own item. Saves made outside any
// procedure are written at once. At each commit point (finish()) the cards written since the
// last one are flushed to the disk together, so that a pairing never outlives its card.
// Thread use: the apartment's one thread (and the writer's own thread inside).
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"
#include "backends/vdir/card_writer.h"
#include "core/apartment.h"
#include "interfaces/object_model.h"

namespace dossync::vdir {

using WarnFunction = std::function<void(const std::string&)>;

class ContactFolder : public IdleTask, public std::enable_shared_from_this<ContactFolder> {
 public:
  // With a remote, the folder is the copy of a server's address book (card_remote.h).
  ContactFolder(std::filesystem::path dir, std::string storeId, WarnFunction warn,
                std::shared_ptr<CardRemote> remote = nullptr);
  ~ContactFolder();

  const std::filesystem::path& dir() const { return dir_; }
  const std::string& storeId() const { return storeId_; }
  bool mirrored() const { return writer_.remote() != nullptr; }  // the copy of a server's
  std::shared_ptr<CardRemote> remote() const { return writer_.sharedRemote(); }

  int32_t count();
  outlook::ItemPtr itemAt(size_t index);  // 0-based; throws when out of range or unreadable
  // The first contact in walk order filed under `fileAs` (value::equalsIgnoreCase).
  outlook::ItemPtr findByFileAs(const std::string& fileAs);
  outlook::ItemPtr findById(const std::string& entryId);
  void refreshIfChanged();

  std::shared_ptr<outlook::ContactItem> newContact();

  // What an item was read from: the file's text and its stamp then.
  struct Source {
    std::string text;
    FileStamp stamp;
  };
  // For the items: write the card atomically under `file` and note it in the index.
  // Writes the card (a temporary file renamed over the old one); a file that holds the same
  // text already is left alone. `isNew`: a name no card has (see taken()). `source`: what the
  // item was read from; when the card's text is that and the file is still as it was read, it
  // is known to hold the text without reading it again. Answers whether the card went to be
  // written (false: left alone).
  bool store(const std::string& file, const Vcard& card, bool isNew = false,
             const Source* source = nullptr);
  void remove(const std::string& file);
  bool exists(const std::string& file) const;  // on disk
  // A name a new card must not take: a file known here, one being written, or one on disk.
  bool taken(const std::string& file) const;
  // Waits until every card handed to store() is written; throws the failures not reported yet.
  void flush();
  // At a commit point: flush, then the cards written since the last one are made durable, all
  // at once (one syncfs of the folder's file system), before anything that names them is
  // committed.
  void finish() override;
  bool takeFailure() override;
  std::string pathOf(const std::string& file) const { return (dir_ / file).string(); }

 private:
  using Stamp = FileStamp;  // zero while the card is being written
  // What the index keeps of a file (by its name): no card, just what look-ups need.
  struct Entry {
    std::string entryId;
    std::string fileAsKey;  // contacts only: FileAs folded (value::foldCase)
    int32_t cls = outlook::olContact;
    Stamp stamp;
  };
  // By file name. Hashed: a folder of 100,000 cards is looked up once or twice for each card
  // written; the walk's order by name is made when it is needed (order_).
  using Entries = std::unordered_map<std::string, Entry>;
  // Files by entry id, and contacts' files by FileAs key: views of the keys of the entries and
  // their file names, which stay in place while the entry is in the map (put takes an entry out
  // of these indexes before it changes its keys).
  using FileIndex = std::unordered_multimap<std::string_view, const std::string*>;

  void ensureIndex();
  void scan();
  // The text of that file and its stamp as opened; nullopt when it is gone or not a file, or
  // (with *problem set) unreadable. `dirFd`: the folder, opened (else the file's path is used).
  // Bytes that are not UTF-8, and NUL, read as U+FFFD (readableText; the scan warns of it).
  // Touches nothing of the folder object: safe on any thread.
  struct FileText {
    std::string text;
    Stamp stamp;
    bool repaired = false;  // some bytes were replaced
  };
  std::optional<FileText> readFile(const std::string& file, std::string* problem,
                                   int dirFd = -1) const;
  // The card in that file with its source; nullopt when it is gone, or (with *problem set)
  // unreadable or bad. The last card read is kept: asked again while its file keeps its stamp
  // (an item found by FileAs is then fetched by its entry id), it is not read and parsed again.
  struct ReadCard {
    Vcard card;
    Source source;
  };
  std::optional<ReadCard> read(const std::string& file, std::string* problem);
  std::optional<Stamp> stampOf(const std::string& file) const;
  Entry entryFor(const std::string& file, const CardKeys& keys, Stamp stamp) const;
  outlook::ItemPtr makeItem(const std::string& file, ReadCard card, bool group);
  void put(const std::string& file, Entry entry);
  void drop(const std::string& file);
  void map(Entries::iterator it);
  void unmap(Entries::iterator it);
  // After reading a file found through the index: note what it holds now, and answer the
  // card's keys (nullopt without a card).
  std::optional<CardKeys> refreshEntry(const std::string& file, const std::optional<ReadCard>& card,
                                       const std::string& problem);
  void rebuildMaps();
  // The files under `key`, in walk order.
  static std::vector<std::string> filesUnder(const FileIndex& index, std::string_view key);
  void settle();  // takes in what the writer finished
  void apply(const CardWriter::Result& result);
  void awaitWrite(const std::string& file);

  std::filesystem::path dir_;
  std::string storeId_;
  WarnFunction warn_;

  bool built_ = false;
  Entries entries_;
  std::vector<const std::string*>
      order_;  // the walk: the entries' names in order, made when needed
  bool orderStale_ = true;
  FileIndex filesById_;
  FileIndex filesByFileAs_;
  std::map<std::string, Stamp> reported_;  // malformed files already warned about
  struct LastRead {
    std::string file;
    ReadCard read;
  };
  std::optional<LastRead> lastRead_;
  CardWriter writer_;
  std::unordered_map<std::string, int> inFlight_;  // files with writes not taken in yet
  std::vector<RuntimeError> failed_;               // failed writes not reported yet
  bool writeAtOnce_ = false;                       // after a failure, until a write succeeds
  bool unsynced_ = false;                          // cards written since the last finish()
  bool failedSinceAsked_ = false;                  // a write failed since takeFailure()
};

}  // namespace dossync::vdir
