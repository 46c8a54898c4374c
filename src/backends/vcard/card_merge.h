// Comparing and merging cards the way a server copy needs them (backends/carddav).
//
// sameCardMeaning: two card texts say the same thing when they hold the same properties with
// the same groups, parameters and values, whatever their order, folding, the case of names and
// parameters, the order of parameters and TYPE values, and the escaping of values (servers
// write cards back in a form of their own). PRODID and REV are left out. A text that does not
// parse is the same only as the very same text.
//
// mergeCardChanges: the properties an item changed (mine against base: every Outlook contact
// property, gender, birthday, anniversary) set on the server's newer card (theirs); everything
// else of theirs, including what this program does not map, stays. A property both sides changed
// since the base, to different values, takes mine, or theirs with CardConflict::Theirs (a
// two-way run whose conflicts go to the address book). Answers the merged card.
// Throws RuntimeError where parseVcard throws for `mine` or `theirs`; a base that does not
// parse counts as empty.
// Pure functions; safe on any thread.
#pragma once

#include <string>
#include <string_view>

#include "backends/vcard/vcard.h"

namespace dossync::vdir {

bool sameCardMeaning(std::string_view a, std::string_view b);
// What sameCardMeaning compares of one property, as a line of text.
std::string propertyMeaning(const VcardProperty& property);
enum class CardConflict { Mine, Theirs };
std::string mergeCardChanges(std::string_view base, std::string_view mine, std::string_view theirs,
                             CardConflict conflict = CardConflict::Mine);

}  // namespace dossync::vdir
