#include <support/TlsIdentity.h>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace cdxtest {

namespace {

template <class T, void (*release)(T*)>
struct Release {
    void operator()(T* owned) const { release(owned); }
};

void releaseBio(BIO* bio) {
    BIO_free(bio);
}

using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Release<X509, X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION, X509_EXTENSION_free>>;
using Bio = std::unique_ptr<BIO, Release<BIO, releaseBio>>;

void check(bool isDone) {
    if (!isDone)
        throw std::runtime_error("a certificate could not be made");
}

template <class Write>
std::string pemOf(Write write) {
    const Bio bio(BIO_new(BIO_s_mem()));
    check(write(bio.get()) == 1);
    char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

std::string pemOf(X509& certificate) {
    return pemOf([&](BIO* bio) { return PEM_write_bio_X509(bio, &certificate); });
}

Key makeKey() {
    Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    check(key != nullptr);
    return key;
}

void addExtension(X509& certificate, X509& issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    check(extension && X509_add_ext(&certificate, extension.get(), -1) == 1);
}

/// Everything but the extensions and the signature.
Certificate begin(const std::string& name, EVP_PKEY& key, long validFrom, long validTo) {
    static long serial = 0;
    Certificate made(X509_new());
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), validFrom);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), validTo);
    X509_set_pubkey(made.get(), &key);
    const auto* const text = reinterpret_cast<const unsigned char*>(name.c_str());
    check(X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC, text, -1, -1, 0) == 1);
    return made;
}

std::string alternativeNames(const TlsSubject& subject) {
    std::string all;
    const auto add = [&](const std::string& kind, const std::string& value) {
        all += (all.empty() ? "" : ",") + kind + ':' + value;
    };
    for (const std::string& name : subject.names)
        add("DNS", name);
    for (const std::string& address : subject.addresses)
        add("IP", address);
    return all;
}

/// Without an issuer it vouches for itself.
TlsIdentity identify(const TlsSubject& subject, X509* issuer, EVP_PKEY* issuersKey) {
    const Key key = makeKey();
    const Certificate made = begin("Test Server", *key, subject.validFromSeconds, subject.validToSeconds);
    X509& voucher = issuer != nullptr ? *issuer : *made;
    X509_set_issuer_name(made.get(), X509_get_subject_name(&voucher));
    const std::string names = alternativeNames(subject);
    if (!names.empty())
        addExtension(*made, voucher, NID_subject_alt_name, names);
    check(X509_sign(made.get(), issuersKey != nullptr ? issuersKey : key.get(), EVP_sha256()) > 0);
    return {pemOf(*made), pemOf([&](BIO* bio) {
                return PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
            })};
}

} // namespace

struct CertificateAuthority::Keys {
    Key key = makeKey();
    Certificate certificate;
};

CertificateAuthority::CertificateAuthority(const std::string& name) : m_keys(std::make_unique<Keys>()) {
    constexpr long day = 24 * 3600;
    m_keys->certificate = begin(name, *m_keys->key, -day, day);
    X509& own = *m_keys->certificate;
    X509_set_issuer_name(&own, X509_get_subject_name(&own));
    addExtension(own, own, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(own, own, NID_key_usage, "critical,keyCertSign");
    check(X509_sign(&own, m_keys->key.get(), EVP_sha256()) > 0);
    m_pem = pemOf(own);
}

CertificateAuthority::~CertificateAuthority() = default;

TlsIdentity CertificateAuthority::issue(const TlsSubject& subject) const {
    return identify(subject, m_keys->certificate.get(), m_keys->key.get());
}

TlsIdentity selfSigned(const TlsSubject& subject) {
    return identify(subject, nullptr, nullptr);
}

} // namespace cdxtest
