#include "Zekara4MacLibrary/ZKAConfigDefaults.h"

namespace zekara {
namespace {

// Deliberate: the two patterns differ in case alone, and both count.
const char* const default_virus_base_path[] = {
    "/Library/Application Support/Zekara/bases/*.vdb",
    "/Library/Application Support/Zekara/bases/*.VDB",
    nullptr,
};

const char* const default_excluded_path[] = {
    "/dev", "/private/var/log", "/private/var/zekara/run", "/private/var/zekara/log", "/Network", nullptr,
};

}  // namespace

// Deliberate: "HeuristicAnalysis", "PreFork" and "LogScanned" are strings, which the boolean conversions
// leave alone.
const SectionDefault g_daemon_defaults[] = {
    {"RunForeground", DefaultTypeBoolean, "Yes"},
    {"User", DefaultTypeString, "root"},
    {"MaxChildren", DefaultTypeNumber, "16"},
    {"HeuristicAnalysis", DefaultTypeString, "Yes"},
    {"PreFork", DefaultTypeString, "No"},
    {"LogFileName", DefaultTypeString, "/var/zekara/log/daemon.log"},
    {"OutputMode", DefaultTypeString, "Quiet"},
    {"LogScanned", DefaultTypeString, "No"},
    {"PidFile", DefaultTypeString, "/var/zekara/run/daemon.pid"},
    {"Socket", DefaultTypeString, "/var/zekara/run/daemon.socket"},
    {"EnginePath", DefaultTypeString, "/Library/Application Support/Zekara/lib/zekara32.dll"},
    {"VirusBase", DefaultTypeList, default_virus_base_path},
    {nullptr, 0, nullptr},
};

const SectionDefault g_updated_defaults[] = {
    {"Mode", DefaultTypeString, "Auto"},
    {"Interval", DefaultTypeNumber, "43200"},
    {nullptr, 0, nullptr},
};

const SectionDefault g_filed_defaults[] = {
    {"IsActive", DefaultTypeBoolean, "No"},
    {"FileTimeout", DefaultTypeNumber, "30"},
    {"SkipArchives", DefaultTypeBoolean, "Yes"},
    {"ExcludedPaths", DefaultTypeList, default_excluded_path},
    {"InfectedFiles", DefaultTypeString, "Cure"},
    {"IncurableFiles", DefaultTypeString, "Quarantine"},
    {"SuspiciousFiles", DefaultTypeString, "Report"},
    {"ActionAdware", DefaultTypeString, "Report"},
    {"ActionDialers", DefaultTypeString, "Report"},
    {"ActionJokes", DefaultTypeString, "Report"},
    {"ActionRiskware", DefaultTypeString, "Report"},
    {"ActionHacktools", DefaultTypeString, "Report"},
    {nullptr, 0, nullptr},
};

}  // namespace zekara
