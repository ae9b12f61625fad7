#pragma once
// A support header that reaches up into the audio area.
#include "support/Fine.h"
#include "audio/Wfx.h"
