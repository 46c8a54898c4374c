// The Outlook session: attach to a running Outlook (or start one), take its MAPI namespace and
// log on with the component's settings; StopOutlook lets go of both and never closes Outlook.
#include "base/platform.h"
#include "core/apartment.h"
#include "core/synchronization.h"

namespace dossync {

bool clsOutlookSynchronization::StartOutlook() {
  ErrorFrame f(std::string(kSyncLocation) + "StartOutlook");
  bool result = true;
  // Attaching and creating fail quietly: no Outlook at all just answers False.
  f.step([&] {
    bool created = false;
    ObjectPtr app = platform::attachOrCreate(platform::kOutlookApplication, created);
    if (created) closeOutlookWhenFinished_ = true;
    outlookApp_ = std::dynamic_pointer_cast<outlook::Application>(app);
    if (outlookApp_) observeRun([&](IRunObserver& o) { outlookApp_ = o.watch(outlookApp_); });
  });
  if (!outlookApp_) return false;
  f.step([&] { outlookNameSpace_ = outlookApp_->GetNamespace("MAPI"); });
  f.step([&] {
    if (!outlookNameSpace_)
      throw RuntimeError(kObjectVariableNotSet, "Outlook answered no MAPI namespace");
    std::optional<std::string> profile, password;
    if (!profile_.empty()) profile = profile_;
    if (!password_.empty()) password = password_;
    outlookNameSpace_->Logon(profile, password, displayLoginDialog_, openNewSession_);
  });
  // A password without a profile logs on all the same but answers False, whether the logon
  // worked or not.
  if (profile_.empty() && !password_.empty()) result = false;
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
