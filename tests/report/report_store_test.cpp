#include "report/report_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "report/report_file.h"
#include "test_support.h"

namespace dossync::report {
namespace {

namespace fs = std::filesystem;

RunPlan planWith(const std::string& name) {
  RunPlan plan;
  RecordPlan r;
  r.kind = "company";
  r.key = "1";
  r.name = name;
  r.action = "update-item";
  r.changes.push_back({"item", "BusinessAddressCity", "Kingston", "Gatineau\n(2)"});
  r.errors.push_back({13, "Type mismatch", "kvoutlookdx.dll-clsOutlookSynchronization-x"});
  r.foundBy = "name";
  r.warnings.push_back("its Outlook contact is also paired with company 2");
  plan.records.push_back(r);
  plan.itemsPairedTwice = 1;
  return plan;
}

// A report as earlier versions wrote it: the whole plan as <id>.json, and <id>.txt beside it.
// Its id is the one endReport gives; the JSON names it as well, padded to the size the file
// had when it was indexed.
void writeReport(const fs::path& folder, RunPlan& plan, const ReportLimits& limits = {}) {
  fs::path running = beginReport(folder);
  plan.id = std::string(24, ' ');
  std::string json = toJson(plan).dump();
  std::ofstream(running, std::ios::binary) << json << "\n";
  endReport(folder, running, plan, ".json", limits);
  std::string named = toJson(plan).dump();
  named.resize(json.size(), ' ');
  std::ofstream(folder / (plan.id + ".json"), std::ios::binary) << named << "\n";
  std::ofstream(folder / (plan.id + ".txt"), std::ios::binary) << toText(plan);
}

TEST(ReportStoreTest, ReportsOfOneSecondKeepTheirOrderAndReadBackWhole) {
  testing::TempDir dir;
  fs::path folder = fs::path(dir.path()) / "reports";
  std::vector<std::string> ids;
  for (int i = 0; i < 12; ++i) {
    RunPlan plan = planWith("Run " + std::to_string(i));
    writeReport(folder, plan);
    ids.push_back(plan.id);
  }
  // Runs that straddle a second are sorted by the second first.
  EXPECT_EQ(listReports(folder), ids);
  RunPlan last = readReport(folder, "last");
  EXPECT_EQ(last.id, ids.back());
  last.id.clear();
  RunPlan written = planWith("Run 11");
  EXPECT_EQ(toJson(last).dump(1), toJson(written).dump(1));
  std::ofstream(folder / "20000101-000000.json") << "{\"format\": \"something else\"}";
  EXPECT_EQ(testing::errorOf([&] { readReport(folder, "20000101-000000"); }), kTypeMismatch);

  // Reports written before pairings by name were told apart still read: nothing found by name.
  auto json = toJson(planWith("old"));
  for (auto* member : {"nameMatches", "itemsPairedTwice", "contactsAtAnotherCompany"})
    json["summary"].erase(member);
  for (auto* member : {"foundBy", "contactFoundBy", "warnings"}) json["records"][0].erase(member);
  RunPlan old = planFromJson(json);
  EXPECT_EQ(old.records.at(0).foundBy, "none");
  EXPECT_TRUE(old.records.at(0).warnings.empty());
  EXPECT_EQ(old.itemsPairedTwice, 0);
}

// A report written as the run goes, `bytes` long (the store never reads it back).
std::string writeStreamed(const fs::path& folder, int bytes, const ReportLimits& limits) {
  RunPlan plan = planWith("streamed");
  fs::path running = beginReport(folder);
  std::ofstream(running) << std::string(static_cast<size_t>(bytes), 'x');
  endReport(folder, running, plan, kReportExtension, limits);
  return plan.id;
}

void makeOld(const fs::path& file) {
  fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(24 * 10));
}

// Old-style reports (with their text) among the new ones; the index follows without reading the
// reports again (these could not be read: the index alone knows them).
TEST(ReportStoreTest, RetentionBySizeAndAgeKeepsTheIndexInStep) {
  testing::TempDir dir;
  fs::path folder = fs::path(dir.path()) / "reports";
  const ReportLimits none{0, 0, 0};
  RunPlan old = planWith("old style");
  writeReport(folder, old, none);
  std::vector<std::string> ids = {old.id};
  for (int i = 0; i < 5; ++i) ids.push_back(writeStreamed(folder, 1000, none));
  auto listedIds = [&] {
    std::vector<std::string> listed;
    for (const auto& e : reportEntries(folder)) {
      EXPECT_EQ(e.unreadable, "") << e.id;
      EXPECT_EQ(e.summary, summaryLine(planWith(""))) << e.id;
      EXPECT_EQ(e.records, 1);
      listed.push_back(e.id);
    }
    EXPECT_EQ(listed, listReports(folder));
    return listed;
  };
  EXPECT_EQ(listedIds(), ids);

  // 3,500 bytes: the new one and two before it.
  ids.push_back(writeStreamed(folder, 1000, ReportLimits{0, 0, 3500}));
  EXPECT_EQ(listedIds(), std::vector<std::string>(ids.end() - 3, ids.end()));
  EXPECT_FALSE(fs::exists(folder / (old.id + ".txt")));

  // Five days: the middle one, written ten days ago, goes; the older one stays.
  makeOld(folder / (ids[5] + kReportExtension));
  ids.push_back(writeStreamed(folder, 1000, ReportLimits{0, 5, 0}));
  EXPECT_EQ(listedIds(), (std::vector<std::string>{ids[4], ids[6], ids[7]}));
}

// Made again, and mended where it does not match the files (a report added by hand, removed,
// rewritten; a stray line). Runs still going are not listed; one of a process gone, after a day.
TEST(ReportStoreTest, IndexFollowsTheFiles) {
  testing::TempDir dir;
  fs::path folder = fs::path(dir.path()) / "reports";
  std::vector<std::string> ids;
  for (int i = 0; i < 3; ++i) {
    RunPlan plan = planWith("Run " + std::to_string(i));
    plan.settings = {{"direction", std::to_string(i)}};
    writeReport(folder, plan);
    ids.push_back(plan.id);
  }
  fs::remove(folder / "index.jsonl");
  auto entries = reportEntries(folder);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[2].direction, "2");
  EXPECT_EQ(entries[2].errors, 1);
  EXPECT_EQ(entries[2].bytes, static_cast<int64_t>(fs::file_size(folder / (ids[2] + ".json")) +
                                                   fs::file_size(folder / (ids[2] + ".txt"))));
  EXPECT_TRUE(fs::exists(folder / "index.jsonl"));

  fs::copy_file(folder / (ids[0] + ".json"), folder / "20991231-235959.json");
  fs::remove(folder / (ids[1] + ".json"));
  RunPlan rewritten = planWith("rewritten");
  rewritten.records.push_back(rewritten.records[0]);
  std::ofstream(folder / (ids[2] + ".json"), std::ios::trunc) << toJson(rewritten).dump();
  std::ofstream(folder / "index.jsonl", std::ios::app) << "not an entry\n{\"id\": 1}\n";
  std::ofstream(folder / ".running-1-1") << "a run still going";
  entries = reportEntries(folder);
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].id, ids[0]);
  EXPECT_EQ(entries[1].id, ids[2]);
  EXPECT_EQ(entries[1].records, 2);
  EXPECT_EQ(entries[2].id, "20991231-235959");
  EXPECT_EQ(entries[2].direction, "0");
  std::string index = testing::readFile((folder / "index.jsonl").string());
  EXPECT_EQ(std::count(index.begin(), index.end(), '\n'), 3);

  // A run of a process that is gone, a day old; one of this process; one of a minute ago.
  const fs::path gone = folder / ".running-2147483646-1",
                 mine = folder / (".running-" + std::to_string(::getpid()) + "-7");
  for (const auto& p : {gone, mine}) {
    std::ofstream(p) << "cut short";
    fs::last_write_time(p, fs::file_time_type::clock::now() - std::chrono::hours(25));
  }
  RunPlan next = planWith("next");
  writeReport(folder, next);
  EXPECT_FALSE(fs::exists(gone));
  EXPECT_TRUE(fs::exists(mine));
  EXPECT_TRUE(fs::exists(folder / ".running-1-1"));
  EXPECT_EQ(reportEntries(folder).size(), 4u);
}

}  // namespace
}  // namespace dossync::report
