// The search through the tables of stand-ins, and the translation of error numbers that all of them need.

#define _GNU_SOURCE
#include "standins.h"

#include <errno.h>
#include <stddef.h>

#include "darwin.h"
#include "loader.h"

__thread int t_error;

int DarwinError(int error) {
  enum { kSameUpTo = 34 };  // ERANGE; EDEADLK and EAGAIN are the exceptions
  switch (error) {
#define CASE(name, number) \
  case name: return number;
    DARWIN_ERRORS(CASE)
#undef CASE
  }
  if (error > kSameUpTo) Die("error %d (%s) has no counterpart", error, strerror(error));
  return error;
}

int LinuxError(int error) {
  enum { kDarwinsOpNotSupp = 102 };  // Linux has one number for this and ENOTSUP
  switch (error) {
#define CASE(name, number) \
  case number: return name;
    DARWIN_ERRORS(CASE)
#undef CASE
    case kDarwinsOpNotSupp: return EOPNOTSUPP;
  }
  return error;
}

long Checked(long result) {
  if (result == -1) t_error = DarwinError(errno);
  return result;
}

int Fail(int darwinError) {
  t_error = darwinError;
  return -1;
}

static void* FindIn(const struct StandIn* table, const char* symbol) {
  for (; table->symbol != NULL; ++table) {
    // Most names differ in their first letter already, which saves calls that take long under qemu.
    if (table->symbol[1] == symbol[1] && strcmp(table->symbol, symbol) == 0) return table->target;
  }
  return NULL;
}

void* FindStandIn(const char* symbol) {
  static const struct StandIn* const kTables[] = {kFileStandIns, kSignalStandIns, kProcessStandIns, kTextStandIns,
                                                  kThreadStandIns, kSocketStandIns};
  void* found = NULL;
  for (size_t i = 0; found == NULL && i < sizeof kTables / sizeof *kTables; ++i) found = FindIn(kTables[i], symbol);
  return found;
}
