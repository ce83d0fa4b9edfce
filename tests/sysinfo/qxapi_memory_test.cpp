// Every allocation of a snapshot fails once: what is left must be a sound list.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "sysinfo/proc_fixture.h"
#include "sysinfo/qxapi_internal.h"

namespace {

int allocationsLeft = -1;  // -1: none fails

// False for the one allocation that is to fail.
bool Allowed() {
  return allocationsLeft < 0 || allocationsLeft-- != 0;
}

}  // namespace

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
char* __real_strdup(const char* text);
char* __real_strndup(const char* text, size_t size);

void* __wrap_malloc(size_t size) {
  return Allowed() ? __real_malloc(size) : nullptr;
}
void* __wrap_calloc(size_t count, size_t size) {
  return Allowed() ? __real_calloc(count, size) : nullptr;
}
void* __wrap_realloc(void* block, size_t size) {
  return Allowed() ? __real_realloc(block, size) : nullptr;
}
char* __wrap_strdup(const char* text) {
  return Allowed() ? __real_strdup(text) : nullptr;
}
char* __wrap_strndup(const char* text, size_t size) {
  return Allowed() ? __real_strndup(text, size) : nullptr;
}
}

namespace {

using namespace std::string_view_literals;

bool IsNullOr(const char* text, std::string_view expected) {
  return text == nullptr || text == expected;
}

void ExpectSoundRecord(const qxapi_process* p) {
  ASSERT_NE(p, nullptr);
  EXPECT_TRUE(IsNullOr(p->name, "stt"));
  EXPECT_TRUE(IsNullOr(p->command, "a b"));
  EXPECT_TRUE(IsNullOr(p->owner, "root"));
  EXPECT_EQ(p->cmdline_len, p->cmdline == nullptr ? 0U : 4U);
  EXPECT_EQ(p->argc, p->argv == nullptr ? 0U : 2U);
  EXPECT_STREQ(p->argc == 0 ? "b" : p->argv[1], "b");
}

TEST(OutOfMemory, LeavesASoundList) {
  const ProcFixture proc;
  proc.Write("7/cmdline", "a\0b\0"sv);
  proc.Write("7/status", "Name:\tstt\nPid:\t7\n");
  proc.Write("7/stat", StatText("stt", "0", "1"));
  int skipped = 0;
  int failing = 0;
  for (bool failed = true; failed; ++failing) {
    allocationsLeft = failing;
    const ProcessList list(qxapi_open_process(proc.Root()));
    failed = allocationsLeft < 0;
    allocationsLeft = -1;
    if (list == nullptr) {
      ++skipped;
      continue;
    }
    ASSERT_NO_FATAL_FAILURE(ExpectSoundRecord(FindPid(list, 7)));
  }
  EXPECT_EQ(skipped, 1);  // the record's own
  EXPECT_GE(failing, 7);
}

TEST(OutOfMemory, CutsWhatTheBufferCannotHold) {
  const ProcFixture proc;
  proc.Write("7/cmdline", std::string(70000, 'a'));
  allocationsLeft = 2;  // the record and the first buffer
  const ProcessList list(qxapi_open_process(proc.Root()));
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->cmdline_len, 65536U);
  EXPECT_EQ(std::string(list->command), std::string(65536, 'a'));
}

TEST(OutOfMemory, GivesNoText) {
  const char* cursor = "a b";
  allocationsLeft = 0;
  EXPECT_EQ(__qxapi_get_word_sep__(nullptr, &cursor), nullptr);
  allocationsLeft = 0;
  EXPECT_EQ(__qxapi_alloc_sprintf__("%d", 1), nullptr);
  allocationsLeft = -1;
  EXPECT_STREQ(cursor, "b");
}

}  // namespace
