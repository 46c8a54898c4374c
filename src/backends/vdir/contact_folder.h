// One profile's contacts/ folder as a session sees it: the files, and an index over them so
// that look-ups by entry id and by FileAs cost a hash look-up and one file read, not a walk.
//
// The index is built on first use by reading every *.vcf (hidden files and other names are
// ignored; a file that does not parse is reported through `warn` once and left out). It is kept
// up to date by this session's saves and deletes. Changes by other programs are picked up:
//   - a look-up by entry id that misses the index tries <id>.vcf directly;
//   - a hit is always read from its file and checked, so a stale entry is corrected, not used;
//   - refreshIfChanged() (called whenever the folder object is handed out) rereads the files
//     whose time or size changed when the folder's own modification time moved.
// Order of the walk: by file name (bytes), which is stable across runs.
// Thread use: the apartment's one thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "backends/vdir/vcard.h"
#include "outlook/object_model.h"

namespace dossync::vdir {

using WarnFunction = std::function<void(const std::string&)>;

class ContactFolder : public std::enable_shared_from_this<ContactFolder> {
 public:
  ContactFolder(std::filesystem::path dir, std::string storeId, WarnFunction warn);

  const std::filesystem::path& dir() const { return dir_; }
  const std::string& storeId() const { return storeId_; }

  int32_t count();
  outlook::ItemPtr itemAt(size_t index);  // 0-based; throws when out of range or unreadable
  outlook::ItemPtr findByFileAs(const std::string& fileAs);  // contacts only
  outlook::ItemPtr findById(const std::string& entryId);
  void refreshIfChanged();

  std::shared_ptr<outlook::ContactItem> newContact();

  // For the items: write the card atomically under `file` and note it in the index.
  // Writes the card (a temporary file renamed over the old one); a card read back unchanged is
  // left alone. `isNew`: the caller just saw there is no such file.
  void store(const std::string& file, const Vcard& card, bool isNew = false);
  void remove(const std::string& file);
  bool exists(const std::string& file) const;
  std::string pathOf(const std::string& file) const { return (dir_ / file).string(); }

 private:
  struct Stamp {  // what tells a file changed: its inode, time and size
    uint64_t inode = 0;
    int64_t seconds = 0, nanoseconds = 0;
    uint64_t size = 0;
    bool operator==(const Stamp&) const = default;
  };
  struct Entry {
    std::string file;
    std::string entryId;
    std::string fileAs;  // contacts only
    int32_t cls = outlook::olContact;
    Stamp stamp;
  };

  void ensureIndex();
  void scan();
  // The card in that file; nullopt when it is gone, or (with *problem set) unreadable or bad.
  std::optional<Vcard> read(const std::string& file, std::string* problem);
  std::optional<Stamp> stampOf(const std::string& file) const;
  std::optional<std::filesystem::file_time_type> dirTime() const;
  Entry entryFor(const std::string& file, const Vcard& card, Stamp stamp) const;
  outlook::ItemPtr makeItem(const std::string& file, Vcard card);
  void put(Entry entry);
  void drop(const std::string& file);
  void unmap(const Entry& entry);
  void refreshEntry(const std::string& file, const std::optional<Vcard>& card,
                    const std::string& problem);
  void rebuildMaps();

  std::filesystem::path dir_;
  std::string storeId_;
  WarnFunction warn_;

  bool built_ = false;
  std::optional<std::filesystem::file_time_type> dirTime_;
  std::map<std::string, Entry> entries_;  // by file name
  std::vector<std::string> order_;        // the walk: file names in order, made when needed
  bool orderStale_ = true;
  std::unordered_map<std::string, std::set<std::string>> filesById_;
  std::unordered_map<std::string, std::set<std::string>> filesByFileAs_;
  std::map<std::string, Stamp> reported_;  // malformed files already warned about
};

}  // namespace dossync::vdir
