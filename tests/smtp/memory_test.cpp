// Goal: no allocation that fails, at whatever place, does more than give its stated status.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "smtp/peer.h"

namespace {

thread_local long allowed = -1;  // allocations until the one that fails; below 0: none fails

bool Fails() {
  return allowed >= 0 && allowed-- == 0;
}

}  // namespace

extern "C" {
// The linker's names for wrapped functions.
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void* __wrap_malloc(size_t size) {
  return Fails() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return Fails() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, size_t size) {
  return Fails() ? nullptr : __real_realloc(block, size);
}
}

void* operator new(size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(size_t size, const std::nothrow_t& /*unused*/) noexcept {
  return std::malloc(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, size_t /*size*/) noexcept {
  std::free(block);
}

namespace {

const char* const LONG = "a text that is too long to be kept without memory of its own";

// One whole mail; the status of the close.
int SendOne(const MailPeer& peer, FILE* file) {
  smtp_session* session = nullptr;
  peer.Open(&session, SMTP_FLAG_DEBUG);
  smtp_auth(session, SMTP_METHOD_PLAIN, LONG, LONG);
  smtp_address_add(session, SMTP_ADDRESS_FROM, "agent.of.the.engine@example.com", LONG);
  smtp_address_add(session, SMTP_ADDRESS_TO, "somebody.of.the.engine@example.com", LONG);
  smtp_header_add(session, "Subject-Of-The-Mail-Itself", LONG);
  smtp_attachment_add_fp(session, LONG, file);
  smtp_attachment_add_mem(session, LONG, LONG, SMTP_TEXT_LENGTH);
  smtp_mail(session, LONG);
  return smtp_close(session);
}

TEST(SmtpMemory, EveryAllocationMayFail) {
  const base::UniqueFile file(std::tmpfile());
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  int failed = 0;
  long place = 1;  // the session itself is the other test's
  for (; place < 500; ++place) {
    MailPeer peer({"220 hello", "250 ok", "235 in", "250 ok", "250 ok", "354 go", "250 ok"});
    testing::internal::CaptureStderr();
    allowed = place;
    const int status = SendOne(peer, file.get());
    const bool reached = allowed < 0;
    allowed = -1;
    testing::internal::GetCapturedStderr();
    if (!reached) break;
    // 0 where only a debug line was lost; the handshake and AUTH have one status for all.
    EXPECT_TRUE(status == 0 || status == SMTP_NO_MEMORY || status == SMTP_HANDSHAKE_FAILED ||
                status == SMTP_AUTH_FAILED)
        << status << " at " << place;
    failed += static_cast<int>(status == SMTP_NO_MEMORY);
  }
  EXPECT_LT(place, 500);
  EXPECT_GT(failed, 20);
}

TEST(SmtpMemory, TheSharedSessionStaysAsItIs) {
  allowed = 0;
  smtp_session* session = nullptr;
  EXPECT_EQ(smtp_open("127.0.0.1", "1", 0, 0, nullptr, &session), SMTP_NO_MEMORY);
  allowed = -1;
  EXPECT_EQ(session->flags, UINT32_MAX);
  EXPECT_EQ(session->sock.Get(), -1);
  EXPECT_EQ(smtp_status_code_clear(session), SMTP_NO_MEMORY);
  EXPECT_EQ(smtp_header_add(session, "Key", "value"), SMTP_NO_MEMORY);
  EXPECT_EQ(smtp_mail(session, "body"), SMTP_NO_MEMORY);
  EXPECT_EQ(smtp_close(session), SMTP_NO_MEMORY);
  EXPECT_EQ(smtp_close(session), SMTP_NO_MEMORY);
}

}  // namespace
