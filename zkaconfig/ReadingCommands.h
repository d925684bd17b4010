#pragma once

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/Settings.h"

namespace zekara {

// The commands that change nothing. Each writes its answer to standard output in the form that the options
// ask for, and remarks to standard error. Each returns Done, or Differs if the section or key is unset. Each
// raises Failure: Usage if --daemon-section names another daemon's section, and "show" and "get" also
// Unreadable if the file cannot be read. "show" and "get" wait for the lock of a process that changes the
// file, for at most the time limit of `arguments`, unless those refuse to wait.
ExitStatus RunShow(const Arguments& arguments);
ExitStatus RunGet(const Arguments& arguments);
ExitStatus RunDescribe(const Arguments& arguments);
ExitStatus RunList(const Arguments& arguments);

// Returns the file's settings, and the suite's defaults unless `arguments` refuse them. Does not wait for the
// file's lock, and passes over a file that cannot be read, because completion must neither wait nor fail.
// `known` must outlive the result.
Settings SettingsToList(const Arguments& arguments, const KnownSections& known);

}  // namespace zekara
