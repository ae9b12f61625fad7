#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QPushButton>
#include <QTimer>

#include "support/MsgBox.h"
#include "ui/QtMsgBox.h"
#include "ui/UiTestUtil.h"

namespace {
QMessageBox::StandardButton DefaultOf(QMessageBox& oBox) { return oBox.standardButton(oBox.defaultButton()); }
}  // namespace

class QtMsgBoxTest : public ::testing::Test {
 protected:
  void SetUp() override { UiApp(); }
  void TearDown() override { SetMsgBoxHandler(nullptr); }
};

TEST_F(QtMsgBoxTest, TheStyleValueGivesIconButtonsAndDefault) {
  using B = QMessageBox;
  const struct {
    int32_t lStyle;
    B::Icon eIcon;
    B::StandardButtons eButtons;
    B::StandardButton eDefault;  // NoButton: not checked
  } aCases[] = {
      {vbYesNo | vbQuestion, B::Question, B::Yes | B::No, B::Yes},
      {vbCritical, B::Critical, B::Ok, B::NoButton},
      {vbYesNo | vbExclamation | vbDefaultButton2, B::Warning, B::Yes | B::No, B::No},
      {3 | vbInformation, B::Information, B::Yes | B::No | B::Cancel, B::NoButton},
      {5, B::NoIcon, B::Retry | B::Cancel, B::NoButton},
  };
  for (const auto& c : aCases) {
    auto pBox = QtMsgBox::Build("Are you sure you want to close the Log Processor?", c.lStyle, "knlogproc");
    EXPECT_EQ(std::tuple(pBox->icon(), pBox->standardButtons()), std::tuple(c.eIcon, c.eButtons)) << c.lStyle;
    if (c.eDefault != B::NoButton) {
      EXPECT_EQ(DefaultOf(*pBox), c.eDefault) << c.lStyle;
    }
    EXPECT_EQ(std::tuple(pBox->text(), pBox->windowTitle(), pBox->windowModality()),
              std::tuple("Are you sure you want to close the Log Processor?", "knlogproc", Qt::ApplicationModal));
  }
  auto pCancel = QtMsgBox::Build("x", 3 | vbInformation, "t");
  EXPECT_EQ(pCancel->standardButton(pCancel->escapeButton()), B::Cancel);
  // A box's markup characters are shown as they stand.
  EXPECT_EQ(QtMsgBox::Build("<b>x</b>", 0, "t")->textFormat(), Qt::PlainText);
}

// On the offscreen platform nobody sees a box: the headless answer stays, at once.
TEST_F(QtMsgBoxTest, WithoutARealScreenBoxesAnswerAtOnce) {
  EXPECT_FALSE(QtMsgBox::HasRealScreen());
  EXPECT_FALSE(QtMsgBox::Install());
  testing::internal::CaptureStderr();
  EXPECT_EQ(MsgBox("Close?", vbYesNo | vbQuestion | vbDefaultButton2, "knlogproc"), vbNo);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<5>knlogproc: knlogproc: Close?\n");
}

// A shown box returns the answer of the button pressed in it.
TEST_F(QtMsgBoxTest, AShownBoxAnswersTheButtonPressed) {
  QTimer::singleShot(50, [] {
    auto* pBox = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    ASSERT_NE(pBox, nullptr);
    pBox->button(QMessageBox::No)->click();
  });
  EXPECT_EQ(QtMsgBox::Show("Are you sure?", vbYesNo | vbQuestion, "t"), vbNo);
}
