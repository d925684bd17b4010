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


static int d_nothing(void) {
  return 0;
}

// A thread of the program's is one of this process's, and a pthread_t is the same number of bytes on both systems.
struct Beginning {
  void* (*function)(void*);
  void* argument;
};

static void EndThreadLocals(void);

static void* RunThread(void* given) {
  const struct Beginning beginning = *(struct Beginning*)given;
  free(given);
  void* const result = beginning.function(beginning.argument);
  EndThreadLocals();
  return result;
}

static int d_pthread_create(pthread_t* thread, const void* attributes, void* (*function)(void*), void* argument) {
  if (attributes != NULL) Die("pthread_create() is given attributes");
  struct Beginning* beginning = malloc(sizeof *beginning);
  if (beginning == NULL) Die("no memory for a thread");
  *beginning = (struct Beginning){function, argument};
  return DarwinError(pthread_create(thread, NULL, RunThread, beginning));
}

static int d_pthread_join(pthread_t thread, void** result) {
  return DarwinError(pthread_join(thread, result));
}

static int d_pthread_detach(pthread_t thread) {
  return DarwinError(pthread_detach(thread));
}

// Darwin's mutex is a signature and 56 bytes, which are zero at first, as those of Linux's mutex are: Linux's is kept in them.
struct d_mutex {
  long signature;
  pthread_mutex_t own;
};
static_assert(sizeof(struct d_mutex) <= 64);

struct d_mutexattr {
  long signature;
  int type;
};

static int d_pthread_mutexattr_init(struct d_mutexattr* attributes) {
  attributes->type = PTHREAD_MUTEX_NORMAL;
  return 0;
}

// Both systems give ordinary mutexes the number 0, but Darwin gives recursive ones 2.
static int d_pthread_mutexattr_settype(struct d_mutexattr* attributes, int type) {
  enum { kNormal = 0, kRecursive = 2 };
  if (type != kNormal && type != kRecursive) Die("type %d of a mutex has no counterpart", type);
  attributes->type = type == kRecursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL;
  return 0;
}

static int d_pthread_mutex_init(struct d_mutex* mutex, const struct d_mutexattr* attributes) {
  pthread_mutexattr_t own;
  pthread_mutexattr_init(&own);
  pthread_mutexattr_settype(&own, attributes != NULL ? attributes->type : PTHREAD_MUTEX_NORMAL);
  return DarwinError(pthread_mutex_init(&mutex->own, &own));
}

static int d_pthread_mutex_lock(struct d_mutex* mutex) {
  return DarwinError(pthread_mutex_lock(&mutex->own));
}

static int d_pthread_mutex_trylock(struct d_mutex* mutex) {
  return DarwinError(pthread_mutex_trylock(&mutex->own));
}

static int d_pthread_mutex_unlock(struct d_mutex* mutex) {
  return DarwinError(pthread_mutex_unlock(&mutex->own));
}

// Darwin's condition is a signature and 40 bytes. Linux's is as large as all of that, so it takes the signature's place at the first
// use.
struct d_cond {
  long signature;
  char others[40];
};
static_assert(sizeof(pthread_cond_t) <= sizeof(struct d_cond));

static pthread_cond_t* OwnCondition(struct d_cond* condition) {
  enum { kSignature = 0x3cb0b1bb };  // as PTHREAD_COND_INITIALIZER has it
  static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  pthread_mutex_lock(&lock);
  if (condition->signature == kSignature) memset(condition, 0, sizeof *condition);
  pthread_mutex_unlock(&lock);
  return (pthread_cond_t*)condition;
}

static int d_pthread_cond_wait(struct d_cond* condition, struct d_mutex* mutex) {
  return DarwinError(pthread_cond_wait(OwnCondition(condition), &mutex->own));
}

static int d_pthread_cond_signal(struct d_cond* condition) {
  return DarwinError(pthread_cond_signal(OwnCondition(condition)));
}

static int d_pthread_cond_broadcast(struct d_cond* condition) {
  return DarwinError(pthread_cond_broadcast(OwnCondition(condition)));
}

// Darwin's is a signature and 8 bytes, which are zero at first, as Linux's is.
struct d_once {
  long signature;
  pthread_once_t own;
};

static int d_pthread_once(struct d_once* once, void (*function)(void)) {
  return DarwinError(pthread_once(&once->own, function));
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

// The destructors of this thread's thread-local objects.
enum { kMaximumExits = 64 };
static __thread struct {
  void (*function)(void*);
  void* argument;
} t_exits[kMaximumExits];
static __thread int t_exit_count;

static void d_tlv_atexit(void (*function)(void*), void* argument) {
  if (t_exit_count == kMaximumExits) Die("too many thread-local objects");
  t_exits[t_exit_count].function = function;
  t_exits[t_exit_count++].argument = argument;
}

static void DestroyThreadLocals(void) {
  while (t_exit_count > 0) {
    --t_exit_count;
    t_exits[t_exit_count].function(t_exits[t_exit_count].argument);
  }
}

static void EndThreadLocals(void) {
  DestroyThreadLocals();
  free(t_tlv);
  t_tlv = NULL;
}

void DarwinExit(int status) {
  DestroyThreadLocals();
  exit(status);
}

extern int __cxa_atexit(void (*function)(void*), void* argument, void* dso);
extern void* __dso_handle;

static int d_atexit(void (*function)(void)) {
  return atexit(function);
}

const struct StandIn kThreadStandIns[] = {
    OWN(pthread_mutex_lock), OWN(pthread_mutex_unlock), OWN(pthread_mutex_init), OWN(pthread_mutex_trylock),
    OWN(pthread_mutexattr_init), OWN(pthread_mutexattr_settype), {"_pthread_mutexattr_destroy", d_nothing},
    {"_pthread_mutex_destroy", d_nothing}, OWN(pthread_cond_signal), OWN(pthread_cond_broadcast),
    {"_pthread_cond_destroy", d_nothing}, OWN(pthread_cond_wait), OWN(pthread_join), OWN(pthread_detach),
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
