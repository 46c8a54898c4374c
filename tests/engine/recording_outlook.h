// The real vCard store with what is asked of it written down: each logon as
// "profile|password|dialog|new session" ("-" for an omitted text; the password "refused" makes the
// logon fail) and each mail made.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/vdir/vdir_store.h"
#include "base/error.h"

namespace dossync::testing {

struct OutlookLog {
  std::vector<std::string> logons;
  std::vector<std::shared_ptr<outlook::MailItem>> mails;
};

class RecordingNameSpace : public outlook::NameSpace {
 public:
  RecordingNameSpace(std::shared_ptr<outlook::NameSpace> real, OutlookLog& log)
      : real_(std::move(real)), log_(log) {}
  void Logon(std::optional<std::string> p, std::optional<std::string> pw, std::optional<bool> d,
             std::optional<bool> n) override {
    log_.logons.push_back(p.value_or("-") + "|" + pw.value_or("-") + "|" +
                          std::to_string(d.value_or(-1)) + "|" + std::to_string(n.value_or(-1)));
    if (pw == "refused") throw RuntimeError(kOutlookOperationFailed, "Logon refused");
    real_->Logon(p, pw, d, n);
  }
  std::shared_ptr<outlook::MAPIFolder> GetDefaultFolder(int32_t f) override {
    return real_->GetDefaultFolder(f);
  }
  outlook::ItemPtr GetItemFromID(const std::string& e, const std::string& s) override {
    return real_->GetItemFromID(e, s);
  }

 private:
  std::shared_ptr<outlook::NameSpace> real_;
  OutlookLog& log_;
};

class RecordingApplication : public outlook::Application {
 public:
  RecordingApplication(const std::string& root, OutlookLog& log)
      : real_(vdir::makeVdirApplication(root)), log_(log) {}
  std::shared_ptr<outlook::NameSpace> GetNamespace(const std::string& t) override {
    return std::make_shared<RecordingNameSpace>(real_->GetNamespace(t), log_);
  }
  outlook::ItemPtr CreateItem(int32_t t) override {
    auto item = real_->CreateItem(t);
    if (auto mail = std::dynamic_pointer_cast<outlook::MailItem>(item)) log_.mails.push_back(mail);
    return item;
  }

 private:
  std::shared_ptr<outlook::Application> real_;
  OutlookLog& log_;
};

}  // namespace dossync::testing
