#include "ui/QtMsgBox.h"

#include <QApplication>
#include <QGuiApplication>

#include <vector>

#include "support/MsgBox.h"

namespace QtMsgBox {
namespace {

constexpr int32_t vbAbort = 3, vbRetry = 4, vbIgnore = 5;

QMessageBox::Icon IconOf(int32_t lStyle) {
  switch (lStyle & 0x70) {
    case vbCritical: return QMessageBox::Critical;
    case vbQuestion: return QMessageBox::Question;
    case vbExclamation: return QMessageBox::Warning;
    case vbInformation: return QMessageBox::Information;
    default: return QMessageBox::NoIcon;
  }
}

QMessageBox::StandardButton ButtonOf(int32_t lAnswer) {
  switch (lAnswer) {
    case vbOK: return QMessageBox::Ok;
    case vbCancel: return QMessageBox::Cancel;
    case vbAbort: return QMessageBox::Abort;
    case vbRetry: return QMessageBox::Retry;
    case vbIgnore: return QMessageBox::Ignore;
    case vbYes: return QMessageBox::Yes;
    case vbNo: return QMessageBox::No;
    default: return QMessageBox::NoButton;
  }
}

// The buttons of a style, in their order on the box.
std::vector<int32_t> AnswersOf(int32_t lStyle) {
  switch (lStyle & 7) {
    case 1: return {vbOK, vbCancel};
    case 2: return {vbAbort, vbRetry, vbIgnore};
    case 3: return {vbYes, vbNo, vbCancel};
    case vbYesNo: return {vbYes, vbNo};
    case 5: return {vbRetry, vbCancel};
    default: return {vbOK};
  }
}

}  // namespace

int32_t AnswerOf(QMessageBox::StandardButton eButton) {
  for (int32_t lAnswer : {vbOK, vbCancel, vbAbort, vbRetry, vbIgnore, vbYes, vbNo})
    if (ButtonOf(lAnswer) == eButton) return lAnswer;
  return 0;
}

std::unique_ptr<QMessageBox> Build(const std::string& sText, int32_t lStyle, const std::string& sTitle,
                                   QWidget* pParent) {
  auto pBox = std::make_unique<QMessageBox>(pParent);
  pBox->setWindowTitle(QString::fromStdString(sTitle));
  pBox->setText(QString::fromStdString(sText));
  pBox->setTextFormat(Qt::PlainText);
  pBox->setIcon(IconOf(lStyle));
  pBox->setWindowModality(Qt::ApplicationModal);
  QMessageBox::StandardButtons oButtons;
  for (int32_t lAnswer : AnswersOf(lStyle)) oButtons |= ButtonOf(lAnswer);
  pBox->setStandardButtons(oButtons);
  pBox->setDefaultButton(ButtonOf(DefaultAnswer(lStyle)));
  // Escape and the close box give Cancel where there is one, the only button of a
  // one-button box, and No on a Yes/No box (Qt's own choice, the safe answer).
  if (oButtons.testFlag(QMessageBox::Cancel)) pBox->setEscapeButton(QMessageBox::Cancel);
  return pBox;
}

int32_t Show(const std::string& sText, int32_t lStyle, const std::string& sTitle) {
  auto pBox = Build(sText, lStyle, sTitle, QApplication::activeWindow());
  const int iResult = pBox->exec();
  const int32_t lAnswer = AnswerOf(static_cast<QMessageBox::StandardButton>(iResult));
  // A box closed without a button (it can't happen without an escape button, but a
  // window manager may insist) answers as its default button would.
  return lAnswer ? lAnswer : DefaultAnswer(lStyle);
}

bool HasRealScreen() {
  if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return false;
  const QString sPlatform = QGuiApplication::platformName();
  return sPlatform != "offscreen" && sPlatform != "minimal";
}

bool Install() {
  if (!HasRealScreen()) return false;
  SetMsgBoxHandler(&Show);
  return true;
}

}  // namespace QtMsgBox
