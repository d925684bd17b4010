#include "zkaconfig/KnownSections.h"

#include <strings.h>

#include <algorithm>
#include <numeric>

#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAConfigDefaults.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Text.h"

// Keys, types and defaults come from the library's tables, so they cannot differ from what the daemons use.
// This file adds what people need besides: a summary of each setting, and the words that a setting may hold.

namespace zekara {
namespace {

constexpr SettingWord kActionWords[] = {{"Cure", "cures the object"},
                                        {"Delete", "deletes the object"},
                                        {"Ignore", "leaves the object alone"},
                                        {"Quarantine", "moves the object to the quarantine"},
                                        {"Report", "reports the object and leaves it alone"}};
constexpr SettingWord kBooleanWords[] = {{"Yes", "on"}, {"No", "off"}};

struct Summary {
  const SectionDefault* table;
  std::string_view key;
  const char* text;
};

// Says no more than the suite lays down: units and words that the daemons choose are theirs.
constexpr Summary kSummaries[] = {
    {g_filed_defaults, "IsActive", "Switches the file monitor on or off."},
    {g_filed_defaults, "FileTimeout", "Limits the time for one file; the file monitor chooses the unit."},
    {g_filed_defaults, "SkipArchives", "Leaves archives unexamined."},
    {g_filed_defaults, "ExcludedPaths", "Lists the paths that the file monitor leaves alone."},
    {g_filed_defaults, "InfectedFiles", "What is done with infected files."},
    {g_filed_defaults, "IncurableFiles", "What is done with infected files that cannot be cured."},
    {g_filed_defaults, "SuspiciousFiles", "What is done with suspicious files."},
    {g_filed_defaults, "ActionAdware", "What is done with adware."},
    {g_filed_defaults, "ActionDialers", "What is done with dialers."},
    {g_filed_defaults, "ActionJokes", "What is done with joke programs."},
    {g_filed_defaults, "ActionRiskware", "What is done with riskware."},
    {g_filed_defaults, "ActionHacktools", "What is done with hacking tools."},
    {g_updated_defaults, "Mode", "Selects how updates are started; the updater chooses the words."},
    {g_updated_defaults, "Interval", "The time between two updates; the updater chooses the unit."},
    {g_daemon_defaults, "RunForeground", "Keeps the daemon in the foreground."},
    {g_daemon_defaults, "User", "The account under which the daemon runs."},
    {g_daemon_defaults, "MaxChildren", "The largest number of child processes."},
    {g_daemon_defaults, "HeuristicAnalysis", "Switches heuristic analysis on or off (Yes or No)."},
    {g_daemon_defaults, "PreFork", "Starts child processes in advance (Yes or No)."},
    {g_daemon_defaults, "LogFileName", "The path of the log file."},
    {g_daemon_defaults, "OutputMode", "Selects how much is written; the daemon chooses the words."},
    {g_daemon_defaults, "LogScanned", "Logs every scanned object (Yes or No)."},
    {g_daemon_defaults, "PidFile", "The path of the file that holds the daemon's process ID."},
    {g_daemon_defaults, "Socket", "The path of the daemon's socket."},
    {g_daemon_defaults, "EnginePath", "The path of the scanning engine."},
    {g_daemon_defaults, "VirusBase", "Lists the patterns of the virus databases' paths."},
};

// Returns an empty text for a key that has no summary; a test finds each such key.
const char* SummaryOf(const SectionDefault* table, std::string_view key) noexcept {
  const auto found = std::ranges::find_if(
      kSummaries, [&](const Summary& one) { return one.table == table && one.key == key; });
  return found == std::end(kSummaries) ? "" : found->text;
}

// Returns the number of letters that must be inserted, deleted or replaced to turn one text into the other
// (the Levenshtein distance). `row` holds the distances of one beginning of `left` from all beginnings of
// `right`.
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

// The name of the scanning daemon's section is open, so its table takes part only if the user names the
// section.
KnownSections::KnownSections(const std::string& daemonSection)
    : sections_{{kFileMonitorSection, g_filed_defaults, "the file monitor, FileD",
                 "by SIGHUP, after each request that names the section"},
                {kUpdaterSection, g_updated_defaults, "the updater, UpdateD",
                 "by SIGHUP, after each change in the section"}} {
  if (daemonSection.empty()) return;
  if (defaultsOf(daemonSection) != nullptr) {
    throw Failure(ExitStatus::Usage, "section " + daemonSection + " is not the scanning daemon's",
                  "--daemon-section names the section that the scanning daemon reads.");
  }
  sections_.push_back({daemonSection, g_daemon_defaults, "the scanning daemon", nullptr});
}

const KnownSections::Section* KnownSections::sectionNamed(std::string_view section) const noexcept {
  const auto found = std::ranges::find(sections_, section, &Section::name);
  return found == sections_.end() ? nullptr : &*found;
}

const SectionDefault* KnownSections::defaultsOf(std::string_view section) const noexcept {
  const Section* found = sectionNamed(section);
  return found == nullptr ? nullptr : found->defaults;
}

const SectionDefault* KnownSections::rowOf(std::string_view section, std::string_view key) const noexcept {
  const SectionDefault* row = defaultsOf(section);
  if (row == nullptr) return nullptr;
  for (; row->key != nullptr; ++row) {
    if (row->key == key) return row;
  }
  return nullptr;
}

std::optional<KnownSetting> KnownSections::settingOf(std::string_view section,
                                                     std::string_view key) const noexcept {
  const SectionDefault* row = rowOf(section, key);
  if (row == nullptr) return std::nullopt;
  KnownSetting setting{row, SummaryOf(defaultsOf(section), key), {}};
  if (row->type == DefaultTypeBoolean) setting.words = kBooleanWords;
  if (IsActionKey(section, key)) setting.words = kActionWords;
  return setting;
}

std::vector<std::string> KnownSections::sectionNames() const {
  std::vector<std::string> names;
  for (const Section& section : sections_) names.push_back(section.name);
  return names;
}

std::span<const SettingWord> ActionWords() noexcept {
  return kActionWords;
}

// The library has no list of them, but names each by its code, and the codes are counted from 1.
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

void TranslateActions(const Plist& section, Plist (*translated)(const Plist& action)) {
  const Plist keys = ActionKeys();
  for (const Plist& key : keys.elements()) {
    const Plist value = section.objectForKey(key);
    if (value.isString() || value.isNumber()) section.setObject_forKey(translated(value), key);
  }
}

std::vector<std::string> WordsFor(const KnownSections& known, std::string_view section,
                                  std::string_view key) {
  std::vector<std::string> words;
  if (const auto setting = known.settingOf(section, key)) {
    for (const SettingWord& one : setting->words) words.emplace_back(one.word);
  }
  return words;
}

// Has the library add the default to an empty section, so that the value has the form that readers give it.
Plist DefaultOf(const SectionDefault& row) {
  const SectionDefault table[] = {row, {}};
  const Plist tree = Plist::dictionary();
  PlistSupplementDefaults(tree, "", table);
  return tree.objectForKey("").objectForKey(row.key);
}

// Letter case is tried first: a name that differs in nothing else is meant, however many letters that
// concerns.
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

std::string Suggestion(std::string_view name, const std::vector<std::string>& candidates) {
  const auto meant = ClosestName(name, candidates);
  return meant ? "; did you mean " + Printable(*meant) + "?" : "";
}

std::vector<std::string> KeysOf(const SectionDefault* defaults) {
  std::vector<std::string> keys;
  for (const SectionDefault* row = defaults; row != nullptr && row->key != nullptr; ++row)
    keys.emplace_back(row->key);
  return keys;
}

}  // namespace zekara
