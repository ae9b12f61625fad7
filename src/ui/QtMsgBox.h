#pragma once
// Real message boxes for a program with a screen: modal Qt boxes with the icon, buttons
// and default button of the style value. Without a screen (headless, or Qt's offscreen
// and minimal platforms) the headless box of support/MsgBox.h stays in place, which
// answers at once: nobody could answer a box that nobody sees.
#include <QMessageBox>

#include <cstdint>
#include <memory>
#include <string>

namespace QtMsgBox {

// The box for a text, a style value and a title, not yet shown.
std::unique_ptr<QMessageBox> Build(const std::string& sText, int32_t lStyle, const std::string& sTitle,
                                   QWidget* pParent = nullptr);
// The answer value (vbOK, vbYes, ...) of a button of the box.
int32_t AnswerOf(QMessageBox::StandardButton eButton);
// Shows the box modally and returns its answer.
int32_t Show(const std::string& sText, int32_t lStyle, const std::string& sTitle);

// True when the Qt application draws on a screen someone can see.
bool HasRealScreen();
// Makes Show the handler of every MsgBox of the program when HasRealScreen(); leaves the
// headless handler otherwise. Returns whether it installed.
bool Install();

}  // namespace QtMsgBox
