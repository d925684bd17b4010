// The settings that each daemon uses when the configuration file does not name them. Readers of the file add
// them in memory, with PlistSupplementDefaults(); the privileged tool never writes them into the file.

#include "Zekara4MacLibrary/ZKAConfigDefaults.h"

namespace zekara {
namespace {

// Deliberate: the two patterns differ in case alone, and both count.
constexpr const char* default_virus_base_path[] = {
    "/Library/Application Support/Zekara/bases/*.vdb",
    "/Library/Application Support/Zekara/bases/*.VDB",
    nullptr,
};

constexpr const char* default_excluded_path[] = {
    "/dev", "/private/var/log", "/private/var/zekara/run", "/private/var/zekara/log", "/Network", nullptr,
};

}  // namespace

// Deliberate: "HeuristicAnalysis", "PreFork" and "LogScanned" are strings, which the boolean conversions
// leave alone.
constinit const SectionDefault g_daemon_defaults[] = {
    SectionDefault::boolean("RunForeground", true),
    SectionDefault::string("User", "root"),
    SectionDefault::number("MaxChildren", "16"),
    SectionDefault::string("HeuristicAnalysis", "Yes"),
    SectionDefault::string("PreFork", "No"),
    SectionDefault::string("LogFileName", "/var/zekara/log/daemon.log"),
    SectionDefault::string("OutputMode", "Quiet"),
    SectionDefault::string("LogScanned", "No"),
    SectionDefault::string("PidFile", "/var/zekara/run/daemon.pid"),
    SectionDefault::string("Socket", "/var/zekara/run/daemon.socket"),
    SectionDefault::string("EnginePath", "/Library/Application Support/Zekara/lib/zekara32.dll"),
    SectionDefault::list("VirusBase", default_virus_base_path),
    {},
};

constinit const SectionDefault g_updated_defaults[] = {
    SectionDefault::string("Mode", "Auto"),
    SectionDefault::number("Interval", "43200"),
    {},
};

constinit const SectionDefault g_filed_defaults[] = {
    SectionDefault::boolean("IsActive", false),
    SectionDefault::number("FileTimeout", "30"),
    SectionDefault::boolean("SkipArchives", true),
    SectionDefault::list("ExcludedPaths", default_excluded_path),
    SectionDefault::string("InfectedFiles", "Cure"),
    SectionDefault::string("IncurableFiles", "Quarantine"),
    SectionDefault::string("SuspiciousFiles", "Report"),
    SectionDefault::string("ActionAdware", "Report"),
    SectionDefault::string("ActionDialers", "Report"),
    SectionDefault::string("ActionJokes", "Report"),
    SectionDefault::string("ActionRiskware", "Report"),
    SectionDefault::string("ActionHacktools", "Report"),
    {},
};

}  // namespace zekara
