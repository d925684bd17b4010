// Settings of AddressSanitizer for a tool that is built for tests. They are compiled in, because the tool
// clears its environment, and some tests start it with none.

// The search for leaks has to trace the process, which the tool forbids.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "detect_leaks=0";
}
