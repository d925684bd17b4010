// Stand-ins for calls about files and directories.

#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "darwin.h"
#include "loader.h"
#include "standins.h"


static int LinuxOpenFlags(int flags) {
  static const int kFlags[][2] = {
      {D_O_NONBLOCK, O_NONBLOCK}, {D_O_APPEND, O_APPEND}, {D_O_NOFOLLOW, O_NOFOLLOW},   {D_O_CREAT, O_CREAT},
      {D_O_TRUNC, O_TRUNC},       {D_O_EXCL, O_EXCL},     {D_O_NOCTTY, O_NOCTTY},       {D_O_DIRECTORY, O_DIRECTORY},
      {D_O_CLOEXEC, O_CLOEXEC},   {D_O_EXLOCK, 0},        {D_O_SHLOCK, 0},
  };
  int result = flags & D_O_ACCMODE;
  int rest = flags & ~D_O_ACCMODE;
  for (size_t i = 0; i < sizeof kFlags / sizeof *kFlags; ++i) {
    if (rest & kFlags[i][0]) result |= kFlags[i][1];
    rest &= ~kFlags[i][0];
  }
  if (rest != 0) Die("open flags %#x have no counterpart", (unsigned)rest);
  return result;
}

static int LinuxDirectory(int directory) {
  return directory == D_AT_FDCWD ? AT_FDCWD : directory;
}

static int LinuxAtFlags(int flags) {
  if (flags & ~(D_AT_SYMLINK_NOFOLLOW | D_AT_REMOVEDIR)) Die("at flags %#x have no counterpart", (unsigned)flags);
  return (flags & D_AT_SYMLINK_NOFOLLOW ? AT_SYMLINK_NOFOLLOW : 0) | (flags & D_AT_REMOVEDIR ? AT_REMOVEDIR : 0);
}

// Locks a new descriptor as the flags say, then truncates the file. Closes the descriptor and returns -1 if either fails.
static int LockOpened(int file, int flags) {
  const int kind = (flags & D_O_EXLOCK ? LOCK_EX : LOCK_SH) | (flags & D_O_NONBLOCK ? LOCK_NB : 0);
  if (flock(file, kind) == 0 && (!(flags & D_O_TRUNC) || ftruncate(file, 0) == 0)) return file;
  const int error = errno;
  close(file);
  errno = error;
  return -1;
}

// The lock that O_EXLOCK takes is one of flock()'s. If it cannot be had, or a signal interrupts the wait for it, the open fails; a
// file that the open created stays. The kernel truncates the file only after it is locked.
static int OpenAndLock(int directory, const char* path, int flags, mode_t mode) {
  const bool wantsLock = flags & (D_O_EXLOCK | D_O_SHLOCK);
  const int linuxFlags = LinuxOpenFlags(wantsLock ? flags & ~D_O_TRUNC : flags);
  const int file = openat(LinuxDirectory(directory), path, linuxFlags, mode);
  return CHECKED(int, file >= 0 && wantsLock ? LockOpened(file, flags) : file);
}

int d_openat_list(int directory, const char* path, int flags, d_va_list list) {
  va_list arguments;
  LinuxList(arguments, list);
  const mode_t mode = flags & D_O_CREAT ? (mode_t)va_arg(arguments, int) : 0;
  return OpenAndLock(directory, path, flags, mode);
}

int d_open_list(const char* path, int flags, d_va_list list) {
  return d_openat_list(D_AT_FDCWD, path, flags, list);
}

VARIADIC(int, openat, flags, (int directory, const char* path, int flags, ...), directory, path, flags)
VARIADIC(int, open, flags, (const char* path, int flags, ...), path, flags)

static int d_close(int file) {
  return CHECKED(int, close(file));
}

static ssize_t d_read(int file, void* bytes, size_t size) {
  return CHECKED(ssize_t, read(file, bytes, size));
}

static ssize_t d_write(int file, const void* bytes, size_t size) {
  return CHECKED(ssize_t, write(file, bytes, size));
}

static off_t d_lseek(int file, off_t offset, int whence) {
  return CHECKED(off_t, lseek(file, offset, whence));
}

static int d_ftruncate(int file, off_t size) {
  return CHECKED(int, ftruncate(file, size));
}

static int d_fsync(int file) {
  return CHECKED(int, fsync(file));
}

static int d_flock(int file, int operation) {
  return CHECKED(int, flock(file, operation));  // the operations have the same numbers
}

int d_fcntl_list(int file, int command, d_va_list list) {
  va_list arguments;
  LinuxList(arguments, list);
  const long argument = va_arg(arguments, long);
  switch (command) {
    case D_F_DUPFD: return CHECKED(int, fcntl(file, F_DUPFD, argument));
    case D_F_GETFD: return CHECKED(int, fcntl(file, F_GETFD));
    case D_F_SETFD: return CHECKED(int, fcntl(file, F_SETFD, argument));
    case D_F_GETFL: {
      const int flags = fcntl(file, F_GETFL);
      if (flags < 0) return CHECKED(int, -1);
      return (flags & O_ACCMODE) | (flags & O_NONBLOCK ? D_O_NONBLOCK : 0) | (flags & O_APPEND ? D_O_APPEND : 0);
    }
    case D_F_SETFL: return CHECKED(int, fcntl(file, F_SETFL, LinuxOpenFlags((int)argument)));
    case D_F_FULLFSYNC: return CHECKED(int, fsync(file));
  }
  Die("fcntl command %d has no counterpart", command);
}

VARIADIC(int, fcntl, command, (int file, int command, ...), file, command)

static int FillStat(int result, const struct stat* from, struct d_stat* to) {
  if (result != 0) return CHECKED(int, result);
  *to = (struct d_stat){
      .st_dev = (int32_t)from->st_dev,
      .st_mode = (uint16_t)from->st_mode,  // the bits are the same
      .st_nlink = (uint16_t)from->st_nlink,
      .st_ino = from->st_ino,
      .st_uid = from->st_uid,
      .st_gid = from->st_gid,
      .st_rdev = (int32_t)from->st_rdev,
      .st_atimespec = {from->st_atim.tv_sec, from->st_atim.tv_nsec},
      .st_mtimespec = {from->st_mtim.tv_sec, from->st_mtim.tv_nsec},
      .st_ctimespec = {from->st_ctim.tv_sec, from->st_ctim.tv_nsec},
      .st_size = from->st_size,
      .st_blocks = from->st_blocks,
      .st_blksize = (int32_t)from->st_blksize,
  };
  return 0;
}

static int d_stat(const char* path, struct d_stat* attributes) {
  struct stat found;
  return FillStat(stat(path, &found), &found, attributes);
}

static int d_lstat(const char* path, struct d_stat* attributes) {
  struct stat found;
  return FillStat(lstat(path, &found), &found, attributes);
}

static int d_fstat(int file, struct d_stat* attributes) {
  struct stat found;
  return FillStat(fstat(file, &found), &found, attributes);
}

static int d_fstatat(int directory, const char* path, struct d_stat* attributes, int flags) {
  struct stat found;
  return FillStat(fstatat(LinuxDirectory(directory), path, &found, LinuxAtFlags(flags)), &found, attributes);
}

// For a directory, macOS's kernel fails with EPERM, Linux's with EISDIR.
static int d_unlinkat(int directory, const char* path, int flags) {
  const int result = unlinkat(LinuxDirectory(directory), path, LinuxAtFlags(flags));
  if (result != 0 && errno == EISDIR) errno = EPERM;
  return CHECKED(int, result);
}

static int d_unlink(const char* path) {
  return d_unlinkat(D_AT_FDCWD, path, 0);
}

// On both systems chown() clears the set-user-ID bit, for root too.
static int d_chown(const char* path, uid_t owner, gid_t group) {
  return CHECKED(int, chown(path, owner, group));
}

static int d_fchown(int file, uid_t owner, gid_t group) {
  return CHECKED(int, fchown(file, owner, group));
}

static int d_chmod(const char* path, uint16_t mode) {
  return CHECKED(int, chmod(path, mode));
}

static int d_fchmod(int file, uint16_t mode) {
  return CHECKED(int, fchmod(file, mode));
}

static int d_isatty(int file) {
  return isatty(file);
}

static DIR* d_fdopendir(int file) {
  DIR* stream = fdopendir(file);
  if (stream == NULL) Checked(-1);
  return stream;
}

static DIR* d_opendir(const char* path) {
  DIR* stream = opendir(path);
  if (stream == NULL) Checked(-1);
  return stream;
}

static int d_closedir(DIR* stream) {
  return CHECKED(int, closedir(stream));
}

static struct d_dirent* d_readdir(DIR* stream) {
  static __thread struct d_dirent result;
  errno = 0;
  const struct dirent* entry = readdir(stream);
  if (entry == NULL) {
    if (errno != 0) Checked(-1);
    return NULL;
  }
  const size_t length = strlen(entry->d_name);
  result = (struct d_dirent){.d_ino = entry->d_ino, .d_reclen = sizeof result, .d_type = entry->d_type};
  result.d_namlen = (uint16_t)length;
  memcpy(result.d_name, entry->d_name, length + 1);
  return &result;
}

static int d_poll(struct pollfd* descriptors, unsigned count, int limit) {
  enum { kSameOnBoth = POLLIN | POLLPRI | POLLOUT };
  for (unsigned i = 0; i < count; ++i) {
    if (descriptors[i].events & ~kSameOnBoth) Die("poll events %#x have no counterpart", (unsigned)descriptors[i].events);
  }
  return CHECKED(int, poll(descriptors, count, limit));
}

static int d_pipe(int ends[2]) {
  return CHECKED(int, pipe(ends));
}

// Only the unit tests and the examples call these.
static int d_mkdir(const char* path, uint16_t mode) {
  return CHECKED(int, mkdir(path, mode));
}

static int d_mkdirat(int directory, const char* path, uint16_t mode) {
  return CHECKED(int, mkdirat(LinuxDirectory(directory), path, mode));
}

static int d_rmdir(const char* path) {
  return CHECKED(int, rmdir(path));
}

static int d_remove(const char* path) {
  return CHECKED(int, remove(path));
}

static int d_chdir(const char* path) {
  return CHECKED(int, chdir(path));
}

static int d_dup(int file) {
  return CHECKED(int, dup(file));
}

static int d_dup2(int from, int to) {
  return CHECKED(int, dup2(from, to));
}

static ssize_t d_pread(int file, void* bytes, size_t size, off_t offset) {
  return CHECKED(ssize_t, pread(file, bytes, size, offset));
}

static int d_lchown(const char* path, uid_t owner, gid_t group) {
  return CHECKED(int, lchown(path, owner, group));
}

// Darwin's number of a device has the major number in its upper 8 bits.
static int d_mknod(const char* path, uint16_t mode, int32_t device) {
  enum { kMajorShift = 24 };
  const uint32_t number = (uint32_t)device;
  return CHECKED(int, mknod(path, mode, makedev(number >> kMajorShift, number & ((1U << kMajorShift) - 1))));
}

static int d_access(const char* path, int mode) {
  return CHECKED(int, access(path, mode));  // the modes have the same numbers
}

static int d_link(const char* from, const char* to) {
  return CHECKED(int, link(from, to));
}

static int d_symlink(const char* target, const char* path) {
  return CHECKED(int, symlink(target, path));
}

static ssize_t d_readlink(const char* path, char* target, size_t size) {
  return CHECKED(ssize_t, readlink(path, target, size));
}

static int d_rename(const char* from, const char* to) {
  return CHECKED(int, rename(from, to));
}

static int d_truncate(const char* path, off_t size) {
  return CHECKED(int, truncate(path, size));
}

static int d_mkfifo(const char* path, uint16_t mode) {
  return CHECKED(int, mkfifo(path, mode));
}

static char* d_mkdtemp(char* pattern) {
  char* path = mkdtemp(pattern);
  if (path == NULL) Checked(-1);
  return path;
}

static int d_mkstemp(char* pattern) {
  return CHECKED(int, mkstemp(pattern));
}

static char* d_realpath(const char* path, char* resolved) {
  char* found = realpath(path, resolved);
  if (found == NULL) Checked(-1);
  return found;
}

// std::filesystem copies a file's bytes with these. The state is for options that it does not use.
static void* d_copyfile_state_alloc(void) {
  static char state;
  return &state;
}

static int d_copyfile_state_free(void* state) {
  (void)state;
  return 0;
}

static int d_fcopyfile(int from, int to, void* state, unsigned flags) {
  enum { kData = 8 };
  (void)state;
  if (flags != kData) Die("fcopyfile flags %#x have no counterpart", flags);
  ssize_t count = 0;
  do {
    count = sendfile(to, from, NULL, 1 << 30);
  } while (count > 0);
  return CHECKED(int, count);
}

const struct StandIn kFileStandIns[] = {
    OWN(open), OWN(openat), OWN(close), OWN(read), OWN(write), OWN(lseek), OWN(ftruncate), OWN(fsync), OWN(flock), OWN(fcntl),
    INODE64(stat), INODE64(lstat), INODE64(fstat), INODE64(fstatat), OWN(unlinkat), OWN(unlink), OWN(chown), OWN(fchown),
    OWN(chmod), OWN(fchmod), SAME(umask), OWN(isatty), OWN(poll), OWN(pipe),
    INODE64(opendir), INODE64(fdopendir), INODE64(readdir), OWN(closedir),
    // Only the unit tests and the examples call these.
    SAME(getcwd), OWN(chdir), OWN(mkdir), OWN(mkdirat), OWN(remove), OWN(rmdir), OWN(dup), OWN(dup2), OWN(pread),
    OWN(lchown), OWN(mknod), OWN(copyfile_state_alloc), OWN(copyfile_state_free), OWN(fcopyfile),
    OWN(access), OWN(link), OWN(symlink), OWN(readlink), OWN(rename), OWN(truncate), OWN(mkfifo), OWN(mkdtemp), OWN(mkstemp),
    {"_realpath$DARWIN_EXTSN", d_realpath},
    {NULL, NULL},
};
