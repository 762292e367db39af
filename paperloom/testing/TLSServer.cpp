#include "paperloom/testing/TLSServer.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace paperloom::test {
namespace {

template <auto free>
struct Free {
  template <class T>
  void operator()(T* pointer) const {
    free(pointer);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Free<X509_free>>;
using Context = std::unique_ptr<SSL_CTX, Free<SSL_CTX_free>>;

void addExtension(X509* certificate, int kind, const std::string& value) {
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

Certificate makeCertificate(const char* name, EVP_PKEY* key, int firstDay, int lastDay,
                            X509* issuer, EVP_PKEY* issuerKey, int extension,
                            const std::string& value) {
  Certificate made(X509_new());
  X509_set_version(made.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(made.get()), issuer == nullptr ? 1 : 2);
  constexpr long day = 24 * 60 * 60;
  X509_gmtime_adj(X509_getm_notBefore(made.get()), firstDay * day);
  X509_gmtime_adj(X509_getm_notAfter(made.get()), lastDay * day);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
  X509_set_issuer_name(made.get(), X509_get_subject_name(issuer != nullptr ? issuer : made.get()));
  X509_set_pubkey(made.get(), key);
  addExtension(made.get(), extension, value);
  X509_sign(made.get(), issuerKey, EVP_sha256());
  return made;
}

}  // namespace

struct TLSServer::Secrets {
  Key authorityKey{EVP_EC_gen("P-256")};
  Key key{EVP_EC_gen("P-256")};
  Certificate authority;
  Certificate certificate;
  Context context{SSL_CTX_new(TLS_server_method())};
};

TLSServer::TLSServer(const Options& options)
    : answer_(options.answer),
      afterwards_(options.afterwards),
      secrets_(std::make_unique<Secrets>()) {
  std::signal(SIGPIPE, SIG_IGN);  // clients that do not trust us leave early
  Secrets& s = *secrets_;
  s.authority = makeCertificate("test authority", s.authorityKey.get(), -30, 30, nullptr,
                                s.authorityKey.get(), NID_basic_constraints, "critical,CA:TRUE");
  s.certificate = makeCertificate("test server", s.key.get(), options.firstDay, options.lastDay,
                                  options.selfSigned ? nullptr : s.authority.get(),
                                  options.selfSigned ? s.key.get() : s.authorityKey.get(),
                                  NID_subject_alt_name, options.subject);
  SSL_CTX_use_certificate(s.context.get(), s.certificate.get());
  SSL_CTX_use_PrivateKey(s.context.get(), s.key.get());
  if (options.sendsAuthority) SSL_CTX_add1_chain_cert(s.context.get(), s.authority.get());
  if (options.onlyTLS11) {
    SSL_CTX_set_security_level(s.context.get(), 0);
    SSL_CTX_set_min_proto_version(s.context.get(), TLS1_1_VERSION);
    SSL_CTX_set_max_proto_version(s.context.get(), TLS1_1_VERSION);
  }
  thread_ = std::thread([this] { serve(); });
}

TLSServer::~TLSServer() {
  listener_.stop();
  thread_.join();
}

void TLSServer::writeAuthority(const std::filesystem::path& file) const {
  std::FILE* out = std::fopen(file.c_str(), "w");
  PEM_write_X509(out, secrets_->authority.get());
  std::fclose(out);
}

std::string TLSServer::publicKey() const {
  unsigned char* der = nullptr;
  const int size = i2d_PUBKEY(secrets_->key.get(), &der);
  unsigned char digest[32];
  EVP_Digest(der, static_cast<std::size_t>(size), digest, nullptr, EVP_sha256(), nullptr);
  OPENSSL_free(der);
  unsigned char text[45];
  EVP_EncodeBlock(text, digest, sizeof digest);
  return "sha256//" + std::string(reinterpret_cast<const char*>(text));
}

void TLSServer::serve() {
  while (true) {
    const int connection = listener_.accept();
    if (connection < 0) return;
    std::unique_ptr<SSL, Free<SSL_free>> tls(SSL_new(secrets_->context.get()));
    SSL_set_fd(tls.get(), connection);
    char request[4096];
    ++connections_;
    const bool isTrusted = SSL_accept(tls.get()) == 1;
    while (isTrusted && SSL_read(tls.get(), request, sizeof request) > 0) {
      ++requests_;
      answer(tls.get());
      ++answered_;
      if (afterwards_ == Afterwards::close) break;
    }
    tls.reset();
    ::close(connection);
  }
}

void TLSServer::answer(SSL* tls) {
  SSL_write(tls, answer_.data(), static_cast<int>(answer_.size()));
  switch (afterwards_) {
    case Afterwards::close:
      SSL_shutdown(tls);
      break;
    case Afterwards::sendTicket:
      SSL_new_session_ticket(tls);
      SSL_do_handshake(tls);
      break;
    case Afterwards::sendAnswer: {
      constexpr std::string_view unasked = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nwrong";
      SSL_write(tls, unasked.data(), static_cast<int>(unasked.size()));
      break;
    }
  }
}

}  // namespace paperloom::test
