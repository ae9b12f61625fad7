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
  auto pClose = QtMsgBox::Build("Are you sure you want to close the Log Processor?", vbYesNo | vbQuestion,
                                "knlogproc");
  EXPECT_EQ(pClose->icon(), QMessageBox::Question);
  EXPECT_EQ(pClose->standardButtons(), QMessageBox::Yes | QMessageBox::No);
  EXPECT_EQ(DefaultOf(*pClose), QMessageBox::Yes);
  EXPECT_EQ(std::tuple(pClose->text(), pClose->windowTitle()),
            std::tuple("Are you sure you want to close the Log Processor?", "knlogproc"));
  EXPECT_EQ(pClose->windowModality(), Qt::ApplicationModal);

  auto pCritical = QtMsgBox::Build("There is already a copy of the Log Processor running!", vbCritical, "t");
  EXPECT_EQ(pCritical->icon(), QMessageBox::Critical);
  EXPECT_EQ(pCritical->standardButtons(), QMessageBox::Ok);

  auto pSecond = QtMsgBox::Build("x", vbYesNo | vbExclamation | vbDefaultButton2, "t");
  EXPECT_EQ(pSecond->icon(), QMessageBox::Warning);
  EXPECT_EQ(DefaultOf(*pSecond), QMessageBox::No);

  auto pCancel = QtMsgBox::Build("x", 3 | vbInformation, "t");
  EXPECT_EQ(pCancel->icon(), QMessageBox::Information);
  EXPECT_EQ(pCancel->standardButtons(), QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
  EXPECT_EQ(pCancel->standardButton(pCancel->escapeButton()), QMessageBox::Cancel);

  auto pRetry = QtMsgBox::Build("x", 5, "t");
  EXPECT_EQ(pRetry->icon(), QMessageBox::NoIcon);
  EXPECT_EQ(pRetry->standardButtons(), QMessageBox::Retry | QMessageBox::Cancel);
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
