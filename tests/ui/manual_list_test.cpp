#include <gtest/gtest.h>

#include <QDateEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>

#include "engine/frmProcessLogs.h"
#include "hours/CProcessEntryList.h"
#include "support/AppGlobal.h"
#include "support/DebugMsg.h"
#include "ui/TabFrame.h"
#include "ui/UiTestUtil.h"
#include "ui/frmManualList.h"
#include "ui/frmProcessLogsWindow.h"

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
  EXPECT_EQ(oDialog.ListView1->parentWidget(), oDialog.SSTab4.Get());
  // Element 0 of each array is on the "Start Hour" tab, element 1 on "End Hour".
  const TabFrame* apTabs[2] = {oDialog.SSTab1.Get(), oDialog.SSTab2.Get()};
  EXPECT_EQ(std::tuple(oDialog.SSTab3->TabCaption(), oDialog.SSTab4->TabCaption(), apTabs[0]->TabCaption(),
                       apTabs[1]->TabCaption()),
            std::tuple("Log", "Processing List", "Start Hour", "End Hour"));
  for (int i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(oDialog.DTPicker1[i]->parentWidget(), apTabs[i]);
    EXPECT_EQ(oDialog.lblCurrStatus[i]->parentWidget(), apTabs[i]);
    EXPECT_EQ(oDialog.DTPicker1[i]->displayFormat(), "dddd, dd MMMM yyyy");
    EXPECT_EQ(oDialog.txtHour[i]->maxLength(), 2);
    EXPECT_TRUE(oDialog.lblColon[i]->font().bold());
    EXPECT_EQ(oDialog.txtHour[i]->geometry(), QRect(144, 68, 21, 21));
  }
  EXPECT_EQ(std::tuple(oDialog.cmdAddRange->text(), oDialog.cmdAddRange->toolTip(), oDialog.cmdAddEnd->toolTip()),
            std::tuple(">>", "Add Range Start -> End to the list", "Add End Hour to the List"));
  EXPECT_EQ(oDialog.cmdCancel->geometry(), QRect(433, 364, 81, 25));
}

// The dialog's commands hold nothing yet: whatever is pressed, it stays open and its
// list stays empty; only closing the window ends it, and the list outlives it.
TEST_F(ManualListTest, ButtonsLeaveTheDialogOpenAndItsListEmpty) {
  std::shared_ptr<CProcessEntryList> oList;
  {
    frmManualList oDialog;
    oDialog.show();
    oDialog.txtHour[0]->setText("13");
    oDialog.DTPicker1[1]->setDate(QDate(2026, 11, 22));
    for (QPushButton* p : {oDialog.cmdAddStart.Get(), oDialog.cmdAddRange.Get(), oDialog.cmdAddEnd.Get(),
                           oDialog.cmdOK.Get(), oDialog.cmdCancel.Get()})
      p->click();
    oDialog.cmdRemove->click();
    EXPECT_TRUE(oDialog.isVisible());
    EXPECT_EQ(oDialog.ListView1->count(), 0);
    oList = oDialog.EntryList();
    EXPECT_TRUE(oDialog.close());
    EXPECT_FALSE(oDialog.isVisible());
  }
  ASSERT_NE(oList, nullptr);
  EXPECT_EQ(oList.use_count(), 1);
  EXPECT_EQ(oList->Count(), 0);
}

// Both buttons of the hidden "Actions" panel open the dialog modally over the window and
// pass its list on, to the end (-1) or behind the entry being worked on (2).
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
      ++iDialogs;
      pDialog->close();
    });
  };
  fnCloseTheDialog();
  oWindow.cmdInsertList->click();
  fnCloseTheDialog();
  oWindow.cmdInsertListNow->click();
  EXPECT_EQ(iDialogs, 2);
  const std::string sTrace = ReadFile(DebugLog::CurrentFile().substr(Root().size() + 1));
  const size_t iEnd = sTrace.find("Manual list of 0 entries for position -1");
  const size_t iNow = sTrace.find("Manual list of 0 entries for position 2");
  EXPECT_NE(iEnd, std::string::npos) << sTrace;
  EXPECT_LT(iEnd, iNow);
  EXPECT_EQ(oForm.Rows().Count(), 0);
  AppGlobal::SetDebugMode(0);
}
