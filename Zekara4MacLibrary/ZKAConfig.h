#pragma once

#include <cstdint>

namespace zekara {

// The suite's INI configuration file: the privileged tool changes it, and the daemons read it.
inline constexpr const char* kConfigurationFile = "/Library/Application Support/Zekara/zekara32.ini";

// The sections of the file monitor daemon FileD and of the updater UpdateD.
inline constexpr const char* kFileMonitorSection = "MacOSWardex";
inline constexpr const char* kUpdaterSection = "UpdateD";

// Returns the key in the file monitor's section that configures the action for a kind of object: 1
// "InfectedFiles", 2 "SuspiciousFiles", 3 "IncurableFiles", 4 "ActionAdware", 5 "ActionDialers", 6
// "ActionJokes", 7 "ActionRiskware", 8 "ActionHacktools". Returns "ERROR" for every other code. The string is
// a constant.
const char* target2string(std::int32_t target) noexcept;

// Returns the code of an action word, ignoring the case of ASCII letters: "Delete" 1, "Cure" 2, "Quarantine"
// 4, "Ignore" 8, "Report" 32. Returns 0 for every other text; blanks count. `text` must not be null.
std::int32_t string2action(const char* text) noexcept;

}  // namespace zekara
