// The items of a vCard folder: contacts and contact groups, each backed by one file.
// An item holds its card as read (or as made) and writes it back on Save; two item objects for
// the same file are independent, as Outlook's are.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "backends/vcard/contact_card.h"
#include "backends/vdir/contact_folder.h"
#include "backends/vdir/vdir_store.h"

namespace dossync::vdir {

class VdirContactItem final : public outlook::ContactItem, public VdirItem {
 public:
  // `file` is "" for a new item, which gets <UID>.vcf on its first Save. `source`: what the
  // card was read from (a Save without a change then needs no look at the file's text).
  VdirContactItem(std::shared_ptr<ContactFolder> folder, std::string file, ContactCard card,
                  std::optional<ContactFolder::Source> source = std::nullopt);

  std::string EntryID() const override;
  void Save() override;
  // FileAs of a card filed under nothing reads as Outlook files it (filedAs).
  std::string get(outlook::ContactProperty p) const override {
    return p == outlook::ContactProperty::FileAs ? filedAs(card_.vcard()) : card_.get(p);
  }
  void set(outlook::ContactProperty p, const std::string& v) override { card_.set(p, v); }
  int32_t Gender() const override { return card_.gender(); }
  void setGender(int32_t g) override { card_.setGender(g); }
  value::Date Birthday() const override { return card_.birthday(); }
  void setBirthday(const value::Date& d) override { card_.setBirthday(d); }
  value::Date Anniversary() const override { return card_.anniversary(); }
  void setAnniversary(const value::Date& d) override { card_.setAnniversary(d); }

  std::string FilePath() const override;
  void Delete() override;

  const ContactCard& card() const { return card_; }

 private:
  std::shared_ptr<ContactFolder> folder_;
  std::string file_;
  ContactCard card_;
  std::optional<ContactFolder::Source> source_;  // until the card is written
  bool deleted_ = false;
};

// A contact group; members are not mapped yet.
class VdirDistListItem final : public outlook::Item, public VdirItem {
 public:
  VdirDistListItem(std::shared_ptr<ContactFolder> folder, std::string file, Vcard card)
      : folder_(std::move(folder)), file_(std::move(file)), card_(std::move(card)) {}

  int32_t Class() const override { return outlook::olDistributionList; }
  std::string EntryID() const override;
  void Save() override;
  std::string DLName() const;  // FN

  std::string FilePath() const override { return folder_->pathOf(file_); }
  void Delete() override;

 private:
  std::shared_ptr<ContactFolder> folder_;
  std::string file_;
  Vcard card_;
  bool deleted_ = false;
};

// What Outlook files a contact under when FileAs is empty on Save.
std::string defaultFileAs(const outlook::ContactItem& contact);

}  // namespace dossync::vdir
