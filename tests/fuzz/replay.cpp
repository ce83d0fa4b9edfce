// Runs a target on every file of the given folders, as the fuzzer's own driver does when it does not fuzz.
#include "fuzz/fuzz.h"
#include "support/support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      const std::string content = support::ReadFile(entry.path());
      // When the target aborts, the last name printed is the file that did it.
      std::fprintf(stderr, "%s\n", entry.path().c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(content.data()), content.size());
      ++count;
    }
  }
  return count > 0 ? 0 : 1;
}
