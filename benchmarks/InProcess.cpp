// Measures jobs inside a process, against the libraries that do the same.
//
// Usage:
//
//   in-process [--seed N] [TEXT]             measures every row whose name holds TEXT
//   in-process [--seed N] --loop TEXT        runs the first subject of the first such row for two seconds and
//                                            prints its speed
//   in-process [--seed N] --input TEXT FILE  writes the input of the first such row to FILE
//
// The inputs are made from the seed N. Without --seed they are made from a new one, which is printed on
// standard error.
//
// Measuring prints one line of TAB-separated fields for each subject: job, size, subject, bytes of input,
// nanoseconds of CPU time for one run (median, first and third quartile), and peak memory in bytes, the input
// included. Each measurement runs in a child process that is forked for it, so that no subject inherits
// another's heap, and the subjects of a row take turns.

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string_view>

#include "PortableFoundation/Descriptor.h"
#include "benchmarks/Subjects.h"
#include "benchmarks/Workloads.h"

namespace zekara::benchmarks {

void Expect(bool isDone, const char* job) {
  if (isDone) return;
  std::fprintf(stderr, "in-process: %s has failed\n", job);
  std::_Exit(1);
}

namespace {

constexpr std::size_t kKilobyte = 1000;
constexpr std::size_t kMegabyte = 1000 * kKilobyte;
constexpr std::size_t kSmall = 100 * kKilobyte;  // smaller inputs are measured in more rounds
constexpr double kLongRun = 2e9;                 // nanoseconds

double CpuNanoseconds() {
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Returns a size of this process's memory in bytes: the present one for "VmRSS:", the peak for "VmHWM:".
double MemoryNow(std::string_view field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) return std::strtod(line.c_str() + field.size(), nullptr) * 1024;
  }
  return 0;
}

// Runs `work` in a child process, so that this process keeps nothing of the memory that it uses. Children
// that inherited free memory would get it faster than a program that has just started, and their peak would
// be lower.
void RunInChild(const std::function<void()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    work();
    std::_Exit(0);
  }
  int status = 1;
  Expect(child > 0 && waitpid(child, &status, 0) == child && status == 0, "child process");
}

std::string InputOf(const Row& row, const Random& random) {
  const int file = memfd_create("input", MFD_CLOEXEC);
  Expect(file >= 0, "memfd_create");
  RunInChild([&] { Expect(WriteAll(file, row.input(random)) == 0, "write"); });
  std::string input(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
  for (std::size_t at = 0; at < input.size();) {
    const ssize_t count = pread(file, input.data() + at, input.size() - at, static_cast<off_t>(at));
    Expect(count > 0, "read");
    at += static_cast<std::size_t>(count);
  }
  close(file);
  return input;
}

struct Measurement {
  double nanoseconds = 0;
  double peak = 0;
};

// The first run fills caches and heap and shows the peak of memory; the later runs are timed. For growth the
// first run is timed, because the tool makes only one, and because later runs would find memory ready for
// small inputs but not for large ones. A long run is not repeated either: fetching memory is a small part of
// it.
Measurement Measure(const Row& row, const Subject& subject, const std::string& input) {
  const double leastTime = input.size() < kSmall ? 20e6 : 40e6;
  const Subject::Work work = subject.prepare(input);
  const double before = MemoryNow("VmRSS:");
  std::ofstream("/proc/self/clear_refs") << 5;  // resets the peak
  const double firstStart = CpuNanoseconds();
  work();
  Measurement result = {.nanoseconds = CpuNanoseconds() - firstStart};
  result.peak = MemoryNow("VmHWM:") - before + static_cast<double>(input.size());
  if (row.isGrowth || result.nanoseconds > kLongRun) return result;
  const double start = CpuNanoseconds();
  double spent = 0;
  int runs = 0;
  do {
    work();
    ++runs;
    spent = CpuNanoseconds() - start;
  } while (spent < leastTime);
  result.nanoseconds = spent / runs;
  return result;
}

// The result is small enough for the pipe's buffer, so the child can write it before this process reads.
Measurement MeasureInChild(const Row& row, const Subject& subject, const std::string& input) {
  int ends[2];
  Expect(pipe(ends) == 0, "pipe");
  RunInChild([&] {
    const Measurement measured = Measure(row, subject, input);
    Expect(write(ends[1], &measured, sizeof measured) == sizeof measured, "write");
  });
  Measurement measured;
  Expect(read(ends[0], &measured, sizeof measured) == sizeof measured, "read");
  close(ends[0]);
  close(ends[1]);
  return measured;
}

// Interpolates between the two values next to the place. Medians and quartiles are shown instead of means,
// because an interruption by another process makes one run much longer and none shorter.
double Quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  const double place = part * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (place - static_cast<double>(below)) * (values[above] - values[below]);
}

void MeasureRow(const Row& row, const Random& random) {
  const std::string input = InputOf(row, random);
  const int rounds = input.size() < kSmall || (row.isGrowth && input.size() < 2 * kMegabyte) ? 15 : 5;
  std::vector<std::vector<double>> times(row.subjects.size());
  std::vector<std::vector<double>> peaks(row.subjects.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < row.subjects.size(); ++i) {
      const Measurement measured = MeasureInChild(row, row.subjects[i], input);
      times[i].push_back(measured.nanoseconds);
      peaks[i].push_back(measured.peak);
    }
  }
  for (std::size_t i = 0; i < row.subjects.size(); ++i) {
    std::printf("%s\t%s\t%s\t%zu\t%.0f\t%.0f\t%.0f\t%.0f\n", row.job.c_str(), row.size.c_str(),
                row.subjects[i].name.c_str(), input.size(), Quantile(times[i], 0.5), Quantile(times[i], 0.25),
                Quantile(times[i], 0.75), Quantile(peaks[i], 0.5));
  }
  std::fflush(stdout);
}

using Generator = std::string (*)(std::size_t, Random&);

Row MakeRow(const char* job, const char* sizeName, Generator generate, std::size_t size,
            std::vector<Subject> subjects) {
  const auto input = [generate, size](Random random) { return generate(size, random); };
  return {job, sizeName, input, std::move(subjects)};
}

// The rows in which this system is compared with others: a file of usual size, a large one, and one so large
// that only the cost of each byte counts.
std::vector<Row> ComparedRows() {
  std::vector<Row> rows;
  constexpr std::pair<const char*, std::size_t> kIniSizes[] = {
      {"4 KB", 4 * kKilobyte}, {"1 MB", kMegabyte}, {"32 MB", 32 * kMegabyte}};
  constexpr std::pair<const char*, std::size_t> kPlistSizes[] = {
      {"1 KB", kKilobyte}, {"1 MB", kMegabyte}, {"32 MB", 32 * kMegabyte}};
  for (const auto& [name, size] : kIniSizes) {
    rows.push_back(MakeRow("INI load", name, IniOfSections, size,
                           {ZekaraIniLoad(), SimpleIniLoad(), GKeyFileLoad(), BoostLoad(), InihLoad()}));
    rows.push_back(MakeRow("INI load, patch, write", name, IniOfSections, size,
                           {ZekaraIniPatch(), SimpleIniPatch(), GKeyFilePatch()}));
  }
  const std::size_t large = 32 * kMegabyte;
  rows.push_back(MakeRow("INI load, one section", "32 MB", IniOfOneSection, large,
                         {ZekaraIniLoad(), SimpleIniLoad(), GKeyFileLoad()}));
  rows.push_back(MakeRow("INI load, patch, write, one section", "32 MB", IniOfOneSection, large,
                         {ZekaraIniPatch(), SimpleIniPatch(), GKeyFilePatch()}));
  rows.push_back(
      MakeRow("INI load, one list", "32 MB", IniOfOneList, large, {ZekaraIniLoad(), GKeyFileLoadList()}));
  rows.push_back(MakeRow("INI load, patch, write, one list", "32 MB", IniOfOneList, large,
                         {ZekaraIniPatch(), GKeyFilePatchList()}));
  for (const auto& [name, size] : kPlistSizes) {
    rows.push_back(MakeRow("property list parse", name, PlistOfSections, size,
                           {ZekaraPlistParse(), LibplistParse(), ExpatParse(), PugixmlParse()}));
    rows.push_back(
        MakeRow("property list write", name, PlistOfSections, size, {ZekaraPlistWrite(), LibplistWrite()}));
    rows.push_back(
        MakeRow("property list both", name, PlistOfSections, size, {ZekaraPlistBoth(), LibplistBoth()}));
  }
  rows.push_back(MakeRow("framing, one message in 64 KiB blocks", "33 MiB", PlistOfOneString,
                         std::size_t{33} << 20, {ZekaraFramingInBlocks(), ZekaraParseOfEveryMessage()}));
  rows.push_back(MakeRow("framing, small messages in 64 KiB blocks", "16 MB", SmallMessages, 16 * kMegabyte,
                         {ZekaraFramingInBlocks(), ZekaraParseOfEveryMessage()}));
  rows.push_back(MakeRow("framing, small messages in one block", "16 MB", SmallMessages, 16 * kMegabyte,
                         {ZekaraFramingInOneBlock(), ZekaraParseOfEveryMessage()}));
  return rows;
}

// Inputs of which each byte could cost more the more bytes there are, each at two sizes.
std::vector<Row> GrowthRows() {
  const struct {
    const char* job;
    Generator generate;
    Subject subject;
  } kinds[] = {
      {"growth: keys in one section", IniOfOneSection, ZekaraIniPatch()},
      {"growth: sections", IniOfSmallSections, ZekaraIniPatch()},
      {"growth: elements of one list", IniOfOneList, ZekaraIniPatch()},
      {"growth: continuation lines", IniOfContinuations, ZekaraIniPatch()},
      {"growth: one long word", IniOfOneWord, ZekaraIniPatch()},
      {"growth: one long comment", IniOfOneComment, ZekaraIniLoad()},
      {"growth: keys of one dictionary, ascending", PlistOfOneDictionary, ZekaraPlistBoth()},
      {"growth: keys of one dictionary, shuffled", PlistOfOneShuffledDictionary, ZekaraPlistBoth()},
      {"growth: elements of one array", PlistOfOneArray, ZekaraPlistBoth()},
      {"growth: containers nested to the limit", PlistOfTowers, ZekaraPlistParse()},
      {"growth: one long string", PlistOfOneString, ZekaraPlistBoth()},
      {"growth: references in one string", PlistOfReferences, ZekaraPlistBoth()},
      {"growth: one message in 64 KiB blocks", PlistOfOneString, ZekaraFramingInBlocks()},
      {"growth: small messages in one block", SmallMessages, ZekaraFramingInOneBlock()},
  };
  std::vector<Row> rows;
  for (const auto& kind : kinds) {
    rows.push_back(MakeRow(kind.job, "1 MB", kind.generate, kMegabyte, {kind.subject}));
    rows.push_back(MakeRow(kind.job, "32 MB", kind.generate, 32 * kMegabyte, {kind.subject}));
  }
  for (Row& row : rows) row.isGrowth = true;
  return rows;
}

void WriteInput(const Row& row, const Random& random, const std::string& path) {
  std::ofstream(path, std::ios::binary) << row.input(random);
}

void Loop(const Row& row, const Random& random) {
  const std::string input = InputOf(row, random);
  const Subject::Work work = row.subjects.front().prepare(input);
  const double start = CpuNanoseconds();
  double runs = 0;
  for (; CpuNanoseconds() - start < 2e9; ++runs) work();
  std::printf("%.1f MB/s\n", runs * static_cast<double>(input.size()) / (CpuNanoseconds() - start) * 1000);
}

// Returns the seed that "--seed N" gives, and removes that option, or returns a new seed.
Random::result_type TakeSeed(std::vector<std::string>& arguments) {
  if (arguments.size() >= 2 && arguments[0] == "--seed") {
    const Random::result_type seed = std::stoull(arguments[1]);
    arguments.erase(arguments.begin(), arguments.begin() + 2);
    return seed;
  }
  const Random::result_type seed = std::random_device()();
  std::fprintf(stderr, "in-process: --seed %ju\n", static_cast<std::uintmax_t>(seed));
  return seed;
}

std::vector<Row> RowsWith(const std::string& text) {
  std::vector<Row> rows = ComparedRows();
  for (Row& row : GrowthRows()) rows.push_back(std::move(row));
  std::erase_if(rows,
                [&](const Row& row) { return (row.job + ", " + row.size).find(text) == std::string::npos; });
  return rows;
}

int Run(std::vector<std::string> arguments) {
  const Random random(TakeSeed(arguments));
  const std::string option = !arguments.empty() && arguments[0].starts_with('-') ? arguments[0] : "";
  const std::size_t operands = arguments.size() - (option.empty() ? 0 : 1);
  const std::string text = operands > 0 ? arguments[option.empty() ? 0 : 1] : "";
  const std::vector<Row> rows = RowsWith(text);
  if (rows.empty()) {
    std::fprintf(stderr, "in-process: no row's name holds \"%s\"\n", text.c_str());
    return 1;
  }
  if (option == "--loop" && operands == 1) {
    Loop(rows.front(), random);
  } else if (option == "--input" && operands == 2) {
    WriteInput(rows.front(), random, arguments[2]);
  } else if (option.empty() && operands <= 1) {
    for (const Row& row : rows) RunInChild([&] { MeasureRow(row, random); });
  } else {
    std::fprintf(stderr, "usage: in-process [--seed N] [[--loop] TEXT | --input TEXT FILE]\n");
    return 2;
  }
  return 0;
}

}  // namespace
}  // namespace zekara::benchmarks

int main(int argc, char* argv[]) {
  return zekara::benchmarks::Run({argv + 1, argv + argc});
}
