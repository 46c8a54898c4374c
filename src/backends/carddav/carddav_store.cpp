#include "backends/carddav/carddav_store.h"

#include <cctype>
#include <filesystem>
#include <iostream>
#include <map>

#include "backends/carddav/address_book_copy.h"
#include "backends/vcard/atomic_file.h"
#include "backends/vcard/entry_id.h"
#include "backends/vdir/vdir_store.h"
#include "base/error.h"

namespace fs = std::filesystem;

namespace dossync::carddav {
namespace {

// A folder name a person can tell apart: the URL without its scheme, every character but
// letters, digits, '.' and '-' made '_' (127.0.0.1_5232_alice_book); a long one is cut and
// ends in a hash of the whole URL.
std::string folderNameOf(const std::string& url) {
  size_t start = url.find("://");
  std::string name = url.substr(start == std::string::npos ? 0 : start + 3);
  if (auto at = name.find('@'); at != std::string::npos && at < name.find('/'))
    name = name.substr(at + 1);  // no user name or password in a folder name
  for (auto& c : name)
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-') c = '_';
  while (!name.empty() && name.back() == '_') name.pop_back();
  if (name.size() > 80) name = name.substr(0, 60) + "_" + vdir::hash128(url).substr(0, 16);
  return name;
}

std::string normalisedUrl(std::string url) {
  if (!url.empty() && url.back() != '/') url += '/';
  return url;
}

}  // namespace

std::string cardDavCopyRoot(const CardDavSettings& settings) {
  std::string url = normalisedUrl(settings.url);
  return (fs::path(settings.cacheRoot) / folderNameOf(url)).string();
}

std::shared_ptr<outlook::Application> makeCardDavApplication(
    const CardDavSettings& settings, std::function<void(const std::string&)> warn) {
  std::string url = normalisedUrl(settings.url);
  if (!warn)
    warn = [](const std::string& m) { std::cerr << "dossync: warning: " << m << std::endl; };
  DavOptions options;
  options.insecure = settings.insecure;
  options.timeoutSeconds = settings.timeoutSeconds;
  options.maxInFlight = settings.maxInFlight;
  // One copy per profile (user), made by its first logon and kept for the session's life.
  auto copies = std::make_shared<std::map<std::string, std::shared_ptr<AddressBookCopy>>>();
  auto conflict =
      settings.serverWinsConflicts ? vdir::CardConflict::Theirs : vdir::CardConflict::Mine;
  vdir::MirrorLogon logon = [url, options, copies, warn, conflict](const std::string& profile,
                                                                   const fs::path& profileDir,
                                                                   const std::string& password) {
    auto& copy = (*copies)[profile];
    if (!copy) {
      DavOptions o = options;
      o.user = profile == "default" ? "" : profile;
      fs::create_directories(profileDir / "contacts");
      if (!fs::exists(profileDir / "store-id"))
        vdir::writeFileAtomically(profileDir / "store-id", vdir::hash128(url) + "\n");
      copy = std::make_shared<AddressBookCopy>(url, o, profileDir, warn, conflict);
    }
    try {
      copy->logon(password);
    } catch (...) {
      copies->erase(profile);  // a later logon starts again
      throw;
    }
    return std::static_pointer_cast<vdir::CardRemote>(copy);
  };
  return vdir::makeVdirApplication(cardDavCopyRoot(settings), std::move(warn), std::move(logon));
}

}  // namespace dossync::carddav
