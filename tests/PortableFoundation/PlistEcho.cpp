// Reads property lists from standard input and writes each back to standard output, for tests in other
// languages. In both directions a line with the length in bytes comes before each property list. The answer
// to one that cannot be read or written is a line "error: " with the reason.

#include <cstdio>
#include <string>

#include "PortableFoundation/NSPropertyListSerialization.h"

int main() {
  using zekara::NSPropertyListSerialization;
  std::size_t size = 0;
  while (std::scanf("%zu", &size) == 1 && std::getchar() == '\n') {
    std::string text(size, '\0');
    if (std::fread(text.data(), 1, size, stdin) != size) return 1;
    std::string answer;
    std::string error;
    const zekara::Plist plist = NSPropertyListSerialization::propertyListFromData(text, error);
    if (!plist.isNil() && NSPropertyListSerialization::appendDataFromPropertyList(plist, answer, error)) {
      std::printf("%zu\n", answer.size());
      std::fwrite(answer.data(), 1, answer.size(), stdout);
    } else {
      std::printf("error: %s\n", error.c_str());
    }
    std::fflush(stdout);
  }
  return 0;
}
