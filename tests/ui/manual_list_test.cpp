#include <gtest/gtest.h>

#include <QDateEdit>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>

#include "engine/frmProcessLogs.h"
#include "hours/CProcessEntryList.h"
#include "support/AppGlobal.h"
#include "support/DebugMsg.h"
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

// The dialog's commands hold nothing yet: whatever is pressed, it stays open and its
// list stays empty; only closing the window ends it, and the list outlives it.
TEST_F(ManualListTest, ButtonsLeaveTheDialogOpenAndItsListEmpty) {
  std::shared_ptr<CProcessEntryList> oList;
  {
    frmManualList oDialog;
    oDialog.show();
    EXPECT_EQ(oDialog.minimumSize(), oDialog.maximumSize()) << "the dialog cannot be sized";
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
