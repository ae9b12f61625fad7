#include "ui/TwipControl.h"

#include <algorithm>

int TwipsToPixels(int iTwips) {
  // Rounds halves away from zero, for negative values too.
  const int iHalf = kTwipsPerPixel / 2;
  return iTwips >= 0 ? (iTwips + iHalf) / kTwipsPerPixel : -((-iTwips + iHalf) / kTwipsPerPixel);
}

QFont FormFont(const QFont& oBase) {
  QFont oFont = oBase;
  oFont.setFamilies({QStringLiteral("MS Sans Serif"), QStringLiteral("Microsoft Sans Serif"), QStringLiteral("Arial"),
                     QStringLiteral("Liberation Sans"), QStringLiteral("DejaVu Sans Condensed")});
  oFont.setPixelSize(10);
  return oFont;
}

void TwipControl::Attach(QWidget* pWidget, int iLeft, int iTop, int iWidth, int iHeight) {
  m_pWidget = pWidget;
  Move(iLeft, iTop, iWidth, iHeight);
}

void TwipControl::SetLeft(int iLeft) {
  m_iLeft = iLeft;
  Apply();
}

void TwipControl::SetTop(int iTop) {
  m_iTop = iTop;
  Apply();
}

void TwipControl::SetWidth(int iWidth) {
  m_iWidth = iWidth;
  Apply();
}

void TwipControl::SetHeight(int iHeight) {
  m_iHeight = iHeight;
  Apply();
}

void TwipControl::Move(int iLeft, int iTop, int iWidth, int iHeight) {
  m_iLeft = iLeft;
  m_iTop = iTop;
  m_iWidth = iWidth;
  m_iHeight = iHeight;
  Apply();
}

bool TwipControl::Visible() const { return m_pWidget && !m_pWidget->isHidden(); }

void TwipControl::SetVisible(bool bVisible) {
  if (m_pWidget) m_pWidget->setVisible(bVisible);
}

QRect TwipControl::PixelRect() const {
  // A widget can't be narrower than nothing; the twips keep the true value.
  return QRect(TwipsToPixels(m_iLeft), TwipsToPixels(m_iTop), std::max(0, TwipsToPixels(m_iWidth)),
               std::max(0, TwipsToPixels(m_iHeight)));
}

void TwipControl::Apply() {
  if (m_pWidget) m_pWidget->setGeometry(PixelRect());
}
