#include "interfaces/object_model.h"

#include <array>

namespace dossync::outlook {
namespace {
constexpr std::array<const char*, kContactTextPropertyCount> kNames = {
#define DOSSYNC_NAME_ENTRY(name) #name,
    DOSSYNC_CONTACT_TEXT_PROPERTIES(DOSSYNC_NAME_ENTRY)
#undef DOSSYNC_NAME_ENTRY
};
}  // namespace

const char* propertyName(ContactProperty p) { return kNames[static_cast<size_t>(p)]; }

std::optional<ContactProperty> propertyFromName(const std::string& name) {
  for (size_t i = 0; i < kNames.size(); ++i) {
    if (name == kNames[i]) return static_cast<ContactProperty>(i);
  }
  return std::nullopt;
}

}  // namespace dossync::outlook
