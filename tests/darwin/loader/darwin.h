// Darwin's numbers and structures where they differ from Linux's, as macOS's headers for x86_64 have them.
#pragma once

#include <assert.h>
#include <stdbool.h>
#include <stdint.h>

enum {  // <fcntl.h>
  D_O_ACCMODE = 0x3,
  D_O_NONBLOCK = 0x4,
  D_O_APPEND = 0x8,
  D_O_SHLOCK = 0x10,
  D_O_EXLOCK = 0x20,
  D_O_NOFOLLOW = 0x100,
  D_O_CREAT = 0x200,
  D_O_TRUNC = 0x400,
  D_O_EXCL = 0x800,
  D_O_NOCTTY = 0x20000,
  D_O_DIRECTORY = 0x100000,
  D_O_CLOEXEC = 0x1000000,

  D_AT_FDCWD = -2,
  D_AT_SYMLINK_NOFOLLOW = 0x20,
  D_AT_REMOVEDIR = 0x80,

  D_F_DUPFD = 0,
  D_F_GETFD = 1,
  D_F_SETFD = 2,
  D_F_GETFL = 3,
  D_F_SETFL = 4,
  D_F_FULLFSYNC = 51,
};

struct d_timespec {
  int64_t tv_sec;
  int64_t tv_nsec;
};

struct d_timeval {
  int64_t tv_sec;
  int32_t tv_usec;
};

struct d_itimerval {
  struct d_timeval it_interval, it_value;
};

struct d_stat {  // with 64-bit inode numbers
  int32_t st_dev;
  uint16_t st_mode;
  uint16_t st_nlink;
  uint64_t st_ino;
  uint32_t st_uid;
  uint32_t st_gid;
  int32_t st_rdev;
  struct d_timespec st_atimespec, st_mtimespec, st_ctimespec, st_birthtimespec;
  int64_t st_size;
  int64_t st_blocks;
  int32_t st_blksize;
  uint32_t st_flags;
  uint32_t st_gen;
  int32_t st_lspare;
  int64_t st_qspare[2];
};
static_assert(sizeof(struct d_stat) == 144);

struct d_dirent {  // with 64-bit inode numbers
  uint64_t d_ino;
  uint64_t d_seekoff;
  uint16_t d_reclen;
  uint16_t d_namlen;
  uint8_t d_type;
  char d_name[1024];
};
static_assert(sizeof(struct d_dirent) == 1048);

typedef uint32_t d_sigset;

struct d_sigaction {
  void* handler;
  d_sigset sa_mask;
  int sa_flags;
};

enum {
  D_SIG_BLOCK = 1,
  D_SIG_UNBLOCK = 2,
  D_SIG_SETMASK = 3,
  D_SA_ONSTACK = 0x1,
  D_SA_RESTART = 0x2,
  D_SA_RESETHAND = 0x4,
  D_SA_NOCLDSTOP = 0x8,
  D_SA_NODEFER = 0x10,
};

enum {  // <sys/resource.h>
  D_RLIMIT_CPU,
  D_RLIMIT_FSIZE,
  D_RLIMIT_DATA,
  D_RLIMIT_STACK,
  D_RLIMIT_CORE,
  D_RLIMIT_AS,
  D_RLIMIT_MEMLOCK,
  D_RLIMIT_NPROC,
  D_RLIMIT_NOFILE,
  D_RLIM_NLIMITS,
};
#define D_RLIM_INFINITY ((uint64_t)INT64_MAX)

enum {
  D_PRIO_DARWIN_PROCESS = 4,
  D_PRIO_DARWIN_BG = 0x1000,
  D_IOPOL_TYPE_DISK = 0,
  D_IOPOL_SCOPE_PROCESS = 0,
  D_IOPOL_DEFAULT = 0,
  D_IOPOL_THROTTLE = 3,
};

enum {  // <sys/socket.h>
  D_SOL_SOCKET = 0xffff,
  D_SO_SNDBUF = 0x1001,
  D_SO_RCVBUF = 0x1002,
  D_MSG_DONTWAIT = 0x80,
};

struct d_sockaddr_un {
  uint8_t sun_len;
  uint8_t sun_family;
  char sun_path[104];
};

enum {  // <sys/proc_info.h>
  D_PROC_PIDLISTFDS = 1,
  D_PROC_PIDTHREADINFO = 5,
  D_PROC_PIDLISTTHREADS = 6,
  D_PROC_PIDREGIONPATHINFO = 8,

  D_TH_STATE_RUNNING = 1,
  D_TH_STATE_WAITING = 3,
};

struct d_proc_fdinfo {
  int32_t proc_fd;
  uint32_t proc_fdtype;
};

struct d_proc_threadinfo {
  uint64_t pth_user_time, pth_system_time;
  int32_t pth_cpu_usage, pth_policy, pth_run_state, pth_flags, pth_sleep_time;
  int32_t pth_curpri, pth_priority, pth_maxpriority;
  char pth_name[64];
};
static_assert(sizeof(struct d_proc_threadinfo) == 112);

struct d_vinfo_stat {
  uint32_t vst_dev;
  uint16_t vst_mode;
  uint16_t vst_nlink;
  uint64_t vst_ino;
  uint32_t vst_uid;
  uint32_t vst_gid;
  int64_t vst_times[8];
  int64_t vst_size;
  int64_t vst_blocks;
  int32_t vst_blksize;
  uint32_t vst_flags;
  uint32_t vst_gen;
  uint32_t vst_rdev;
  int64_t vst_qspare[2];
};

struct d_proc_regionwithpathinfo {
  struct {
    uint32_t protection, maxProtection, inheritance, flags;
    uint64_t offset;
    uint32_t others[14];
    uint64_t address, size;
  } prp_prinfo;
  struct {
    struct {
      struct d_vinfo_stat vi_stat;
      int vi_type, vi_pad;
      int32_t vi_fsid[2];
    } vip_vi;
    char vip_path[1024];
  } prp_vip;
};
static_assert(sizeof(struct d_proc_regionwithpathinfo) == 1272);

// clang-format off
// Error numbers that differ: DARWIN(Linux's name, Darwin's number).
#define DARWIN_ERRORS(DARWIN)                                                                             \
  DARWIN(EDEADLK, 11) DARWIN(EAGAIN, 35) DARWIN(EINPROGRESS, 36) DARWIN(EALREADY, 37)                     \
  DARWIN(ENOTSOCK, 38) DARWIN(EDESTADDRREQ, 39) DARWIN(EMSGSIZE, 40) DARWIN(EPROTOTYPE, 41)               \
  DARWIN(ENOPROTOOPT, 42) DARWIN(EPROTONOSUPPORT, 43) DARWIN(ENOTSUP, 45) DARWIN(EAFNOSUPPORT, 47)        \
  DARWIN(EADDRINUSE, 48) DARWIN(EADDRNOTAVAIL, 49) DARWIN(ENETDOWN, 50) DARWIN(ENETUNREACH, 51)           \
  DARWIN(ECONNABORTED, 53) DARWIN(ECONNRESET, 54) DARWIN(ENOBUFS, 55) DARWIN(EISCONN, 56)                 \
  DARWIN(ENOTCONN, 57) DARWIN(ETIMEDOUT, 60) DARWIN(ECONNREFUSED, 61) DARWIN(ELOOP, 62)                   \
  DARWIN(ENAMETOOLONG, 63) DARWIN(EHOSTUNREACH, 65) DARWIN(ENOTEMPTY, 66) DARWIN(EUSERS, 68)              \
  DARWIN(EDQUOT, 69) DARWIN(ESTALE, 70) DARWIN(EREMOTE, 71) DARWIN(ENOLCK, 77) DARWIN(ENOSYS, 78)         \
  DARWIN(EOVERFLOW, 84) DARWIN(ECANCELED, 89) DARWIN(EIDRM, 90) DARWIN(ENOMSG, 91) DARWIN(EILSEQ, 92)     \
  DARWIN(EBADMSG, 94) DARWIN(EMULTIHOP, 95) DARWIN(ENOLINK, 97) DARWIN(EPROTO, 100) DARWIN(ETIME, 101)

// Signals whose numbers differ. EMT (7) and INFO (29) are Darwin's alone, STKFLT and PWR Linux's.
#define DARWIN_SIGNALS(DARWIN)                                                                            \
  DARWIN(SIGBUS, 10) DARWIN(SIGSYS, 12) DARWIN(SIGURG, 16) DARWIN(SIGSTOP, 17) DARWIN(SIGTSTP, 18)        \
  DARWIN(SIGCONT, 19) DARWIN(SIGCHLD, 20) DARWIN(SIGIO, 23) DARWIN(SIGUSR1, 30) DARWIN(SIGUSR2, 31)
// clang-format on
