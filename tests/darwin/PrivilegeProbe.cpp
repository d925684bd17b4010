// Prints if the process is privileged, at its start and once all its IDs are root's. The library must not go
// by the IDs alone: they are equal in a set-user-ID process that has made itself fully root.

#include <stdio.h>
#include <unistd.h>

#include "PortableFoundation/Process.h"

int main() {
  const bool before = zekara::ProcessIsPrivileged();
  if (geteuid() == 0 && (setregid(0, 0) != 0 || setreuid(0, 0) != 0)) return 1;
  printf("%d %d\n", before, zekara::ProcessIsPrivileged());
  return 0;
}
