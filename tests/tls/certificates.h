// Creates keys and certificates for one test, as PEM files in a temporary folder.
#ifndef TESTS_TLS_CERTIFICATES_H
#define TESTS_TLS_CERTIFICATES_H

#include <cstdlib>
#include <string>

#include "support/support.h"

namespace test {

// "ca" and "foreign" are authorities; "server", "localhost", "client" (its key has the pass phrase "secret")
// and "expired" are signed by "ca". Each has a NAME.pem and a NAME.key.
class CertificateFolder {
 public:
  CertificateFolder() {
    Make("ca", "-nodes", "-signkey ca.key");
    Make("foreign", "-nodes", "-signkey foreign.key");
    const std::string by_authority = "-CA ca.pem -CAkey ca.key -CAcreateserial";
    Make("server", "-nodes", by_authority);
    Make("localhost", "-nodes", by_authority);
    Make("client", "-passout pass:secret", by_authority);
    Make("expired", "-nodes", by_authority + " -days -1");
  }
  std::string Path(const std::string& file) const { return folder_ / file; }

 private:
  void Make(const std::string& name, const std::string& of_key, const std::string& signing) const {
    const std::string command =
        "exec 2> /dev/null; cd " + folder_.Path() + " && openssl req -subj /CN=" + name +
        " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -keyout " + name + ".key " + of_key + " -out " + name +
        ".csr && openssl x509 -req -in " + name + ".csr -out " + name + ".pem " + signing;
    if (std::system(command.c_str()) != 0) std::abort();
  }

  support::TempFolder folder_;
};

}  // namespace test

#endif
