#include "interfaces/object_model.h"

#include <array>

#include "base/error.h"

namespace dossync::outlook {
namespace {
constexpr std::array<const char*, kContactTextPropertyCount> kNames = {
#define DOSSYNC_NAME_ENTRY(name) #name,
    DOSSYNC_CONTACT_TEXT_PROPERTIES(DOSSYNC_NAME_ENTRY)
#undef DOSSYNC_NAME_ENTRY
};
}  // namespace

const char* propertyName(ContactProperty p) {
  return kNames[static_cast<size_t>(p)];
}

void ContactItem::Delete() {
  throw RuntimeError(kInvalidProcedureCall, "This store cannot delete the contact " + EntryID());
}

std::vector<std::pair<std::string, std::string>> contactProperties(const ContactItem& c,
                                                                   bool withEntryID) {
  std::vector<std::pair<std::string, std::string>> out;
  for (int i = 0; i < kContactTextPropertyCount; ++i) {
    auto p = static_cast<ContactProperty>(i);
    out.emplace_back(propertyName(p), c.get(p));
  }
  auto date = [](const value::Date& d) { return d == kNoDate ? std::string() : value::toText(d); };
  out.emplace_back("Gender", std::to_string(c.Gender()));
  out.emplace_back("Birthday", date(c.Birthday()));
  out.emplace_back("Anniversary", date(c.Anniversary()));
  if (withEntryID) out.emplace_back("EntryID", c.EntryID());
  return out;
}

std::optional<ContactProperty> propertyFromName(const std::string& name) {
  for (size_t i = 0; i < kNames.size(); ++i) {
    if (name == kNames[i]) return static_cast<ContactProperty>(i);
  }
  return std::nullopt;
}

}  // namespace dossync::outlook
