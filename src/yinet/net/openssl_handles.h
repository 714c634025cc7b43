#pragma once

// Owners for what OpenSSL hands out. For .cpp files of this folder.

#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>

namespace yinet {

struct OpensslFree {
  void operator()(SSL* session) const noexcept { SSL_free(session); }
  void operator()(SSL_SESSION* session) const noexcept { SSL_SESSION_free(session); }
  void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
  void operator()(X509_STORE* authorities) const noexcept { X509_STORE_free(authorities); }
  void operator()(X509* certificate) const noexcept { X509_free(certificate); }
  void operator()(BIO* bio) const noexcept { BIO_free(bio); }  // one link, not the chain
};

struct ChainFree {
  void operator()(BIO* bio) const noexcept { BIO_free_all(bio); }
};

using SessionHandle = std::unique_ptr<SSL, OpensslFree>;
using SslSessionHandle = std::unique_ptr<SSL_SESSION, OpensslFree>;  // what is resumed, not a connection
using ContextHandle = std::unique_ptr<SSL_CTX, OpensslFree>;
using AuthoritiesHandle = std::unique_ptr<X509_STORE, OpensslFree>;
using CertificateHandle = std::unique_ptr<X509, OpensslFree>;
using BioHandle = std::unique_ptr<BIO, OpensslFree>;
using ChainHandle = std::unique_ptr<BIO, ChainFree>;  // with all links and the descriptor

}  // namespace yinet
