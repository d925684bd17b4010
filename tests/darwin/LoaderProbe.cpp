// A macOS program that puts the loader's promises to the test: LoaderProbe CASE prints what it observed.
// loader_test.py knows what it must print.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace {

// Reading it keeps the compiler from computing a case's result itself.
volatile int g_zero = 0;

int g_destroyed = 0;
struct Counted {
  ~Counted() { ++g_destroyed; }
};

// --- Exceptions

[[noreturn]] __attribute__((noinline)) void Throw(int value) {
  throw std::runtime_error(std::string(static_cast<std::size_t>(value), 'x'));
}

// Each frame has an object to destroy, and values that live in registers which the frames above it use as
// well.
__attribute__((noinline)) long Descend(int depth, long a, long b, long c, long d) {
  Counted counted;
  if (depth == g_zero) Throw(3);
  const long below = Descend(depth - 1, b + 1, c + 2, d + 3, a + 4);
  return below + a * b + c * d;
}

// The unwinder has to restore the registers that held these.
__attribute__((noinline)) long CatchBetween(long a, long b, long c, long d, long e) {
  long caught = 0;
  try {
    caught = Descend(20, a, b, c, d);
  } catch (const std::logic_error&) {
    caught = -1;
  } catch (const std::runtime_error& error) {
    caught = static_cast<long>(strlen(error.what()));
  }
  return caught + 10 * a + 100 * b + 1000 * c + 10000 * d + 100000 * e;
}

__attribute__((noinline)) double CatchWithDoubles(double a, double b, double c) {
  try {
    Throw(1);
  } catch (const std::exception&) {
    return a + 10 * b + 100 * c;
  }
}

// A frame too large for the short forms of compact unwind information.
__attribute__((noinline)) int CatchInLargeFrame(int value) {
  volatile char large[300000];
  large[value] = static_cast<char>(value);
  try {
    Throw(2);
  } catch (...) {
    return large[value];
  }
}

int Exceptions() {
  printf("registers %ld\n", CatchBetween(1 + g_zero, 2, 3, 4, 5));
  printf("destroyed %d\n", g_destroyed);
  printf("doubles %.1f\n", CatchWithDoubles(1 + g_zero, 2, 3));
  printf("large frame %d\n", CatchInLargeFrame(7 + g_zero));
  try {
    try {
      Throw(4);
    } catch (...) {
      throw;
    }
  } catch (const std::exception& error) {
    printf("again %s\n", error.what());
  }
  return 0;
}

int Uncaught() {
  Throw(5);
}

// --- Thread-local variables, initialisers and the end of the process

thread_local int t_set = 7;
thread_local long t_zero[32];
struct Last {
  explicit Last(const char* name) : name_(name) {}
  ~Last() { printf("destroyed %s\n", name_); }
  const char* name_;
};
thread_local Last t_last("a thread-local object");

int ThreadLocals() {
  printf("%d %ld %ld\n", t_set, t_zero[0], t_zero[31]);
  t_set += g_zero + 1;
  t_zero[31] = 9;
  printf("%d %ld %s\n", t_set, t_zero[31], t_last.name_);
  atexit([] { puts("atexit"); });
  return 3;
}

int g_initialised = getpid() > 0 ? 42 : 0;
int g_constructed = 0;
__attribute__((constructor)) void NoteConstruction() {
  g_constructed = 43;
}

int Initialisers() {
  static const Last last("a static object");
  printf("initialised %d %d\n", g_initialised, g_constructed);
  return 0;
}

// --- The image: arguments, variadic functions, protection, stack

int Arguments(int argc, char** argv) {
  for (int i = 2; i < argc; ++i) printf("<%s>", argv[i]);
  printf(" %s %s\n", getprogname(), getenv("LOADER_PROBE"));
  return 0;
}

int Variadic() {
  char text[128];
  const int size = snprintf(text, sizeof text, "%d %s %.2f %c %lld %d %d %d %.1f", 1 + g_zero, "two", 3.25,
                            '4', 5LL << 40, 6, 7, 8, 9.5);
  printf("%d %s\n", size, text);
  return 0;
}

__attribute__((noinline)) int UseStack(int depth) {
  volatile char room[65536];
  room[0] = static_cast<char>(depth);
  return depth == 0 ? room[0] : UseStack(depth - 1) + room[0] * 0;
}

int Stack() {
  printf("%d\n", UseStack(150 + g_zero));  // nearly 10 MiB
  return 0;
}

// --- Threads

std::mutex g_mutex;
std::condition_variable g_condition;
long g_count = 0;

// Without the lock, two threads that read, wait and write lose what the other has added.
void CountTo(long limit) {
  for (long i = 0; i < limit; ++i) {
    const std::lock_guard lock(g_mutex);
    const long before = g_count;
    if (i % 100 == 0) std::this_thread::yield();
    g_count = before + 1;
  }
}

int Threads() {
  std::thread first(CountTo, 10000);
  std::thread second(CountTo, 10000);
  first.join();
  second.join();
  printf("counted %ld\n", g_count);
  std::thread third([] {
    std::unique_lock lock(g_mutex);
    g_condition.wait(lock, [] { return g_count < 0; });
    printf("woken\n");
  });
  {
    const std::lock_guard lock(g_mutex);
    g_count = -1;
  }
  g_condition.notify_all();
  third.join();
  t_set = 1;
  std::thread([] { printf("%d %s\n", t_set, t_last.name_); }).join();
  try {
    std::thread([] {}).detach();
    Throw(6);
  } catch (const std::exception& error) {
    printf("caught %s beside %d\n", error.what(), t_set);
  }
  return 0;
}

// --- What no stand-in can express

int UnknownOpenFlag() {
  return open("/", O_RDONLY | O_EVTONLY);
}
int UnknownAtFlag() {
  struct stat status;
  return fstatat(AT_FDCWD, "/", &status, AT_SYMLINK_NOFOLLOW_ANY);
}
int UnknownCommand() {
  return fcntl(0, F_GETPATH, nullptr);
}
int UnknownSignal() {
  return kill(getpid(), SIGINFO);
}
int UnknownResource() {
  rlimit limit;
  return getrlimit(77 + g_zero, &limit);
}
int MissingFunction() {
  return static_cast<int>(arc4random());
}

// The linker's name for the addresses of imports. They are bound and then protected, so a write ends the
// process with a signal.
extern "C" void* volatile g_imports[] __asm("section$start$__DATA_CONST$__got");

int WriteImport() {
  g_imports[g_zero] = nullptr;
  return 0;
}

int WriteCode() {
  *const_cast<volatile char*>(reinterpret_cast<char*>(&Stack)) = 0;
  return 0;
}

using Function = int();

struct Case {
  std::string_view name;
  Function* function;
};
constexpr Case kCases[] = {
    {"exceptions", Exceptions},
    {"uncaught", Uncaught},
    {"thread-locals", ThreadLocals},
    {"initialisers", Initialisers},
    {"variadic", Variadic},
    {"write-import", WriteImport},
    {"write-code", WriteCode},
    {"stack", Stack},
    {"threads", Threads},
    {"unknown-open-flag", UnknownOpenFlag},
    {"unknown-at-flag", UnknownAtFlag},
    {"unknown-command", UnknownCommand},
    {"unknown-signal", UnknownSignal},
    {"unknown-resource", UnknownResource},
    {"missing-function", MissingFunction},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && argv[1] == std::string_view("arguments")) return Arguments(argc, argv);
  for (const Case& one : kCases) {
    if (argc > 1 && one.name == argv[1]) return one.function();
  }
  return 2;
}
