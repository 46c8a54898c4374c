// The local store's appointment items (CreateAppointment, through the command line:
// tests/app/mail_cli_test.sh).
#include <gtest/gtest.h>

#include <filesystem>

#include "backends/mail/vdir_calendar.h"
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

// A new item starts on the coming half hour for thirty minutes; one that ends before it starts
// is refused and nothing is written.
TEST(VdirAppointment, NewItemsTakeTheNextHalfHourAndEndBeforeStartIsRefused) {
  testing::TempDir dir;
  vdir::VdirAppointmentItem item(dir.path());
  value::Date s = item.Start(), e = item.End();
  EXPECT_TRUE((s.minute == 0 || s.minute == 30) && s.second == 0);
  EXPECT_GE(s, value::now());
  EXPECT_EQ((e.hour * 60 + e.minute - s.hour * 60 - s.minute + 1440) % 1440, 30);
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

}  // namespace
}  // namespace dossync
