#include "ui/WindowPlacement.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>

#include "support/ConfigAccess.h"
#include "ui/TwipControl.h"

namespace WindowPlacement {
namespace {

constexpr const char* kValue = "Placement";
// Windows smaller than this (in twips) are taken as a damaged value, and so are places
// further out than this.
constexpr int kSmallest = 600;
constexpr int kLargest = 15 * 20000;

// What the frame adds to the client area (nothing before the window manager framed it).
QSize FrameExtra(const QWidget& oWindow) { return oWindow.frameGeometry().size() - oWindow.geometry().size(); }

}  // namespace

std::optional<Placement> Read(const std::string& sKey) {
  const std::string sText = ConfigAccess::GetRegString(sKey, kValue, "");
  Placement oPlace;
  int iState = 0;
  char cEnd = 0;
  if (std::sscanf(sText.c_str(), "%d,%d,%d,%d,%d%c", &oPlace.iLeft, &oPlace.iTop, &oPlace.iWidth, &oPlace.iHeight,
                  &iState, &cEnd) != 5)
    return std::nullopt;
  if (oPlace.iWidth < kSmallest || oPlace.iHeight < kSmallest || oPlace.iWidth > kLargest ||
      oPlace.iHeight > kLargest || oPlace.iLeft < -kLargest || oPlace.iLeft > kLargest || oPlace.iTop < -kLargest ||
      oPlace.iTop > kLargest)
    return std::nullopt;
  oPlace.bMaximised = iState == 2;
  return oPlace;
}

bool Save(const std::string& sKey, const QWidget& oWindow) {
  // The normal geometry is the client area of the window when it is neither maximised
  // nor minimised; the place and size saved are those of its frame.
  QRect oClient = oWindow.normalGeometry();
  if (!oClient.isValid()) oClient = oWindow.geometry();
  const QSize oExtra = FrameExtra(oWindow);
  const QPoint oOrigin = oClient.topLeft() - (oWindow.geometry().topLeft() - oWindow.frameGeometry().topLeft());
  const std::string sText =
      fmt::format("{},{},{},{},{}", PixelsToTwips(oOrigin.x()), PixelsToTwips(oOrigin.y()),
                  PixelsToTwips(oClient.width() + oExtra.width()), PixelsToTwips(oClient.height() + oExtra.height()),
                  oWindow.isMaximized() ? 2 : 0);
  return ConfigAccess::SetRegString(sKey, kValue, sText);
}

bool Restore(const std::string& sKey, QWidget& oWindow) {
  const auto oPlace = Read(sKey);
  if (!oPlace) return false;
  const QSize oExtra = FrameExtra(oWindow);
  QRect oFrame(TwipsToPixels(oPlace->iLeft), TwipsToPixels(oPlace->iTop), TwipsToPixels(oPlace->iWidth),
               TwipsToPixels(oPlace->iHeight));
  bool bOnScreen = false;
  for (const QScreen* pScreen : QGuiApplication::screens())
    if (pScreen->availableGeometry().intersects(oFrame)) bOnScreen = true;
  if (!bOnScreen) {
    if (const QScreen* pScreen = QGuiApplication::primaryScreen())
      oFrame.moveCenter(pScreen->availableGeometry().center());
  }
  oWindow.resize(std::max(1, oFrame.width() - oExtra.width()), std::max(1, oFrame.height() - oExtra.height()));
  oWindow.move(oFrame.topLeft());
  if (oPlace->bMaximised) oWindow.setWindowState(oWindow.windowState() | Qt::WindowMaximized);
  return true;
}

}  // namespace WindowPlacement
