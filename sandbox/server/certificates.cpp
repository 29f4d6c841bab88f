#include "sandbox/server/certificates.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstdint>
#include <optional>

#include "base/clock.h"
#include "base/files.h"
#include "base/secret.h"

namespace brickfall::sandbox {
namespace {

constexpr int64_t kDaySeconds = 86'400;
constexpr int64_t kAuthorityDays = 3650;
constexpr int64_t kServerDays = 365;

template <auto Free>
struct FreeWith {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};
void FreeBio(BIO* bio) { BIO_free_all(bio); }
using KeyPtr = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, FreeWith<X509_free>>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, FreeWith<X509_EXTENSION_free>>;
using BioPtr = std::unique_ptr<BIO, FreeWith<FreeBio>>;

struct Identity {
    KeyPtr key;
    CertificatePtr certificate;
};

std::string KeyFile(const std::string& folder) { return folder + "/authority.key"; }

// Certificates are judged by clients on the machine's own clock, whatever clock a test has installed.
int64_t RealUnixSeconds() { return SystemClock().unix_millis(SystemClock().self) / 1000; }

bool AddExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    return extension && X509_add_ext(certificate, extension.get(), -1) == 1;
}

bool SetSerial(X509* certificate) {
    std::array<uint8_t, 8> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return false;
    uint64_t number = 0;
    for (const uint8_t byte : bytes) number = number << 8 | byte;
    return ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), (number >> 1) + 1) == 1;
}

// Key, serial, names and lifetime; extensions and signature are still to come. `issuer` empty: itself.
Identity StartCertificate(const std::string& name, X509* issuer, int64_t days) {
    Identity made = {KeyPtr(EVP_EC_gen("P-256")), CertificatePtr(X509_new())};
    X509* const certificate = made.certificate.get();
    if (!made.key || certificate == nullptr || X509_set_version(certificate, 2) != 1) return {};
    X509_NAME* const subject = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>(name.c_str());
    if (X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, text, -1, -1, 0) != 1) return {};
    X509_NAME* const issuer_name = issuer != nullptr ? X509_get_subject_name(issuer) : subject;
    const int64_t now = RealUnixSeconds();
    const bool good = SetSerial(certificate) && X509_set_issuer_name(certificate, issuer_name) == 1 &&
                      X509_set_pubkey(certificate, made.key.get()) == 1 &&
                      ASN1_TIME_set(X509_getm_notBefore(certificate), now - kDaySeconds) != nullptr &&
                      ASN1_TIME_set(X509_getm_notAfter(certificate), now + days * kDaySeconds) != nullptr;
    return good ? std::move(made) : Identity{};
}

Identity MakeAuthority() {
    Identity made = StartCertificate("Brickfall sandbox authority", nullptr, kAuthorityDays);
    X509* const certificate = made.certificate.get();
    if (certificate == nullptr) return {};
    const bool good =
        AddExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0") &&
        AddExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign") &&
        AddExtension(certificate, certificate, NID_subject_key_identifier, "hash") &&
        X509_sign(certificate, made.key.get(), EVP_sha256()) > 0;
    return good ? std::move(made) : Identity{};
}

Identity MakeServerIdentity(const Identity& authority, const std::vector<std::string>& hosts) {
    std::string names;
    for (const std::string& host : hosts) names += (names.empty() ? "DNS:" : ",DNS:") + host;
    X509* const issuer = authority.certificate.get();
    Identity made = StartCertificate("Brickfall sandbox", issuer, kServerDays);
    X509* const certificate = made.certificate.get();
    if (certificate == nullptr) return {};
    const bool good = AddExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE") &&
                      AddExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature") &&
                      AddExtension(certificate, issuer, NID_ext_key_usage, "serverAuth") &&
                      AddExtension(certificate, issuer, NID_subject_alt_name, names) &&
                      AddExtension(certificate, issuer, NID_subject_key_identifier, "hash") &&
                      AddExtension(certificate, issuer, NID_authority_key_identifier, "keyid") &&
                      X509_sign(certificate, authority.key.get(), EVP_sha256()) > 0;
    return good ? std::move(made) : Identity{};
}

// The folder's authority, if it is whole and good for as long as a certificate made now.
std::optional<Identity> LoadAuthority(const std::string& folder) {
    const std::optional<SecretString> key_text = ReadSecretFile(KeyFile(folder));
    const std::optional<std::string> text = ReadFile(AuthorityFile(folder));
    if (!key_text || !text) return std::nullopt;
    const BioPtr key_bio(BIO_new_mem_buf(key_text->data(), static_cast<int>(key_text->size())));
    const BioPtr bio(BIO_new_mem_buf(text->data(), static_cast<int>(text->size())));
    if (!key_bio || !bio) return std::nullopt;
    Identity loaded = {KeyPtr(PEM_read_bio_PrivateKey(key_bio.get(), nullptr, nullptr, nullptr)),
                       CertificatePtr(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr))};
    if (!loaded.key || !loaded.certificate) return std::nullopt;
    time_t needed = static_cast<time_t>(RealUnixSeconds() + kServerDays * kDaySeconds);
    if (X509_check_private_key(loaded.certificate.get(), loaded.key.get()) != 1 ||
        X509_cmp_time(X509_get0_notAfter(loaded.certificate.get()), &needed) <= 0) {
        return std::nullopt;
    }
    return loaded;
}

bool WriteBio(const std::string& path, BIO* bio) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return length > 0 && ReplaceFile(path, {data, static_cast<std::size_t>(length)});
}

bool SaveAuthority(const std::string& folder, const Identity& authority) {
    const BioPtr key(BIO_new(BIO_s_secmem()));
    const BioPtr certificate(BIO_new(BIO_s_mem()));
    return key && certificate &&
           PEM_write_bio_PrivateKey(key.get(), authority.key.get(), nullptr, nullptr, 0, nullptr, nullptr) ==
               1 &&
           PEM_write_bio_X509(certificate.get(), authority.certificate.get()) == 1 &&
           WriteBio(KeyFile(folder), key.get()) && WriteBio(AuthorityFile(folder), certificate.get());
}

// Two sandboxes that start on one new folder make one authority.
Identity FindOrMakeAuthority(const std::string& folder, std::string& error) {
    ByteLock lock;
    if (!MakeFolders(folder) || !lock.Acquire(folder + "/authority.lock")) {
        error = "cannot use the folder " + folder;
        return {};
    }
    if (std::optional<Identity> loaded = LoadAuthority(folder)) return std::move(*loaded);
    Identity made = MakeAuthority();
    if (!made.certificate) {
        error = "cannot make a certificate authority";
    } else if (!SaveAuthority(folder, made)) {
        error = "cannot write the certificate authority to " + folder;
        return {};
    }
    return made;
}

}  // namespace

std::string AuthorityFile(const std::string& folder) { return folder + "/authority.pem"; }

TlsContext MakeServerContext(const std::string& folder, const std::vector<std::string>& hosts,
                             std::string& error) {
    const Identity authority = FindOrMakeAuthority(folder, error);
    if (!authority.certificate) return nullptr;
    const Identity server = MakeServerIdentity(authority, hosts);
    TlsContext context(SSL_CTX_new(TLS_server_method()));
    const bool good = server.certificate && context &&
                      SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1 &&
                      SSL_CTX_use_certificate(context.get(), server.certificate.get()) == 1 &&
                      SSL_CTX_use_PrivateKey(context.get(), server.key.get()) == 1;
    if (good) return context;
    error = "cannot set up TLS";
    return nullptr;
}

}  // namespace brickfall::sandbox
