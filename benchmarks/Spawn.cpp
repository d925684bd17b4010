// Measures whole processes.
//
// Usage:
//
//   spawn run PLAN ROUNDS      runs every subject of the plan in turn, ROUNDS times
//   spawn contend PLAN ROUNDS  starts every subject of the plan at once, ROUNDS times; then ROUNDS times
//                              against a held lock
//
// A plan is a text file with one subject a line. Its fields are separated by TABs: the name, the file that
// becomes standard input, the file whose content the configuration file gets before each run ("-" leaves it
// alone), and the program with its arguments. Subjects of one name are one series.
//
// posix_spawn(), which copies no memory, starts a process; the time counts from that call to the end of the
// process. Standard input and output are pipes, filled before the start and read after the end, or files if
// the input is larger than a pipe. Standard error is /dev/null.
//
// Prints one line of TAB-separated fields for each series: name, exit status, runs; wall time and CPU time in
// microseconds (median, first and third quartile each); page faults, and peak memory in KB, each the median.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr const char* kConfigurationFile = "/Library/Application Support/Zekara/zekara32.ini";
constexpr std::size_t kPipeCapacity = 65536;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "spawn: %s: %s\n", what.c_str(), std::strerror(errno));
  std::exit(2);
}

int Checked(int result, const std::string& what) {
  if (result < 0) Fail(what);
  return result;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) Fail(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// In place, as the tool does it: the file stays the same file. The content does not pass through this
// process, whose own peak of memory its children inherit through posix_spawn().
void CopyFile(const std::string& from, const std::string& to) {
  const int source = Checked(open(from.c_str(), O_RDONLY | O_CLOEXEC), from);
  const int target = Checked(open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644), to);
  ssize_t count = 0;
  while ((count = sendfile(target, source, nullptr, std::size_t{1} << 20)) > 0) {
  }
  Checked(static_cast<int>(count), to);
  close(source);
  close(target);
}

// One line of the plan.
struct Subject {
  std::string name;
  std::string inputPath;
  std::string input;      // empty where it is too large for a pipe
  std::string resetPath;  // empty for none
  std::vector<std::string> arguments;
};

std::vector<Subject> ReadPlan(const std::string& path) {
  std::vector<Subject> subjects;
  std::istringstream plan(ReadFile(path));
  for (std::string line; std::getline(plan, line);) {
    std::istringstream fields(line);
    Subject subject;
    std::getline(fields, subject.name, '\t');
    std::getline(fields, subject.inputPath, '\t');
    std::getline(fields, subject.resetPath, '\t');
    for (std::string argument; std::getline(fields, argument, '\t');) subject.arguments.push_back(argument);
    if (std::filesystem::file_size(subject.inputPath) < kPipeCapacity)
      subject.input = ReadFile(subject.inputPath);
    if (subject.resetPath == "-") subject.resetPath.clear();
    subjects.push_back(subject);
  }
  return subjects;
}

// A pipe. Both ends are closed in a program that is started, which gets copies of its own.
struct Pipe {
  int reading = -1;
  int writing = -1;

  Pipe() {
    int ends[2];
    Checked(pipe2(ends, O_CLOEXEC), "pipe");
    reading = ends[0];
    writing = ends[1];
  }
  ~Pipe() {
    close(reading);
    closeWriting();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void closeWriting() {
    if (writing >= 0) close(writing);
    writing = -1;
  }
};

// What a child gets as its standard input and output.
class Streams {
 public:
  explicit Streams(const Subject& subject) {
    if (!subject.input.empty()) {
      if (write(pipe_.writing, subject.input.data(), subject.input.size()) < 0) Fail("write to a pipe");
      pipe_.closeWriting();
      input_ = dup(pipe_.reading);
      output_ = dup(reply_.writing);
    } else {
      input_ = Checked(open(subject.inputPath.c_str(), O_RDONLY | O_CLOEXEC), subject.inputPath);
      output_ = Checked(open(".", O_WRONLY | O_TMPFILE | O_CLOEXEC, 0600), "reply");
    }
    fcntl(input_, F_SETFD, FD_CLOEXEC);
    fcntl(output_, F_SETFD, FD_CLOEXEC);
  }
  ~Streams() {
    close(input_);
    close(output_);
  }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;

  int input() const { return input_; }
  int output() const { return output_; }

 private:
  Pipe pipe_;
  Pipe reply_;
  int input_ = -1;
  int output_ = -1;
};

pid_t Start(const Subject& subject, const Streams& streams) {
  static const int log = Checked(open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null");
  std::vector<char*> arguments;
  for (const std::string& argument : subject.arguments)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  // Python and GLib look for their files, and need nothing else.
  char path[] = "PATH=/usr/bin:/bin";
  char* const environment[] = {path, nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, streams.input(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, streams.output(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, log, STDERR_FILENO);
  pid_t child = -1;
  errno = posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environment);
  if (errno != 0) Fail(subject.arguments[0]);
  posix_spawn_file_actions_destroy(&actions);
  return child;
}

double Microseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double Microseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
}

// What the runs of one subject took: times in microseconds, memory in KB.
struct Series {
  int status = 0;
  std::vector<double> wall;
  std::vector<double> cpu;
  std::vector<double> faults;
  std::vector<double> memory;
};

double Quantile(std::vector<double> values, double part) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const double place = part * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (place - static_cast<double>(below)) * (values[above] - values[below]);
}

void Print(const std::string& name, const Series& series) {
  std::printf("%s\t%d\t%zu", name.c_str(), series.status, series.wall.size());
  for (const auto* values : {&series.wall, &series.cpu}) {
    std::printf("\t%.1f\t%.1f\t%.1f", Quantile(*values, 0.5), Quantile(*values, 0.25),
                Quantile(*values, 0.75));
  }
  std::printf("\t%.0f\t%.0f\n", Quantile(series.faults, 0.5), Quantile(series.memory, 0.5));
  std::fflush(stdout);
}

// The kernel counts CPU time, page faults and peak memory of the child by itself; only the wall time includes
// this process's own work of starting it and waiting for it.
void RunOnce(const Subject& subject, Series& series) {
  if (!subject.resetPath.empty()) CopyFile(subject.resetPath, kConfigurationFile);
  const Streams streams(subject);
  int status = 0;
  rusage usage = {};
  const double start = Microseconds();
  const pid_t child = Start(subject, streams);
  Checked(wait4(child, &status, 0, &usage), "wait");
  const double end = Microseconds();
  series.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  series.wall.push_back(end - start);
  series.cpu.push_back(Microseconds(usage.ru_utime) + Microseconds(usage.ru_stime));
  series.faults.push_back(static_cast<double>(usage.ru_minflt));
  series.memory.push_back(static_cast<double>(usage.ru_maxrss));
}

// The first two rounds are not counted. Each round has an order of its own, because a program that always ran
// after the same other one would find the processor's caches as that one leaves them.
void Run(const std::vector<Subject>& subjects, int rounds) {
  std::map<std::string, Series> series;
  std::vector<const Subject*> order;
  for (const Subject& subject : subjects) order.push_back(&subject);
  std::mt19937 random(std::random_device{}());
  for (int round = -2; round < rounds; ++round) {
    std::shuffle(order.begin(), order.end(), random);
    for (const Subject* subject : order) {
      Series uncounted;
      RunOnce(*subject, round < 0 ? uncounted : series[subject->name]);
    }
  }
  for (const Subject& subject : subjects) {
    if (series.contains(subject.name)) Print(subject.name, series[subject.name]);
    series.erase(subject.name);
  }
}

// Counts the processes of the whole machine that wait for a lock by flock(), as the kernel lists them.
std::size_t CountBlockedLocks() {
  std::ifstream locks("/proc/locks");
  std::size_t count = 0;
  for (std::string line; std::getline(locks, line);)
    count += line.find("-> FLOCK") != std::string::npos ? 1 : 0;
  return count;
}

// Starts all subjects. If `isHeld`, holds the lock until all of them wait for it, and counts the time from
// its release.
void ContendOnce(const std::vector<const Subject*>& subjects, bool isHeld, Series& series) {
  if (!subjects[0]->resetPath.empty()) CopyFile(subjects[0]->resetPath, kConfigurationFile);
  const int file = Checked(open(kConfigurationFile, O_RDWR | O_CLOEXEC), kConfigurationFile);
  if (isHeld) Checked(flock(file, LOCK_EX), "flock");
  std::vector<std::unique_ptr<Streams>> streams;
  for (const Subject* subject : subjects) streams.push_back(std::make_unique<Streams>(*subject));
  double start = Microseconds();
  for (std::size_t i = 0; i < subjects.size(); ++i) Start(*subjects[i], *streams[i]);
  if (isHeld) {
    while (CountBlockedLocks() < subjects.size()) usleep(1000);
    usleep(5000);
    start = Microseconds();
    flock(file, LOCK_UN);
  }
  double cpu = 0;
  for (std::size_t i = 0; i < subjects.size(); ++i) {
    int status = 0;
    rusage usage = {};
    Checked(wait4(-1, &status, 0, &usage), "wait");
    if (status != 0) series.status = status;
    cpu += Microseconds(usage.ru_utime) + Microseconds(usage.ru_stime);
  }
  series.wall.push_back(Microseconds() - start);
  series.cpu.push_back(cpu);
  close(file);
}

// Each instance adds a key of its own, so each missing key is a lost update.
std::size_t CountLostUpdates(std::size_t instances) {
  std::istringstream text(ReadFile(kConfigurationFile));
  std::size_t count = 0;
  for (std::string line; std::getline(text, line);) count += line.starts_with("Added") ? 1 : 0;
  return instances - count;
}

// The subjects of one name are the instances of one program, and are started together.
void Contend(const std::vector<Subject>& subjects, int rounds) {
  std::vector<std::string> names;
  std::map<std::string, std::vector<const Subject*>> groups;
  for (const Subject& subject : subjects) {
    if (!groups.contains(subject.name)) names.push_back(subject.name);
    groups[subject.name].push_back(&subject);
  }
  std::map<std::string, std::size_t> lost;
  std::map<std::string, Series> series[2];
  for (int round = 0; round < rounds; ++round) {
    for (const bool isHeld : {false, true}) {
      for (const std::string& name : names) {
        ContendOnce(groups[name], isHeld, series[isHeld][name]);
        lost[name] += CountLostUpdates(groups[name].size());
      }
    }
  }
  for (const std::string& name : names) {
    Print(name + ", at once, lost " + std::to_string(lost[name]), series[0][name]);
    Print(name + ", behind a lock, lost " + std::to_string(lost[name]), series[1][name]);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 4) return 1;
  rlimit descriptors = {};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  setrlimit(RLIMIT_NOFILE, &descriptors);
  const std::vector<Subject> subjects = ReadPlan(argv[2]);
  if (std::strcmp(argv[1], "contend") == 0) {
    Contend(subjects, std::atoi(argv[3]));
  } else {
    Run(subjects, std::atoi(argv[3]));
  }
}
