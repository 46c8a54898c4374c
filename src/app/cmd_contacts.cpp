// dossync contacts list|show|put|delete: the contacts of an Outlook store, as JSON objects of
// Outlook property names (text values; Gender a number; Birthday and Anniversary yyyy-mm-dd,
// or "" for none).
#include <nlohmann/json.hpp>

#include <fstream>
#include <iostream>
#include <sstream>

#include "app/commands.h"
#include "app/console_services.h"
#include "app/outlook_wiring.h"
#include "app/path_guards.h"
#include "backends/vdir/vdir_store.h"
#include "base/error.h"
#include "base/value.h"

namespace dossync::app {
namespace {

using nlohmann::ordered_json;

ordered_json toJson(const outlook::ContactItem& c) {
  ordered_json o;
  o["EntryID"] = c.EntryID();
  o["Class"] = c.Class();
  for (const auto& [name, text] : outlook::contactProperties(c)) {
    if (name == "EntryID") continue;
    if (name == "Gender") {
      o[name] = c.Gender();
    } else if (name == "Birthday" || name == "Anniversary") {
      auto d = name == "Birthday" ? c.Birthday() : c.Anniversary();
      o[name] = d == outlook::kNoDate ? "" : value::toText(value::Date{d.year, d.month, d.day});
    } else {
      o[name] = text;
    }
  }
  return o;
}

// A contact is one flat object; deeper input is refused while it is read, before it could cost
// a stack frame per level anywhere.
constexpr int kMaxJsonDepth = 64;

ordered_json parseContactJson(const std::string& text, const std::string& source) {
  return ordered_json::parse(text, [&](int depth, nlohmann::json::parse_event_t, ordered_json&) {
    if (depth > kMaxJsonDepth)
      throw RuntimeError(kTypeMismatch, "The JSON of " + source + " is nested more than " +
                                            std::to_string(kMaxJsonDepth) +
                                            " levels deep; a contact is one object of values");
    return true;
  });
}

// Text that is not UTF-8 shows as U+FFFD rather than failing the whole output.
std::string jsonDump(const ordered_json& v) {
  return v.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string jsonText(const ordered_json& v) {
  if (v.is_string()) return v.get<std::string>();
  if (v.is_number_integer()) return std::to_string(v.get<int64_t>());
  if (v.is_null()) return "";
  return v.dump();
}

value::Date dateOf(const std::string& name, const std::string& text) {
  if (value::isBlank(text)) return outlook::kNoDate;
  auto d = value::parseDate(text);
  if (!d) throw RuntimeError(kTypeMismatch, name + " '" + text + "' is not a date (yyyy-mm-dd)");
  return *d;
}

void applyJson(outlook::ContactItem& c, const ordered_json& o) {
  for (auto it = o.begin(); it != o.end(); ++it) {
    const std::string& name = it.key();
    if (name == "EntryID" || name == "Class") continue;
    std::string text = jsonText(it.value());
    if (text.find('\0') != std::string::npos)
      throw RuntimeError(kTypeMismatch, name +
                                            " holds a NUL character (\\u0000), which a card "
                                            "cannot keep; leave it out");
    if (name == "Gender") {
      if (!value::isNumeric(text) || value::toLong(text) < 0 || value::toLong(text) > 2)
        throw RuntimeError(kTypeMismatch, "Gender must be 0, 1 or 2, not '" + text + "'");
      c.setGender(value::toLong(text));
    } else if (name == "Birthday") {
      c.setBirthday(dateOf(name, text));
    } else if (name == "Anniversary") {
      c.setAnniversary(dateOf(name, text));
    } else if (auto p = outlook::propertyFromName(name)) {
      c.set(*p, text);
    } else {
      throw RuntimeError(kItemNotFound, "A contact has no property '" + name + "'");
    }
  }
}

std::shared_ptr<outlook::ContactItem> find(const Session& s, const std::string& entryId) {
  auto folder = s.nameSpace->GetDefaultFolder(outlook::olFolderContacts);
  return std::dynamic_pointer_cast<outlook::ContactItem>(
      s.nameSpace->GetItemFromID(entryId, folder->StoreID()));
}

void printPlain(const outlook::ContactItem& c, std::ostream& out) {
  for (const auto& [name, text] : outlook::contactProperties(c)) {
    if (!text.empty()) out << name << ": " << text << "\n";
  }
}

}  // namespace

int runContacts(const ContactsOptions& o, std::ostream& out, std::ostream& err) {
  bool reads = o.action != "put";  // delete too: a store that is not there holds nothing
  bool present = true;
  if (int code = prepareStore(o.outlook, o.profile, reads ? StoreUse::Read : StoreUse::Write,
                              present, err))
    return code;
  if (!present) {  // an empty store: opening it would make it
    if (o.action != "list") {
      err << "dossync: no contact with entry id " << o.entryId << "\n";
      return kExitFailure;
    }
    if (o.json) out << "[]\n";
    return kExitOk;
  }
  try {
    Credentials c = resolveCredentials(o.outlook, o.profile, o.password);
    registerOutlook(c.outlook, o.insecure);
    Session s;
    if (isServerStore(c.outlook)) {
      if (int code = checkServerLogon(c, &s, err)) return code;
    } else {
      s = openSession(c.profile, c.password);
    }
    auto folder = s.nameSpace->GetDefaultFolder(outlook::olFolderContacts);
    if (o.action == "list") {
      auto items = folder->Items();
      ordered_json all = ordered_json::array();
      for (int32_t i = 1, n = items->Count(); i <= n; ++i) {
        auto c = std::dynamic_pointer_cast<outlook::ContactItem>(items->Item(i));
        if (!c) continue;
        if (o.json) {
          all.push_back(toJson(*c));
        } else {
          out << c->EntryID() << "\t" << c->FileAs() << "\t" << c->CompanyName() << "\t"
              << c->Email1Address() << "\n";
        }
      }
      if (o.json) out << jsonDump(all) << "\n";
      return kExitOk;
    }
    if (o.action == "show") {
      auto c = find(s, o.entryId);
      if (!c) {
        err << "dossync: no contact with entry id " << o.entryId << "\n";
        return kExitFailure;
      }
      if (o.json) {
        out << jsonDump(toJson(*c)) << "\n";
      } else {
        printPlain(*c, out);
      }
      return kExitOk;
    }
    if (o.action == "put") {
      std::stringstream text;
      if (o.jsonFile == "-") {
        text << std::cin.rdbuf();
      } else {
        std::ifstream in(o.jsonFile);
        if (!in) throw RuntimeError(kFileNotFound, "Cannot read '" + o.jsonFile + "'");
        text << in.rdbuf();
      }
      ordered_json obj = parseContactJson(
          text.str(), o.jsonFile == "-" ? "standard input" : "'" + o.jsonFile + "'");
      if (!obj.is_object()) throw RuntimeError(kTypeMismatch, "The JSON must be one object");
      std::shared_ptr<outlook::ContactItem> c;
      if (obj.contains("EntryID") && !jsonText(obj["EntryID"]).empty()) {
        c = find(s, jsonText(obj["EntryID"]));
        if (!c) {
          err << "dossync: no contact with entry id " << jsonText(obj["EntryID"]) << "\n";
          return kExitFailure;
        }
      } else {
        c = std::dynamic_pointer_cast<outlook::ContactItem>(
            s.application->CreateItem(outlook::olContactItem));
      }
      applyJson(*c, obj);
      c->Save();
      out << c->EntryID() << "\n";
      return kExitOk;
    }
    if (o.action == "delete") {
      if (!vdir::deleteVdirItem(*s.nameSpace, o.entryId)) {
        err << "dossync: no contact with entry id " << o.entryId << "\n";
        return kExitFailure;
      }
      return kExitOk;
    }
    err << "dossync: unknown contacts action '" << o.action << "'\n";
    return kExitUsage;
  } catch (const RuntimeError& e) {
    return reportFailure(err, e, kExitFailure);
  } catch (const nlohmann::json::exception& e) {
    err << "dossync: bad JSON: " << e.what() << "\n";
  }
  return kExitFailure;
}

}  // namespace dossync::app
