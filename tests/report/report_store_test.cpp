#include "report/report_store.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

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

// Reports of one second are told apart and listed in the order they were written; "last" is
// the newest; what is read back is what was written.
TEST(ReportStoreTest, ReportsOfOneSecondKeepTheirOrderAndReadBackWhole) {
  testing::TempDir dir;
  fs::path folder = fs::path(dir.path()) / "reports";
  std::vector<std::string> ids;
  for (int i = 0; i < 12; ++i) {
    RunPlan plan = planWith("Run " + std::to_string(i));
    writeReport(folder, plan);
    ids.push_back(plan.id);
  }
  auto listed = listReports(folder);
  // Runs that straddle a second are sorted by the second first.
  EXPECT_EQ(listed, ids);
  RunPlan last = readReport(folder, "last");
  EXPECT_EQ(last.id, ids.back());
  EXPECT_EQ(last.records.at(0).name, "Run 11");
  EXPECT_EQ(last.records.at(0).changes.at(0).after, "Gatineau\n(2)");
  EXPECT_EQ(last.records.at(0).errors.at(0).location, "kvoutlookdx.dll-clsOutlookSynchronization-x");
  EXPECT_EQ(last.records.at(0).foundBy, "name");
  EXPECT_EQ(last.records.at(0).warnings, planWith("").records.at(0).warnings);
  EXPECT_EQ(last.itemsPairedTwice, 1);
  EXPECT_TRUE(fs::exists(folder / (ids.back() + ".txt")));
  EXPECT_EQ(testing::errorOf([&] { readReport(folder, "19990101-000000"); }), kFileNotFound);
  std::ofstream(folder / "20000101-000000.json") << "{\"format\": \"something else\"}";
  EXPECT_EQ(testing::errorOf([&] { readReport(folder, "20000101-000000"); }), kTypeMismatch);
}

// Reports written before pairings by name were told apart still read: nothing found by name.
TEST(ReportStoreTest, ReportsWithoutNameMatchesRead) {
  auto json = toJson(planWith("old"));
  for (auto* member : {"nameMatches", "itemsPairedTwice", "contactsAtAnotherCompany"})
    json["summary"].erase(member);
  for (auto* member : {"foundBy", "contactFoundBy", "warnings"}) json["records"][0].erase(member);
  RunPlan plan = planFromJson(json);
  EXPECT_EQ(plan.records.at(0).foundBy, "none");
  EXPECT_TRUE(plan.records.at(0).warnings.empty());
  EXPECT_EQ(plan.itemsPairedTwice, 0);
}

// Old reports go by count and by age; the one just written stays whatever the limits say.
TEST(ReportStoreTest, OldReportsGoByCountAndAge) {
  testing::TempDir dir;
  fs::path folder = fs::path(dir.path()) / "reports";
  RunPlan a = planWith("a"), b = planWith("b"), c = planWith("c");
  writeReport(folder, a);
  writeReport(folder, b);
  auto old = fs::file_time_type::clock::now() - std::chrono::hours(24 * 10);
  fs::last_write_time(folder / (a.id + ".json"), old);
  writeReport(folder, c, ReportLimits{0, 5});
  EXPECT_EQ(listReports(folder), (std::vector<std::string>{b.id, c.id}));
  EXPECT_FALSE(fs::exists(folder / (a.id + ".txt")));
  fs::last_write_time(folder / (b.id + ".json"), old);
  fs::last_write_time(folder / (c.id + ".json"), old);
  RunPlan d = planWith("d");
  writeReport(folder, d, ReportLimits{1, 0});
  EXPECT_EQ(listReports(folder), (std::vector<std::string>{d.id}));
}

}  // namespace
}  // namespace dossync::report
