#pragma once
// A control placed in twips, as the form designs give their geometry. The twips are the
// truth; the widget follows at 15 twips a pixel. Resize arithmetic works on the twips, so
// repeated resizes never drift by rounding.
#include <QFont>
#include <QRect>
#include <QWidget>

#include <utility>

constexpr int kTwipsPerPixel = 15;

// Twips to pixels, to the nearest pixel.
int TwipsToPixels(int iTwips);
constexpr int PixelsToTwips(int iPixels) { return iPixels * kTwipsPerPixel; }

// The forms were designed for 8-point MS Sans Serif, and their controls are sized for it.
// This is the nearest font at hand, at a size that keeps the texts inside their controls
// (a wider font would be cut off at their edges).
QFont FormFont(const QFont& oBase);

class TwipControl {
 public:
  TwipControl() = default;
  TwipControl(const TwipControl&) = delete;
  TwipControl& operator=(const TwipControl&) = delete;

  // Binds the widget and gives it its design position.
  void Attach(QWidget* pWidget, int iLeft, int iTop, int iWidth, int iHeight);

  int Left() const { return m_iLeft; }
  int Top() const { return m_iTop; }
  int Width() const { return m_iWidth; }
  int Height() const { return m_iHeight; }
  void SetLeft(int iLeft);
  void SetTop(int iTop);
  void SetWidth(int iWidth);
  void SetHeight(int iHeight);
  void Move(int iLeft, int iTop, int iWidth, int iHeight);

  bool Visible() const;
  void SetVisible(bool bVisible);

  QWidget* Widget() const { return m_pWidget; }
  // The pixel rectangle the widget should have.
  QRect PixelRect() const;

 private:
  void Apply();

  QWidget* m_pWidget = nullptr;
  int m_iLeft = 0;
  int m_iTop = 0;
  int m_iWidth = 0;
  int m_iHeight = 0;
};

// The same, with typed access to the widget: lblAllDone->setText(...).
template <class W>
class Control : public TwipControl {
 public:
  // Makes the widget as a child of pParent; aArgs go in front of the parent argument of
  // the widget's constructor.
  template <class... A>
  void Create(QWidget* pParent, int iLeft, int iTop, int iWidth, int iHeight, A&&... aArgs) {
    m_pTyped = new W(std::forward<A>(aArgs)..., pParent);
    Attach(m_pTyped, iLeft, iTop, iWidth, iHeight);
  }
  W* operator->() const { return m_pTyped; }
  W* Get() const { return m_pTyped; }

 private:
  W* m_pTyped = nullptr;
};
