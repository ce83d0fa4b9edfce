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

constexpr int CERTIFICATE_VERIFY_DEPTH = 1;

struct CertificateFree {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
using UniqueCertificate = std::unique_ptr<X509, CertificateFree>;

int FailTls(LVCSR_SOCK_HEAD* tls_head, int tls_error) {
  tls_head->uLastError = tls_error;
  SSLReset(tls_head);
  return -1;
}

// The time limit of one call in milliseconds.
int64_t TlsCallLimitMs(const LVCSR_SOCK_HEAD& tls_head) {
  return tls_head.uRecvTimeout < 1 ? base::FOREVER : int64_t{tls_head.uRecvTimeout} * 1000;
}

// Makes one call on the session. The library's error queue is emptied first: an older error of this thread
// would count as one of this call.
template <typename TlsCall>
int CallTls(LVCSR_SOCK_HEAD* tls_head, int64_t milliseconds, TlsCall tls_call) {
  if (tls_head->pSSL == nullptr) return FailTls(tls_head, SSL_ERROR_SSL);
  tls::LimitBioTime(tls_head->pSSL, milliseconds);
  ERR_clear_error();
  errno = 0;
  const int tls_result = tls_call(tls_head->pSSL);
  return tls_result > 0 ? tls_result : FailTls(tls_head, SSL_get_error(tls_head->pSSL, tls_result));
}

bool NewTlsSession(LVCSR_SOCK_HEAD* tls_head, int socket) {
  tls_head->uSock = socket;
  tls_head->pSSL = tls_head->pCTX == nullptr ? nullptr : SSL_new(tls_head->pCTX);
  return tls_head->pSSL != nullptr && tls::AttachStoppableBio(tls_head->pSSL, socket);
}

SSL_CTX* CreateTlsContext(LVCSR_SOCK_HEAD* tls_head, const SSL_METHOD* method) {
  tls_head->pCTX = SSL_CTX_new(method);
  return tls_head->pCTX;
}

}  // namespace

LVCSR_SOCK_HEAD* SSLInit(LVCSR_SOCK_HEAD* tls_head) {
  OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS |
                       OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS,
                   nullptr);
  tls_head->uSock = 0;
  tls_head->pSSL = nullptr;
  tls_head->pCTX = nullptr;
  tls_head->uLastError = 0;
  return tls_head;
}

void SSLClose(LVCSR_SOCK_HEAD* tls_head) {
  SSLReset(tls_head);
  ContextReset(tls_head);
  tls_head->uSock = 0;
  tls_head->uLastError = 0;
}

void SSLReset(LVCSR_SOCK_HEAD* tls_head) {
  SSL_free(std::exchange(tls_head->pSSL, nullptr));
}

void ContextReset(LVCSR_SOCK_HEAD* tls_head) {
  SSL_CTX_free(std::exchange(tls_head->pCTX, nullptr));
}

SSL_CTX* CreateServerContext(LVCSR_SOCK_HEAD* tls_head) {
  return CreateTlsContext(tls_head, TLS_server_method());
}

SSL_CTX* CreateClientContext(LVCSR_SOCK_HEAD* tls_head) {
  return CreateTlsContext(tls_head, TLS_client_method());
}

int CertificateLoad(LVCSR_SOCK_HEAD* tls_head, const char* certificate, const char* key,
                    const char* pass_phrase) {
  SSL_CTX* tls_context = tls_head->pCTX;
  if (tls_context == nullptr || certificate == nullptr || key == nullptr) return -1;
  // Without user data the library's default callback asks at the terminal. It only reads this text.
  SSL_CTX_set_default_passwd_cb_userdata(tls_context,
                                         const_cast<char*>(pass_phrase == nullptr ? "" : pass_phrase));
  if (SSL_CTX_use_certificate_file(tls_context, certificate, SSL_FILETYPE_PEM) != 1) return -1;
  if (SSL_CTX_use_PrivateKey_file(tls_context, key, SSL_FILETYPE_PEM) != 1) return -1;
  return SSL_CTX_check_private_key(tls_context) == 1 ? 1 : -1;
}

int CACheck(LVCSR_SOCK_HEAD* tls_head, const char* ca) {
  SSL_CTX* tls_context = tls_head->pCTX;
  if (tls_context == nullptr || ca == nullptr) return -1;
  if (SSL_CTX_load_verify_locations(tls_context, ca, nullptr) != 1) return -1;
  SSL_CTX_set_verify(tls_context, SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_verify_depth(tls_context, CERTIFICATE_VERIFY_DEPTH);
  return 1;
}

int ExpiresCheck(const char* pem_path) {
  const base::UniqueFile certificate_file(pem_path == nullptr ? nullptr : std::fopen(pem_path, "re"));
  if (certificate_file == nullptr) {
    std::printf("SSL Certificate File Open Error \n");
    return -1;
  }
  char no_pass_phrase[] = "";  // as in CertificateLoad
  const UniqueCertificate certificate(
      PEM_read_X509(certificate_file.get(), nullptr, nullptr, no_pass_phrase));
  if (certificate == nullptr) {
    std::printf("SSL Not Found Certificate (Path: %s) \n", pem_path);
    return -1;
  }
  const int certificate_expiry = X509_cmp_time(X509_get0_notAfter(certificate.get()), nullptr);
  if (certificate_expiry < 0) std::printf("SSL Certificate Expired \n");
  return certificate_expiry > 0 ? 1 : -1;
}

int DunraSTT_SSL(const char* cert, const char* key, const char* ca, const char* pass,
                 LVCSR_SOCK_HEAD* tls_head) {
  tls_head->bVerify = cert != nullptr && *cert != '\0' ? 1 : 0;
  if (tls_head->bVerify == 1) {
    CertificateLoad(tls_head, cert, key, pass);
    CACheck(tls_head, ca);
  }
  tls_head->bUseSSL = 1;
  return 0;
}

int ServerSockSetting(LVCSR_SOCK_HEAD* tls_head, int socket) {
  if (!NewTlsSession(tls_head, socket)) return FailTls(tls_head, SSL_ERROR_SSL);
  return CallTls(tls_head, TlsCallLimitMs(*tls_head), SSL_accept) > 0 ? 1 : -1;
}

int ClientSockSetting(LVCSR_SOCK_HEAD* tls_head, int socket) {
  if (!NewTlsSession(tls_head, socket)) return FailTls(tls_head, SSL_ERROR_SSL);
  const int tls_result = CallTls(tls_head, TlsCallLimitMs(*tls_head), [socket](SSL* session) {
    const int tls_connected = SSL_connect(session);
    // printf must not change errno: the library reads it when it is asked for the error.
    const int tls_errno = errno;
    std::printf("SSL connection on socket %d,Version: %s, Cipher: %s\n", socket, SSL_get_version(session),
                SSL_get_cipher(session));
    errno = tls_errno;
    return tls_connected;
  });
  return tls_result > 0 ? 1 : -1;
}

int CertificateCheck(LVCSR_SOCK_HEAD* tls_head) {
  tls_head->uLastError = 0;
  if (tls_head->pSSL == nullptr) return -2;
  const UniqueCertificate certificate(SSL_get_peer_certificate(tls_head->pSSL));
  if (certificate == nullptr) return -2;
  return SSL_get_verify_result(tls_head->pSSL) == X509_V_OK ? 1 : -1;
}

int Read(LVCSR_SOCK_HEAD* tls_head, char* buffer, int count) {
  return ReadWithin(tls_head, buffer, count, TlsCallLimitMs(*tls_head));
}

int ReadWithin(LVCSR_SOCK_HEAD* tls_head, char* buffer, int count, int64_t milliseconds) {
  return CallTls(tls_head, milliseconds, [=](SSL* session) { return SSL_read(session, buffer, count); });
}

int Write(LVCSR_SOCK_HEAD* tls_head, const char* buffer, int count) {
  return CallTls(tls_head, TlsCallLimitMs(*tls_head),
                 [=](SSL* session) { return SSL_write(session, buffer, count); });
}
