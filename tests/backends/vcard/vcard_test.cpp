// The vCard reader/writer and the mapping of contact properties onto cards.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "backends/vcard/contact_card.h"
#include "backends/vcard/vcard.h"
#include "base/error.h"
#include "card_invariants.h"
#include "test_support.h"

namespace dossync::vdir {
namespace {

using outlook::ContactProperty;

std::vector<ContactProperty> allProperties() {
  std::vector<ContactProperty> out;
  for (int i = 0; i < outlook::kContactTextPropertyCount; ++i)
    out.push_back(static_cast<ContactProperty>(i));
  return out;
}

ContactCard reread(const ContactCard& card) {
  return ContactCard(parseVcard(card.text()));
}

TEST(VcardSyntaxTest, FoldsAt75OctetsWithoutSplittingUtf8) {
  std::string value;
  for (int i = 0; i < 60; ++i) value += "é漢🎉a";  // 2-, 3-, 4- and 1-byte characters
  Vcard card;
  card.properties.emplace_back("NOTE", value);
  std::string text = writeVcard(card);
  for (size_t pos = 0, end; pos < text.size(); pos = end + 2) {
    end = std::min(text.find("\r\n", pos), text.size());
    std::string line = text.substr(pos, end - pos);
    EXPECT_LE(line.size(), 75u) << line;
    size_t first = line[0] == ' ' ? 1 : 0;
    ASSERT_LT(first, line.size());
    EXPECT_NE(static_cast<unsigned char>(line[first]) & 0xC0, 0x80) << "split inside a character";
  }
  EXPECT_EQ(parseVcard(text).properties[0].rawValue(), value);
}

TEST(VcardSyntaxTest, ReadsEveryParameterSpellingAndWritesItBack) {
  auto p = parsePropertyLine("TEL;WORK;CELL:1");  // vCard 2.1 bare types
  EXPECT_TRUE(p.hasType("work") && p.hasType("cell") && !p.hasType("HOME"));
  p = parsePropertyLine("tel;type=\"home,voice\":1");
  EXPECT_TRUE(p.is("TEL") && p.hasType("HOME") && p.hasType("VOICE"));
  p = parsePropertyLine("X-A;X-P=\"a;b:c\",plain;x-q=:v:w");
  EXPECT_EQ(p.paramValues("x-p"), (std::vector<std::string>{"a;b:c", "plain"}));
  EXPECT_EQ(p.paramValues("X-Q"), (std::vector<std::string>{""}));
  EXPECT_EQ(p.rawValue(), "v:w");
  // Rebuilt from its parts (a value that needs quoting added), it reads the same.
  p.forgetSourceLine();
  p.setParam("TYPE", {"HOME", "a,b"});
  EXPECT_TRUE(parsePropertyLine(p.line()).sameContent(p)) << p.line();
}

// Names are compared often; the quick answers must be the ones the text rule gives.
TEST(VcardSyntaxTest, NamesCompareExactlyAsTheTextRuleDoes) {
  // Kelvin sign (K), long s and sharp s fold to ASCII letters; stray bytes; accents.
  const std::vector<std::string> parts = {
      "",  "k", "K", "\xE2\x84\xAA", "s",   "\xC5\xBF", "\xC3\x9F",
      "é", "É", "-", "\xC3",         "TEL", "tel"};
  std::vector<std::string> names;
  for (const auto& a : parts)
    for (const auto& b : parts) names.push_back(a + b);
  for (const auto& a : names)
    for (const auto& b : names)
      ASSERT_EQ(sameName(a, b), value::equalsIgnoreCase(a, b)) << a << " / " << b;
  EXPECT_TRUE(sameName("\xE2\x84\xAAind", "KIND"));  // the quick answers leave this to the rule
}

// Values are kept raw: an untouched line is written back as read, and only its text is
// unescaped, taking the \N and \: other programs write too.
TEST(VcardSyntaxTest, UntouchedLinesAreWrittenBackAsReadAndOnlyTheirTextIsUnescaped) {
  std::string line = "x-Odd;Param=\"q\";TYPE=a,b:keep \\: this\\x as it is ";
  Vcard card = parseVcard("BEGIN:VCARD\r\n" + line + "\r\nEND:VCARD\r\n");
  EXPECT_EQ(card.properties[0].line(), line);
  EXPECT_EQ(writeVcard(card), "BEGIN:VCARD\r\n" + line + "\r\nEND:VCARD\r\n");
  EXPECT_EQ(escapeText("a,b;c\\d\ne"), "a\\,b\\;c\\\\d\\ne");
  EXPECT_EQ(unescapeText("x\\Ny\\:z\\q"), "x\ny:z\\q");
}

TEST(VcardSyntaxTest, RejectsMalformedCardsNamingTheLine) {
  struct Case {
    const char* text;
    const char* mentions;
  } cases[] = {
      {"", "no BEGIN"},
      {"FN:x\r\n", "line 1"},
      {"BEGIN:VCARD\r\nFN:x\r\n", "END:VCARD missing"},
      {"BEGIN:VCARD\r\nFN x\r\nEND:VCARD\r\n", "line 2"},
      {"BEGIN:VCARD\r\n;X=1:v\r\nEND:VCARD\r\n", "line 2"},
      {"BEGIN:VCARD\r\nTEL;TYPE=\"work:1\r\nEND:VCARD\r\n", "unterminated"},
      {"BEGIN:VCARD\r\nTEL;=x:1\r\nEND:VCARD\r\n", "parameter"},
      {" BEGIN:VCARD\r\nEND:VCARD\r\n", "continuation"},
      {"BEGIN:VCARD\r\nBEGIN:VCARD\r\nEND:VCARD\r\n", "line 2"},
      {"BEGIN:VCARD\r\nEND:VCARD\r\nBEGIN:VCARD\r\nEND:VCARD\r\n", "line 3"},
      {"BEGIN:VCARD\r\na.:x\r\nEND:VCARD\r\n", "line 2"},
  };
  for (const auto& c : cases) {
    RuntimeError e = testing::thrown([&] { parseVcard(c.text); });
    EXPECT_NE(e.description().find(c.mentions), std::string::npos) << c.text << e.description();
    EXPECT_EQ(testing::thrown([&] { readCardKeys(c.text); }).description(), e.description());
  }
}

TEST(VcardSyntaxTest, TextThatIsNotUtf8ReadsWithReplacementCharacters) {
  using namespace std::string_literals;
  const std::string fffd = "\xEF\xBF\xBD";
  struct Case {
    std::string in, out;  // "": unchanged
  } cases[] = {
      {"BOM \xEF\xBB\xBF, Zoë, 東京, 🎉, U+10FFFF \xF4\x8F\xBF\xBF", ""},
      {"M\xC3\r\n \xBCller \xE6\n\t\x9D\r\n \xB1", ""},          // folded inside characters
      {"a\0b"s, "a" + fffd + "b"},                               // NUL: nothing is cut off
      {"caf\xE9!", "caf" + fffd + "!"},                          // Latin-1
      {"\x80\xBF", fffd + fffd},                                 // lone continuation bytes
      {"\xC0\x80", fffd + fffd},                                 // overlong NUL
      {"\xED\xA0\x80", fffd + fffd + fffd},                      // a surrogate
      {"\xF4\x90\x80\x80", fffd + fffd + fffd + fffd},           // past U+10FFFF
      {"end \xE6\x9D", "end " + fffd + fffd},                    // cut short at the end
      {"\xE6\x9Dx\xE6\x9D\xB1", fffd + fffd + "x\xE6\x9D\xB1"},  // then a whole one
  };
  for (const auto& c : cases) {
    bool changed = c.out.empty();
    EXPECT_EQ(readableText(c.in, &changed), c.out.empty() ? c.in : c.out) << c.in;
    EXPECT_EQ(changed, !c.out.empty()) << c.in;
  }
  // Repaired, a card reads whole, its value kept past the bad bytes.
  ContactCard card(parseVcard(readableText("BEGIN:VCARD\nFN:Jo\0e M\xFCller\nEND:VCARD\n"s)));
  EXPECT_EQ(card.get(ContactProperty::FullName), "Jo" + fffd + "e M" + fffd + "ller");
}

const std::vector<std::string>& awkwardTexts() {
  static const std::vector<std::string> texts = {
      "",
      "O'Brien, \"Bob\"; [Sales] = 50% \\ more",
      "  leading and trailing  ",
      "line 1\r\nline 2\r\n",
      "mixed\r\nand\nlone\rcarriage",
      "\\n is a backslash and n, \\",
      ",;,;",
      "Zoë Ærøskøbing — 東京都 🎉",
      "\t",
      std::string(40, 'x') + "ü" + std::string(200, ';') + "é",
  };
  return texts;
}

TEST(VcardMappingTest, EveryPropertyRoundTripsAwkwardTextWithoutDisturbingTheOthers) {
  auto props = allProperties();
  for (auto p : props) {
    for (const auto& text : awkwardTexts()) {
      ContactCard card;
      for (auto q : props) card.set(q, std::string("v") + outlook::propertyName(q));
      card.set(p, text);
      ContactCard back = reread(card);
      for (auto q : props) {
        std::string want = q == p ? text : std::string("v") + outlook::propertyName(q);
        ASSERT_EQ(back.get(q), want) << "setting " << outlook::propertyName(p) << " to '" << text
                                     << "', reading " << outlook::propertyName(q) << "\n"
                                     << card.text();
      }
      // And again on the card as read, which now holds the awkward text in its own lines.
      back.set(p, "after");
      EXPECT_EQ(reread(back).get(p), "after") << outlook::propertyName(p);
    }
  }
}

TEST(VcardMappingTest, ACompanyCardStaysOneWhenAnotherProgramDropsItsMarks) {
  // What khard writes when it edits the company card we wrote: FN without our parameter,
  // X-ABShowAs and X-DOSSYNC-FIELD gone, our X- properties kept.
  const std::string edited =
      "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:abc\r\nEMAIL;TYPE=INTERNET:info@acme.example\r\n"
      "FN:Acme Ltd\r\nN:;;;;\r\nORG:Acme Ltd\r\nREV:20261125T205419Z\r\n"
      "TEL;TYPE=WORK,VOICE:+1 555 0100\r\nX-DOSSYNC-FILEAS:Acme Ltd\r\nEND:VCARD\r\n";
  ContactCard card(parseVcard(edited));
  EXPECT_EQ(card.get(ContactProperty::FullName), "");
  EXPECT_EQ(card.get(ContactProperty::CompanyName), "Acme Ltd");
  EXPECT_EQ(card.get(ContactProperty::BusinessTelephoneNumber), "+1 555 0100");
  // Saved again, it gets its marks back.
  card.completeName();
  EXPECT_NE(card.text().find("\r\nFN;X-DOSSYNC-DERIVED=TRUE:Acme Ltd\r\n"), std::string::npos);
  EXPECT_NE(card.text().find("\r\nX-ABShowAs:COMPANY\r\n"), std::string::npos);

  // Other programs' company cards (khard joins the ORG components with ", ") read the same.
  auto fullName = [](const std::string& props) {
    return ContactCard(parseVcard("BEGIN:VCARD\nVERSION:3.0\n" + props + "END:VCARD\n"))
        .get(ContactProperty::FullName);
  };
  EXPECT_EQ(fullName("FN:Acme\\, Sales\nN:;;;;\nORG:Acme;Sales\nX-ABSHOWAS:COMPANY\n"), "");
  EXPECT_EQ(fullName("FN:Acme Holdings\nX-EVOLUTION-FILE-AS:Acme Holdings\nORG:Acme\n"), "");
  EXPECT_EQ(fullName("FN:Acme\nN:Acme;;;;\nORG:Acme\n"), "Acme");
  EXPECT_EQ(fullName("FN:Ann Lee\nN:;;;;\nORG:Acme\n"), "Ann Lee");
  EXPECT_EQ(fullName("FN:Acme\nN:;;;;\n"), "Acme");

  // A FullName that would read so, and every edit turning an FN into one or back, is marked.
  ContactCard named;
  named.set(ContactProperty::CompanyName, "Acme");
  named.set(ContactProperty::FullName, "Acme");
  EXPECT_EQ(reread(named).get(ContactProperty::FullName), "Acme");
  ContactCard theirs(parseVcard("BEGIN:VCARD\nFN:Acme\nN:Lee;;;;\nORG:Acme\nEND:VCARD\n"));
  theirs.set(ContactProperty::LastName, "");
  EXPECT_EQ(reread(theirs).get(ContactProperty::FullName), "Acme");
  ContactCard company(parseVcard(edited));
  company.set(ContactProperty::FirstName, "Ann");
  EXPECT_EQ(reread(company).get(ContactProperty::FullName), "");
}

// CR LF is written as \n with a mark on the property (as in the golden file's NOTE and ADR); a
// lone CR as \r.
TEST(VcardMappingTest, OutlookLineBreaksAreWrittenAsPlainEscapes) {
  ContactCard card;
  card.set(ContactProperty::BusinessAddressStreet, "Suite 5\r\n1 Main St");
  card.set(ContactProperty::Spouse, "odd\rone");
  EXPECT_NE(card.text().find("\r\nX-SPOUSE:odd\\rone\r\n"), std::string::npos) << card.text();
  // Changing one component to a plain LF drops the mode for the whole address, exactly.
  card.set(ContactProperty::BusinessAddressCity, "Two\nLines");
  ContactCard back = reread(card);
  EXPECT_EQ(back.get(ContactProperty::BusinessAddressStreet), "Suite 5\r\n1 Main St");
  EXPECT_EQ(back.get(ContactProperty::BusinessAddressCity), "Two\nLines");
}

TEST(VcardMappingTest, ReadsCardsOfOtherProgramsWhateverTheirCase) {
  ContactCard card(parseVcard(
      "begin:vcard\nversion:3.0\nfn:Ann Lee\nn:Lee;Ann;;Dr.;\norg:Acme;Sales;Unit 3\n"
      "item1.tel;type=work;type=fax:111\nTel;Type=CELL:222\ntel;type=home:333\n"
      "TEL;TYPE=HOME:444\nTEL;TYPE=PAGER,WORK:555\nemail:one@x\nEMAIL;TYPE=INTERNET:two@x\n"
      "adr;type=home:;;1 Home Rd;Hometown;;12345;\nADR;TYPE=WORK,POSTAL:;;Office 1;Worktown;"
      "ST;999;Land\nCATEGORIES:Business,VIP\nX-EVOLUTION-FILE-AS:Lee\\, Ann\n"
      "BDAY:19700305\nX-EVOLUTION-ANNIVERSARY:2001-06-30\nGENDER:F;woman\nend:vcard\n"));
  using P = ContactProperty;
  for (auto [p, want] : std::vector<std::pair<P, std::string>>{
           {P::FullName, "Ann Lee"},
           {P::Title, "Dr."},
           {P::Department, "Sales"},
           {P::BusinessFaxNumber, "111"},
           {P::MobileTelephoneNumber, "222"},
           {P::HomeTelephoneNumber, "333"},
           {P::Home2TelephoneNumber, "444"},
           {P::BusinessTelephoneNumber, ""},  // a pager is not a phone
           {P::Email1Address, "one@x"},
           {P::Email2Address, "two@x"},
           {P::HomeAddressCity, "Hometown"},
           {P::BusinessAddressState, "ST"},
           {P::BusinessAddressCountry, "Land"},
           {P::Categories, "Business, VIP"},
           {P::FileAs, "Lee, Ann"}})
    EXPECT_EQ(card.get(p), want) << outlook::propertyName(p);
  EXPECT_EQ(card.birthday(), (value::Date{1970, 3, 5}));
  EXPECT_EQ(card.anniversary(), (value::Date{2001, 6, 30}));
  EXPECT_EQ(card.gender(), outlook::olFemale);

  // Updating keeps the other program's property names and the parts we do not map.
  card.set(ContactProperty::FileAs, "Lee");
  card.set(ContactProperty::CompanyName, "Acme Ltd");
  card.setGender(outlook::olMale);
  std::string text = card.text();
  EXPECT_NE(text.find("X-EVOLUTION-FILE-AS:Lee\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("org:Acme Ltd;Sales;Unit 3\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("GENDER:M;woman\r\n"), std::string::npos) << text;
}

// Of an entry the card holds more than one of, none moves up into an emptied slot; none is lost.
TEST(VcardMappingTest, RemovedEntriesLeaveTheOthersInTheirSlots) {
  ContactCard card(
      parseVcard("BEGIN:VCARD\nVERSION:3.0\nFN:x\nN:;;;;\nTEL;TYPE=WORK:1\nTEL;TYPE=WORK:2\n"
                 "TEL;TYPE=HOME:3\nTEL;TYPE=HOME:4\nTEL;TYPE=CELL:5\nTEL;TYPE=CELL:6\nEMAIL:a@x\n"
                 "EMAIL:b@x\nEMAIL:c@x\nEMAIL:d@x\nORG:One\nORG:Two\nADR;TYPE=WORK:;;w1;;;;\n"
                 "ADR;TYPE=WORK:;;w2;;;;\nEND:VCARD\n"));
  using P = ContactProperty;
  for (P p : {P::BusinessTelephoneNumber, P::HomeTelephoneNumber, P::MobileTelephoneNumber,
              P::Email1Address, P::Email2Address, P::CompanyName, P::BusinessAddressStreet})
    card.set(p, "");
  auto slots = [](const ContactCard& c) {
    std::string out;
    for (P p : {P::BusinessTelephoneNumber, P::Business2TelephoneNumber, P::HomeTelephoneNumber,
                P::Home2TelephoneNumber, P::MobileTelephoneNumber, P::Email1Address,
                P::Email2Address, P::Email3Address, P::CompanyName, P::BusinessAddressStreet})
      out += c.get(p) + "|";
    return out;
  };
  ContactCard back = reread(card);
  EXPECT_EQ(slots(back), "|2||4||||c@x|||");
  // Filling the first slot again does not take the second one's place either.
  back.set(P::BusinessTelephoneNumber, "9");
  back.set(P::Email1Address, "z@x");
  ContactCard again = reread(back);
  EXPECT_EQ(slots(again), "9|2||4||z@x||c@x|||");
  // An emptied entry no extra one replaces is gone, not left empty; the extra ones all stay.
  for (const auto& prop : again.vcard().properties)
    EXPECT_TRUE(!prop.is("TEL") || prop.hasType("CELL") || !prop.rawValue().empty()) << prop.line();
  for (const char* kept : {"TEL;TYPE=CELL:6", "EMAIL:d@x", "ORG:Two", "w2"})
    EXPECT_NE(again.text().find(kept), std::string::npos) << kept;
}

TEST(VcardMappingTest, CategoriesKeepOutlooksTextAndAListForOthers) {
  struct Case {
    std::string text;
    std::string list;  // the CATEGORIES line written ("" for none)
    bool exactCopy;    // X-DOSSYNC-CATEGORIES needed
  } cases[] = {
      {"Business, VIP", "CATEGORIES:Business,VIP", false},
      {"Business,VIP", "CATEGORIES:Business,VIP", true},
      {"One", "CATEGORIES:One", false},
      {" One", "CATEGORIES:One", true},
      {"a;b, c\\d", "CATEGORIES:a\\;b,c\\\\d", false},
      {", ,", "", true},
  };
  for (const auto& c : cases) {
    ContactCard card;
    card.set(ContactProperty::Categories, c.text);
    std::string text = card.text();
    EXPECT_TRUE(c.list.empty() || text.find("\r\n" + c.list + "\r\n") != std::string::npos) << text;
    EXPECT_EQ(text.find("X-DOSSYNC-CATEGORIES") != std::string::npos, c.exactCopy) << text;
    EXPECT_EQ(reread(card).get(ContactProperty::Categories), c.text);
  }
  // Another program changing the list makes the stale exact copy void.
  ContactCard card(
      parseVcard("BEGIN:VCARD\nFN:x\nCATEGORIES:A,B,C\nX-DOSSYNC-CATEGORIES:A,B\nEND:VCARD\n"));
  EXPECT_EQ(card.get(ContactProperty::Categories), "A, B, C");
}

TEST(VcardMappingTest, DatesAndGenderRoundTripAndEmptyValuesRemoveTheirProperties) {
  ContactCard card;
  card.setBirthday({1970, 3, 5});
  card.setAnniversary({1999, 12, 31, 18, 30, 5});
  card.setGender(outlook::olFemale);
  std::string text = card.text();
  EXPECT_NE(text.find("\r\nBDAY:1970-03-05\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\r\nX-ANNIVERSARY:1999-12-31T18:30:05\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\r\nX-GENDER:Female\r\n"), std::string::npos) << text;
  ContactCard back = reread(card);
  EXPECT_EQ(back.birthday(), (value::Date{1970, 3, 5}));
  EXPECT_EQ(back.anniversary(), (value::Date{1999, 12, 31, 18, 30, 5}));
  EXPECT_EQ(back.gender(), outlook::olFemale);

  // Emptied, only the properties every card needs are left.
  for (auto p : allProperties()) back.set(p, "x");
  for (auto p : allProperties()) back.set(p, "");
  back.setBirthday(outlook::kNoDate);
  back.setAnniversary(outlook::kNoDate);
  back.setGender(outlook::olUnspecified);
  std::vector<std::string> names;
  for (const auto& prop : back.vcard().properties) names.push_back(prop.name());
  EXPECT_EQ(names, (std::vector<std::string>{"VERSION", "PRODID", "FN", "N"})) << back.text();
  EXPECT_THROW(back.setBirthday({2001, 2, 29}), RuntimeError);
  EXPECT_THROW(back.setGender(3), RuntimeError);

  // Dates other programs write, and ones we cannot represent (kept, read as none).
  for (auto [raw, want] : std::vector<std::pair<std::string, value::Date>>{
           {"1970-03-05T00:00:00Z", {1970, 3, 5}},
           {"19700305T101112", {1970, 3, 5, 10, 11, 12}},
           {"--0305", outlook::kNoDate},
           {"1970-02-30", outlook::kNoDate}}) {
    ContactCard other(parseVcard("BEGIN:VCARD\nFN:x\nBDAY:" + raw + "\nEND:VCARD\n"));
    EXPECT_EQ(other.birthday(), want) << raw;
    EXPECT_NE(other.text().find("BDAY:" + raw), std::string::npos);
  }
}

ContactCard fullCard() {
  ContactCard card;
  card.setUid("0123456789abcdef0123456789abcdef");
  // Set in an odd order on purpose: the written order does not depend on it.
  using P = ContactProperty;
  for (auto [p, text] : std::vector<std::pair<P, const char*>>{
           {P::Body, "Met at the 2019 conference.\r\nPrefers e-mail; never calls."},
           {P::HomeFaxNumber, "+44 20 7946 0003"},
           {P::FirstName, "Jürgen"},
           {P::LastName, "Müller-Lüdenscheidt"},
           {P::MiddleName, "K."},
           {P::Title, "Dr."},
           {P::Suffix, "Jr."},
           {P::FullName, "Dr. Jürgen K. Müller-Lüdenscheidt Jr."},
           {P::FileAs, "Müller-Lüdenscheidt, Jürgen"},
           {P::CompanyName, "Smith, Jones & Partners"},
           {P::Department, "Tax; Audit"},
           {P::JobTitle, "Senior Partner"},
           {P::OfficeLocation, "Room 4.12"},
           {P::Categories, "Business, VIP"},
           {P::Email1Address, "juergen@example.com"},
           {P::Email2Address, "jkm@example.org"},
           {P::Email3Address, "j.mueller@example.net"},
           {P::BusinessTelephoneNumber, "+44 20 7946 0000"},
           {P::Business2TelephoneNumber, "+44 20 7946 0001"},
           {P::BusinessFaxNumber, "+44 20 7946 0002"},
           {P::HomeTelephoneNumber, "+44 20 7946 0004"},
           {P::Home2TelephoneNumber, "+44 20 7946 0005"},
           {P::MobileTelephoneNumber, "+44 7700 900123"},
           {P::BusinessAddressStreet, "1 Long Street\r\nSuite 200"},
           {P::BusinessAddressCity, "London"},
           {P::BusinessAddressState, "Greater London"},
           {P::BusinessAddressPostalCode, "EC1A 1BB"},
           {P::BusinessAddressCountry, "United Kingdom"},
           {P::HomeAddressStreet, "7 Garden Lane"},
           {P::HomeAddressCity, "Guildford"},
           {P::HomeAddressState, "Surrey"},
           {P::HomeAddressPostalCode, "GU1 1AA"},
           {P::HomeAddressCountry, "United Kingdom"},
           {P::WebPage, "https://example.com/jkm?a=1,2"},
           {P::Spouse, "Anna"},
           {P::Children, "Ben, Clara"}})
    card.set(p, text);
  card.setBirthday({1961, 7, 14});
  card.setAnniversary({1990, 5, 1});
  card.setGender(outlook::olMale);
  return card;
}

TEST(VcardGoldenTest, WritesAFullCardExactlyAsTheGoldenFile) {
  std::string path =
      std::string(DOSSYNC_SOURCE_DIR) + "/tests/backends/vcard/golden/full_contact.vcf";
  std::string got = fullCard().text();
  if (std::getenv("DOSSYNC_UPDATE_GOLDEN")) std::ofstream(path, std::ios::binary) << got;
  std::string want = testing::readFile(path);
  ASSERT_FALSE(want.empty()) << "missing " << path << " (DOSSYNC_UPDATE_GOLDEN=1 writes it)";
  EXPECT_EQ(want, got);
}

TEST(VcardMutationTest, DamagedCardsFailCleanlyOrRoundTripStably) {
  std::vector<std::string> samples = {
      fullCard().text(),
      "BEGIN:VCARD\r\nVERSION:3.0\r\nitem1.TEL;type=\"work,voice\";X-X=\"a:b\":1\r\n"
      "item1.X-ABLabel:_$!<Other>!$_\r\nPHOTO;ENCODING=b;TYPE=JPEG:/9j/4AAQSkZJRgABAQ\r\n"
      " AAAQABAAD\r\nN:A\\;B;C\\,D;;;\r\nCATEGORIES:x,y\r\nEND:VCARD\r\n",
      "BEGIN:VCARD\nFN:x\nADR;TYPE=WORK,HOME:;;a\\\\;b;c\nEMAIL;X-DOSSYNC-FIELD=Email3Address:e\n"
      "NOTE;X-DOSSYNC-EOL=CRLF:a\\nb\\r\nEND:VCARD\n",
      "BEGIN:VCARD\r\nUID:a\\,b\r\nKIND:individual\r\nX-EVOLUTION-FILE-AS:Lee\\, Ann\r\n"
      "X-DOSSYNC-FILEAS;X-DOSSYNC-EOL=CRLF:x\\ny\r\nEND:VCARD\r\n",
  };
  const std::string alphabet = "\r\n\\;:,=\". \tABTELNOKWX-é\xC3\xA9\x80";
  std::mt19937 rng(20240611);
  int parsed = 0;
  for (int iteration = 0; iteration < 2000; ++iteration) {
    std::string text = samples[rng() % samples.size()];
    for (int m = 1 + rng() % 4; m > 0 && !text.empty(); --m) {
      size_t at = rng() % text.size();
      switch (rng() % 4) {
        case 0:
          text.insert(at, 1, alphabet[rng() % alphabet.size()]);
          break;
        case 1:
          text.erase(at, 1 + rng() % 3);
          break;
        case 2:
          text.insert(at, text.substr(rng() % text.size(), rng() % 20));
          break;
        default:
          text[at] = alphabet[rng() % alphabet.size()];
      }
    }
    auto p = static_cast<ContactProperty>(rng() % outlook::kContactTextPropertyCount);
    const std::string& value = awkwardTexts()[rng() % awkwardTexts().size()];
    auto fail = [&](const std::string& what) { ADD_FAILURE() << what << " in:\n" << text; };
    if (!checkCardInvariants(text, p, value, fail)) continue;
    ++parsed;
    // What the card keeps between edits (which property fills which slot) matches a fresh read.
    ContactCard contact(parseVcard(text));
    for (int edit = 0; edit < 3; ++edit) {
      contact.set(static_cast<ContactProperty>(rng() % outlook::kContactTextPropertyCount),
                  awkwardTexts()[rng() % awkwardTexts().size()]);
      for (auto q : allProperties())
        ASSERT_EQ(contact.get(q), contactProperty(contact.vcard(), q)) << text;
    }
    if (HasFailure()) break;
  }
  EXPECT_GT(parsed, 200);  // the damage left enough cards readable to mean something
}

}  // namespace
}  // namespace dossync::vdir
