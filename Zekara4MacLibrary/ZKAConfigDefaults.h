#pragma once

#include "Zekara4MacLibrary/ZKAPlistUtils.h"

namespace zekara {

// The suite's settings where a section lacks them; each table ends with a row without a key. What the numbers
// count, seconds or other, is the daemons' business.
extern const SectionDefault g_daemon_defaults[];   // the scanning daemon's section
extern const SectionDefault g_updated_defaults[];  // section "UpdateD"
extern const SectionDefault g_filed_defaults[];    // section "MacOSWardex"

}  // namespace zekara
