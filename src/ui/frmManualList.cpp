#include "ui/frmManualList.h"

#include <QComboBox>
#include <QDate>
#include <QDateEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>

#include "hours/CProcessEntryList.h"
#include "ui/TabFrame.h"

namespace {

void MakeLabel(Control<QLabel>& oLabel, QWidget* pParent, int iLeft, int iTop, int iWidth, int iHeight,
               const char* sText) {
  oLabel.Create(pParent, iLeft, iTop, iWidth, iHeight);
  oLabel->setTextFormat(Qt::PlainText);
  oLabel->setText(QString::fromUtf8(sText));
}

}  // namespace

frmManualList::frmManualList(QWidget* pParent) : QDialog(pParent), m_pEntryList(std::make_shared<CProcessEntryList>()) {
  setWindowTitle("Build a Manual Processing List");
  setFont(FormFont(font()));
  setFixedSize(TwipsToPixels(kClientWidth), TwipsToPixels(kClientHeight));
  setSizeGripEnabled(false);

  SSTab3.Create(this, 60, 60, 3135, 945, QStringLiteral("Log"));
  cboLogs.Create(SSTab3.Get(), 180, 420, 2775, 315);
  cboLogs->setEditable(false);

  SSTab1.Create(this, 60, 1020, 3135, 2115, QStringLiteral("Start Hour"));
  SSTab2.Create(this, 60, 3180, 3135, 2115, QStringLiteral("End Hour"));
  CreateHourControls(0, SSTab1.Get());
  CreateHourControls(1, SSTab2.Get());

  cmdAddStart.Create(this, 3270, 1860, 315, 435);
  cmdAddStart->setText(">");
  cmdAddStart->setToolTip("Add Start Hour to the list");
  cmdAddRange.Create(this, 3270, 2940, 315, 435);
  cmdAddRange->setText(">>");
  cmdAddRange->setToolTip("Add Range Start -> End to the list");
  cmdAddEnd.Create(this, 3270, 4020, 315, 435);
  cmdAddEnd->setText(">");
  cmdAddEnd->setToolTip("Add End Hour to the List");

  SSTab4.Create(this, 3660, 60, 4035, 5235, QStringLiteral("Processing List"));
  ListView1.Create(SSTab4.Get(), 180, 420, 3675, 4635);
  cmdRemove.Create(SSTab4.Get(), 3600, 180, 255, 255);
  cmdRemove->setIcon(style()->standardIcon(QStyle::SP_DialogDiscardButton));
  cmdRemove->setIconSize(QSize(13, 13));
  cmdRemove->setAutoRaise(true);

  cmdOK.Create(this, 5235, 5460, 1215, 375);
  cmdOK->setText("OK");
  cmdCancel.Create(this, 6495, 5460, 1215, 375);
  cmdCancel->setText("Cancel");
  // The buttons have no handlers; Enter must not close the dialog through them either.
  for (QPushButton* p : {cmdAddStart.Get(), cmdAddRange.Get(), cmdAddEnd.Get(), cmdOK.Get(), cmdCancel.Get()}) {
    p->setAutoDefault(false);
    p->setDefault(false);
  }
}

frmManualList::~frmManualList() = default;

void frmManualList::CreateHourControls(int iIndex, QWidget* pTab) {
  MakeLabel(Label1[iIndex], pTab, 180, 360, 975, 255, "Select a Day:");
  DTPicker1[iIndex].Create(pTab, 180, 600, 2775, 315);
  DTPicker1[iIndex]->setDisplayFormat("dddd, dd MMMM yyyy");
  DTPicker1[iIndex]->setCalendarPopup(true);
  DTPicker1[iIndex]->setDate(QDate::currentDate());
  MakeLabel(lblHour[iIndex], pTab, 840, 1080, 1275, 195, "Hour to Process:");
  txtHour[iIndex].Create(pTab, 2160, 1020, 315, 315);
  txtHour[iIndex]->setMaxLength(2);
  MakeLabel(lblColon[iIndex], pTab, 2520, 1050, 75, 255, ":");
  QFont oBold = lblColon[iIndex]->font();
  oBold.setBold(true);
  lblColon[iIndex]->setFont(oBold);
  MakeLabel(lblMinutes[iIndex], pTab, 2610, 1020, 315, 315, "00");
  MakeLabel(lblCurrStatusDesc[iIndex], pTab, 180, 1440, 1695, 195, "Selected Hour Status:");
  MakeLabel(lblCurrStatus[iIndex], pTab, 180, 1680, 2775, 255, "");

  connect(DTPicker1[iIndex].Get(), &QDateEdit::dateChanged, this, [this, iIndex] { ShowHourStatus(iIndex); });
  connect(txtHour[iIndex].Get(), &QLineEdit::textChanged, this, [this, iIndex] { ShowHourStatus(iIndex); });
}

void frmManualList::ShowHourStatus(int /*iIndex*/) {
  // Nothing yet reads the state of the chosen hour.
}
