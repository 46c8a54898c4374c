// The COM face of clsOutlookSendMail: the dual interface _clsOutlookSendMail over the
// component's mail sender, which keeps its own Outlook session. Optional arguments left out by
// the caller take the type library's defaults ("" and False). Nothing fails towards the host:
// members answer S_OK, and a member that could not do its work answers False.
// Ownership: COM reference counting. Thread use: the host's single-threaded apartment.
#pragma once

#include <memory>

#include "com_server/dual_object.h"
#include "kvoutlookdx_h.h"
#include "send_mail/send_mail.h"

namespace dossync::com {

class SendMailObject final : public DualObject<_clsOutlookSendMail> {
 public:
  SendMailObject();
  ~SendMailObject() override;

  HRESULT STDMETHODCALLTYPE StartOutlook(BSTR strProfile, BSTR strPassword,
                                         VARIANT_BOOL blnDisplayDialog, VARIANT_BOOL blnNewSession,
                                         VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE CreateNewMail(VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE CloseOutlook() override;
  HRESULT STDMETHODCALLTYPE DisplayMail(VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE SendMail(VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE Attachment(BSTR strNewValue, BSTR strNewDisplayName,
                                       VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE put_Body(BSTR value) override;
  HRESULT STDMETHODCALLTYPE put_Subject(BSTR value) override;
  HRESULT STDMETHODCALLTYPE put_Recipient_CC(BSTR value) override;
  HRESULT STDMETHODCALLTYPE put_Recipient_BCC(BSTR value) override;
  HRESULT STDMETHODCALLTYPE put_Recipient_TO(BSTR value) override;

 private:
  std::unique_ptr<clsOutlookSendMail> mail_;
};

}  // namespace dossync::com
