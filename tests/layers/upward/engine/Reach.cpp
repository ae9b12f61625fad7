// An engine source that reaches up into the window.
#include "engine/Fine.h"
#include "hours/CHourlyInf.h"

#include "ui/QtMsgBox.h"
