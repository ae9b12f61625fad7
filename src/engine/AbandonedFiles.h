#pragma once
// The files that a cut-off conversion leaves in an hour folder, and the names of segments.
#include <string>

// The name pattern of an audio segment: six digits, one character, a dot, anything.
bool IsSegmentName(const std::string& sName);

// Removes the temporary files that this program's writers and copier runs left in the
// folder when they were cut off (the audio classes' "LOG<hex>.<ext>" files and the
// copier's ".std<name>.shuttle-XXXXXX" / ".arc..." files). Only while no conversion of
// this program is under way in it. Returns the number removed.
int RemoveAbandonedTemporaries(const std::string& sFolder);
