#include "simulator/portal/Certificates.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/portal/Files.h"

namespace portal {
namespace {

constexpr long kDay = 24L * 60 * 60;
constexpr long kAuthorityLifetime = 3650 * kDay;
/// The longest that Apple's systems accept from a server.
constexpr long kServerLifetime = 397 * kDay;
constexpr std::size_t kMaxPem = std::size_t{64} << 10;

using Extensions = std::vector<std::pair<int, std::string>>;
using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;

bool SetSerial(X509* certificate) {
  std::array<unsigned char, 16> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return false;
  bytes[0] &= 0x7F;  // a serial number is positive
  const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(
      BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr), &BN_free);
  return number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr;
}

bool SetName(X509* certificate, const std::string& name) {
  const std::vector<unsigned char> bytes(name.begin(), name.end());
  return X509_NAME_add_entry_by_NID(X509_get_subject_name(certificate), NID_commonName,
                                    MBSTRING_UTF8, bytes.data(), static_cast<int>(bytes.size()), -1,
                                    0) == 1;
}

bool SetLifetime(X509* certificate, long seconds) {
  // A day back, so that a terminal whose clock is a little slow accepts it too.
  return X509_gmtime_adj(X509_getm_notBefore(certificate), -kDay) != nullptr &&
         X509_gmtime_adj(X509_getm_notAfter(certificate), seconds - kDay) != nullptr;
}

bool AddExtensions(X509* certificate, X509* issuer, const Extensions& extensions) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  for (const auto& [kind, value] : extensions) {
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()), &X509_EXTENSION_free);
    if (!extension || X509_add_ext(certificate, extension.get(), -1) != 1) return false;
  }
  return true;
}

/// A new key and a certificate for it; signed by itself without an authority.
std::optional<Identity> Make(const std::string& name, long lifetime, const Extensions& extensions,
                             const Identity* authority) {
  Identity made{{X509_new(), &X509_free},
                {EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), &EVP_PKEY_free}};
  X509* const certificate = made.certificate.get();
  if (certificate == nullptr || !made.key) return std::nullopt;
  X509* const issuer = authority != nullptr ? authority->certificate.get() : certificate;
  EVP_PKEY* const signer = authority != nullptr ? authority->key.get() : made.key.get();
  const bool complete = X509_set_version(certificate, X509_VERSION_3) == 1 &&
                        SetSerial(certificate) && SetName(certificate, name) &&
                        X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1 &&
                        SetLifetime(certificate, lifetime) &&
                        X509_set_pubkey(certificate, made.key.get()) == 1 &&
                        AddExtensions(certificate, issuer, extensions) &&
                        X509_sign(certificate, signer, EVP_sha256()) > 0;
  if (!complete) return std::nullopt;
  return made;
}

std::optional<std::string> Pem(const std::function<int(BIO*)>& write) {
  const Bio memory(BIO_new(BIO_s_mem()), &BIO_free);
  if (!memory || write(memory.get()) != 1) return std::nullopt;
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &text);
  return std::string(text, static_cast<std::size_t>(length));
}

bool Save(const Identity& authority, const std::filesystem::path& certificate,
          const std::filesystem::path& key) {
  const auto certificatePem =
      Pem([&](BIO* out) { return PEM_write_bio_X509(out, authority.certificate.get()); });
  const auto keyPem = Pem([&](BIO* out) {
    return PEM_write_bio_PKCS8PrivateKey(out, authority.key.get(), nullptr, nullptr, 0, nullptr,
                                         nullptr);
  });
  return certificatePem && keyPem && ReplaceFile(key, *keyPem, 0600) &&
         ReplaceFile(certificate, *certificatePem, 0644);
}

std::optional<Identity> Parse(const std::string& certificatePem, const std::string& keyPem) {
  const Bio certificate(
      BIO_new_mem_buf(certificatePem.data(), static_cast<int>(certificatePem.size())), &BIO_free);
  const Bio key(BIO_new_mem_buf(keyPem.data(), static_cast<int>(keyPem.size())), &BIO_free);
  if (!certificate || !key) return std::nullopt;
  std::string noPassphrase;  // else OpenSSL would ask for one on the terminal
  Identity identity{
      {PEM_read_bio_X509(certificate.get(), nullptr, nullptr, nullptr), &X509_free},
      {PEM_read_bio_PrivateKey(key.get(), nullptr, nullptr, noPassphrase.data()), &EVP_PKEY_free}};
  if (!identity.certificate || !identity.key) return std::nullopt;
  if (X509_check_private_key(identity.certificate.get(), identity.key.get()) != 1)
    return std::nullopt;
  return identity;
}

}  // namespace

std::optional<Identity> MakeAuthority(const std::string& name) {
  return Make(name, kAuthorityLifetime,
              {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
               {NID_key_usage, "critical,keyCertSign,cRLSign"},
               {NID_subject_key_identifier, "hash"}},
              nullptr);
}

std::optional<Identity> MakeServerIdentity(const Identity& authority) {
  return Make("localhost", kServerLifetime,
              {{NID_basic_constraints, "critical,CA:FALSE"},
               {NID_key_usage, "critical,digitalSignature"},
               {NID_ext_key_usage, "serverAuth"},
               {NID_subject_key_identifier, "hash"},
               {NID_authority_key_identifier, "keyid:always"},
               {NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1"}},
              &authority);
}

std::optional<Identity> LoadOrMakeAuthority(const std::filesystem::path& dir,
                                            std::string& problem) {
  const std::filesystem::path certificate = dir / "ca.pem";
  const std::filesystem::path key = dir / "ca-key.pem";
  std::error_code ignored;
  if (!std::filesystem::exists(certificate, ignored) && !std::filesystem::exists(key, ignored)) {
    std::optional<Identity> made = MakeAuthority("Keyward reference portal");
    if (made && Save(*made, certificate, key)) return made;
    problem = "cannot make a certificate authority in " + dir.string();
    return std::nullopt;
  }
  const auto certificatePem = ReadFile(certificate, kMaxPem);
  const auto keyPem = ReadFile(key, kMaxPem);
  if (certificatePem && keyPem) {
    if (std::optional<Identity> read = Parse(*certificatePem, *keyPem)) return read;
  }
  problem = certificate.string() + " and " + key.string() + " are not a certificate and its key";
  return std::nullopt;
}

}  // namespace portal
