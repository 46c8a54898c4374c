#include "backends/vdir/vdir_store.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>

#include "backends/mail/vdir_calendar.h"
#include "backends/mail/vdir_mail.h"
#include "backends/vcard/atomic_file.h"
#include "backends/vcard/entry_id.h"
#include "backends/vdir/contact_folder.h"
#include "backends/vdir/vdir_items.h"
#include "base/error.h"

namespace fs = std::filesystem;

namespace dossync::vdir {
namespace {

std::string firstLineOf(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::string line;
  if (in) std::getline(in, line);
  return value::trim(line);
}

// `[FileAs] = "NAME"` (or 'NAME'): NAME is everything between the first and the last quote.
std::string fileAsFromFilter(const std::string& filter) {
  auto unsupported = [&] {
    return RuntimeError(kOutlookOperationFailed,
                        "Unsupported filter for the vCard folder store: " + filter, "vdir");
  };
  size_t i = 0;
  auto skipBlanks = [&] {
    while (i < filter.size() && (filter[i] == ' ' || filter[i] == '\t')) ++i;
  };
  skipBlanks();
  constexpr std::string_view kField = "[FileAs]";
  if (!value::equalsIgnoreCase(std::string_view(filter).substr(i, kField.size()), kField))
    throw unsupported();
  i += kField.size();
  skipBlanks();
  if (i >= filter.size() || filter[i] != '=') throw unsupported();
  ++i;
  skipBlanks();
  if (i >= filter.size() || (filter[i] != '"' && filter[i] != '\'')) throw unsupported();
  char quote = filter[i];
  size_t last = filter.rfind(quote);
  if (last == i) throw unsupported();
  for (size_t k = last + 1; k < filter.size(); ++k) {
    if (filter[k] != ' ' && filter[k] != '\t') throw unsupported();
  }
  return filter.substr(i + 1, last - i - 1);
}

class ContactItems final : public outlook::Items {
 public:
  explicit ContactItems(std::shared_ptr<ContactFolder> folder) : folder_(std::move(folder)) {}
  int32_t Count() override { return folder_->count(); }
  outlook::ItemPtr Item(int32_t index) override {
    if (index < 1)
      throw RuntimeError(kSubscriptOutOfRange,
                         "Item " + std::to_string(index) + " is out of range (items count from 1)",
                         "vdir");
    return folder_->itemAt(static_cast<size_t>(index - 1));
  }
  outlook::ItemPtr Find(const std::string& filter) override {
    return folder_->findByFileAs(fileAsFromFilter(filter));
  }

 private:
  std::shared_ptr<ContactFolder> folder_;
};

// The calendar keeps no items yet.
class EmptyItems final : public outlook::Items {
 public:
  int32_t Count() override { return 0; }
  outlook::ItemPtr Item(int32_t index) override {
    throw RuntimeError(kSubscriptOutOfRange,
                       "Item " + std::to_string(index) + " is out of range: the folder is empty",
                       "vdir");
  }
  outlook::ItemPtr Find(const std::string&) override { return nullptr; }
};

class VdirFolder final : public outlook::MAPIFolder {
 public:
  VdirFolder(std::shared_ptr<ContactFolder> contacts, bool isContacts)
      : contacts_(std::move(contacts)), isContacts_(isContacts) {}
  std::shared_ptr<outlook::Items> Items() override {
    if (isContacts_) return std::make_shared<ContactItems>(contacts_);
    return std::make_shared<EmptyItems>();
  }
  std::string StoreID() const override { return contacts_->storeId(); }

 private:
  std::shared_ptr<ContactFolder> contacts_;
  bool isContacts_;
};

class VdirSession final : public outlook::NameSpace {
 public:
  VdirSession(fs::path root, WarnFunction warn, MirrorLogon mirror, fs::path plainState)
      : root_(std::move(root)),
        warn_(std::move(warn)),
        mirror_(std::move(mirror)),
        plainState_(isPlainVdir(root_, plainState) ? std::move(plainState) : fs::path()) {}

  void Logon(std::optional<std::string> profile, std::optional<std::string> password,
             std::optional<bool>, std::optional<bool>) override {
    password_ = password.value_or("");
    std::string name = profileName(profile.value_or(""));
    if (auto it = profiles_.find(name); mirror_ && it != profiles_.end())
      mirror_(name, root_ / name, password_);  // brings the copy up to date again
    current_ = open(name);
  }

  std::shared_ptr<outlook::MAPIFolder> GetDefaultFolder(int32_t folder) override {
    auto contacts = current();
    if (folder == outlook::olFolderContacts) {
      contacts->refreshIfChanged();
      return std::make_shared<VdirFolder>(contacts, true);
    }
    if (folder == outlook::olFolderCalendar) return std::make_shared<VdirFolder>(contacts, false);
    throw RuntimeError(kOutlookOperationFailed,
                       "The vCard folder store has no default folder " + std::to_string(folder),
                       "vdir");
  }

  outlook::ItemPtr GetItemFromID(const std::string& entryId, const std::string& storeId) override {
    auto contacts = current();
    if (!storeId.empty() && storeId != contacts->storeId()) return nullptr;
    if (entryId.empty() || entryId.size() > kMaxEntryIdLength) return nullptr;
    return contacts->findById(entryId);
  }

  std::shared_ptr<ContactFolder> current() {
    if (!current_) current_ = open("");
    return current_;
  }
  // The folder of the current profile's own files (store-id, calendar/, mail).
  fs::path profileDir() {
    auto contacts = current();
    return plainState_.empty() ? contacts->dir().parent_path() : plainState_;
  }

 private:
  // A plain vdir is the one profile, whatever name a logon gives.
  std::string profileName(const std::string& name) const {
    std::string checked = vdir::profileName(root_, name);
    return plainState_.empty() ? checked : std::string();
  }

  std::shared_ptr<ContactFolder> open(std::string name) {
    name = profileName(std::move(name));
    if (auto it = profiles_.find(name); it != profiles_.end()) return it->second;

    bool plain = !plainState_.empty();
    fs::path dir = plain ? plainState_ : root_ / name;
    fs::path contactsDir = plain ? root_ : dir / "contacts";
    for (const fs::path& sub : {contactsDir, dir / "calendar"}) {
      std::error_code ec;
      fs::create_directories(sub, ec);
      if (ec)
        throw RuntimeError(kPathNotFound,
                           "Cannot create profile folder " + sub.string() + ": " + ec.message(),
                           "vdir");
    }
    std::shared_ptr<CardRemote> remote;
    if (mirror_) remote = mirror_(name, dir, password_);  // may write the store's id
    std::string storeId = firstLineOf(dir / "store-id");
    if (storeId.empty()) {
      storeId = randomHex(32);
      writeFileAtomically(dir / "store-id", storeId + "\n");
    }
    auto folder = std::make_shared<ContactFolder>(contactsDir, storeId, warn_, remote);
    profiles_.emplace(name, folder);
    return folder;
  }

  fs::path root_;
  WarnFunction warn_;
  MirrorLogon mirror_;
  fs::path plainState_;  // set when root_ is a plain vdir: its profile's own folder
  std::string password_;
  std::map<std::string, std::shared_ptr<ContactFolder>> profiles_;
  std::shared_ptr<ContactFolder> current_;
};

class VdirApplication final : public outlook::Application {
 public:
  explicit VdirApplication(std::shared_ptr<VdirSession> session) : session_(std::move(session)) {}

  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string& type) override {
    if (!value::equalsIgnoreCase(type, "MAPI"))
      throw RuntimeError(kInvalidProcedureCall, "Unknown namespace type '" + type + "'", "vdir");
    return session_;
  }

  outlook::ItemPtr CreateItem(int32_t itemType) override {
    if (itemType == outlook::olContactItem) return session_->current()->newContact();
    if (itemType == outlook::olMailItem) return makeVdirMailItem(session_->profileDir());
    if (itemType == outlook::olAppointmentItem)
      return makeVdirAppointmentItem(session_->profileDir(), session_->current()->remote());
    throw RuntimeError(
        kOutlookOperationFailed,
        "The vCard folder store cannot make items of type " + std::to_string(itemType) + " yet",
        "vdir");
  }

 private:
  std::shared_ptr<VdirSession> session_;
};

}  // namespace

std::shared_ptr<outlook::Application> makeVdirApplication(
    const std::string& profilesRoot, std::function<void(const std::string&)> warn,
    MirrorLogon mirror, const std::filesystem::path& plainState) {
  if (!warn)
    warn = [](const std::string& m) { std::cerr << "dossync: warning: " << m << std::endl; };
  return std::make_shared<VdirApplication>(std::make_shared<VdirSession>(
      fs::path(profilesRoot), std::move(warn), std::move(mirror), plainState));
}

bool isPlainVdir(const fs::path& root, const fs::path& stateDir) {
  if (stateDir.empty()) return false;
  std::error_code ec;
  if (fs::is_directory(stateDir, ec)) return true;
  for (fs::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (name.size() > 4 && name[0] != '.' &&
        value::equalsIgnoreCase(std::string_view(name).substr(name.size() - 4), ".vcf") &&
        it->is_regular_file(ec))
      return true;
  }
  return false;
}

std::string plainVdirName(const fs::path& root) {
  std::error_code ec;
  fs::path full = fs::weakly_canonical(fs::absolute(root, ec), ec);
  if (ec) full = root;
  std::string base = full.filename().string();
  if (base.empty()) base = full.parent_path().filename().string();
  for (char& c : base) {
    if (c == '/' || c == '\\' || c == '.' || static_cast<unsigned char>(c) < 0x20) c = '_';
  }
  if (base.empty()) base = "vdir";
  return base + "-" + hash128(full.string()).substr(0, 8);
}

bool deleteVdirItem(outlook::NameSpace& session, const std::string& entryId) {
  auto* ours = dynamic_cast<VdirSession*>(&session);
  if (!ours) throw RuntimeError(kTypeMismatch, "Not a session of the vCard folder store", "vdir");
  auto item = ours->GetItemFromID(entryId, "");
  if (!item) return false;
  dynamic_cast<VdirItem&>(*item).Delete();
  return true;
}

std::string profileName(const std::filesystem::path& root, std::string name) {
  if (name.empty()) name = firstLineOf(root / "default-profile");
  if (name.empty()) name = "default";
  if (name == "." || name == ".." ||
      name.find_first_of(std::string("/\\\0", 3)) != std::string::npos)
    throw RuntimeError(kInvalidProcedureCall, "Invalid profile name '" + name + "'", "vdir");
  return name;
}

}  // namespace dossync::vdir
