#include "Zekara4MacLibrary/ZKAConfig.h"

#include <strings.h>

namespace zekara {

// The codes of targets and actions are part of the suite's interface: programs store them and exchange them,
// so no code may ever get another meaning. The target codes are the positions in this table, counted from 1.
const char* target2string(std::int32_t target) noexcept {
  constexpr const char* kKeys[] = {"InfectedFiles", "SuspiciousFiles", "IncurableFiles", "ActionAdware",
                                   "ActionDialers", "ActionJokes",     "ActionRiskware", "ActionHacktools"};
  constexpr std::int32_t kCount = sizeof kKeys / sizeof kKeys[0];
  return target >= 1 && target <= kCount ? kKeys[target - 1] : "ERROR";
}

std::int32_t string2action(const char* text) noexcept {
  struct Action {
    const char* word;
    std::int32_t code;
  };
  // Deliberate: each action is one bit, and 16 is left out.
  constexpr Action kActions[] = {
      {"Report", 32}, {"Quarantine", 4}, {"Cure", 2}, {"Delete", 1}, {"Ignore", 8}};
  for (const Action& action : kActions) {
    if (strcasecmp(text, action.word) == 0) return action.code;
  }
  return 0;
}

}  // namespace zekara
