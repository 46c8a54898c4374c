#include "backends/vdir/vdir_items.h"

#include "backends/vcard/entry_id.h"
#include "base/error.h"

namespace dossync::vdir {
namespace {

RuntimeError deletedError(const std::string& path) {
  return RuntimeError(kOutlookOperationFailed, "The item was deleted: " + path, "vdir");
}

}  // namespace

std::string defaultFileAs(const outlook::ContactItem& c) {
  std::string last = c.LastName(), first = c.FirstName();
  if (!last.empty() && !first.empty()) return last + ", " + first;
  if (!last.empty()) return last;
  if (!first.empty()) return first;
  if (std::string company = c.CompanyName(); !company.empty()) return company;
  return c.FullName();
}

VdirContactItem::VdirContactItem(std::shared_ptr<ContactFolder> folder, std::string file,
                                 ContactCard card, std::optional<ContactFolder::Source> source)
    : folder_(std::move(folder)),
      file_(std::move(file)),
      card_(std::move(card)),
      source_(std::move(source)) {}

std::string VdirContactItem::EntryID() const {
  return file_.empty() ? std::string() : entryIdFor(card_.uid(), file_);
}

std::string VdirContactItem::FilePath() const {
  return file_.empty() ? std::string() : folder_->pathOf(file_);
}

void VdirContactItem::Save() {
  if (deleted_) throw deletedError(FilePath());
  if (card_.get(outlook::ContactProperty::FileAs).empty()) setFileAs(defaultFileAs(*this));
  card_.completeName();
  bool isNew = file_.empty();
  if (isNew) {
    // A made item's UID is fresh; a clash with a known file would need a new one.
    while (folder_->taken(card_.uid() + ".vcf")) card_.setUid(newUid());
    file_ = card_.uid() + ".vcf";
  }
  if (folder_->store(file_, card_.vcard(), isNew, source_ ? &*source_ : nullptr)) {
    // A server's copy merges a later save from what this one sent.
    if (folder_->mirrored())
      source_ = ContactFolder::Source{card_.text(), {}};
    else
      source_.reset();
  }
}

void VdirContactItem::Delete() {
  if (!file_.empty() && !deleted_) folder_->remove(file_);
  deleted_ = true;
}

std::string VdirDistListItem::EntryID() const {
  return entryIdFor(cardUid(card_), file_);
}

void VdirDistListItem::Save() {
  if (deleted_) throw deletedError(FilePath());
  folder_->store(file_, card_);
}

std::string VdirDistListItem::DLName() const {
  const VcardProperty* fn = card_.find("FN");
  return fn ? unescapeText(fn->rawValue()) : std::string();
}

void VdirDistListItem::Delete() {
  if (!deleted_) folder_->remove(file_);
  deleted_ = true;
}

}  // namespace dossync::vdir
