#include "send_mail/send_mail.h"

#include "base/platform.h"
#include "core/error_frame.h"

namespace dossync {
namespace {

std::string at(const char* member) {
  return std::string(kSendMailLocation) + member;
}

}  // namespace

// The terminate step: the three references go with the object.
clsOutlookSendMail::~clsOutlookSendMail() = default;

bool clsOutlookSendMail::StartOutlook(const std::string& strProfile, const std::string& strPassword,
                                      bool blnDisplayDialog, bool blnNewSession) {
  ErrorFrame f(at("StartOutlook"));
  bool result = false;
  f.step([&] {
    // Attaching and starting fail quietly: without any Outlook the answer is just False.
    bool created = false;
    outlookApp_ = std::dynamic_pointer_cast<outlook::Application>(
        platform::attachOrCreate(platform::kOutlookApplication, created));
  });
  if (!outlookApp_) return false;
  f.step([&] {
    outlookNameSpace_ = outlookApp_->GetNamespace("MAPI");
    if (!outlookNameSpace_)
      throw RuntimeError(kObjectVariableNotSet, "Outlook answered no MAPI namespace");
  });
  f.step([&] {
    if (!outlookNameSpace_) return;
    const bool haveProfile = !strProfile.empty(), havePassword = !strPassword.empty();
    if (!haveProfile && havePassword) return;  // a password alone is not a logon
    outlookNameSpace_->Logon(haveProfile ? std::optional<std::string>(strProfile) : std::nullopt,
                             havePassword ? std::optional<std::string>(strPassword) : std::nullopt,
                             blnDisplayDialog, blnNewSession);
    result = true;
  });
  return result;
}

bool clsOutlookSendMail::CreateNewMail() {
  ErrorFrame f(at("CreateNewMail"));
  bool result = false;
  f.step([&] {
    if (!outlookApp_ || !outlookNameSpace_) return;
    auto item = outlookApp_->CreateItem(outlook::olMailItem);
    auto mail = std::dynamic_pointer_cast<outlook::MailItem>(item);
    if (!mail) throw RuntimeError(kTypeMismatch, "Outlook did not create a mail item");
    currentMail_ = std::move(mail);
    result = true;
  });
  return result;
}

void clsOutlookSendMail::CloseOutlook() {
  ErrorFrame f(at("CloseOutlook"));
  f.step([&] {
    currentMail_.reset();
    outlookNameSpace_.reset();
    outlookApp_.reset();
  });
}

bool clsOutlookSendMail::DisplayMail() {
  ErrorFrame f(at("DisplayMail"));
  bool result = false;
  f.step([&] {
    if (!currentMail_) return;
    currentMail_->Display();
    result = true;
  });
  return result;
}

bool clsOutlookSendMail::SendMail() {
  ErrorFrame f(at("SendMail"));
  bool result = false;
  f.step([&] {
    if (!currentMail_) return;
    currentMail_->Send();
    result = true;
  });
  return result;
}

bool clsOutlookSendMail::Attachment(const std::string& strNewValue,
                                    const std::string& strNewDisplayName) {
  ErrorFrame f(at("Attachment"));
  bool result = false;
  f.step([&] {
    if (!currentMail_) return;
    auto attachments = currentMail_->Attachments();
    if (!attachments) throw RuntimeError(kObjectVariableNotSet, "The mail has no attachments");
    auto added = attachments->Add(strNewValue);
    if (!strNewDisplayName.empty()) {
      if (!added) throw RuntimeError(kObjectVariableNotSet, "Outlook added no attachment");
      added->setDisplayName(strNewDisplayName);
    }
    result = true;
  });
  return result;
}

void clsOutlookSendMail::setBody(const std::string& text) {
  ErrorFrame f(at("Body"));
  f.step([&] {
    if (currentMail_) currentMail_->setBody(text + "\r\n\r\n");
  });
}

void clsOutlookSendMail::setSubject(const std::string& text) {
  ErrorFrame f(at("Subject"));
  f.step([&] {
    if (currentMail_) currentMail_->setSubject(text);
  });
}

void clsOutlookSendMail::setRecipient_CC(const std::string& text) {
  addRecipient("Recipient_CC", text, outlook::olCC);
}

void clsOutlookSendMail::setRecipient_BCC(const std::string& text) {
  addRecipient("Recipient_BCC", text, outlook::olBCC);
}

void clsOutlookSendMail::setRecipient_TO(const std::string& text) {
  addRecipient("Recipient_TO", text, outlook::olTo);
}

void clsOutlookSendMail::addRecipient(const char* member, const std::string& text, int32_t type) {
  ErrorFrame f(at(member));
  f.step([&] {
    if (!currentMail_) return;
    auto recipients = currentMail_->Recipients();
    if (!recipients) throw RuntimeError(kObjectVariableNotSet, "The mail has no recipients");
    auto recipient = recipients->Add(text);
    if (!recipient) throw RuntimeError(kObjectVariableNotSet, "Outlook added no recipient");
    recipient->setType(type);
    // An unresolved name stays in the list; it surfaces when the mail is sent or shown.
    (void)recipient->Resolve();
  });
}

}  // namespace dossync
