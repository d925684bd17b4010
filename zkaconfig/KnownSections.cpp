#include "zkaconfig/KnownSections.h"

#include <strings.h>

#include <algorithm>
#include <numeric>

#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAConfigDefaults.h"
#include "zkaconfig/Failure.h"

namespace zekara {
namespace {

// How many letters must be put in, taken out or replaced to make one text the other.
std::size_t EditDistance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < right.size(); ++j) {
      const std::size_t replaced = diagonal + (left[i] == right[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

KnownSections::KnownSections(const std::string& daemonSection)
    : sections_{{kFileMonitorSection, g_filed_defaults}, {kUpdaterSection, g_updated_defaults}} {
  if (daemonSection.empty()) return;
  if (defaultsOf(daemonSection) != nullptr) {
    throw Failure(ExitStatus::Usage, "section " + daemonSection + " is not the scanning daemon's",
                  "--daemon-section names the section that the scanning daemon reads.");
  }
  sections_.push_back({daemonSection, g_daemon_defaults});
}

const SectionDefault* KnownSections::defaultsOf(std::string_view section) const noexcept {
  const auto found = std::ranges::find(sections_, section, &Section::name);
  return found == sections_.end() ? nullptr : found->defaults;
}

const SectionDefault* KnownSections::rowOf(std::string_view section, std::string_view key) const noexcept {
  const SectionDefault* row = defaultsOf(section);
  if (row == nullptr) return nullptr;
  for (; row->key != nullptr; ++row) {
    if (row->key == key) return row;
  }
  return nullptr;
}

Plist ActionKeys() {
  Plist keys = Plist::array();
  for (std::int32_t target = 1;; ++target) {
    const std::string_view key = target2string(target);
    if (key == "ERROR") return keys;
    keys.addObject(key);
  }
}

bool IsActionKey(std::string_view section, std::string_view key) {
  const Plist keys = ActionKeys();
  return section == kFileMonitorSection &&
         std::ranges::any_of(keys.elements(), [&](const Plist& one) { return one.isEqualToString(key); });
}

std::vector<std::string> WordsFor(const KnownSections& known, std::string_view section,
                                  std::string_view key) {
  if (IsActionKey(section, key)) return {std::begin(kActionWords), std::end(kActionWords)};
  const SectionDefault* row = known.rowOf(section, key);
  if (row != nullptr && row->type == DefaultTypeBoolean) return {"Yes", "No"};
  return {};
}

std::optional<std::string> ClosestName(std::string_view name, const std::vector<std::string>& candidates) {
  const std::string wanted(name);
  for (const std::string& candidate : candidates) {
    if (strcasecmp(candidate.c_str(), wanted.c_str()) == 0) return candidate;
  }
  constexpr std::size_t kTooFar = 3;
  const auto distance = [&](const std::string& candidate) { return EditDistance(candidate, name); };
  const auto closest = std::ranges::min_element(candidates, {}, distance);
  const bool isClose = closest != candidates.end() && distance(*closest) < std::min(kTooFar, name.size());
  return isClose ? std::optional(*closest) : std::nullopt;
}

std::vector<std::string> KeysOf(const SectionDefault* defaults) {
  std::vector<std::string> keys;
  for (const SectionDefault* row = defaults; row != nullptr && row->key != nullptr; ++row)
    keys.emplace_back(row->key);
  return keys;
}

}  // namespace zekara
