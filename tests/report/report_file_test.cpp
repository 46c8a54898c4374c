#include "report/report_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/error.h"
#include "test_support.h"

namespace dossync::report {
namespace {

namespace fs = std::filesystem;

RecordPlan record(const std::string& key, const std::string& action) {
  RecordPlan r;
  r.kind = "company";
  r.key = key;
  r.name = "Company " + key;
  r.action = action;
  r.pairedWith = "item-" + key;
  r.outlookId = r.pairedWith;
  r.foundBy = "mapping";
  return r;
}

// A run of each kind of record the file has to tell apart: a new item (its values once), a
// changed one with an old value known and one never read, a record not chosen whose item is
// not its pairing, a company made from an item with its rows, errors in and outside records,
// and warnings that came after their record was written (listed, and not listed).
struct Written {
  RunPlan plan;  // what a reader should get back
  std::vector<RecordPlan> listed;
  std::vector<LateWarning> late;
};

Written aRun() {
  Written w;
  RunPlan& p = w.plan;
  p.kind = "report";
  p.started = "2026-11-25T17:15:00";
  p.finished = "2026-11-25T17:15:02";
  p.seconds = 2.5;
  p.settings = {{"direction", "2 (host to Outlook)"}, {"select", "all"}};
  p.companiesCreatedAgain = 1;
  p.nameMatches = 2;
  p.itemsPairedTwice = 2;
  p.errors.push_back({3021, "No current record", "kvoutlookdx.dll-x"});

  RecordPlan created = record("1", "create-item");
  created.foundBy = "none";
  // Every character JSON escapes, control characters, and text beyond ASCII.
  created.changes = {{"item", "FileAs", "", "Acme \"Ltd\"\n"},
                     {"item", "BusinessAddressCity", "", "Hull\t\\\x01\x1f/\b\f\r"},
                     {"item", "Body", "", "Montr\u00e9al \u2013 \U0001F600"}};
  RecordPlan changed = record("2", "update-item");
  // A quote or a backslash past the first eight characters of a text otherwise plain.
  changed.changes = {{"item", "BusinessAddressCity", "Kingston", "Gatineau"},
                     {"item", "Department", "Sales, East \\ West", "Sales and \"Marketing\" EU"},
                     {"item", "Email1Address", "", "a@b.ca", false}};
  changed.errors.push_back({13, "Type mismatch", "kvoutlookdx.dll-y"});
  RecordPlan notChosen = record("3", "pair-only");
  notChosen.selected = false;
  notChosen.outlookId = "";
  notChosen.notes = {"not chosen: its pairing is saved all the same"};
  RecordPlan made;
  made.kind = "outlook-item";
  made.key = made.outlookId = "abc.vcf";
  made.action = "create-company";
  made.pairedWith = "-1";
  made.contactFoundBy = "name";
  made.added.push_back({"Companies", {{"CompanyName", "Public Works"}, {"City", ""}}});
  made.changes = {{"Contacts", "CompanyNum", "4", "9"}};
  // A two-way pair: a copy each way, a conflict settled, a note.
  RecordPlan both = record("6", "update-both");
  both.kind = "pair";
  both.changes = {{"item", "BusinessTelephoneNumber", "1", "2"},
                  {"Companies", "City", "Hull", "Aylmer"}};
  both.conflicts.push_back({"Companies.Email", "a@b", "host@b", "\"outlook\"@b", "host"});
  both.notes = {"its item was changed on the server while the run read it: merged again"};
  w.listed = {created, changed, notChosen, made, both};

  // Record 2 gets a warning late; an unlisted record that went between 1 and 2 gets one too.
  LateWarning onListed;
  onListed.listed = 1;
  onListed.warning = "its Outlook contact is also paired with company 7";
  RecordPlan quiet = record("5", "nothing");
  LateWarning onQuiet;
  onQuiet.before = 1;
  onQuiet.record = quiet;
  onQuiet.warning = "its Outlook contact is also paired with company 8";
  w.late = {onListed, onQuiet};

  p.records = w.listed;
  p.records[1].warnings.push_back(onListed.warning);
  quiet.warnings.push_back(onQuiet.warning);
  p.records.insert(p.records.begin() + 1, quiet);
  RunCounts& counts = p.counts.emplace();
  counts.records = 40;
  counts.actions[0] = 1;
  counts.actions[3] = 36;
  counts.actions[8] = 1;  // update-both
  counts.errors = 2;
  counts.conflicts = 1;
  return w;
}

fs::path write(const fs::path& path, const Written& w, bool compress, bool tail = true) {
  ReportWriter writer(path, compress);
  writer.head(w.plan);
  for (const auto& r : w.listed) writer.record(r);
  if (tail) writer.tail(w.plan, w.late);
  return path;
}

// A new item's values are stored once; a run that changed nothing is only its head and tail.
TEST(ReportFileTest, ReadsBackWhatWasWrittenAndQuietRunsAreSmall) {
  testing::TempDir dir;
  Written w = aRun();
  fs::path path = fs::path(dir.path()) / ("20261125-171502" + std::string(kReportExtension));
  for (bool compress : {true, false}) {
    write(path, w, compress);
    RunPlan back = readReportFile(path);
    EXPECT_EQ(back.id, "20261125-171502");
    back.id.clear();
    EXPECT_EQ(toJson(back).dump(1), toJson(w.plan).dump(1)) << (compress ? "compressed" : "stored");
    EXPECT_EQ(summaryLine(back),
              "40 records: 1 create-item, 36 nothing, 1 update-both; 1 conflict; 2 errors");
    // The one-document form (--json) reads back alike.
    EXPECT_EQ(toJson(planFromJson(toJson(back))).dump(1), toJson(back).dump(1));
  }
  std::string bytes = testing::readFile(path.string());  // stored
  EXPECT_NE(bytes.find(R"("fields":{"FileAs":"Acme \"Ltd\"\n",)"
                       R"("BusinessAddressCity":"Hull\t\\\u0001\u001f/\b\f\r",)"
                       "\"Body\":\"Montr\u00e9al \u2013 \U0001F600\"}"),
            std::string::npos)
      << bytes;
  Written quiet = aRun();
  quiet.listed.clear();
  quiet.late.clear();
  quiet.plan.counts->records = 100000;
  write(path, quiet, true);
  EXPECT_LT(fs::file_size(path), 600u);
}

// No tail, the last line half written; then a file that is not a report.
TEST(ReportFileTest, ACutShortRunReadsAsFarAsItGot) {
  testing::TempDir dir;
  Written w = aRun();
  fs::path path = write(fs::path(dir.path()) / "cut.jsonl.zst", w, false);
  std::string bytes = testing::readFile(path.string());
  fs::resize_file(path, bytes.find("\"finished\"") + 20);
  RunPlan back = readReportFile(path);
  EXPECT_TRUE(back.interrupted);
  ASSERT_EQ(back.records.size(), 5u);
  EXPECT_EQ(back.records[3].added.size(), 1u);
  EXPECT_EQ(back.recordCount(), 5);
  EXPECT_EQ(back.errorCount(), 1);

  std::ofstream(path, std::ios::trunc) << "{\"format\":\"dossync-run/1\"}\n";
  RuntimeError e = testing::thrown([&] { readReportFile(path); });
  EXPECT_EQ(e.number(), kTypeMismatch);
  EXPECT_NE(e.description().find(path.string()), std::string::npos) << e.description();
}

// Many more records than are queued at a time; a disk that fails while they are written fails
// the run's next call (or its tail), naming the file.
TEST(ReportFileTest, RecordsWrittenBehindTheRunsBackKeepTheirOrderAndFailures) {
  testing::TempDir dir;
  Written w = aRun();
  w.late.clear();
  w.plan.records.clear();
  w.listed.clear();
  for (int i = 0; i < 2000; ++i) w.listed.push_back(record(std::to_string(i), "create-item"));
  w.plan.records = w.listed;
  fs::path path = write(fs::path(dir.path()) / "many.jsonl.zst", w, true);
  RunPlan back = readReportFile(path);
  ASSERT_EQ(back.records.size(), 2000u);
  for (size_t i = 0; i < back.records.size(); i += 199)
    EXPECT_EQ(back.records[i].key, std::to_string(i));

  // Text that is not UTF-8 (Latin-1 here) is refused, not written as it is.
  Written latin1 = aRun();
  latin1.listed[0].name = "Caf\xE9";
  EXPECT_ANY_THROW(write(fs::path(dir.path()) / "latin1.jsonl.zst", latin1, true));

  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  RuntimeError e = testing::thrown([&] { write("/dev/full", w, true); });
  EXPECT_EQ(e.number(), kDiskIO);
  EXPECT_NE(e.description().find("/dev/full"), std::string::npos) << e.description();
}

}  // namespace
}  // namespace dossync::report
