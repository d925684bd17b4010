#pragma once

#include "Zekara4MacLibrary/ZKAPlistUtils.h"

namespace zekara {

// The defaults of the suite's settings, one table for each daemon. Each table ends with a row whose key is
// null. The daemons define the units of the numbers.
extern const SectionDefault g_daemon_defaults[];   // for the scanning daemon's section
extern const SectionDefault g_updated_defaults[];  // for the section "UpdateD"
extern const SectionDefault g_filed_defaults[];    // for the section "MacOSWardex"

}  // namespace zekara
