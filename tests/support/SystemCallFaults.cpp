#include <sys/prctl.h>
#include <unistd.h>

#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <vector>

#include "tests/support/Faults.h"

namespace zekara::test {

// The filter allows a call whose first argument is a standard descriptor. It compares the number of every
// other call with the given ones.
bool MakeSystemCallsFail(std::initializer_list<int> calls, int error) {
  std::vector<sock_filter> program = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
      BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, STDERR_FILENO, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
  };
  for (const int call : calls) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter = {.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace zekara::test
