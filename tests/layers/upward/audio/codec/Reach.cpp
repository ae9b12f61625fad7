// A relative include that climbs into the config area.
#include "Fine.h"
#include "../../config/CLog.h"
