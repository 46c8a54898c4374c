// CreateAppointment through the component's session, and the local store's appointment items.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "backends/vdir/vdir_calendar.h"
#include "core/synchronization.h"
#include "test_support.h"

namespace dossync {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> icsFiles(const fs::path& dir) {
  std::vector<fs::path> out;
  std::error_code ec;
  for (const auto& f : fs::directory_iterator(dir, ec)) {
    if (f.path().extension() == ".ics") out.push_back(f.path());
  }
  return out;
}

std::string slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), {});
}

class CreateAppointmentTest : public testing::ApartmentTest {
 protected:
  void SetUp() override {
    testing::ApartmentTest::SetUp();
    host = std::make_unique<testing::Host>(dir, false);
  }
  void create(std::string subject, std::string location) {
    value::Date start{2025, 3, 14, 9, 30, 0}, end{2025, 3, 14, 10, 45, 0};
    host->component->CreateAppointment(start, end, subject, location);
  }
  std::unique_ptr<testing::Host> host;
};

TEST_F(CreateAppointmentTest, SendStoresOneEventInTheProfileCalendar) {
  host->component->setProfile("work");
  host->component->setDisplayLoginDialog(false);
  ASSERT_TRUE(host->component->StartOutlook());
  create("Year-end review, Müller", "Room 2; Main St");
  EXPECT_TRUE(host->errors->errors.empty());
  auto files = icsFiles(host->outlookRoot + "/work/calendar");
  ASSERT_EQ(files.size(), 1u);
  std::string ics = slurp(files[0]);
  for (const char* line :
       {"BEGIN:VEVENT\r\n", "DTSTART:20250314T093000\r\n", "DTEND:20250314T104500\r\n",
        "SUMMARY:Year-end review\\, Müller\r\n", "LOCATION:Room 2\\; Main St\r\n"}) {
    EXPECT_NE(ics.find(line), std::string::npos) << line << " in\n" << ics;
  }
  EXPECT_NE(ics.find("UID:" + files[0].stem().string() + "\r\n"), std::string::npos);
  EXPECT_NE(ics.find("DTSTAMP:"), std::string::npos);
}

TEST(VdirAppointment, EndBeforeStartIsRefusedAndNothingWritten) {
  testing::TempDir dir;
  vdir::VdirAppointmentItem item(dir.path());
  item.setStart({2025, 3, 14, 11, 0, 0});
  item.setEnd({2025, 3, 14, 10, 0, 0});
  EXPECT_THROW(item.Send(), RuntimeError);
  EXPECT_TRUE(icsFiles(dir.path()).empty());
  EXPECT_EQ(item.EntryID(), "");
  item.setEnd(item.Start());
  item.Send();
  EXPECT_EQ(icsFiles(dir.path()).size(), 1u);
  EXPECT_EQ(item.FilePath(), (fs::path(dir.path()) / (item.EntryID() + ".ics")).string());
  item.Delete();
  EXPECT_TRUE(icsFiles(dir.path()).empty());
  EXPECT_THROW(item.Save(), RuntimeError);
}

TEST(VdirAppointment, ANewItemStartsOnTheHalfHourForThirtyMinutes) {
  testing::TempDir dir;
  vdir::VdirAppointmentItem item(dir.path());
  value::Date s = item.Start(), e = item.End();
  EXPECT_TRUE(s.minute == 0 || s.minute == 30);
  EXPECT_EQ(s.second, 0);
  EXPECT_GE(s, value::now());
  auto seconds = [](const value::Date& d) {
    std::tm tm{};
    tm.tm_year = d.year - 1900;
    tm.tm_mon = d.month - 1;
    tm.tm_mday = d.day;
    tm.tm_hour = d.hour;
    tm.tm_min = d.minute;
    tm.tm_sec = d.second;
    return timegm(&tm);
  };
  EXPECT_EQ(seconds(e) - seconds(s), 30 * 60);
}

}  // namespace
}  // namespace dossync
