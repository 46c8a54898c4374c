// Mail items of the local store (Application::CreateItem(0)). A mail lives in memory until it is
// saved, shown or sent; its files are in the profile's folder:
//
//   ROOT/<profile>/account.json      how mail leaves (mail_account.h)
//   ROOT/<profile>/drafts/<id>.eml   Save and Display: the message as it stands, Bcc included,
//                                    marked X-Unsent so that mail programs open it for editing
//   ROOT/<profile>/outbox/<id>.eml   a Send that failed: the message with its Bcc, kept so that
//                                    nothing is lost; removed when the same mail is sent later
//
// Recipients: Recipients.Add keeps the text as one recipient of type To; Resolve answers
// whether the text is one mailbox ("addr@domain" or "Name <addr@domain>"). Attachments.Add
// takes a file by value: the file must exist then (else RuntimeError 53), its bytes are read
// when the mail is saved, shown or sent; the display name is the file's name unless set.
//
// Send: every recipient must resolve, every attachment be readable and the profile have an
// account; then the message goes to the account's SMTP server with To, Cc and Bcc in the
// envelope and no Bcc header. Any failure is RuntimeError kDeliveryFailed whose description
// says why (the server's address and answer when it got that far) and where the message was
// kept in outbox/. A sent mail cannot be sent, saved or shown again (Outlook moves it away).
//
// Display: saves the draft, then opens it with xdg-open when a desktop is there (DISPLAY or
// WAYLAND_DISPLAY set, xdg-open on PATH); otherwise it tells where the draft is. What it has
// to say goes to `notify` (default: a line on standard output).
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backends/mail/mail_account.h"
#include "backends/mail/mime_message.h"
#include "backends/vcard/vdir_item.h"
#include "interfaces/object_model.h"

namespace dossync::vdir {

using NotifyFunction = std::function<void(const std::string&)>;

class VdirRecipient final : public outlook::Recipient {
 public:
  explicit VdirRecipient(std::string name) : name_(std::move(name)) {}
  std::string Name() const override { return name_; }
  int32_t Type() const override { return type_; }
  void setType(int32_t type) override;
  bool Resolve() override;
  bool Resolved() const { return resolved_; }

 private:
  std::string name_;
  int32_t type_ = outlook::olTo;
  bool resolved_ = false;
};

class VdirRecipients final : public outlook::Recipients {
 public:
  int32_t Count() const override { return static_cast<int32_t>(list_.size()); }
  std::shared_ptr<outlook::Recipient> Add(const std::string& name) override;
  std::shared_ptr<outlook::Recipient> Item(int32_t index) const override;
  const std::vector<std::shared_ptr<VdirRecipient>>& all() const { return list_; }

 private:
  std::vector<std::shared_ptr<VdirRecipient>> list_;
};

class VdirAttachment final : public outlook::Attachment {
 public:
  VdirAttachment(std::string path, std::string displayName)
      : path_(std::move(path)), displayName_(std::move(displayName)) {}
  std::string DisplayName() const override { return displayName_; }
  void setDisplayName(const std::string& name) override { displayName_ = name; }
  std::string PathName() const override { return path_; }

 private:
  std::string path_;
  std::string displayName_;
};

class VdirAttachments final : public outlook::Attachments {
 public:
  int32_t Count() const override { return static_cast<int32_t>(list_.size()); }
  std::shared_ptr<outlook::Attachment> Add(const std::string& source, std::optional<int32_t> type,
                                           std::optional<int32_t> position,
                                           std::optional<std::string> displayName) override;
  std::shared_ptr<outlook::Attachment> Item(int32_t index) const override;
  const std::vector<std::shared_ptr<VdirAttachment>>& all() const { return list_; }

 private:
  std::vector<std::shared_ptr<VdirAttachment>> list_;
};

class VdirMailItem final : public outlook::MailItem, public VdirItem {
 public:
  VdirMailItem(std::filesystem::path profileDir, NotifyFunction notify);

  std::string EntryID() const override;
  void Save() override;
  std::string Subject() const override { return subject_; }
  void setSubject(const std::string& subject) override;
  std::string Body() const override { return body_; }
  void setBody(const std::string& body) override;
  std::shared_ptr<outlook::Recipients> Recipients() override { return recipients_; }
  std::shared_ptr<outlook::Attachments> Attachments() override { return attachments_; }
  void Send() override;
  void Display(std::optional<bool> modal = std::nullopt) override;

  // The draft once saved, else "".
  std::string FilePath() const override;
  void Delete() override;

  const std::filesystem::path& profileDir() const { return profileDir_; }
  std::filesystem::path draftPath() const;
  std::filesystem::path outboxPath() const;

 private:
  struct Built {
    MimeMail mail;
    std::optional<MailAccount> account;
    std::vector<std::string> problems;    // why it cannot be delivered as it stands
    std::vector<std::string> unreadable;  // attachments whose bytes could not be had
  };
  Built build(bool forDelivery);
  void checkUsable() const;
  std::string saveDraft();

  std::filesystem::path profileDir_;
  NotifyFunction notify_;
  std::string id_;
  std::string messageId_;
  std::string subject_, body_;
  std::shared_ptr<VdirRecipients> recipients_ = std::make_shared<VdirRecipients>();
  std::shared_ptr<VdirAttachments> attachments_ = std::make_shared<VdirAttachments>();
  bool saved_ = false;
  bool sent_ = false;
  bool deleted_ = false;
};

// A new mail of the profile in that folder. `notify` defaults to printing on standard output.
std::shared_ptr<outlook::MailItem> makeVdirMailItem(const std::filesystem::path& profileDir,
                                                    NotifyFunction notify = {});

// The folder of the profile an application of this store is logged on to (RuntimeError
// kTypeMismatch for another back end).
std::filesystem::path vdirProfileDirectory(outlook::Application& application);

// Whether a desktop can open files (DISPLAY or WAYLAND_DISPLAY set, xdg-open on PATH).
bool desktopAvailable();

}  // namespace dossync::vdir
