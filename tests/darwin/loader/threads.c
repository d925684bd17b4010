// Stand-ins for threads, thread-local variables, the end of the process and the unwinder.

#define _GNU_SOURCE
#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>
#include <unwind.h>

#include "darwin.h"
#include "loader.h"
#include "standins.h"


// The program has a single thread, because pthread_create() ends it, so its locks need not do anything.
static int d_nothing(void) {
  return 0;
}

static int d_pthread_create(void) {
  Die("the program starts a thread");
}

struct d_once {
  long signature;
  bool done;
};

static int d_pthread_once(struct d_once* once, void (*function)(void)) {
  if (!once->done) {
    once->done = true;
    function();
  }
  return 0;
}

static int d_pthread_key_create(unsigned long* key, void (*destructor)(void*)) {
  pthread_key_t own;
  const int error = pthread_key_create(&own, destructor);
  *key = own;
  return DarwinError(error);
}

static int d_pthread_setspecific(unsigned long key, const void* value) {
  return DarwinError(pthread_setspecific((pthread_key_t)key, value));
}

static int d_pthread_key_delete(unsigned long key) {
  return DarwinError(pthread_key_delete((pthread_key_t)key));
}

static void* d_pthread_getspecific(unsigned long key) {
  return pthread_getspecific((pthread_key_t)key);
}

static __thread uint8_t* t_tlv;

// Returns the address of a thread-local variable. TlvThunk calls it, and has saved the registers. The memory is allocated at the
// first use, as the dynamic linker does.
__attribute__((visibility("hidden"))) void* TlvAddress(const struct tlv_descriptor* descriptor) {
  if (t_tlv == NULL) {
    t_tlv = aligned_alloc(64, (g_image.tlvSize + 63) / 64 * 64);
    if (t_tlv == NULL) Die("no memory for thread-local variables");
    memcpy(t_tlv, g_image.tlvTemplate, g_image.tlvSize);
  }
  return t_tlv + descriptor->offset;
}

enum { kMaximumExits = 64 };
static struct {
  void (*function)(void*);
  void* argument;
} g_exits[kMaximumExits];
static int g_exit_count;

static void d_tlv_atexit(void (*function)(void*), void* argument) {
  if (g_exit_count == kMaximumExits) Die("too many thread-local objects");
  g_exits[g_exit_count].function = function;
  g_exits[g_exit_count++].argument = argument;
}

void DarwinExit(int status) {
  while (g_exit_count > 0) {
    --g_exit_count;
    g_exits[g_exit_count].function(g_exits[g_exit_count].argument);
  }
  exit(status);
}

extern int __cxa_atexit(void (*function)(void*), void* argument, void* dso);
extern void* __dso_handle;

static int d_atexit(void (*function)(void)) {
  return atexit(function);
}

const struct StandIn kThreadStandIns[] = {
    {"_pthread_mutex_lock", d_nothing}, {"_pthread_mutex_unlock", d_nothing}, {"_pthread_mutex_init", d_nothing},
    {"_pthread_mutex_destroy", d_nothing}, {"_pthread_mutex_trylock", d_nothing}, {"_pthread_mutexattr_init", d_nothing},
    {"_pthread_mutexattr_settype", d_nothing}, {"_pthread_mutexattr_destroy", d_nothing}, {"_pthread_cond_signal", d_nothing},
    {"_pthread_cond_broadcast", d_nothing}, {"_pthread_cond_destroy", d_nothing}, {"_pthread_cond_wait", d_nothing},
    OWN(pthread_create), OWN(pthread_once), OWN(pthread_key_create), OWN(pthread_setspecific), OWN(pthread_getspecific),
    OWN(pthread_key_delete), SAME(pthread_self),
    {"__tlv_bootstrap", d_nothing}, {"__tlv_atexit", d_tlv_atexit}, {"___cxa_atexit", __cxa_atexit}, OWN(atexit),
    {"_exit", DarwinExit}, {"__exit", _exit}, SAME(abort), {"dyld_stub_binder", d_nothing},
    {"__Unwind_RaiseException", _Unwind_RaiseException}, {"__Unwind_Resume", _Unwind_Resume},
    {"__Unwind_DeleteException", _Unwind_DeleteException}, {"__Unwind_GetIP", _Unwind_GetIP},
    {"__Unwind_GetIPInfo", _Unwind_GetIPInfo}, {"__Unwind_SetIP", _Unwind_SetIP}, {"__Unwind_SetGR", _Unwind_SetGR},
    {"__Unwind_GetGR", _Unwind_GetGR}, {"__Unwind_GetCFA", _Unwind_GetCFA}, {"__Unwind_Backtrace", _Unwind_Backtrace},
    {"__Unwind_GetRegionStart", _Unwind_GetRegionStart}, {"__Unwind_GetTextRelBase", _Unwind_GetTextRelBase},
    {"__Unwind_GetDataRelBase", _Unwind_GetDataRelBase},
    {"__Unwind_GetLanguageSpecificData", _Unwind_GetLanguageSpecificData},
    {"__Unwind_Resume_or_Rethrow", _Unwind_Resume_or_Rethrow}, {"__Unwind_ForcedUnwind", _Unwind_ForcedUnwind},
    {"__Unwind_FindEnclosingFunction", _Unwind_FindEnclosingFunction},
    {NULL, NULL},
};
