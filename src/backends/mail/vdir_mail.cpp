#include "backends/mail/vdir_mail.h"

#ifdef _WIN32
#include <windows.h>
#include <shellapi.h>
#include <shlwapi.h>
#else
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "backends/mail/mail_account.h"
#include "backends/vcard/atomic_file.h"
#include "backends/vcard/entry_id.h"
#include "base/error.h"
#include "base/expected.h"
#include "base/value.h"

#ifndef _WIN32
extern char** environ;
#endif

namespace fs = std::filesystem;

namespace dossync::vdir {
namespace {

RuntimeError outOfRange(int32_t index, int32_t count) {
  return RuntimeError(
      kSubscriptOutOfRange,
      "Item " + std::to_string(index) + " is out of range (1 to " + std::to_string(count) + ")",
      "vdir");
}

std::string lowerAscii(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// yyyymmdd-hhmmss-<8 hex>: sorts by creation, unique enough for one profile.
std::string newMailId() {
  value::Date d = value::now();
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%04d%02d%02d-%02d%02d%02d", d.year, d.month, d.day, d.hour,
                d.minute, d.second);
  return std::string(stamp) + "-" + randomHex(8);
}

// The file's bytes, or why there are none (the description is the reason alone).
Expected<std::string> readWholeFile(const std::string& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) {
    if (fs::exists(path, ec))
      return RuntimeError(kFileNotFound, Remedy::kFixInput, "not a regular file");
    return RuntimeError(kFileNotFound, "no such file");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) return RuntimeError(kPermissionDenied, "cannot be opened");
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (in.bad()) return RuntimeError(kDiskIO, "cannot be read");
  return bytes.str();
}

#ifdef _WIN32
// The program Windows opens .eml files with; the shell returns without waiting for it.
bool openWithDesktop(const std::string& file) {
  std::wstring path = fs::path(std::u8string(file.begin(), file.end())).wstring();
  return reinterpret_cast<INT_PTR>(
             ::ShellExecuteW(nullptr, L"open", path.c_str(), nullptr, nullptr, SW_SHOWNORMAL)) > 32;
}
#else
bool onPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  if (!path) return false;
  std::stringstream dirs(path);
  std::string dir;
  while (std::getline(dirs, dir, ':')) {
    if (dir.empty()) dir = ".";
    if (::access((fs::path(dir) / program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

// xdg-open in the background: the shell returns at once and the opener outlives us.
bool openWithDesktop(const std::string& file) {
  const char* argv[] = {"/bin/sh", "-c",         "xdg-open \"$1\" >/dev/null 2>&1 &",
                        "sh",      file.c_str(), nullptr};
  pid_t pid = 0;
  if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(argv), environ) != 0)
    return false;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
#endif

}  // namespace

void VdirRecipient::setType(int32_t type) {
  if (type < outlook::olTo || type > outlook::olBCC)
    throw RuntimeError(
        kInvalidProcedureCall,
        "A recipient's type is 1 (To), 2 (Cc) or 3 (Bcc), not " + std::to_string(type), "vdir");
  type_ = type;
}

bool VdirRecipient::Resolve() {
  resolved_ = parseMailbox(name_).has_value();
  return resolved_;
}

std::shared_ptr<outlook::Recipient> VdirRecipients::Add(const std::string& name) {
  auto r = std::make_shared<VdirRecipient>(name);
  list_.push_back(r);
  return r;
}

std::shared_ptr<outlook::Recipient> VdirRecipients::Item(int32_t index) const {
  if (index < 1 || index > Count()) throw outOfRange(index, Count());
  return list_[static_cast<size_t>(index - 1)];
}

std::shared_ptr<outlook::Attachment> VdirAttachments::Add(const std::string& source,
                                                          std::optional<int32_t> type,
                                                          std::optional<int32_t>,
                                                          std::optional<std::string> displayName) {
  if (type && *type != 1)
    throw RuntimeError(
        kInvalidProcedureCall,
        "The local store attaches files by value only (type 1), not type " + std::to_string(*type),
        "vdir");
  std::error_code ec;
  if (source.empty() || !fs::is_regular_file(source, ec))
    throw RuntimeError(kFileNotFound, "Cannot find the file to attach: '" + source + "'", "vdir");
  std::string name =
      displayName && !displayName->empty() ? *displayName : fs::path(source).filename().string();
  auto a = std::make_shared<VdirAttachment>(source, name);
  list_.push_back(a);
  return a;
}

std::shared_ptr<outlook::Attachment> VdirAttachments::Item(int32_t index) const {
  if (index < 1 || index > Count()) throw outOfRange(index, Count());
  return list_[static_cast<size_t>(index - 1)];
}

VdirMailItem::VdirMailItem(fs::path profileDir, NotifyFunction notify)
    : profileDir_(std::move(profileDir)), notify_(std::move(notify)), id_(newMailId()) {
  if (!notify_) notify_ = [](const std::string& m) { std::cout << m << std::endl; };
}

std::string VdirMailItem::EntryID() const {
  return saved_ ? id_ : std::string();
}

std::string VdirMailItem::FilePath() const {
  return saved_ ? draftPath().string() : std::string();
}

fs::path VdirMailItem::draftPath() const {
  return profileDir_ / "drafts" / (id_ + ".eml");
}

fs::path VdirMailItem::outboxPath() const {
  return profileDir_ / "outbox" / (id_ + ".eml");
}

void VdirMailItem::checkUsable() const {
  if (sent_ || deleted_)
    throw RuntimeError(kOutlookOperationFailed,
                       "The item has been moved or deleted (mail " + id_ + ")", "vdir");
}

void VdirMailItem::setSubject(const std::string& subject) {
  checkUsable();
  subject_ = subject;
}

void VdirMailItem::setBody(const std::string& body) {
  checkUsable();
  body_ = body;
}

VdirMailItem::Built VdirMailItem::build(bool forDelivery) {
  Built b;
  MimeMail& m = b.mail;
  try {
    b.account = readMailAccount(profileDir_);
  } catch (const RuntimeError& e) {
    b.problems.push_back(e.description());
  }
  if (b.account) {
    m.from = {b.account->name, b.account->from};
  } else if (b.problems.empty()) {
    b.problems.push_back("the profile has no mail account (" + accountFile(profileDir_).string() +
                         "; set one with: dossync account set)");
  }
  for (const auto& r : recipients_->all()) {
    auto box = parseMailbox(r->Name());
    std::vector<MailAddress> shown;
    if (box) {
      shown.push_back(*box);
    } else {
      b.problems.push_back("cannot resolve the recipient '" + r->Name() + "'");
      shown = parseAddressList(r->Name());
    }
    auto& list = r->Type() == outlook::olCC ? m.cc : r->Type() == outlook::olBCC ? m.bcc : m.to;
    list.insert(list.end(), shown.begin(), shown.end());
  }
  if (forDelivery && recipients_->all().empty()) b.problems.push_back("the mail has no recipients");
  for (const auto& a : attachments_->all()) {
    auto bytes = readWholeFile(a->PathName());
    if (!bytes) {
      b.unreadable.push_back("cannot read the attachment '" + a->PathName() +
                             "': " + bytes.error().description());
      b.problems.push_back(b.unreadable.back());
      continue;
    }
    m.attachments.push_back({a->DisplayName(), std::move(bytes).value(), ""});
  }
  if (messageId_.empty()) {
    size_t at = m.from.address.rfind('@');
    messageId_ =
        id_ + "." + randomHex(8) + "@" +
        (at == std::string::npos ? std::string("localhost") : m.from.address.substr(at + 1));
  }
  m.messageId = messageId_;
  m.subject = subject_;
  m.body = body_;
  return b;
}

std::string VdirMailItem::saveDraft() {
  Built b = build(false);
  // A draft may lack an account or hold unresolved names; it may not lose an attachment.
  if (!b.unreadable.empty())
    throw RuntimeError(kFileNotFound, "Cannot save the draft: " + b.unreadable.front(), "vdir");
  b.mail.bccHeader = true;
  b.mail.unsent = true;
  writeFileAtomically(draftPath(), writeMime(b.mail), true);
  saved_ = true;
  return draftPath().string();
}

void VdirMailItem::Save() {
  checkUsable();
  saveDraft();
}

void VdirMailItem::Display(std::optional<bool>) {
  checkUsable();
  std::string path = saveDraft();
  if (desktopAvailable() && openWithDesktop(path)) {
    notify_("Draft saved and opened: " + path);
  } else {
    notify_("Draft saved: " + path);
  }
}

void VdirMailItem::Send() {
  checkUsable();
  Built b = build(true);
  auto keep = [&](const std::string& why) -> RuntimeError {
    MimeMail kept = b.mail;
    kept.bccHeader = true;
    std::string where;
    try {
      writeFileAtomically(outboxPath(), writeMime(kept), true);
      where = "; the message is kept in " + outboxPath().string();
    } catch (const RuntimeError& e) {
      where = "; the message could not be kept either: " + e.description();
    }
    return RuntimeError(kDeliveryFailed, why + where, "vdir");
  };
  if (!b.problems.empty()) {
    std::string why = "Cannot send the mail: ";
    for (size_t i = 0; i < b.problems.size(); ++i) why += (i ? "; " : "") + b.problems[i];
    throw keep(why);
  }
  std::vector<std::string> envelope;
  for (const auto* list : {&b.mail.to, &b.mail.cc, &b.mail.bcc}) {
    for (const auto& a : *list) {
      bool seen = std::any_of(envelope.begin(), envelope.end(), [&](const std::string& e) {
        return lowerAscii(e) == lowerAscii(a.address);
      });
      if (!seen) envelope.push_back(a.address);
    }
  }
  try {
    sendSmtp(b.account->server, b.account->from, envelope, writeMime(b.mail));
  } catch (const RuntimeError& e) {
    throw keep(e.description());
  }
  sent_ = true;
  std::error_code ec;
  fs::remove(outboxPath(), ec);
  if (saved_) fs::remove(draftPath(), ec);
}

void VdirMailItem::Delete() {
  std::error_code ec;
  if (saved_) fs::remove(draftPath(), ec);
  deleted_ = true;
}

std::shared_ptr<outlook::MailItem> makeVdirMailItem(const fs::path& profileDir,
                                                    NotifyFunction notify) {
  return std::make_shared<VdirMailItem>(profileDir, std::move(notify));
}

fs::path vdirProfileDirectory(outlook::Application& application) {
  auto mail = std::dynamic_pointer_cast<VdirMailItem>(application.CreateItem(outlook::olMailItem));
  if (!mail) throw RuntimeError(kTypeMismatch, "Not an application of the local store", "vdir");
  return mail->profileDir();
}

bool desktopAvailable() {
#ifdef _WIN32
  // Only where a program is set to open mail files.
  DWORD size = MAX_PATH;
  wchar_t program[MAX_PATH];
  return ::AssocQueryStringW(ASSOCF_NONE, ASSOCSTR_EXECUTABLE, L".eml", L"open", program, &size) ==
         S_OK;
#else
  auto set = [](const char* name) {
    const char* v = std::getenv(name);
    return v && *v;
  };
  return (set("DISPLAY") || set("WAYLAND_DISPLAY")) && onPath("xdg-open");
#endif
}

}  // namespace dossync::vdir
