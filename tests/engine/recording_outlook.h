// An Outlook whose logons, items made and items opened pass through hooks; and the vCard store
// writing down each mail made and each logon as "profile|password|dialog|new session" ("-" for
// an omitted text; the password "refused" makes the logon fail).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backends/vdir/vdir_store.h"
#include "base/error.h"

namespace dossync::testing {

struct OutlookHooks {
  std::function<void(const std::string& logon)> logon;
  std::function<outlook::ItemPtr(outlook::ItemPtr)> made, opened;
};

class HookedNameSpace : public outlook::NameSpace {
 public:
  HookedNameSpace(std::shared_ptr<outlook::NameSpace> real, const OutlookHooks& hooks)
      : real_(std::move(real)), hooks_(hooks) {}
  void Logon(std::optional<std::string> p, std::optional<std::string> pw, std::optional<bool> d,
             std::optional<bool> n) override {
    if (hooks_.logon)
      hooks_.logon(p.value_or("-") + "|" + pw.value_or("-") + "|" + std::to_string(d.value_or(-1)) +
                   "|" + std::to_string(n.value_or(-1)));
    real_->Logon(p, pw, d, n);
  }
  std::shared_ptr<outlook::MAPIFolder> GetDefaultFolder(int32_t f) override {
    return real_->GetDefaultFolder(f);
  }
  outlook::ItemPtr GetItemFromID(const std::string& e, const std::string& s) override {
    auto item = real_->GetItemFromID(e, s);
    return hooks_.opened ? hooks_.opened(item) : item;
  }

 private:
  std::shared_ptr<outlook::NameSpace> real_;
  OutlookHooks hooks_;
};

class HookedApplication : public outlook::Application {
 public:
  HookedApplication(std::shared_ptr<outlook::Application> real, OutlookHooks hooks)
      : real_(std::move(real)), hooks_(std::move(hooks)) {}
  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string& t) override {
    return std::make_shared<HookedNameSpace>(real_->GetNamespace(t), hooks_);
  }
  outlook::ItemPtr CreateItem(int32_t t) override {
    auto item = real_->CreateItem(t);
    return hooks_.made ? hooks_.made(item) : item;
  }

 private:
  std::shared_ptr<outlook::Application> real_;
  OutlookHooks hooks_;
};

struct OutlookLog {
  std::vector<std::string> logons;
  std::vector<std::shared_ptr<outlook::MailItem>> mails;
};

inline std::shared_ptr<outlook::Application> recordingOutlook(const std::string& root,
                                                              OutlookLog& log) {
  OutlookHooks hooks;
  hooks.logon = [&log](const std::string& logon) {
    log.logons.push_back(logon);
    if (logon.find("|refused|") != std::string::npos)
      throw RuntimeError(kOutlookOperationFailed, "Logon refused");
  };
  hooks.made = [&log](outlook::ItemPtr item) {
    if (auto mail = std::dynamic_pointer_cast<outlook::MailItem>(item)) log.mails.push_back(mail);
    return item;
  };
  return std::make_shared<HookedApplication>(vdir::makeVdirApplication(root), hooks);
}

}  // namespace dossync::testing
