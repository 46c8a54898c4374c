// The fields a two-way run merges, with the conversions between a host column's text and the
// Outlook property it pairs with. Each side's value is compared in its own form:
//   host  the column's text as the host database stores it;
//   item  the property's text (Gender: its number; Birthday, Anniversary: the date's default
//         text form, "" for Outlook's none date).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "interfaces/object_model.h"
#include "twoway/two_way.h"

namespace dossync::twoway {

enum class FieldKind { Text, Gender, Birthday, Anniversary };

struct Field {
  FieldPair pair;
  FieldKind kind = FieldKind::Text;
  outlook::ContactProperty property{};  // Text fields only
  bool company = false;                 // a Companies column (else Contacts)
  std::string name;                     // "Companies.City"
};

// The fields of information type 1 (the company part first) or 7; empty for any other type.
const std::vector<Field>& fieldsOf(int32_t info);

// The item's value of the field, in the item's form.
std::string itemValue(const outlook::ContactItem& item, const Field& field);
// A host value in the item's form: what the item holds once the value was copied to it (a blank
// date, which cannot be copied, as "").
std::string asItemValue(const Field& field, const std::string& hostText);
// Whether a side's value counts as nothing (an unspecified gender is nothing).
bool hostEmpty(const std::string& hostText);
bool itemEmpty(const Field& field, const std::string& itemText);
// Copies a host value to the item; false when the value cannot be copied (a blank date).
bool copyToItem(outlook::ContactItem& item, const Field& field, const std::string& hostText);
// The host text an item value is copied as; nothing when it cannot be (no gender, no date).
std::optional<std::string> asHostText(const outlook::ContactItem& item, const Field& field);

}  // namespace dossync::twoway
