// Calls ZKASendSignalToGUI() with the signal number given as the argument and prints how many were signalled.

#include <cstdio>
#include <cstdlib>

#include "Zekara4MacLibrary/ZKASignalSender.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: SendSignalToGUI SIGNAL-NUMBER\n");
    return 2;
  }
  std::printf("%d\n", zekara::ZKASendSignalToGUI(std::atoi(argv[1])));
  return 0;
}
