#include "gateway/server/tls_certificate.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <boost/asio/ip/address.hpp>
#include <memory>

namespace korva::gateway {

namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using CertPtr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;
using BnPtr = std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_free>>;
using ExtPtr = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION, X509_EXTENSION_free>>;

[[noreturn]] void fail(const char* step) {
    const unsigned long error = ERR_get_error();
    ERR_clear_error();
    char text[256] = "";
    if (error != 0) ERR_error_string_n(error, text, sizeof text);
    throw std::runtime_error(std::string("cannot make a certificate: ") + step +
                             (error != 0 ? std::string(": ") + text : std::string()));
}

void check(bool ok, const char* step) {
    if (!ok) fail(step);
}

std::string subjectAltName(const std::vector<std::string>& names) {
    std::string value;
    for (const auto& name : names) {
        boost::system::error_code ec;
        boost::asio::ip::make_address(name, ec);
        if (!value.empty()) value += ",";
        value += (ec ? "DNS:" : "IP:") + name;
    }
    return value;
}

void addExtension(X509* cert, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, cert, cert, nullptr, nullptr, 0);
    ExtPtr extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()));
    check(extension != nullptr && X509_add_ext(cert, extension.get(), -1) == 1, "extension");
}

std::string bioText(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(size));
}

}  // namespace

SelfSignedCertificate makeSelfSignedCertificate(const std::vector<std::string>& names) {
    KeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    check(key != nullptr, "key generation");
    CertPtr cert(X509_new());
    check(cert != nullptr && X509_set_version(cert.get(), 2) == 1, "certificate");

    BnPtr serial(BN_new());
    check(serial && BN_rand(serial.get(), 127, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
              BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert.get())) != nullptr,
          "serial number");
    check(X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600) != nullptr &&
              X509_time_adj_ex(X509_getm_notAfter(cert.get()), kSelfSignedDays, 0, nullptr) !=
                  nullptr,
          "validity");
    X509_NAME* subject = X509_get_subject_name(cert.get());
    check(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char*>("korva-gateway"), -1,
                                     -1, 0) == 1 &&
              X509_set_issuer_name(cert.get(), subject) == 1 &&
              X509_set_pubkey(cert.get(), key.get()) == 1,
          "names");
    addExtension(cert.get(), NID_basic_constraints, "critical,CA:FALSE");
    addExtension(cert.get(), NID_key_usage, "critical,digitalSignature");
    addExtension(cert.get(), NID_ext_key_usage, "serverAuth");
    addExtension(cert.get(), NID_subject_key_identifier, "hash");
    addExtension(cert.get(), NID_subject_alt_name, subjectAltName(names));
    check(X509_sign(cert.get(), key.get(), EVP_sha256()) > 0, "signature");

    BioPtr certBio(BIO_new(BIO_s_mem()));
    BioPtr keyBio(BIO_new(BIO_s_mem()));
    check(certBio && keyBio && PEM_write_bio_X509(certBio.get(), cert.get()) == 1 &&
              PEM_write_bio_PrivateKey(keyBio.get(), key.get(), nullptr, nullptr, 0, nullptr,
                                       nullptr) == 1,
          "PEM encoding");
    return {bioText(certBio.get()), bioText(keyBio.get())};
}

std::string certificateFingerprint(std::string_view certificatePem) {
    BioPtr bio(BIO_new_mem_buf(certificatePem.data(), static_cast<int>(certificatePem.size())));
    CertPtr cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!cert || X509_digest(cert.get(), EVP_sha256(), digest, &length) != 1) {
        ERR_clear_error();
        return "";
    }
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        if (i != 0) text += ':';
        text += kHex[digest[i] >> 4];
        text += kHex[digest[i] & 0xF];
    }
    return text;
}

}  // namespace korva::gateway
