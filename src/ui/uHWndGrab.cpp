#include "ui/uHWndGrab.h"

#include <QWidget>

#include <algorithm>

#include "ui/TwipControl.h"

void uHWndGrab::SetMinHeight(int32_t lTwips) {
  m_lMinHeight = lTwips;
  Apply();
}

void uHWndGrab::SetMinWidth(int32_t lTwips) {
  m_lMinWidth = lTwips;
  Apply();
}

void uHWndGrab::SetMaxHeight(int32_t lTwips) {
  m_lMaxHeight = lTwips;
  Apply();
}

void uHWndGrab::SetMaxWidth(int32_t lTwips) {
  m_lMaxWidth = lTwips;
  Apply();
}

void uHWndGrab::SetLimitSize(bool bLimit) {
  m_bLimitSize = bLimit;
  Apply();
}

void uHWndGrab::Release() {
  m_pWindow->setMinimumSize(0, 0);
  m_pWindow->setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
}

void uHWndGrab::Apply() {
  Release();
  if (!m_bLimitSize) return;
  // The limits are of the whole window; Qt limits the client area, inside the frame.
  const QSize oFrame = m_pWindow->frameGeometry().size() - m_pWindow->geometry().size();
  const QSize oNow = m_pWindow->size();
  auto fnClient = [](int32_t lTwips, int iFrame) { return std::max(0, TwipsToPixels(lTwips) - iFrame); };
  QSize oMin(0, 0);
  QSize oMax(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
  if (m_lMinWidth > 0) oMin.setWidth(std::min(fnClient(m_lMinWidth, oFrame.width()), oNow.width()));
  if (m_lMinHeight > 0) oMin.setHeight(std::min(fnClient(m_lMinHeight, oFrame.height()), oNow.height()));
  if (m_lMaxWidth > 0) oMax.setWidth(std::max(fnClient(m_lMaxWidth, oFrame.width()), oNow.width()));
  if (m_lMaxHeight > 0) oMax.setHeight(std::max(fnClient(m_lMaxHeight, oFrame.height()), oNow.height()));
  m_pWindow->setMinimumSize(oMin);
  m_pWindow->setMaximumSize(oMax);
}
