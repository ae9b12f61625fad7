#include <gtest/gtest.h>

#include <QComboBox>
#include <QDateEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>

#include <memory>
#include <string>

#include "engine/frmProcessLogs.h"
#include "hours/CProcessEntryList.h"
#include "support/AppGlobal.h"
#include "support/DebugMsg.h"
#include "ui/TabFrame.h"
#include "ui/frmManualList.h"
#include "ui/frmProcessLogsWindow.h"
#include "ui/UiTestUtil.h"

class ManualListTest : public TempRootTest {
 protected:
  void SetUp() override {
    TempRootTest::SetUp();
    UiApp();
  }
};

TEST_F(ManualListTest, TheDialogHasItsLayoutAndCannotBeSized) {
  frmManualList oDialog;
  EXPECT_EQ(oDialog.windowTitle(), "Build a Manual Processing List");
  EXPECT_EQ(oDialog.size(), QSize(518, 394));
  EXPECT_EQ(oDialog.minimumSize(), oDialog.maximumSize());
  EXPECT_EQ(oDialog.SSTab3->TabCaption(), "Log");
  EXPECT_EQ(oDialog.SSTab1->TabCaption(), "Start Hour");
  EXPECT_EQ(oDialog.SSTab2->TabCaption(), "End Hour");
  EXPECT_EQ(oDialog.SSTab4->TabCaption(), "Processing List");
  EXPECT_EQ(oDialog.cboLogs->parentWidget(), oDialog.SSTab3.Get());
  EXPECT_EQ(oDialog.ListView1->parentWidget(), oDialog.SSTab4.Get());
  EXPECT_EQ(oDialog.cmdRemove->parentWidget(), oDialog.SSTab4.Get());
  EXPECT_FALSE(oDialog.cmdRemove->icon().isNull());

  // Element 0 of each array is the start hour's, element 1 the end hour's.
  const TabFrame* apTabs[2] = {oDialog.SSTab1.Get(), oDialog.SSTab2.Get()};
  for (int i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(oDialog.DTPicker1[i]->parentWidget(), apTabs[i]);
    EXPECT_EQ(oDialog.txtHour[i]->parentWidget(), apTabs[i]);
    EXPECT_EQ(oDialog.lblCurrStatus[i]->parentWidget(), apTabs[i]);
    EXPECT_EQ(oDialog.Label1[i]->text(), "Select a Day:");
    EXPECT_EQ(oDialog.DTPicker1[i]->displayFormat(), "dddd, dd MMMM yyyy");
    EXPECT_EQ(oDialog.lblHour[i]->text(), "Hour to Process:");
    EXPECT_EQ(oDialog.txtHour[i]->maxLength(), 2);
    EXPECT_EQ(oDialog.lblColon[i]->text(), ":");
    EXPECT_TRUE(oDialog.lblColon[i]->font().bold());
    EXPECT_EQ(oDialog.lblMinutes[i]->text(), "00");
    EXPECT_EQ(oDialog.lblCurrStatusDesc[i]->text(), "Selected Hour Status:");
    EXPECT_EQ(oDialog.lblCurrStatus[i]->text(), "");
    EXPECT_EQ(oDialog.txtHour[i]->geometry(), QRect(144, 68, 21, 21));
  }
  EXPECT_EQ(oDialog.cmdAddStart->text(), ">");
  EXPECT_EQ(oDialog.cmdAddStart->toolTip(), "Add Start Hour to the list");
  EXPECT_EQ(oDialog.cmdAddRange->text(), ">>");
  EXPECT_EQ(oDialog.cmdAddRange->toolTip(), "Add Range Start -> End to the list");
  EXPECT_EQ(oDialog.cmdAddEnd->text(), ">");
  EXPECT_EQ(oDialog.cmdAddEnd->toolTip(), "Add End Hour to the List");
  EXPECT_EQ(oDialog.cmdOK->text(), "OK");
  EXPECT_EQ(oDialog.cmdCancel->text(), "Cancel");
  EXPECT_EQ(oDialog.cmdOK->geometry(), QRect(349, 364, 81, 25));
  EXPECT_EQ(oDialog.cmdCancel->geometry(), QRect(433, 364, 81, 25));
  EXPECT_EQ(oDialog.SSTab4->geometry(), QRect(244, 4, 269, 349));
  EXPECT_EQ(oDialog.cboLogs->count(), 0);
}

// The dialog's commands hold nothing yet: its list stays empty whatever is pressed, and
// only closing the window ends it.
TEST_F(ManualListTest, ButtonsLeaveTheDialogOpenAndItsListEmpty) {
  frmManualList oDialog;
  oDialog.show();
  oDialog.txtHour[0]->setText("13");
  oDialog.DTPicker1[1]->setDate(QDate(2026, 11, 22));
  for (QPushButton* p : {oDialog.cmdAddStart.Get(), oDialog.cmdAddRange.Get(), oDialog.cmdAddEnd.Get(),
                         oDialog.cmdOK.Get(), oDialog.cmdCancel.Get()})
    p->click();
  oDialog.cmdRemove->click();
  EXPECT_TRUE(oDialog.isVisible());
  EXPECT_EQ(oDialog.result(), 0);
  EXPECT_EQ(oDialog.ListView1->count(), 0);
  EXPECT_EQ(oDialog.lblCurrStatus[0]->text(), "");
  ASSERT_NE(oDialog.EntryList(), nullptr);
  EXPECT_EQ(oDialog.EntryList()->Count(), 0);
  EXPECT_TRUE(oDialog.close());
  EXPECT_FALSE(oDialog.isVisible());
}

TEST_F(ManualListTest, TheListOutlivesTheDialog) {
  std::shared_ptr<CProcessEntryList> oList;
  {
    frmManualList oDialog;
    oList = oDialog.EntryList();
    frmManualList oOther;
    EXPECT_NE(oOther.EntryList(), oList);  // each dialog its own list
  }
  ASSERT_NE(oList, nullptr);
  EXPECT_EQ(oList.use_count(), 1);
  EXPECT_EQ(oList->Count(), 0);
}

// Both buttons of the hidden "Actions" panel open the dialog modally over the window and
// pass the list on, at the end (-1) or behind the entry being worked on (2).
TEST_F(ManualListTest, TheActionButtonsOpenTheDialogAndPassItsList) {
  AppGlobal::SetDebugMode(10);
  DebugLog::ResetForTesting();
  frmProcessLogs oForm;
  frmProcessLogsWindow oWindow(oForm);
  oWindow.show();
  int iDialogs = 0;
  auto fnCloseTheDialog = [&] {
    QTimer::singleShot(20, [&] {
      auto* pDialog = qobject_cast<frmManualList*>(QApplication::activeModalWidget());
      ASSERT_NE(pDialog, nullptr);
      EXPECT_EQ(pDialog->parentWidget(), &oWindow);
      EXPECT_TRUE(pDialog->isModal());
      ++iDialogs;
      pDialog->close();
    });
  };
  fnCloseTheDialog();
  oWindow.cmdInsertList->click();
  fnCloseTheDialog();
  oWindow.cmdInsertListNow->click();
  EXPECT_EQ(iDialogs, 2);
  EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
  const std::string sTrace = ReadFile(DebugLog::CurrentFile().substr(Root().size() + 1));
  const size_t iEnd = sTrace.find("Manual list of 0 entries for position -1");
  const size_t iNow = sTrace.find("Manual list of 0 entries for position 2");
  EXPECT_NE(iEnd, std::string::npos) << sTrace;
  EXPECT_NE(iNow, std::string::npos) << sTrace;
  EXPECT_LT(iEnd, iNow);
  EXPECT_EQ(oForm.lvwItems.Count(), 0);
  AppGlobal::SetDebugMode(0);
}
