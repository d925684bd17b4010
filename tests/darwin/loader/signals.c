// Stand-ins for calls about signals: the numbers, sets and structures differ.

#define _GNU_SOURCE
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <unistd.h>

#include "darwin.h"
#include "loader.h"
#include "standins.h"


enum { kEmt = 7, kInfo = 29, kDarwinSignals = 32 };

// The numbers 1 to 6, 8, 9, 11, 13 to 15, 21, 22 and 24 to 28 mean the same signal on both systems.
int LinuxSignal(int number) {
  switch (number) {
#define CASE(name, darwins) \
  case darwins: return name;
    DARWIN_SIGNALS(CASE)
#undef CASE
    case kEmt:
    case kInfo: return -1;
  }
  return number;
}

int DarwinSignal(int number) {
  switch (number) {
#define CASE(name, darwins) \
  case name: return darwins;
    DARWIN_SIGNALS(CASE)
#undef CASE
    case SIGSTKFLT:
    case SIGPWR: return -1;
  }
  return number < kDarwinSignals ? number : -1;
}

static int RequireLinuxSignal(int number) {
  const int result = LinuxSignal(number);
  if (result < 0) Die("signal %d has no counterpart", number);
  return result;
}

// The signals that only Linux has. They are blocked when the program blocks all signals, and otherwise keep the state that they
// had when the program first asked.
static sigset_t g_foreign;
static bool g_has_foreign;

static sigset_t LinuxSet(d_sigset from) {
  sigset_t to;
  if (from == ~(d_sigset)0) {
    sigfillset(&to);
    return to;
  }
  if (g_has_foreign) {
    to = g_foreign;
  } else {
    sigemptyset(&to);
  }
  for (int number = 1; number < kDarwinSignals; ++number) {
    const int own = LinuxSignal(number);
    if (own > 0 && from >> (number - 1) & 1) sigaddset(&to, own);
  }
  return to;
}

static d_sigset DarwinSet(const sigset_t* from) {
  d_sigset to = 0;
  for (int number = 1; number < kDarwinSignals; ++number) {
    const int own = LinuxSignal(number);
    if (own > 0 && sigismember(from, own) == 1) to |= 1U << (number - 1);
  }
  return to;
}

static void NoteForeignSignals(const sigset_t* mask) {
  if (g_has_foreign) return;
  g_has_foreign = true;
  sigemptyset(&g_foreign);
  for (int number = 1; number <= SIGRTMAX; ++number) {
    if (DarwinSignal(number) < 0 && sigismember(mask, number) == 1) sigaddset(&g_foreign, number);
  }
}

static int d_pthread_sigmask(int how, const d_sigset* set, d_sigset* old) {
  static const int kHow[] = {-1, SIG_BLOCK, SIG_UNBLOCK, SIG_SETMASK};
  sigset_t previous;
  pthread_sigmask(SIG_SETMASK, NULL, &previous);
  NoteForeignSignals(&previous);
  if (old != NULL) *old = DarwinSet(&previous);
  if (set == NULL) return 0;
  if (how < D_SIG_BLOCK || how > D_SIG_SETMASK) return 22;
  const sigset_t wanted = LinuxSet(*set);
  return DarwinError(pthread_sigmask(kHow[how], &wanted, NULL));
}

static int d_sigprocmask(int how, const d_sigset* set, d_sigset* old) {
  const int error = d_pthread_sigmask(how, set, old);
  if (error == 0) return 0;
  t_error = error;
  return -1;
}

static void (*g_handlers[kDarwinSignals])(int);

static void OnSignal(int number) {
  const int saved = t_error;
  const int darwins = DarwinSignal(number);
  g_handlers[darwins](darwins);
  t_error = saved;
}

// SIG_DFL, SIG_IGN and SIG_ERR have the same values on both systems.
static void (*HandlerFor(int number, void* wanted))(int) {
  if (wanted == (void*)SIG_DFL || wanted == (void*)SIG_IGN) return (void (*)(int))wanted;
  g_handlers[number] = (void (*)(int))wanted;
  return OnSignal;
}

static void* DarwinHandler(int number, void (*handler)(int)) {
  return handler == OnSignal ? (void*)g_handlers[number] : (void*)handler;
}

static int d_sigaction(int number, const struct d_sigaction* wanted, struct d_sigaction* old) {
  const int own = LinuxSignal(number);
  if (own < 0) return 0;  // Linux never sends this signal
  struct sigaction previous = {};
  if (sigaction(own, NULL, &previous) != 0) return CHECKED(int, -1);
  if (old != NULL) {
    *old = (struct d_sigaction){DarwinHandler(number, previous.sa_handler), DarwinSet(&previous.sa_mask),
                                previous.sa_flags & SA_RESTART ? D_SA_RESTART : 0};
  }
  if (wanted == NULL) return 0;
  if (wanted->sa_flags & ~(D_SA_RESTART | D_SA_RESETHAND | D_SA_NOCLDSTOP | D_SA_NODEFER)) {
    Die("sigaction flags %#x have no counterpart", (unsigned)wanted->sa_flags);
  }
  struct sigaction action = {.sa_handler = HandlerFor(number, wanted->handler), .sa_mask = LinuxSet(wanted->sa_mask)};
  if (wanted->sa_flags & D_SA_RESTART) action.sa_flags |= SA_RESTART;
  if (wanted->sa_flags & D_SA_RESETHAND) action.sa_flags |= (int)SA_RESETHAND;
  if (wanted->sa_flags & D_SA_NOCLDSTOP) action.sa_flags |= SA_NOCLDSTOP;
  if (wanted->sa_flags & D_SA_NODEFER) action.sa_flags |= SA_NODEFER;
  return CHECKED(int, sigaction(own, &action, NULL));
}

static void* d_signal(int number, void* handler) {
  struct d_sigaction old;
  const struct d_sigaction action = {.handler = handler, .sa_flags = D_SA_RESTART};
  return d_sigaction(number, &action, &old) == 0 ? old.handler : (void*)SIG_ERR;
}

static int d_kill(pid_t process, int number) {
  return CHECKED(int, kill(process, number == 0 ? 0 : RequireLinuxSignal(number)));
}

static int d_raise(int number) {
  return CHECKED(int, raise(RequireLinuxSignal(number)));
}

static int d_sigpending(d_sigset* set) {
  sigset_t pending;
  if (sigpending(&pending) != 0) return CHECKED(int, -1);
  *set = DarwinSet(&pending);
  return 0;
}

static int d_sigwait(const d_sigset* set, int* number) {
  const sigset_t own = LinuxSet(*set);
  int arrived = 0;
  const int error = sigwait(&own, &arrived);
  *number = DarwinSignal(arrived);
  return DarwinError(error);
}

const struct StandIn kSignalStandIns[] = {
    OWN(pthread_sigmask), OWN(sigprocmask), OWN(sigaction), OWN(signal), OWN(kill), SAME(alarm), OWN(raise), OWN(sigpending), OWN(sigwait),
    {NULL, NULL},
};
