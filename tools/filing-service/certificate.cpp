#include "certificate.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace fs_cert {

namespace {

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using Cert = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION, X509_EXTENSION_free>>;

[[noreturn]] void fail(const std::string& what)
{
    const unsigned long code = ERR_get_error();
    char reason[256] = "";
    if (code != 0)
        ERR_error_string_n(code, reason, sizeof reason);
    throw std::runtime_error("cannot make the service's certificate: " + what + (code ? std::string(": ") + reason : ""));
}

bool exists(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

// Writes through a temporary file and a rename, so that a second server starting on the same
// directory never reads half a file.
template <typename Write>
void write_pem(const std::string& path, mode_t mode, Write write)
{
    const std::string temporary = path + ".tmp." + std::to_string(::getpid());
    FILE* file = std::fopen(temporary.c_str(), "wb");
    if (!file)
        fail("cannot write " + temporary);
    ::fchmod(::fileno(file), mode);
    const bool written = write(file) == 1;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        fail("cannot write " + path);
    }
}

} // namespace

void ensure_self_signed(const std::string& directory, std::string& cert_path, std::string& key_path)
{
    cert_path = directory + "/service-cert.pem";
    key_path = directory + "/service-key.pem";
    if (exists(cert_path) && exists(key_path))
        return;

    Key key(EVP_EC_gen("P-256"));
    if (!key)
        fail("key generation");
    Cert cert(X509_new());
    if (!cert)
        fail("X509_new");
    X509_set_version(cert.get(), 2);
    unsigned char serial[16];
    FILE* random = std::fopen("/dev/urandom", "rb");
    const bool have_serial = random && std::fread(serial, 1, sizeof serial, random) == sizeof serial;
    if (random)
        std::fclose(random);
    if (!have_serial)
        fail("no random serial");
    serial[0] &= 0x7F;
    BIGNUM* number = BN_bin2bn(serial, sizeof serial, nullptr);
    BN_to_ASN1_INTEGER(number, X509_get_serialNumber(cert.get()));
    BN_free(number);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 10L * 365 * 24 * 3600);
    X509_set_pubkey(cert.get(), key.get());
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("vellument filing service (test)"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("localhost"), -1,
                               -1, 0);
    X509_set_issuer_name(cert.get(), name);

    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, cert.get(), cert.get(), nullptr, nullptr, 0);
    const std::pair<int, const char*> extensions[] = {
        {NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1"},
        {NID_basic_constraints, "critical,CA:TRUE"},
        {NID_key_usage, "critical,digitalSignature,keyCertSign"},
        {NID_ext_key_usage, "serverAuth"},
    };
    for (const auto& e : extensions) {
        Extension extension(X509V3_EXT_conf_nid(nullptr, &context, e.first, e.second));
        if (!extension || !X509_add_ext(cert.get(), extension.get(), -1))
            fail("certificate extension");
    }
    if (!X509_sign(cert.get(), key.get(), EVP_sha256()))
        fail("signing");

    write_pem(key_path, 0600, [&](FILE* f) {
        return PEM_write_PrivateKey(f, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    write_pem(cert_path, 0644, [&](FILE* f) { return PEM_write_X509(f, cert.get()); });
}

} // namespace fs_cert
