#pragma once

namespace zekara {

inline constexpr const char* kConfigurationFile = "/Library/Application Support/Zekara/zekara32.ini";
inline constexpr const char* kFileDPidFile = "/var/zekara/run/FileD.pid";
inline constexpr const char* kUpdateDPidFile = "/var/zekara/run/UpdateD.pid";

}  // namespace zekara
