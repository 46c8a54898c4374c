#include "com_server/send_mail_object.h"

#include "com_server/boundary.h"

namespace dossync::com {

SendMailObject::SendMailObject() : DualObject(IID__clsOutlookSendMail, CLSID_clsOutlookSendMail) {
  guard([&] { mail_ = std::make_unique<clsOutlookSendMail>(); });
}

SendMailObject::~SendMailObject() {
  guard([&] { mail_.reset(); });
}

HRESULT SendMailObject::StartOutlook(BSTR strProfile, BSTR strPassword,
                                     VARIANT_BOOL blnDisplayDialog, VARIANT_BOOL blnNewSession,
                                     VARIANT_BOOL* result) {
  return outBool(result, [&] {
    return mail_->StartOutlook(win32::narrow(strProfile), win32::narrow(strPassword),
                               blnDisplayDialog != VARIANT_FALSE, blnNewSession != VARIANT_FALSE);
  });
}

HRESULT SendMailObject::CreateNewMail(VARIANT_BOOL* result) {
  return outBool(result, [&] { return mail_->CreateNewMail(); });
}

HRESULT SendMailObject::CloseOutlook() {
  guard([&] { mail_->CloseOutlook(); });
  return S_OK;
}

HRESULT SendMailObject::DisplayMail(VARIANT_BOOL* result) {
  return outBool(result, [&] { return mail_->DisplayMail(); });
}

HRESULT SendMailObject::SendMail(VARIANT_BOOL* result) {
  return outBool(result, [&] { return mail_->SendMail(); });
}

HRESULT SendMailObject::Attachment(BSTR strNewValue, BSTR strNewDisplayName, VARIANT_BOOL* result) {
  return outBool(result, [&] {
    return mail_->Attachment(win32::narrow(strNewValue), win32::narrow(strNewDisplayName));
  });
}

#define DOSSYNC_TEXT_SETTER(Name)                           \
  HRESULT SendMailObject::put_##Name(BSTR value) {          \
    guard([&] { mail_->set##Name(win32::narrow(value)); }); \
    return S_OK;                                            \
  }
DOSSYNC_TEXT_SETTER(Body)
DOSSYNC_TEXT_SETTER(Subject)
DOSSYNC_TEXT_SETTER(Recipient_CC)
DOSSYNC_TEXT_SETTER(Recipient_BCC)
DOSSYNC_TEXT_SETTER(Recipient_TO)
#undef DOSSYNC_TEXT_SETTER

}  // namespace dossync::com
