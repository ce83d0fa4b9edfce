// Keys and certificates made for one test, as PEM files in a temporary folder.
#ifndef TESTS_TLS_CERTIFICATES_H
#define TESTS_TLS_CERTIFICATES_H

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

#include "support/support.h"

namespace test {

// "ca" and "foreign" are authorities; "server", "client" (its key has the pass phrase "secret") and "expired"
// are signed by "ca". Each has a NAME.pem and a NAME.key.
class CertificateFolder {
 public:
  CertificateFolder() {
    const Identity authority = Make("ca", nullptr);
    Make("foreign", nullptr);
    Make("server", &authority);
    Make("client", &authority, 3600, "secret");
    Make("expired", &authority, -60);
  }
  std::string Path(const std::string& file) const { return folder_ / file; }

 private:
  struct Identity {
    std::shared_ptr<EVP_PKEY> key;
    std::shared_ptr<X509> certificate;
  };

  // Signed by an authority (null: by itself, and is one), valid until seconds from now.
  Identity Make(const std::string& name, const Identity* authority, long seconds = 3600,
                const char* passPhrase = nullptr) const {
    const Identity made{{EVP_EC_gen("P-256"), EVP_PKEY_free}, {X509_new(), X509_free}};
    const Identity& issuer = authority == nullptr ? made : *authority;
    X509* certificate = made.certificate.get();
    X509_set_version(certificate, X509_VERSION_3);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -7200);
    X509_gmtime_adj(X509_getm_notAfter(certificate), seconds);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer.certificate.get()));
    X509_set_pubkey(certificate, made.key.get());
    BASIC_CONSTRAINTS constraints{};
    constraints.ca = authority == nullptr ? 1 : 0;
    X509_add1_ext_i2d(certificate, NID_basic_constraints, &constraints, 1, 0);
    X509_sign(certificate, issuer.key.get(), EVP_sha256());

    const base::UniqueFile pem(std::fopen(Path(name + ".pem").c_str(), "we"));
    PEM_write_X509(pem.get(), certificate);
    const base::UniqueFile key(std::fopen(Path(name + ".key").c_str(), "we"));
    PEM_write_PrivateKey(key.get(), made.key.get(), passPhrase == nullptr ? nullptr : EVP_aes_128_cbc(),
                         nullptr, 0, nullptr, const_cast<char*>(passPhrase));
    return made;
  }

  support::TempFolder folder_;
};

}  // namespace test

#endif
