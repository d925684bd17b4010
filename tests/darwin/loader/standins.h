// What the files of stand-ins share. A stand-in takes and returns what macOS's function of that name does,
// and asks Linux for it.
//
// A value that Linux cannot express ends the process with a message. Passing it on would make the program
// behave differently without a trace, and the test that then fails, or worse passes, would blame or praise
// the program for it.
#pragma once

#include <assert.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <string.h>

// One entry of a table of stand-ins: a symbol as macOS spells it, with its leading underscore, and its
// address here.
struct StandIn {
  const char* symbol;
  void* target;
};

// Each file of stand-ins has one table, which ends with an entry without a symbol.
extern const struct StandIn kFileStandIns[], kSignalStandIns[], kProcessStandIns[], kTextStandIns[],
    kThreadStandIns[], kSocketStandIns[];

// SAME: both systems have the function alike, so the program gets this process's own. OWN: the function is
// d_NAME(). INODE64: the same, under the name that x86_64 programs call; arm64 has had 64-bit inode numbers
// from the beginning.
#define SAME(name) \
  { "_" #name, (void*)(name) }
#define OWN(name) \
  { "_" #name, (void*)d_##name }
#ifdef __x86_64__
#define INODE64(name) \
  { "_" #name "$INODE64", (void*)d_##name }
#else
#define INODE64(name) OWN(name)
#endif

// Errors. Each thread has Darwin's errno for the program beside Linux's for the loader.
extern __thread int t_error;

// Returns Darwin's number for one of Linux's, and ends the process if there is none; LinuxError() is the
// reverse.
int DarwinError(int error);
int LinuxError(int error);

// Sets the program's errno if the result is -1. Returns the result.
long Checked(long result);
#define CHECKED(type, call) (type) Checked((long)(call))

// Fails as one of Darwin's functions does: sets the program's errno, returns -1.
int Fail(int darwinError);

// Returns Linux's number for a signal of Darwin's, and -1 if Linux lacks it; DarwinSignal() is the reverse.
int LinuxSignal(int number);
int DarwinSignal(int number);

// Variable arguments. On x86_64 both systems pass them alike. On arm64 Darwin passes all of them on the
// stack, 8 bytes each, and its va_list is their address: a Linux va_list whose registers are used up reads
// the same. There start-aarch64.S defines d_NAME(), which calls d_NAME_list() with the address of the
// variable arguments.
#ifdef __x86_64__
typedef va_list d_va_list;
#define LinuxList(to, from) va_copy(to, from)
#define VARIADIC(type, name, last, parameters, ...)              \
  static type d_##name parameters {                              \
    va_list arguments;                                           \
    va_start(arguments, last);                                   \
    const type result = d_##name##_list(__VA_ARGS__, arguments); \
    va_end(arguments);                                           \
    return result;                                               \
  }
#else
typedef char* d_va_list;
struct aapcs_list {
  void *stack, *registersEnd, *vectorsEnd;
  int registers, vectors;
};
static_assert(sizeof(struct aapcs_list) == sizeof(va_list));
#define LinuxList(to, from) memcpy(&(to), &(struct aapcs_list){.stack = (from)}, sizeof(struct aapcs_list))
#define VARIADIC(type, name, last, parameters, ...) extern type d_##name parameters;
#endif
