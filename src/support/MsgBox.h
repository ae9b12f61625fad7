#pragma once
// Message boxes. With a window the UI installs a handler that shows a real modal box.
// Headless (and on the offscreen platform) a box is one line on standard error,
// "knlogproc: " + title + ": " + text, answered at once with its default button.
#include <cstdint>
#include <functional>
#include <string>

// Style values as the platform has them.
constexpr int32_t vbOKOnly = 0, vbYesNo = 4, vbCritical = 16, vbQuestion = 32, vbExclamation = 48, vbInformation = 64,
                  vbDefaultButton2 = 256, vbSystemModal = 4096;
// Answers.
constexpr int32_t vbOK = 1, vbCancel = 2, vbYes = 6, vbNo = 7;

// Shows a box; returns the answer. An empty title means the program's title.
int32_t MsgBox(const std::string& sText, int32_t lStyle = vbOKOnly, const std::string& sTitle = "");

using MsgBoxHandler = std::function<int32_t(const std::string& sText, int32_t lStyle, const std::string& sTitle)>;
// Replaces the handler (nullptr restores the headless one). Returns the previous one.
MsgBoxHandler SetMsgBoxHandler(MsgBoxHandler fn);
// The default button's answer for a style (what the headless box answers).
int32_t DefaultAnswer(int32_t lStyle);
