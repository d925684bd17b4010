#pragma once

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"

namespace zekara {

// Carries out what the command line asks for: answers go to standard output, remarks to standard error.
// Raises Failure.
ExitStatus RunCommand(const Arguments& arguments);

}  // namespace zekara
