#include "tls/tls_socket.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "tls/stoppable_bio.h"

namespace {

constexpr int VERIFY_DEPTH = 1;

struct CertificateFree {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
using UniqueCertificate = std::unique_ptr<X509, CertificateFree>;

int FailSession(LVCSR_SOCK_HEAD* head, int error) {
  head->uLastError = error;
  SSLReset(head);
  return -1;
}

// The time limit of one call in milliseconds.
int64_t CallLimit(const LVCSR_SOCK_HEAD& head) {
  return head.uRecvTimeout < 1 ? base::FOREVER : int64_t{head.uRecvTimeout} * 1000;
}

// Makes one call on the session. The library's error queue is emptied first: an older error of this thread
// would count as one of this call.
template <typename Call>
int CallSession(LVCSR_SOCK_HEAD* head, int64_t milliseconds, Call call) {
  if (head->pSSL == nullptr) return FailSession(head, SSL_ERROR_SSL);
  tls::LimitTime(head->pSSL, milliseconds);
  ERR_clear_error();
  errno = 0;
  const int result = call(head->pSSL);
  return result > 0 ? result : FailSession(head, SSL_get_error(head->pSSL, result));
}

bool NewSession(LVCSR_SOCK_HEAD* head, int socket) {
  head->uSock = socket;
  head->pSSL = head->pCTX == nullptr ? nullptr : SSL_new(head->pCTX);
  return head->pSSL != nullptr && tls::AttachSocket(head->pSSL, socket);
}

SSL_CTX* CreateContext(LVCSR_SOCK_HEAD* head, const SSL_METHOD* method) {
  head->pCTX = SSL_CTX_new(method);
  return head->pCTX;
}

}  // namespace

LVCSR_SOCK_HEAD* SSLInit(LVCSR_SOCK_HEAD* head) {
  OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS |
                       OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS,
                   nullptr);
  head->uSock = 0;
  head->pSSL = nullptr;
  head->pCTX = nullptr;
  head->uLastError = 0;
  return head;
}

void SSLClose(LVCSR_SOCK_HEAD* head) {
  SSLReset(head);
  ContextReset(head);
  head->uSock = 0;
  head->uLastError = 0;
}

void SSLReset(LVCSR_SOCK_HEAD* head) {
  SSL_free(std::exchange(head->pSSL, nullptr));
}

void ContextReset(LVCSR_SOCK_HEAD* head) {
  SSL_CTX_free(std::exchange(head->pCTX, nullptr));
}

SSL_CTX* CreateServerContext(LVCSR_SOCK_HEAD* head) {
  return CreateContext(head, TLS_server_method());
}

SSL_CTX* CreateClientContext(LVCSR_SOCK_HEAD* head) {
  return CreateContext(head, TLS_client_method());
}

int CertificateLoad(LVCSR_SOCK_HEAD* head, const char* certificate, const char* key,
                    const char* pass_phrase) {
  SSL_CTX* context = head->pCTX;
  if (context == nullptr || certificate == nullptr || key == nullptr) return -1;
  // Without user data the library's default callback asks at the terminal. It only reads this text.
  SSL_CTX_set_default_passwd_cb_userdata(context,
                                         const_cast<char*>(pass_phrase == nullptr ? "" : pass_phrase));
  if (SSL_CTX_use_certificate_file(context, certificate, SSL_FILETYPE_PEM) != 1) return -1;
  if (SSL_CTX_use_PrivateKey_file(context, key, SSL_FILETYPE_PEM) != 1) return -1;
  return SSL_CTX_check_private_key(context) == 1 ? 1 : -1;
}

int CACheck(LVCSR_SOCK_HEAD* head, const char* ca) {
  SSL_CTX* context = head->pCTX;
  if (context == nullptr || ca == nullptr) return -1;
  if (SSL_CTX_load_verify_locations(context, ca, nullptr) != 1) return -1;
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_verify_depth(context, VERIFY_DEPTH);
  return 1;
}

int ExpiresCheck(const char* path) {
  const base::UniqueFile file(path == nullptr ? nullptr : std::fopen(path, "re"));
  if (file == nullptr) {
    std::printf("SSL Certificate File Open Error \n");
    return -1;
  }
  char no_pass_phrase[] = "";  // as in CertificateLoad
  const UniqueCertificate certificate(PEM_read_X509(file.get(), nullptr, nullptr, no_pass_phrase));
  if (certificate == nullptr) {
    std::printf("SSL Not Found Certificate (Path: %s) \n", path);
    return -1;
  }
  const int order = X509_cmp_time(X509_get0_notAfter(certificate.get()), nullptr);
  if (order < 0) std::printf("SSL Certificate Expired \n");
  return order > 0 ? 1 : -1;
}

int DunraSTT_SSL(const char* cert, const char* key, const char* ca, const char* pass, LVCSR_SOCK_HEAD* head) {
  head->bVerify = cert != nullptr && *cert != '\0' ? 1 : 0;
  if (head->bVerify == 1) {
    CertificateLoad(head, cert, key, pass);
    CACheck(head, ca);
  }
  head->bUseSSL = 1;
  return 0;
}

int ServerSockSetting(LVCSR_SOCK_HEAD* head, int socket) {
  if (!NewSession(head, socket)) return FailSession(head, SSL_ERROR_SSL);
  return CallSession(head, CallLimit(*head), SSL_accept) > 0 ? 1 : -1;
}

int ClientSockSetting(LVCSR_SOCK_HEAD* head, int socket) {
  if (!NewSession(head, socket)) return FailSession(head, SSL_ERROR_SSL);
  const int result = CallSession(head, CallLimit(*head), [socket](SSL* session) {
    const int connected = SSL_connect(session);
    // printf must not change errno: the library reads it when it is asked for the error.
    const int error = errno;
    std::printf("SSL connection on socket %d,Version: %s, Cipher: %s\n", socket, SSL_get_version(session),
                SSL_get_cipher(session));
    errno = error;
    return connected;
  });
  return result > 0 ? 1 : -1;
}

int CertificateCheck(LVCSR_SOCK_HEAD* head) {
  head->uLastError = 0;
  if (head->pSSL == nullptr) return -2;
  const UniqueCertificate certificate(SSL_get_peer_certificate(head->pSSL));
  if (certificate == nullptr) return -2;
  return SSL_get_verify_result(head->pSSL) == X509_V_OK ? 1 : -1;
}

int Read(LVCSR_SOCK_HEAD* head, char* buffer, int count) {
  return ReadWithin(head, buffer, count, CallLimit(*head));
}

int ReadWithin(LVCSR_SOCK_HEAD* head, char* buffer, int count, int64_t milliseconds) {
  return CallSession(head, milliseconds, [=](SSL* session) { return SSL_read(session, buffer, count); });
}

int Write(LVCSR_SOCK_HEAD* head, const char* buffer, int count) {
  return CallSession(head, CallLimit(*head), [=](SSL* session) { return SSL_write(session, buffer, count); });
}
