#include "support/MsgBox.h"

#include <cstdio>

#include "support/AppGlobal.h"
#include "support/Journal.h"

namespace {

// The journal's priority of a box by its icon: a critical box is an error, the others
// (an exclamation, or a box without icon) warnings; questions and information notices.
JournalPriority PriorityOf(int32_t lStyle) {
  switch (lStyle & 0x70) {
    case vbCritical: return JournalPriority::Error;
    case vbQuestion:
    case vbInformation: return JournalPriority::Notice;
    default: return JournalPriority::Warning;
  }
}

int32_t HeadlessBox(const std::string& sText, int32_t lStyle, const std::string& sTitle) {
  SayToJournal(PriorityOf(lStyle), sTitle + ": " + sText);
  return DefaultAnswer(lStyle);
}

MsgBoxHandler& Handler() {
  static MsgBoxHandler h = HeadlessBox;
  return h;
}

}  // namespace

int32_t DefaultAnswer(int32_t lStyle) {
  const int32_t buttons = lStyle & 7;
  const int32_t which = (lStyle >> 8) & 3;  // default button 1, 2, 3
  static const int32_t answers[6][3] = {
      {vbOK, vbOK, vbOK},       // OK
      {vbOK, vbCancel, vbOK},   // OK, Cancel
      {3, 4, 5},                // Abort, Retry, Ignore
      {vbYes, vbNo, vbCancel},  // Yes, No, Cancel
      {vbYes, vbNo, vbYes},     // Yes, No
      {4, vbCancel, 4},         // Retry, Cancel
  };
  if (buttons > 5) return vbOK;
  return answers[buttons][which > 2 ? 0 : which];
}

int32_t MsgBox(const std::string& sText, int32_t lStyle, const std::string& sTitle) {
  const std::string title = sTitle.empty() ? AppGlobal::AppTitle() : sTitle;
  return Handler()(sText, lStyle, title);
}

MsgBoxHandler SetMsgBoxHandler(MsgBoxHandler fn) {
  MsgBoxHandler old = Handler();
  Handler() = fn ? std::move(fn) : MsgBoxHandler(HeadlessBox);
  return old;
}
