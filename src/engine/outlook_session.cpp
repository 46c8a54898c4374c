// The Outlook session: attach to a running Outlook (or start one), take its MAPI namespace and
// log on with the component's settings; StopOutlook lets go of both and never closes Outlook.
#include "core/platform.h"
#include "core/synchronization.h"

namespace dossync {

bool clsOutlookSynchronization::StartOutlook() {
  ErrorFrame f(std::string(kSyncLocation) + "StartOutlook");
  bool result = true;
  bool haveApplication = false;
  f.step([&] {
    // Attaching and creating fail quietly: no Outlook at all just answers False.
    ObjectPtr app;
    try {
      app = platform::getActiveObject(platform::kOutlookApplication);
    } catch (const RuntimeError&) {
      closeOutlookWhenFinished_ = true;
      try {
        app = platform::createObject(platform::kOutlookApplication);
      } catch (const RuntimeError&) {
        app = nullptr;
      }
    }
    outlookApp_ = std::dynamic_pointer_cast<outlook::Application>(app);
    haveApplication = outlookApp_ != nullptr;
    if (!haveApplication) result = false;
  });
  if (!haveApplication) return result;
  f.step([&] { outlookNameSpace_ = outlookApp_->GetNamespace("MAPI"); });
  f.step([&] {
    if (!outlookNameSpace_)
      throw RuntimeError(kObjectVariableNotSet, "Outlook answered no MAPI namespace");
    std::optional<std::string> profile, password;
    if (!profile_.empty()) profile = profile_;
    if (!password_.empty()) password = password_;
    outlookNameSpace_->Logon(profile, password, displayLoginDialog_, openNewSession_);
    // A password without a profile logs on all the same but answers False.
    if (profile_.empty() && !password_.empty()) result = false;
  });
  return result;
}

bool clsOutlookSynchronization::StopOutlook() {
  ErrorFrame f(std::string(kSyncLocation) + "StopOutlook");
  f.step([&] {
    outlookApp_.reset();
    outlookNameSpace_.reset();
  });
  return false;
}

}  // namespace dossync
