// clsOutlookSendMail: the component's second public class. The host creates one to compose an
// e-mail through Outlook and either show it or send it. It keeps its own Outlook session (the
// application, its MAPI namespace and the current mail) and shares nothing with
// clsOutlookSynchronization.
//
//   StartOutlook -> CreateNewMail -> Subject, Body, recipients, Attachment (any number, any
//   order) -> DisplayMail or SendMail -> CloseOutlook (or destruction)
//
// Members are in the order of the dispatch interface _clsOutlookSendMail. The write-only
// properties Body, Subject, Recipient_CC, Recipient_BCC and Recipient_TO are the set* members.
// A member called before its prerequisite does nothing (setters) or answers False. No error
// leaves a member: each runs in an ErrorFrame located "kvoutlookdx.dll-clsOutlookSendMail-<name>",
// hands a failed Outlook call to the apartment's error service and answers False.
//
// Thread use: the host's one user-interface thread.
#pragma once

#include <memory>
#include <string>

#include "base/object.h"
#include "interfaces/object_model.h"

namespace dossync {

class clsOutlookSendMail : public Object {
 public:
  clsOutlookSendMail() = default;
  ~clsOutlookSendMail() override;
  clsOutlookSendMail(const clsOutlookSendMail&) = delete;
  clsOutlookSendMail& operator=(const clsOutlookSendMail&) = delete;

  // Attaches to a running Outlook or starts one, takes its "MAPI" namespace and logs on:
  //   profile and password    Logon(profile, password, displayDialog, newSession)
  //   profile only            Logon(profile, omitted, displayDialog, newSession)
  //   password only           no logon; False (the application and namespace stay set)
  //   neither                 Logon(omitted, omitted, displayDialog, newSession)
  // False when no Outlook could be had or the namespace or logon failed.
  bool StartOutlook(const std::string& strProfile = "", const std::string& strPassword = "",
                    bool blnDisplayDialog = false, bool blnNewSession = false);
  // A new mail item (CreateItem 0) becomes the current mail; the previous one is left as it is.
  bool CreateNewMail();
  // Lets go of the current mail, the namespace and the application; Outlook keeps running.
  void CloseOutlook();
  bool DisplayMail();
  bool SendMail();
  // Attaches the file; a non-empty display name replaces the one Outlook gives it.
  bool Attachment(const std::string& strNewValue, const std::string& strNewDisplayName = "");
  // The body becomes the text followed by two CR LF pairs; each assignment replaces it.
  void setBody(const std::string& text);
  void setSubject(const std::string& text);
  // Each assignment adds one recipient whose name is the whole text (never split on ";").
  void setRecipient_CC(const std::string& text);
  void setRecipient_BCC(const std::string& text);
  void setRecipient_TO(const std::string& text);

 private:
  void addRecipient(const char* member, const std::string& text, int32_t type);

  std::shared_ptr<outlook::Application> outlookApp_;
  std::shared_ptr<outlook::NameSpace> outlookNameSpace_;
  std::shared_ptr<outlook::MailItem> currentMail_;
};

// The prefix of every error location of this class.
inline constexpr const char* kSendMailLocation = "kvoutlookdx.dll-clsOutlookSendMail-";

}  // namespace dossync
