#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"

namespace zekara {

// The sections for which the suite has defaults.
class KnownSections {
 public:
  struct Section {
    std::string name;
    const SectionDefault* defaults;
  };

  // `daemonSection` is the name of the scanning daemon's section, which the suite leaves open; empty when it
  // is not known. Raises Failure (Usage) when it is another daemon's.
  explicit KnownSections(const std::string& daemonSection = {});

  const std::vector<Section>& sections() const noexcept { return sections_; }
  // The section's table; null when there is none.
  const SectionDefault* defaultsOf(std::string_view section) const noexcept;
  // The table's row for the key; null when there is none.
  const SectionDefault* rowOf(std::string_view section, std::string_view key) const noexcept;

 private:
  std::vector<Section> sections_;
};

// The words for what is done with an object that was found.
inline constexpr const char* kActionWords[] = {"Cure", "Delete", "Ignore", "Quarantine", "Report"};

// The keys of the file monitor's section that hold actions, as an array.
Plist ActionKeys();
bool IsActionKey(std::string_view section, std::string_view key);

// The words that the value under a key may be; empty where it may be anything.
std::vector<std::string> WordsFor(const KnownSections& known, std::string_view section, std::string_view key);

// The candidate that `name` was most probably meant to be: other letter case, or at most two letters wrong.
std::optional<std::string> ClosestName(std::string_view name, const std::vector<std::string>& candidates);
// The keys of a table.
std::vector<std::string> KeysOf(const SectionDefault* defaults);

}  // namespace zekara
