// Runs the macOS program that is embedded in this executable, in a Linux process of the same processor: maps it, binds what it
// imports to the stand-ins, and calls its main(). ../README.md says what that proves.

#define _GNU_SOURCE
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "loader.h"

extern char** environ;

void Die(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char text[512];
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  dprintf(STDERR_FILENO, "macho-loader: %s\n", text);
  _exit(125);
}

static void NoteTlvPart(uint8_t* address, uint64_t size) {
  if (g_image.tlvTemplate == NULL) g_image.tlvTemplate = address;
  if (address < g_image.tlvTemplate) Die("the sections of thread-local variables are not in order");
  g_image.tlvSize = (uint64_t)(address + size - g_image.tlvTemplate);
}

static void SetTlvThunks(uint8_t* address, uint64_t size) {
  struct tlv_descriptor* descriptors = (void*)address;
  for (uint64_t i = 0; i < size / sizeof *descriptors; ++i) descriptors[i].thunk = TlvThunk;
}

static void PrepareThreadLocals(void) {
  ForEachSection(S_THREAD_LOCAL_REGULAR, NoteTlvPart);
  ForEachSection(S_THREAD_LOCAL_ZEROFILL, NoteTlvPart);
  ForEachSection(S_THREAD_LOCAL_VARIABLES, SetTlvThunks);
}

typedef void Initializer(int, char**, char**, char**, void*);
static char* g_apple[] = {NULL};

static void RunInitializer(Initializer* initializer) {
  initializer(g_image.argc, g_image.argv, environ, g_apple, NULL);
}

static void RunInitializerPointers(uint8_t* address, uint64_t size) {
  Initializer** pointers = (void*)address;
  for (uint64_t i = 0; i < size / sizeof *pointers; ++i) RunInitializer(pointers[i]);
}

static void RunInitializerOffsets(uint8_t* address, uint64_t size) {
  const uint32_t* offsets = (const void*)address;
  for (uint64_t i = 0; i < size / sizeof *offsets; ++i) RunInitializer((Initializer*)(g_image.base + offsets[i]));
}

static int RunProgram(int argc, char** argv, char** envp, char** apple) {
  ForEachSection(S_MOD_INIT_FUNC_POINTERS, RunInitializerPointers);
  ForEachSection(S_INIT_FUNC_OFFSETS, RunInitializerOffsets);
  int (*entry)(int, char**, char**, char**) = (void*)(g_image.base + g_image.entry->entryoff);
  DarwinExit(entry(argc, argv, envp, apple));
}

// Returns the end of a stack of the size that the program demands, whatever the limit is, as macOS's kernel does; null if it
// demands none, so that it runs on this process's stack and under its limit.
static void* MakeStack(void) {
  enum { kGuard = 4096 };
  const uint64_t size = g_image.entry->stacksize;
  if (size == 0) return NULL;
  uint8_t* stack = Allocate(size + kGuard, PROT_READ | PROT_WRITE);
  if (mprotect(stack, kGuard, PROT_NONE) != 0) Die("the stack cannot be protected");
  return stack + kGuard + size;
}

static void NoteArguments(int argc, char** argv) {
  const char* path = argc > 0 ? argv[0] : "";
  const char* slash = strrchr(path, '/');
  g_image.name = slash != NULL ? slash + 1 : path;
  g_image.argc = argc;
  g_image.argv = argv;
}

int main(int argc, char** argv) {
  NoteOwnFile();
  NoteArguments(argc, argv);
  ReadImage();
  MapImage();
  FixUp();
  PrepareThreadLocals();
  ProtectImage();
  return CallOnStack(RunProgram, argc, argv, environ, g_apple, MakeStack());
}
