/* Measures the cost of one request's system calls: makes the calls that the tool makes for a "ChangeConfig" request on standard input,
 * in the same order, and does no other work. Writes to the configuration file and as the reply what it has read. If it has a second
 * argument, adds that to the file as a line.
 *
 * It is compiled twice. "floor-same" makes every call that the tool makes if its caller is root; scripts/bench compares the two traces.
 * "floor-minimal" leaves out the calls that protect the process and the file, and those whose answer a program could know without
 * asking. The job itself remains. */

#define _GNU_SOURCE
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#ifndef ALL_CALLS
#define ALL_CALLS 0
#endif

static const char kFile[] = "/Library/Application Support/Zekara/zekara32.ini";
enum { kBlockSize = 65536 };

/* Large enough for every measurement. Pages that are not used are never touched. */
static char text[64 << 20];
static char request[64 << 20];

static void ask_limit(int resource) {
  struct rlimit limit;
  getrlimit(resource, &limit);
}

static void prepare_process(void) {
  const int ignored[] = {SIGPIPE, SIGXFSZ, SIGTSTP, SIGTTIN, SIGTTOU};
  const struct itimerval off = {{0, 0}, {0, 0}};
  const struct rlimit none = {0, 0};
  getuid();
  geteuid();
  getgid();
  getegid();
  for (int i = 0; i < 5; ++i) signal(ignored[i], SIG_IGN);
  for (int timer = ITIMER_REAL; timer <= ITIMER_PROF; ++timer) setitimer(timer, &off, NULL);
  setrlimit(RLIMIT_CORE, &none);
  for (int descriptor = 0; descriptor <= 2; ++descriptor) fcntl(descriptor, F_GETFD);
  syscall(SYS_close_range, 3U, ~0U, 0U);
  ask_limit(RLIMIT_FSIZE);
  ask_limit(RLIMIT_CPU);
  ask_limit(RLIMIT_NOFILE);
  ask_limit(RLIMIT_STACK);
}

/* Makes the calls with which the C library finds the local time. */
static void read_time_zone(void) {
  struct stat attributes;
  char zone[4096];
  const int file = open("/etc/localtime", O_RDONLY | O_CLOEXEC);
  if (file < 0) return;
  fstat(file, &attributes);
  fstat(file, &attributes);
  const ssize_t size = read(file, zone, sizeof zone);
  const off_t header = size > 60 ? 60 : 0;
  lseek(file, -header, SEEK_CUR);
  if (read(file, zone, sizeof zone) < 0) return;
  close(file);
}

static void log_line(const char* line, size_t length) {
  if (ALL_CALLS) {
    syscall(SYS_gettid);
    getpid();
  }
  if (write(STDERR_FILENO, line, length) < 0) return;
}

static ssize_t patch_file(const char* added) {
  struct stat attributes;
  sigset_t all;
  const int file = open(kFile, O_RDWR | O_CREAT | O_NOCTTY | O_CLOEXEC, 0444);
  flock(file, LOCK_EX);
  if (ALL_CALLS) {
    fstat(file, &attributes);
    stat(kFile, &attributes);
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, NULL);
    fstat(file, &attributes);
  }
  ssize_t size = read(file, text, sizeof text);
  if (size < 0) return -1;
  if (ALL_CALLS) {
    if (read(file, text + size, 1) < 0) return -1;
    ask_limit(RLIMIT_FSIZE);
    ask_limit(RLIMIT_CPU);
  }
  if (added != NULL) size = stpcpy(stpcpy(text + size, added), "\n") - text;
  lseek(file, 0, SEEK_SET);
  if (ftruncate(file, 0) != 0) return -1;
  const ssize_t written = write(file, text, (size_t)size);
  if (ALL_CALLS) fsync(file);
  close(file);
  return written;
}

/* The tool examines a file before it opens it, and then opens the very file that it has examined. */
static int open_pid_file(const char* path) {
  struct stat attributes;
  char link[] = "/proc/self/fd/0";
  if (!ALL_CALLS) return open(path, O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  const int examined = open(path, O_PATH | O_NOCTTY | O_CLOEXEC);
  if (examined < 0 || examined > 9) return -1;
  fstat(examined, &attributes);
  link[sizeof link - 2] = (char)('0' + examined);
  const int file = open(link, O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  fstat(file, &attributes);
  close(examined);
  return file;
}

static void signal_daemon(const char* path) {
  char digits[4096];
  const int file = open_pid_file(path);
  const ssize_t size = read(file, digits, sizeof digits - 1);
  if (ALL_CALLS && read(file, digits + size, 1) < 0) return;
  close(file);
  digits[size < 0 ? 0 : size] = '\0';
  const int process = atoi(digits);
  if (process > 0) kill(process, SIGHUP);
}

int main(int argc, char* argv[]) {
  static const char checked[] = "2026-11-21 11:11:07.119 Zekara4MacTool[1270:1270] Self-check passed\n";
  static const char running[] = "2026-11-21 11:11:07.120 Zekara4MacTool[1270:1270] Running on pipe\n";
  struct stat attributes;
  if (argc < 2) return 1;
  if (ALL_CALLS) prepare_process();
  stat(argv[0], &attributes);
  if (ALL_CALLS) read_time_zone();
  log_line(checked, sizeof checked - 1);
  log_line(running, sizeof running - 1);
  struct sigaction action;
  if (ALL_CALLS) sigaction(SIGPIPE, NULL, &action);
  size_t size = 0;
  ssize_t count = 0;
  do {
    count = read(STDIN_FILENO, request + size, kBlockSize);
    if (count > 0) size += (size_t)count;
  } while (count == kBlockSize);
  if (size == 0) return 1;
  if (ALL_CALLS) {
    getuid();
    ask_limit(RLIMIT_AS);
    ask_limit(RLIMIT_DATA);
    ask_limit(RLIMIT_STACK);
  }
  if (patch_file(argc > 2 ? argv[2] : NULL) < 0) return 1;
  signal_daemon("/var/zekara/run/FileD.pid");
  signal_daemon("/var/zekara/run/UpdateD.pid");
  if (ALL_CALLS) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
  }
  return write(STDOUT_FILENO, request, size) == (ssize_t)size ? 0 : 1;
}
