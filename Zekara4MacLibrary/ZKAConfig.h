#pragma once

#include <cstdint>

namespace zekara {

// The suite's INI configuration file, which the privileged tool changes and the daemons read.
inline constexpr const char* kConfigurationFile = "/Library/Application Support/Zekara/zekara32.ini";

// The sections of the file monitor daemon FileD and of the updater UpdateD.
inline constexpr const char* kFileMonitorSection = "MacOSWardex";
inline constexpr const char* kUpdaterSection = "UpdateD";

// The key of the file monitor's section under which the action for a kind of object is configured: 1
// "InfectedFiles", 2 "SuspiciousFiles", 3 "IncurableFiles", 4 "ActionAdware", 5 "ActionDialers", 6
// "ActionJokes", 7 "ActionRiskware", 8 "ActionHacktools"; "ERROR" for every other code. The string is
// constant.
const char* target2string(std::int32_t target) noexcept;

// The code of an action word, letter case ignored: "Delete" 1, "Cure" 2, "Quarantine" 4, "Ignore" 8, "Report"
// 32; 0 when the word is no action. `text` must not be null.
std::int32_t string2action(const char* text) noexcept;

}  // namespace zekara
