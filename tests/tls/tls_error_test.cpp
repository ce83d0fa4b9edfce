#include <gtest/gtest.h>
#include <iconv.h>
#include <openssl/ssl.h>

#include <string>
#include <utility>
#include <vector>

#include "tls/tls_socket.h"

namespace {

// What follows the prefix, as UTF-8; empty when it is no EUC-KR text.
std::string ToUtf8(std::string text) {
  std::string out(1024, '\0');
  char* in_next = text.data();
  char* out_next = out.data();
  size_t in_left = text.size();
  size_t out_left = out.size();
  iconv_t converter = ::iconv_open("UTF-8", "EUC-KR");
  const bool whole = ::iconv(converter, &in_next, &in_left, &out_next, &out_left) == 0;
  ::iconv_close(converter);
  out.resize(whole ? out.size() - out_left : 0);
  return out;
}

std::string Message(int error) {
  LVCSR_SOCK_HEAD head{};
  head.uLastError = error;
  EXPECT_EQ(ErrorCode(&head), error);
  return ErrorMessage(&head);
}

// Every code of the library stands under its own name, followed by a Korean sentence of its own.
TEST(TlsErrorMessage, NamesTheCodeAndSaysItInKorean) {
  const std::vector<std::pair<int, std::string>> rows = {
      {SSL_ERROR_NONE, "SSL_ERROR_NONE: "},
      {SSL_ERROR_SSL, "SSL_ERROR_SSL: "},
      {SSL_ERROR_WANT_READ, "SSL_ERROR_WANT_READ: "},
      {SSL_ERROR_WANT_WRITE, "SSL_ERROR_WANT_WRITE: "},
      {SSL_ERROR_WANT_X509_LOOKUP, "SSL_ERROR_WANT_X509_LOOKUP: "},
      {SSL_ERROR_SYSCALL, "SSL_ERROR_SYSCALL: "},
      {SSL_ERROR_ZERO_RETURN, "SSL_ERROR_ZERO_RETURN: "},
      {SSL_ERROR_WANT_CONNECT, "SSL_ERROR_WANT_CONNECT: "},
      {SSL_ERROR_WANT_ACCEPT, "SSL_ERROR_WANT_ACCEPT: "},
      {SSL_ERROR_WANT_ASYNC, "SSL_ERROR_WANT_ASYNC: "},
      {SSL_ERROR_WANT_ASYNC_JOB, "SSL_ERROR_WANT_ASYNC_JOB: "},
  };
  for (const auto& [code, prefix] : rows) {
    const std::string text = Message(code);
    ASSERT_EQ(text.substr(0, prefix.size()), prefix);
    const std::string sentence = ToUtf8(text.substr(prefix.size()));
    EXPECT_TRUE(sentence.ends_with("다.")) << code << " " << sentence;
  }
}

TEST(TlsErrorMessage, KnowsNoOtherCode) {
  for (const int code : {11, 12, 1000, -1, INT32_MIN})
    EXPECT_EQ(ToUtf8(Message(code)), "알 수 없는 오류입니다.");
}

}  // namespace
