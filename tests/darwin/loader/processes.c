// Stand-ins for calls about processes, their rights and limits, and time.

#define _GNU_SOURCE
#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/auxv.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "darwin.h"
#include "loader.h"
#include "standins.h"

extern char** environ;


static int d_issetugid(void) {
  return getauxval(AT_SECURE) != 0;
}

static int d_setreuid(uid_t real, uid_t effective) {
  return CHECKED(int, setreuid(real, effective));
}

static int d_setregid(gid_t real, gid_t effective) {
  return CHECKED(int, setregid(real, effective));
}

static int LinuxResource(int resource) {
  switch (resource) {
    case D_RLIMIT_CPU: return RLIMIT_CPU;
    case D_RLIMIT_FSIZE: return RLIMIT_FSIZE;
    case D_RLIMIT_DATA: return RLIMIT_DATA;
    case D_RLIMIT_STACK: return RLIMIT_STACK;
    case D_RLIMIT_CORE: return RLIMIT_CORE;
    case D_RLIMIT_AS: return RLIMIT_AS;
    case D_RLIMIT_MEMLOCK: return RLIMIT_MEMLOCK;
    case D_RLIMIT_NPROC: return RLIMIT_NPROC;
    case D_RLIMIT_NOFILE: return RLIMIT_NOFILE;
  }
  Die("resource %d has no counterpart", resource);
}

static uint64_t DarwinLimit(rlim_t limit) {
  return limit >= D_RLIM_INFINITY ? D_RLIM_INFINITY : limit;
}

static rlim_t LinuxLimit(uint64_t limit) {
  return limit >= D_RLIM_INFINITY ? RLIM_INFINITY : limit;
}

enum { kPosixFlag = 0x1000 };  // the resource's number may have it: _RLIMIT_POSIX_FLAG

static int d_getrlimit(int resource, uint64_t limit[2]) {
  struct rlimit found;
  const int result = getrlimit(LinuxResource(resource & ~kPosixFlag), &found);
  if (result != 0) return CHECKED(int, result);
  limit[0] = DarwinLimit(found.rlim_cur);
  limit[1] = DarwinLimit(found.rlim_max);
  return 0;
}

// macOS's kernel refuses to change the stack limit of a program that demands a stack size of its own.
static int d_setrlimit(int resource, const uint64_t limit[2]) {
  resource &= ~kPosixFlag;
  if (resource == D_RLIMIT_STACK && g_image.entry->stacksize != 0) {
    t_error = EINVAL;
    return -1;
  }
  const struct rlimit wanted = {LinuxLimit(limit[0]), LinuxLimit(limit[1])};
  return CHECKED(int, setrlimit(LinuxResource(resource), &wanted));
}

// Darwin's background state stands for Linux's scheduling class of idle processes: exec hands both down, and nice values leave both
// alone.
static int SetBackground(id_t who, bool isBackground) {
  if (who != 0) Die("setpriority() changes the background state of another process");
  const struct sched_param none = {};
  return CHECKED(int, sched_setscheduler(0, isBackground ? SCHED_IDLE : SCHED_OTHER, &none));
}

static int d_setpriority(int which, id_t who, int priority) {
  if (which == D_PRIO_DARWIN_PROCESS && (priority & ~D_PRIO_DARWIN_BG) == 0) return SetBackground(who, priority != 0);
  if (which > PRIO_USER) Die("setpriority(%d, %d) has no counterpart", which, priority);
  return CHECKED(int, setpriority(which, who, priority));
}

static int d_getpriority(int which, id_t who) {
  if (which == D_PRIO_DARWIN_PROCESS && who == 0) return sched_getscheduler(0) == SCHED_IDLE;
  if (which > PRIO_USER) Die("getpriority(%d, %u) has no counterpart", which, who);
  errno = 0;
  const int found = getpriority(which, who);
  if (errno != 0) Checked(-1);
  return found;
}

// The disk's input-output policy stands for Linux's input-output priority: a throttled process has the class of idle ones.
enum { kIoOfThisProcess = 1, kIoClassShift = 13, kIoClassIdle = 3 };

static int d_setiopolicy_np(int type, int scope, int policy) {
  if (type != D_IOPOL_TYPE_DISK || scope != D_IOPOL_SCOPE_PROCESS || (policy != D_IOPOL_DEFAULT && policy != D_IOPOL_THROTTLE)) {
    Die("setiopolicy_np(%d, %d, %d) has no counterpart", type, scope, policy);
  }
  const int priority = policy == D_IOPOL_THROTTLE ? kIoClassIdle << kIoClassShift : 0;
  return CHECKED(int, syscall(SYS_ioprio_set, kIoOfThisProcess, 0, priority));
}

static int d_getiopolicy_np(int type, int scope) {
  if (type != D_IOPOL_TYPE_DISK || scope != D_IOPOL_SCOPE_PROCESS) Die("getiopolicy_np(%d, %d) has no counterpart", type, scope);
  const long priority = syscall(SYS_ioprio_get, kIoOfThisProcess, 0);
  return priority >> kIoClassShift == kIoClassIdle ? D_IOPOL_THROTTLE : D_IOPOL_DEFAULT;
}

static int d_setuid(uid_t user) {
  return CHECKED(int, setuid(user));
}

static int d_setgid(gid_t group) {
  return CHECKED(int, setgid(group));
}

static int d_execv(const char* path, char* const* arguments) {
  return CHECKED(int, execv(path, arguments));
}

// Attaching is all that a program here tries, and it is not meant to succeed.
static int d_ptrace(int request, pid_t process, void* address, int data) {
  enum { kAttach = 14 };
  if (request != kAttach || address != NULL || data != 0) Die("ptrace(%d) has no counterpart", request);
  return CHECKED(int, syscall(SYS_ptrace, PTRACE_SEIZE, process, NULL, NULL));
}

static int d_setitimer(int which, const struct d_itimerval* wanted, struct d_itimerval* old) {
  if (old != NULL) Die("setitimer() is not asked for the old value here");
  const struct itimerval value = {{wanted->it_interval.tv_sec, wanted->it_interval.tv_usec},
                                  {wanted->it_value.tv_sec, wanted->it_value.tv_usec}};
  return CHECKED(int, setitimer(which, &value, NULL));
}

// Both systems lay a timeval out in 16 bytes whose upper four are zero here.
static int d_getitimer(int which, struct itimerval* value) {
  return CHECKED(int, getitimer(which, value));
}

// The same layout as well, but Darwin counts the memory in bytes.
static int d_getrusage(int who, struct rusage* usage) {
  const int result = CHECKED(int, getrusage(who, usage));
  usage->ru_maxrss *= 1024;
  return result;
}

// Lists open descriptors in ascending order, as many as there is room for. Returns their number.
static int ListDescriptors(struct d_proc_fdinfo* list, int room) {
  int count = 0;
  enum { kHighest = 1 << 16 };
  DIR* stream = opendir("/proc/self/fd");  // may be missing; takes a descriptor itself
  if (stream == NULL) {
    for (int file = 0; file < kHighest && count < room; ++file) {
      if (fcntl(file, F_GETFD) >= 0) list[count++] = (struct d_proc_fdinfo){.proc_fd = file, .proc_fdtype = 1};
    }
    return count;
  }
  const struct dirent* entry;
  while (count < room && (entry = readdir(stream)) != NULL) {
    const int file = atoi(entry->d_name);
    if (!isdigit((unsigned char)entry->d_name[0]) || file == dirfd(stream)) continue;
    list[count++] = (struct d_proc_fdinfo){.proc_fd = file, .proc_fdtype = 1};
  }
  closedir(stream);
  return count;
}

// The file that stands in for the program's: this executable, or under qemu the one that launch.c was started from.
static char g_own_path[1024];
static struct stat g_own;

void NoteOwnFile(void) {
  char link[64] = "/proc/self/exe";
  const char* given = getenv("MACHO_LOADER_EXE");
  if (given != NULL) snprintf(link, sizeof link, "/proc/self/fd/%s", given);
  int result = 0;
  do {
    result = stat(link, &g_own);
  } while (result != 0 && errno == EINTR);  // tests inject it into any call
  if (result != 0 || readlink(link, g_own_path, sizeof g_own_path - 1) < 0) g_own_path[0] = '\0';
  if (given != NULL) {
    close(atoi(given));
    unsetenv("MACHO_LOADER_EXE");
  }
}

// Describes the region of the program's code as the kernel does: with the path and the attributes of the file mapped there.
static int DescribeRegion(uint64_t address, struct d_proc_regionwithpathinfo* region) {
  if (address - (uint64_t)g_image.base >= g_image.size) Die("a region outside the program is asked about");
  const struct stat found = g_own;
  *region = (struct d_proc_regionwithpathinfo){};
  if (g_own_path[0] == '\0') {
    t_error = EINVAL;
    return -1;
  }
  memcpy(region->prp_vip.vip_path, g_own_path, sizeof g_own_path);
  region->prp_prinfo.address = (uint64_t)g_image.base;
  region->prp_prinfo.size = g_image.size;
  struct d_vinfo_stat* attributes = &region->prp_vip.vip_vi.vi_stat;
  attributes->vst_dev = (uint32_t)found.st_dev;
  attributes->vst_ino = found.st_ino;
  attributes->vst_mode = (uint16_t)found.st_mode;
  attributes->vst_uid = found.st_uid;
  attributes->vst_gid = found.st_gid;
  attributes->vst_size = found.st_size;
  return 0;
}

// The directory /proc, once the program has left it behind by chroot(); -1 before.
static int g_proc = -1;

static int d_chroot(const char* path) {
  if (g_proc < 0) g_proc = fcntl(open("/proc", O_PATH | O_CLOEXEC), F_DUPFD_CLOEXEC, 512);
  return CHECKED(int, chroot(path));
}

// Returns the letter that Linux has for the state of another process; 0 if there is no such process, or if it has ended.
static char StateOf(int process) {
  char path[64];
  char line[512];
  snprintf(path, sizeof path, g_proc < 0 ? "/proc/%d/stat" : "%d/stat", process);
  const int file = openat(g_proc < 0 ? AT_FDCWD : g_proc, path, O_RDONLY | O_CLOEXEC);
  const ssize_t length = read(file, line, sizeof line - 1);
  close(file);
  if (length <= 0) return '\0';
  line[length] = '\0';
  const char* name = strrchr(line, ')');  // what precedes it may hold any character
  return name == NULL || name[2] == 'Z' ? '\0' : name[2];
}

// Answers what the tests ask about their children: which threads they have, and whether one of them waits. A child has one.
static int DescribeThread(int process, int flavor, void* buffer, int size) {
  const char state = StateOf(process);
  if (state == '\0') {
    t_error = ESRCH;
    return 0;
  }
  if (flavor == D_PROC_PIDLISTTHREADS && size == sizeof(uint64_t)) {
    memcpy(buffer, &(uint64_t){1}, sizeof(uint64_t));
    return size;
  }
  if (size != sizeof(struct d_proc_threadinfo)) Die("proc_pidinfo() is given %d bytes for a thread", size);
  *(struct d_proc_threadinfo*)buffer =
      (struct d_proc_threadinfo){.pth_run_state = state == 'S' ? D_TH_STATE_WAITING : D_TH_STATE_RUNNING};
  return size;
}

// Returns the number of bytes, or 0 for an error, as libproc's wrapper of the system call does.
static int d_proc_pidinfo(int process, int flavor, uint64_t argument, void* buffer, int size) {
  if (flavor == D_PROC_PIDLISTTHREADS || flavor == D_PROC_PIDTHREADINFO) return DescribeThread(process, flavor, buffer, size);
  if (process != getpid()) Die("proc_pidinfo() is asked about another process");
  switch (flavor) {
    case D_PROC_PIDLISTFDS: {
      const int room = size / (int)sizeof(struct d_proc_fdinfo);
      return ListDescriptors(buffer, room) * (int)sizeof(struct d_proc_fdinfo);
    }
    case D_PROC_PIDREGIONPATHINFO:
      if (size < (int)sizeof(struct d_proc_regionwithpathinfo)) {
        t_error = ENOMEM;
        return 0;
      }
      return DescribeRegion(argument, buffer) == 0 ? (int)sizeof(struct d_proc_regionwithpathinfo) : 0;
  }
  Die("proc_pidinfo(%d) has no counterpart", flavor);
}

// What a child of posix_spawn() does with its descriptors. On Darwin the object is a pointer, which init() allocates.
enum { kMaximumActions = 8, kClose = -1 };
struct Actions {
  int count;
  struct {
    int file, target;  // duplicated to the target, or closed if that is kClose
  } list[kMaximumActions];
};

static int d_posix_spawn_file_actions_init(struct Actions** actions) {
  *actions = calloc(1, sizeof **actions);
  return *actions == NULL ? ENOMEM : 0;
}

static int d_posix_spawn_file_actions_destroy(struct Actions** actions) {
  free(*actions);
  return 0;
}

static int d_posix_spawn_file_actions_adddup2(struct Actions** actions, int file, int target) {
  struct Actions* const all = *actions;
  if (all->count == kMaximumActions) Die("posix_spawn() is given more than %d actions", kMaximumActions);
  all->list[all->count].file = file;
  all->list[all->count++].target = target;
  return 0;
}

static int d_posix_spawn_file_actions_addclose(struct Actions** actions, int file) {
  return d_posix_spawn_file_actions_adddup2(actions, file, kClose);
}

static bool Apply(const struct Actions* actions) {
  for (int i = 0; actions != NULL && i < actions->count; ++i) {
    const int file = actions->list[i].file;
    if (actions->list[i].target == kClose) {
      close(file);
    } else if (dup2(file, actions->list[i].target) < 0) {
      return false;
    }
  }
  return true;
}

// glibc's posix_spawn() shares its memory with the child, which under qemu it does not, so a failure to start would not be seen there.
// Here the child sends its error number through a pipe, which a successful exec closes.
static int d_posix_spawn(pid_t* process, const char* path, struct Actions* const* actions, const void* attributes,
                         char* const* arguments, char* const* environment) {
  enum { kAboveActions = 64 };
  if (attributes != NULL) Die("posix_spawn() is given attributes");
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return DarwinError(errno);
  *process = fork();
  if (*process == 0) {
    const int report = fcntl(ends[1], F_DUPFD_CLOEXEC, kAboveActions);
    if (Apply(actions != NULL ? *actions : NULL)) execve(path, arguments, environment);
    const int error = errno;
    _exit(write(report, &error, sizeof error) == sizeof error ? 0 : 127);
  }
  int error = *process < 0 ? errno : 0;
  close(ends[1]);
  if (*process > 0 && read(ends[0], &error, sizeof error) > 0) waitpid(*process, NULL, 0);
  close(ends[0]);
  return DarwinError(error);
}

enum { kMaximumArguments = 16 };

int d_execl_list(const char* path, const char* first, d_va_list list) {
  va_list rest;
  LinuxList(rest, list);
  char* arguments[kMaximumArguments] = {(char*)first};
  for (int count = 1; arguments[count - 1] != NULL; ++count) {
    if (count == kMaximumArguments) Die("execl() is given more than %d arguments", kMaximumArguments);
    arguments[count] = va_arg(rest, char*);
  }
  return d_execv(path, arguments);
}

VARIADIC(int, execl, first, (const char* path, const char* first, ...), path, first)

// Both systems have the same form of status, with the signal's number in the lowest seven bits.
static pid_t d_waitpid(pid_t process, int* status, int options) {
  if (options & ~(WNOHANG | WUNTRACED)) Die("waitpid options %#x have no counterpart", (unsigned)options);
  int found = 0;
  const pid_t result = waitpid(process, &found, options);
  if (result > 0 && WIFSIGNALED(found)) found = (found & ~0x7f) | DarwinSignal(WTERMSIG(found));
  if (status != NULL) *status = found;
  return CHECKED(pid_t, result);
}

// The test library asks for the program's arguments and for its number of threads. It accepts an error for the latter.
static int* d_NSGetArgc(void) {
  return &g_image.argc;
}

static char*** d_NSGetArgv(void) {
  return &g_image.argv;
}

static int d_task_threads(void) {
  return 5;  // KERN_FAILURE
}

static unsigned g_mach_task_self;

// libc++ asks whether libstdc++ is loaded already (RTLD_NOLOAD), because their exceptions would share strings. It never is.
static void* d_dlopen(const char* path, int mode) {
  enum { kNoLoad = 0x10 };
  if (!(mode & kNoLoad)) Die("the program loads %s", path);
  return NULL;
}

static const char* d_getprogname(void) {
  return g_image.name;
}

static int d_pthread_threadid_np(pthread_t thread, uint64_t* id) {
  if (thread != 0) Die("pthread_threadid_np() is asked about another thread");
  *id = (uint64_t)gettid();
  return 0;
}

static uint32_t d_pthread_mach_thread_np(pthread_t thread) {
  if (thread != pthread_self()) Die("pthread_mach_thread_np() is asked about another thread");
  return (uint32_t)gettid();
}


static int d_gettimeofday(struct d_timeval* now, void* zone) {
  (void)zone;
  struct timeval found;
  gettimeofday(&found, NULL);
  now->tv_sec = found.tv_sec;
  now->tv_usec = (int32_t)found.tv_usec;
  return 0;
}

static int d_clock_gettime(int clock, struct timespec* now) {
  enum { kRealtime = 0, kMonotonicRaw = 4, kMonotonic = 6, kUptimeRaw = 8 };
  switch (clock) {
    case kRealtime: return clock_gettime(CLOCK_REALTIME, now);
    case kMonotonic:
    case kUptimeRaw:
    case kMonotonicRaw: return clock_gettime(CLOCK_MONOTONIC, now);
  }
  Die("clock %d has no counterpart", clock);
}

const struct StandIn kProcessStandIns[] = {
    SAME(getpid), SAME(getuid), SAME(geteuid), SAME(getgid), SAME(getegid), SAME(getenv), {"_environ", (void*)&environ},
    OWN(issetugid), OWN(setuid), OWN(setgid), OWN(setreuid), OWN(setregid), OWN(getrlimit), OWN(setrlimit), OWN(setpriority), OWN(getpriority),
    OWN(setiopolicy_np), OWN(getiopolicy_np), OWN(setitimer),
    OWN(proc_pidinfo), OWN(getprogname), OWN(dlopen), OWN(pthread_threadid_np), OWN(pthread_mach_thread_np),
    OWN(posix_spawn), OWN(posix_spawn_file_actions_init), OWN(posix_spawn_file_actions_destroy),
    OWN(posix_spawn_file_actions_adddup2), OWN(waitpid),
    OWN(gettimeofday), OWN(clock_gettime), SAME(localtime_r), SAME(gmtime_r), SAME(time), SAME(nanosleep),
    SAME(fork), OWN(execv), OWN(ptrace), SAME(setenv), SAME(unsetenv), SAME(system),
    // Only the unit tests and the examples call these.
    OWN(chroot), OWN(posix_spawn_file_actions_addclose), OWN(execl), OWN(getitimer), OWN(getrusage), SAME(usleep), SAME(sched_yield), SAME(tzset), SAME(mktime),
    SAME(gmtime), SAME(strftime), {"__NSGetArgc", d_NSGetArgc}, {"__NSGetArgv", d_NSGetArgv}, OWN(task_threads), {"_mach_task_self_", &g_mach_task_self},
    {NULL, NULL},
};
