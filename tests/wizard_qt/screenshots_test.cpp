// dossync wizard --screenshots renders every step offscreen, from the demonstration practice.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "test_support.h"

namespace dossync {
namespace {

TEST(WizardScreenshots, EveryStepAndBothDirectionsArePictured) {
  testing::TempDir dir;
  std::string out = dir.file("shots");
  std::string command = std::string("QT_QPA_PLATFORM=offscreen ") + DOSSYNC_BINARY +
                        " wizard --screenshots " + out + " > " + dir.file("list.txt") + " 2> " +
                        dir.file("err.txt");
  ASSERT_EQ(std::system(command.c_str()), 0);
  for (const char* name : {"wizard-1-welcome.png", "wizard-2-select-from-dossiera.png",
                           "wizard-2-select-contacts.png", "wizard-2-select-from-outlook.png",
                           "wizard-3-finish.png", "wizard-4-advanced-options.png"}) {
    std::string path = out + "/" + name;
    ASSERT_TRUE(std::filesystem::exists(path)) << name;
    std::ifstream png(path, std::ios::binary);
    char magic[8] = {};
    png.read(magic, 8);
    EXPECT_EQ(std::string(magic + 1, 3), "PNG") << name;
    EXPECT_GT(std::filesystem::file_size(path), 10000u) << name;  // a drawn window, not a blank
  }
}

}  // namespace
}  // namespace dossync
