#pragma once

#include "Zekara4MacLibrary/ZKAPlistUtils.h"

namespace zekara {

// The defaults of the suite's settings, one table for each daemon. Each table ends with a row whose key is
// null. The daemons define the units of the numbers. A reader of the configuration file adds what the file
// lacks:
//
//   ini->supplimentDefaults_forSection(g_filed_defaults, kFileMonitorSection);
extern const SectionDefault g_daemon_defaults[];   // for the scanning daemon's section
extern const SectionDefault g_updated_defaults[];  // for the section "UpdateD"
extern const SectionDefault g_filed_defaults[];    // for the section "MacOSWardex"

}  // namespace zekara
