#pragma once
// The dialog "Build a Manual Processing List": a logger, a start hour and an end hour, and
// the processing list built from them, which the form hands back as EntryList.
//
// What the dialog holds so far is its layout and its list: the logger box isn't filled,
// the add, remove, OK and Cancel buttons have no handlers, and a change of a day or an
// hour reaches a routine that does nothing yet. It closes through its close box (or
// Escape), and the list it hands back is empty.
#include <QDialog>

#include <memory>

#include "ui/TwipControl.h"

class CProcessEntryList;
class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QToolButton;
class TabFrame;

class frmManualList : public QDialog {
  Q_OBJECT

 public:
  // Client size of the dialog, in twips; it can't be resized.
  static constexpr int kClientWidth = 7770;
  static constexpr int kClientHeight = 5910;

  explicit frmManualList(QWidget* pParent = nullptr);
  ~frmManualList() override;

  // The processing list; created with the form and released with it, and kept by whoever
  // reads it for as long as they need it.
  std::shared_ptr<CProcessEntryList> EntryList() const { return m_pEntryList; }

  Control<TabFrame> SSTab3;  // "Log"
  Control<QComboBox> cboLogs;
  Control<TabFrame> SSTab1;  // "Start Hour": element 0 of the arrays below
  Control<TabFrame> SSTab2;  // "End Hour": element 1
  Control<QLabel> Label1[2];
  Control<QDateEdit> DTPicker1[2];
  Control<QLabel> lblHour[2];
  Control<QLineEdit> txtHour[2];
  Control<QLabel> lblColon[2];
  Control<QLabel> lblMinutes[2];
  Control<QLabel> lblCurrStatusDesc[2];
  Control<QLabel> lblCurrStatus[2];
  Control<QPushButton> cmdAddStart;
  Control<QPushButton> cmdAddRange;
  Control<QPushButton> cmdAddEnd;
  Control<TabFrame> SSTab4;  // "Processing List"
  Control<QListWidget> ListView1;
  Control<QToolButton> cmdRemove;
  Control<QPushButton> cmdOK;
  Control<QPushButton> cmdCancel;

 private:
  void CreateHourControls(int iIndex, QWidget* pTab);
  // A day or an hour was changed: the selected hour's state belongs in lblCurrStatus.
  void ShowHourStatus(int iIndex);

  std::shared_ptr<CProcessEntryList> m_pEntryList;
};
