// dossync wizard --screenshots renders every step offscreen, from the demonstration practice.
#include <gtest/gtest.h>

#include <QImage>
#include <QRect>
#include <QSet>
#include <cstdlib>

#include "test_support.h"
#include "wizard/wizard_form.h"

namespace dossync {
namespace {

// How many different colours the area holds: 1 for an area nothing was drawn in.
int colours(const QImage& image, const QRect& area) {
  QSet<QRgb> seen;
  for (int y = area.top(); y <= area.bottom(); ++y)
    for (int x = area.left(); x <= area.right(); ++x) seen.insert(image.pixel(x, y));
  return static_cast<int>(seen.size());
}

TEST(WizardScreenshots, EveryStepAndBothDirectionsArePictured) {
  testing::TempDir dir;
  std::string out = dir.file("shots");
  std::string command = std::string("QT_QPA_PLATFORM=offscreen ") + DOSSYNC_BINARY +
                        " wizard --screenshots " + out + " > " + dir.file("list.txt") + " 2> " +
                        dir.file("err.txt");
  ASSERT_EQ(std::system(command.c_str()), 0);
  // The step picture at the left of every step, and the text at the top of the step beside it.
  const QRect picture(10, 24, 144, 284), heading(168, 14, 460, 34);
  std::vector<QImage> shots;
  for (const char* name :
       {"wizard-1-welcome.png", "wizard-2-select-from-dossiera.png", "wizard-2-select-contacts.png",
        "wizard-2-select-from-outlook.png", "wizard-3-finish.png", "wizard-4-advanced-options.png",
        "wizard-5-both-ways.png"}) {
    SCOPED_TRACE(name);
    QImage shot(QString::fromStdString(out + "/" + name), "PNG");
    ASSERT_FALSE(shot.isNull());
    EXPECT_EQ(shot.width(), wizard::kFormWidth);
    EXPECT_EQ(shot.height(), wizard::kFormHeight);
    EXPECT_GT(colours(shot, picture), 50);
    EXPECT_GT(colours(shot, heading), 2);
    EXPECT_GT(colours(shot, QRect(0, 370, wizard::kFormWidth, 60)), 2);  // the buttons
    for (const QImage& earlier : shots) EXPECT_NE(shot, earlier);  // each shows something else
    shots.push_back(shot);
  }
  // The dialog "Show what will change" opens over the last step.
  EXPECT_FALSE(QImage(QString::fromStdString(out + "/wizard-6-preview.png"), "PNG").isNull());
}

}  // namespace
}  // namespace dossync
