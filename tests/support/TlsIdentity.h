#ifndef CDXTESTS_SUPPORT_TLSIDENTITY_H
#define CDXTESTS_SUPPORT_TLSIDENTITY_H

#include <memory>
#include <string>
#include <vector>

namespace cdxtest {

/// A certificate and its key, in PEM.
struct TlsIdentity {
    std::string certificate;
    std::string key;
};

/// Whom a certificate is for, and when it holds.
struct TlsSubject {
    std::vector<std::string> names = {};     ///< DNS names
    std::vector<std::string> addresses = {}; ///< IP addresses
    long validFromSeconds = -3600;           ///< relative to now
    long validToSeconds = 24 * 3600;
};

/// Issues certificates for a test, from keys made anew in each process.
class CertificateAuthority {
public:
    explicit CertificateAuthority(const std::string& name = "Test CA");
    ~CertificateAuthority();
    CertificateAuthority(const CertificateAuthority&) = delete;
    CertificateAuthority& operator=(const CertificateAuthority&) = delete;

    TlsIdentity issue(const TlsSubject& subject) const;
    /// What clients must trust, in PEM.
    const std::string& certificate() const { return m_pem; }

private:
    struct Keys;
    std::unique_ptr<Keys> m_keys;
    std::string m_pem;
};

/// One that nobody but itself vouches for.
TlsIdentity selfSigned(const TlsSubject& subject);

} // namespace cdxtest

#endif
