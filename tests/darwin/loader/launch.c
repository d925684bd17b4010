// Runs the arm64 part of a macOS program on x86_64: copies the arm64 loader, which has the Mach-O file in it, to memory, and has
// qemu run it there.
//
// The file that was started keeps its owner, mode and place, so tests can install it set-user-ID. What the program asks about its
// own file is answered with this one: NoteOwnFile() gets its descriptor through MACHO_LOADER_EXE.
//
// QEMU is the path of qemu-aarch64, from the command line.

#define _GNU_SOURCE
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

// The loader, from embed.S.in.
extern const char g_file[];
extern const char g_file_end[];

static int Fail(const char* what) {
  perror(what);
  return 125;
}

static char** ArgumentsForQemu(char* loader, int argc, char** argv) {
  static char* const kFirst[] = {"qemu-aarch64", "-0"};
  char** arguments = calloc((size_t)argc + 5, sizeof *arguments);
  if (arguments == NULL) return NULL;
  memcpy(arguments, kFirst, sizeof kFirst);
  arguments[2] = argc > 0 ? argv[0] : "";
  arguments[3] = loader;
  for (int i = 1; i < argc; ++i) arguments[3 + i] = argv[i];
  return arguments;
}

// Moves a descriptor above those of the standard streams, so that a stream that is closed stays closed. Returns -1 if the
// descriptor is -1 or none is free.
static int AboveStandardStreams(int descriptor) {
  const int moved = fcntl(descriptor, F_DUPFD, STDERR_FILENO + 1);
  close(descriptor);
  return moved;
}

int main(int argc, char** argv) {
  const int self = AboveStandardStreams(open("/proc/self/exe", O_RDONLY));
  const int loader = AboveStandardStreams(memfd_create("loader", 0));
  if (self < 0 || loader < 0) return Fail("launch: open");
  const size_t size = (size_t)(g_file_end - g_file);
  if (write(loader, g_file, size) != (ssize_t)size) return Fail("launch: write");
  char path[32];
  char number[16];
  snprintf(path, sizeof path, "/proc/self/fd/%d", loader);
  snprintf(number, sizeof number, "%d", self);
  setenv("MACHO_LOADER_EXE", number, 1);
  char** arguments = ArgumentsForQemu(path, argc, argv);
  if (arguments == NULL) return Fail("launch: memory");
  execv(QEMU, arguments);
  return Fail("launch: " QEMU);
}
