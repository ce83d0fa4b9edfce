// Runs the function FUZZ_TARGET: on what the fuzzer makes up, or without DUNRA_FUZZ on every file of a
// folder.
#include "support/support.h"

void FUZZ_TARGET(const std::string& text);

#ifdef DUNRA_FUZZ
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
  return 0;
}
#else
int main(int /*argc*/, char** argv) {
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    // When the target aborts, the last name printed is the file that did it.
    std::fprintf(stderr, "%s\n", entry.path().c_str());
    FUZZ_TARGET(support::ReadFile(entry.path()));
    ++count;
  }
  return count > 0 ? 0 : 1;
}
#endif
