// Keys and certificates made for one test, as PEM files in a temporary folder.
#ifndef TESTS_TLS_CERTIFICATES_H
#define TESTS_TLS_CERTIFICATES_H

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "base/owners.h"

namespace test {

struct Release {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};

struct Identity {
  std::unique_ptr<EVP_PKEY, Release> key;
  std::unique_ptr<X509, Release> certificate;
};

inline std::unique_ptr<EVP_PKEY, Release> MakeKey() {
  const std::unique_ptr<EVP_PKEY_CTX, Release> context(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
  EVP_PKEY* key = nullptr;
  EVP_PKEY_keygen_init(context.get());
  EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1);
  EVP_PKEY_keygen(context.get(), &key);
  return std::unique_ptr<EVP_PKEY, Release>(key);
}

// A certificate that an authority signs (null: it signs itself and is an authority), valid until seconds from
// now.
inline Identity MakeIdentity(const char* name, const Identity* authority, long seconds = 3600) {
  Identity made{MakeKey(), std::unique_ptr<X509, Release>(X509_new())};
  X509* certificate = made.certificate.get();
  X509_set_version(certificate, 2);
  static long serial = 1;
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial++);
  X509_gmtime_adj(X509_getm_notBefore(certificate), -7200);
  X509_gmtime_adj(X509_getm_notAfter(certificate), seconds);
  X509_NAME* subject = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name), -1,
                             -1, 0);
  X509_set_issuer_name(certificate,
                       authority == nullptr ? subject : X509_get_subject_name(authority->certificate.get()));
  X509_set_pubkey(certificate, made.key.get());
  const std::unique_ptr<X509_EXTENSION, Release> constraint(X509V3_EXT_conf_nid(
      nullptr, nullptr, NID_basic_constraints, authority == nullptr ? "critical,CA:TRUE" : "CA:FALSE"));
  X509_add_ext(certificate, constraint.get(), -1);
  X509_sign(certificate, authority == nullptr ? made.key.get() : authority->key.get(), EVP_sha256());
  return made;
}

class CertificateFolder {
 public:
  CertificateFolder() {
    char pattern[] = "/tmp/certificates.XXXXXX";
    folder_ = ::mkdtemp(pattern);
    const Identity authority = MakeIdentity("authority", nullptr);
    const Identity foreign = MakeIdentity("foreign authority", nullptr);
    Store("ca", authority, nullptr);
    Store("foreign", foreign, nullptr);
    Store("server", MakeIdentity("127.0.0.1", &authority), nullptr);
    Store("client", MakeIdentity("agent", &authority), "secret");
    Store("expired", MakeIdentity("127.0.0.1", &authority, -60), nullptr);
    Store("now", MakeIdentity("127.0.0.1", &authority, 0), nullptr);
  }
  CertificateFolder(const CertificateFolder&) = delete;
  CertificateFolder& operator=(const CertificateFolder&) = delete;
  ~CertificateFolder() { std::filesystem::remove_all(folder_); }

  const std::string& Folder() const { return folder_; }
  std::string Path(const std::string& file) const { return folder_ + "/" + file; }

 private:
  void Store(const std::string& name, const Identity& identity, const char* pass_phrase) {
    const base::UniqueFile certificate(std::fopen(Path(name + ".pem").c_str(), "we"));
    PEM_write_X509(certificate.get(), identity.certificate.get());
    const base::UniqueFile key(std::fopen(Path(name + ".key").c_str(), "we"));
    const auto* pass = reinterpret_cast<const unsigned char*>(pass_phrase);
    const int length = pass_phrase == nullptr ? 0 : static_cast<int>(std::string(pass_phrase).size());
    PEM_write_PrivateKey(key.get(), identity.key.get(), pass == nullptr ? nullptr : EVP_aes_128_cbc(), pass,
                         length, nullptr, nullptr);
  }

  std::string folder_;
};

}  // namespace test

#endif
