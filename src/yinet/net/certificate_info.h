#pragma once

#include <string>

typedef struct x509_st X509;

namespace yinet {

// One line that lets a person recognise a certificate: subject, issuer, alternative names, validity, serial number and
// fingerprint. Windows-1252; control characters are escaped, since a certificate says what its maker likes. Empty for
// null.
std::string describe_certificate(X509* certificate);

}  // namespace yinet
