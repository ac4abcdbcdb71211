#include "tests/platform/simulated/TlsServer.h"

#include <httplib.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <thread>

namespace contract {
namespace {

struct Certificate {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* certificate = X509_new();

  Certificate() {
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>("contract");
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    X509_EXTENSION* names =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "DNS:localhost");
    X509_add_ext(certificate, names, -1);
    X509_EXTENSION_free(names);
    X509_sign(certificate, key, EVP_sha256());
  }
  ~Certificate() {
    X509_free(certificate);
    EVP_PKEY_free(key);
  }
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;
};

}  // namespace

struct TlsServer::Impl {
  Certificate certificate;
  httplib::SSLServer server{certificate.certificate, certificate.key};
  int port = server.bind_to_any_port("127.0.0.1");
  std::thread thread;
};

TlsServer::TlsServer() : _impl(std::make_unique<Impl>()) {
  _impl->server.Get(".*", [](const httplib::Request&, httplib::Response& response) {
    response.set_content("secret", "text/plain");
  });
  _impl->thread = std::thread([this] { _impl->server.listen_after_bind(); });
  // Stopping a server that does not listen yet would have no effect.
  while (!_impl->server.is_running()) std::this_thread::yield();
}

TlsServer::~TlsServer() {
  _impl->server.stop();
  _impl->thread.join();
}

std::string TlsServer::url(const std::string& host) const {
  return "https://" + host + ":" + std::to_string(_impl->port) + "/";
}

std::string TlsServer::authorityPem() const {
  BIO* memory = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(memory, _impl->certificate.certificate);
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory, &text);
  std::string pem(text, static_cast<std::size_t>(length));
  BIO_free(memory);
  return pem;
}

}  // namespace contract
