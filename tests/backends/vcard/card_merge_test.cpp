// Merging an item's changes into a card another client changed meanwhile, under either rule for
// a property both changed.
#include "backends/vcard/card_merge.h"

#include <gtest/gtest.h>

#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"

namespace dossync::vdir {
namespace {

using outlook::ContactProperty;

std::string cardWith(const std::string& title, int32_t gender, const std::string& extra = "") {
  ContactCard card;
  card.set(ContactProperty::FileAs, "Lee, Ann");
  card.set(ContactProperty::JobTitle, title);
  card.setGender(gender);
  card.completeName();
  std::string text = card.text();
  if (!extra.empty()) text.replace(text.find("END:VCARD"), 9, extra + "\r\nEND:VCARD");
  return text;
}

TEST(CardMergeTest, EachSidesChangesSurviveAndABothSidesChangeFollowsTheRule) {
  constexpr auto Mine = CardConflict::Mine;
  constexpr auto Theirs = CardConflict::Theirs;
  constexpr int32_t F = outlook::olFemale, M = outlook::olMale, U = outlook::olUnspecified;
  struct Case {
    const char* what;
    std::string base, mine, theirs;
    CardConflict rule;
    std::string title;
    int32_t gender;
  };
  const std::string base = cardWith("Clerk", U);
  for (const auto& c : std::vector<Case>{
           {"only mine changed", base, cardWith("Partner", F), base, Theirs, "Partner", F},
           {"only theirs changed", base, base, cardWith("Manager", M), Mine, "Manager", M},
           {"each its own field", base, cardWith("Partner", U), cardWith("Clerk", M), Theirs,
            "Partner", M},
           {"both, mine wins", base, cardWith("Partner", F), cardWith("Manager", M), Mine,
            "Partner", F},
           {"both, theirs wins", base, cardWith("Partner", F), cardWith("Manager", M), Theirs,
            "Manager", M},
           {"a change of case is a change", base, cardWith("clerk", U), cardWith("CLERK", U),
            Theirs, "CLERK", U},
           {"mine emptied it, theirs wins", base, cardWith("", U), cardWith("Manager", U), Theirs,
            "Manager", U},
           {"mine emptied it, mine wins", base, cardWith("", U), cardWith("Manager", U), Mine, "",
            U},
           {"no base: theirs counts as changed", "", cardWith("Partner", U), cardWith("Manager", U),
            Theirs, "Manager", U},
       }) {
    ContactCard merged(parseVcard(mergeCardChanges(c.base, c.mine, c.theirs, c.rule)));
    EXPECT_EQ(merged.get(ContactProperty::JobTitle), c.title) << c.what;
    EXPECT_EQ(merged.gender(), c.gender) << c.what;
  }
  // What only the server knows stays whatever the rule; once theirs wins, nothing of mine is left.
  const std::string theirs = cardWith("Manager", U, "NICKNAME:annie");
  for (auto rule : {Mine, Theirs}) {
    std::string merged = mergeCardChanges(base, cardWith("Partner", M), theirs, rule);
    EXPECT_NE(merged.find("NICKNAME:annie"), std::string::npos) << merged;
  }
  std::string kept = mergeCardChanges(base, cardWith("Partner", U), theirs, Theirs);
  EXPECT_TRUE(sameCardMeaning(kept, theirs)) << kept;
}

}  // namespace
}  // namespace dossync::vdir
