#include <support/Event.h>
#include <support/ScriptedPeer.h>
#include <support/TlsIdentity.h>
#include <xalutil/HttpSession.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using cdxtest::CertificateAuthority;
using cdxtest::PeerConnection;
using cdxtest::ScriptedPeer;
using cdxtest::TlsIdentity;
using cdxtest::TlsSubject;
using testing::HasSubstr;
using xalutil::HttpError;
using xalutil::HttpRequest;
using xalutil::HttpResponse;
using xalutil::HttpSession;
using xalutil::PocoHttpSessionFactory;

const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

/// The server's side of TLS over a scripted connection, record by record.
class TlsServer {
public:
    TlsServer(PeerConnection& client, const TlsIdentity& identity, int newestVersion = TLS1_3_VERSION)
        : m_client(client), m_context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
        SSL_CTX_set_max_proto_version(m_context.get(), newestVersion);
        SSL_CTX_set_security_level(m_context.get(), 0); // lets it offer what clients must refuse
        use(identity);
        m_tls.reset(SSL_new(m_context.get()));
        SSL_set_bio(m_tls.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        run([this] { return SSL_accept(m_tls.get()); });
    }

    std::string serverName() const {
        const char* const name = SSL_get_servername(m_tls.get(), TLSEXT_NAMETYPE_host_name);
        return name == nullptr ? "" : name;
    }

    std::string readUntil(const std::string& end) {
        while (m_received.find(end) == std::string::npos) {
            char buffer[4096];
            const int count = run([&] { return SSL_read(m_tls.get(), buffer, sizeof buffer); });
            m_received.append(buffer, static_cast<std::size_t>(count));
        }
        std::string head = m_received.substr(0, m_received.find(end) + end.size());
        m_received.erase(0, head.size());
        return head;
    }

    void write(const std::string& text) {
        run([&] { return SSL_write(m_tls.get(), text.data(), static_cast<int>(text.size())); });
    }

    /// Says that nothing more comes.
    void closeNotify() {
        SSL_shutdown(m_tls.get());
        flush();
    }

private:
    void use(const TlsIdentity& identity) {
        const std::unique_ptr<BIO, int (*)(BIO*)> certificate(BIO_new_mem_buf(identity.certificate.data(), -1),
                                                              BIO_free);
        const std::unique_ptr<BIO, int (*)(BIO*)> key(BIO_new_mem_buf(identity.key.data(), -1), BIO_free);
        const std::unique_ptr<X509, void (*)(X509*)> x509(
            PEM_read_bio_X509(certificate.get(), nullptr, nullptr, nullptr), X509_free);
        const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> pkey(
            PEM_read_bio_PrivateKey(key.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
        SSL_CTX_use_certificate(m_context.get(), x509.get());
        SSL_CTX_use_PrivateKey(m_context.get(), pkey.get());
    }

    /// Repeats the call, with the next record each time, until it gives something.
    template <class Call>
    int run(Call call) {
        for (;;) {
            ERR_clear_error();
            const int result = call();
            flush();
            if (result > 0)
                return result;
            if (SSL_get_error(m_tls.get(), result) != SSL_ERROR_WANT_READ)
                throw std::runtime_error("TLS failed");
            const std::string header = m_client.readBytes(5);
            const std::size_t length =
                static_cast<unsigned char>(header[3]) * 256U + static_cast<unsigned char>(header[4]);
            const std::string record = header + m_client.readBytes(length);
            BIO_write(SSL_get_rbio(m_tls.get()), record.data(), static_cast<int>(record.size()));
        }
    }

    void flush() {
        char* data = nullptr;
        const long length = BIO_get_mem_data(SSL_get_wbio(m_tls.get()), &data);
        const std::string out(data, static_cast<std::size_t>(length));
        static_cast<void>(BIO_reset(SSL_get_wbio(m_tls.get())));
        m_client.write(out);
    }

    PeerConnection& m_client;
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> m_context;
    std::unique_ptr<SSL, void (*)(SSL*)> m_tls{nullptr, SSL_free};
    std::string m_received;
};

class HttpSessionTlsTest : public testing::Test {
protected:
    HttpSessionTlsTest() : m_trusted(testing::TempDir() + "xalutil-ca-" + std::to_string(::getpid()) + ".pem") {
        std::ofstream(m_trusted) << m_authority.certificate();
        ::setenv("SSL_CERT_FILE", m_trusted.c_str(), 1);
    }

    ~HttpSessionTlsTest() override {
        ::unsetenv("SSL_CERT_FILE");
        ::unlink(m_trusted.c_str());
    }

    /// Answers every request of a connection under this identity.
    ScriptedPeer::Script serve(const TlsIdentity& identity, int newestVersion = TLS1_3_VERSION) {
        return [this, identity, newestVersion](PeerConnection& client) {
            TlsServer server(client, identity, newestVersion);
            m_serverName = server.serverName();
            for (;;) {
                server.readUntil("\r\n\r\n");
                server.write(ok);
            }
        };
    }

    static std::unique_ptr<HttpSession> sessionWith(const ScriptedPeer& peer, const std::string& host) {
        return PocoHttpSessionFactory().createSession("https://" + host + ':' + std::to_string(peer.port()));
    }

    static HttpResponse exchange(HttpSession& session) {
        return session.exchange({}, std::chrono::steady_clock::now() + std::chrono::seconds(10));
    }

    /// The text of the failure; empty where there is an answer.
    std::string failureWith(const TlsIdentity& identity, const std::string& host, int newestVersion = TLS1_3_VERSION) {
        ScriptedPeer peer(serve(identity, newestVersion));
        try {
            exchange(*sessionWith(peer, host));
            return "";
        } catch (const HttpError& failure) {
            EXPECT_EQ(failure.getStatus(), 0);
            return failure.what();
        }
    }

    const CertificateAuthority m_authority;
    const std::string m_trusted;
    std::string m_serverName;
};

TEST_F(HttpSessionTlsTest, ServerWithATrustedCertificateForItsNameIsSpokenWith) {
    ScriptedPeer peer(serve(m_authority.issue({{"localhost"}})));
    const auto session = sessionWith(peer, "localhost");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(exchange(*session).body, "ok");
    EXPECT_EQ(peer.getConnections(), 1U);
}

TEST_F(HttpSessionTlsTest, ServerIsToldItsName) {
    {
        ScriptedPeer peer(serve(m_authority.issue({{"localhost"}})));
        exchange(*sessionWith(peer, "localhost"));
    }
    EXPECT_EQ(m_serverName, "localhost");
}

TEST_F(HttpSessionTlsTest, CertificateForAnAddressHoldsForThatAddress) {
    EXPECT_EQ(failureWith(m_authority.issue({{}, {"127.0.0.1"}}), "127.0.0.1"), "");
}

TEST_F(HttpSessionTlsTest, AddressIsNotToldAsAName) {
    failureWith(m_authority.issue({{}, {"127.0.0.1"}}), "127.0.0.1");
    EXPECT_EQ(m_serverName, "");
}

TEST_F(HttpSessionTlsTest, CertificateForAnotherNameIsRefused) {
    EXPECT_THAT(failureWith(m_authority.issue({{"example.test"}}), "localhost"),
                testing::AllOf(HasSubstr("certificate"), HasSubstr("ostname mismatch")));
}

TEST_F(HttpSessionTlsTest, CertificateForAnotherAddressIsRefused) {
    EXPECT_THAT(failureWith(m_authority.issue({{"localhost"}, {"127.0.0.2"}}), "127.0.0.1"),
                HasSubstr("IP address mismatch"));
}

TEST_F(HttpSessionTlsTest, ExpiredCertificateIsRefused) {
    TlsSubject subject{{"localhost"}};
    subject.validFromSeconds = -7200;
    subject.validToSeconds = -3600;
    EXPECT_THAT(failureWith(m_authority.issue(subject), "localhost"), HasSubstr("expired"));
}

TEST_F(HttpSessionTlsTest, CertificateOfAnUnknownAuthorityIsRefused) {
    const CertificateAuthority other("Other CA");
    EXPECT_THAT(failureWith(other.issue({{"localhost"}}), "localhost"), HasSubstr("certificate is refused"));
}

TEST_F(HttpSessionTlsTest, CertificateThatVouchesForItselfIsRefused) {
    EXPECT_THAT(failureWith(cdxtest::selfSigned({{"localhost"}}), "localhost"), HasSubstr("self-signed certificate"));
}

TEST_F(HttpSessionTlsTest, VersionsBefore12AreRefused) {
    EXPECT_NE(failureWith(m_authority.issue({{"localhost"}}), "localhost", TLS1_1_VERSION), "");
    EXPECT_EQ(failureWith(m_authority.issue({{"localhost"}}), "localhost", TLS1_2_VERSION), "");
}

TEST_F(HttpSessionTlsTest, PlainServerIsAFailure) {
    ScriptedPeer peer([](PeerConnection& client) {
        client.readBytes(1);
        client.write("HTTP/1.1 400 Bad Request\r\n\r\n");
    });
    EXPECT_THROW(exchange(*sessionWith(peer, "localhost")), HttpError);
}

TEST_F(HttpSessionTlsTest, AnswerToTheConnectionsEndIsCompleteOnlyWhereTlsSaysSo) {
    const TlsIdentity identity = m_authority.issue({{"localhost"}});
    for (const bool isSaid : {true, false}) {
        ScriptedPeer peer([&](PeerConnection& client) {
            TlsServer server(client, identity);
            server.readUntil("\r\n\r\n");
            server.write("HTTP/1.1 200 OK\r\n\r\nall");
            if (isSaid)
                server.closeNotify();
        });
        const auto session = sessionWith(peer, "localhost");
        if (isSaid)
            EXPECT_EQ(exchange(*session).body, "all");
        else
            EXPECT_THROW(exchange(*session), HttpError);
    }
}

TEST_F(HttpSessionTlsTest, WritingToAConnectionThatWasResetRaisesNoSignal) {
    ASSERT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_ERR);
    const TlsIdentity identity = m_authority.issue({{"localhost"}});
    ScriptedPeer peer([&](PeerConnection& client) {
        TlsServer server(client, identity);
        server.readUntil("\r\n\r\n");
        client.reset();
    });
    HttpRequest request;
    request.method = "POST";
    request.body.assign(32 * 1024 * 1024, 'x');
    EXPECT_THROW(
        sessionWith(peer, "localhost")->exchange(request, std::chrono::steady_clock::now() + std::chrono::seconds(10)),
        HttpError);
}

TEST_F(HttpSessionTlsTest, LeavingAConnectionThatWasResetRaisesNoSignal) {
    ASSERT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_ERR);
    const TlsIdentity identity = m_authority.issue({{"localhost"}});
    cdxtest::Event isReset;
    ScriptedPeer peer([&](PeerConnection& client) {
        TlsServer server(client, identity);
        server.readUntil("\r\n\r\n");
        server.write(ok);
        client.reset();
        isReset.set();
    });
    auto session = sessionWith(peer, "localhost");
    // It may be too late for the answer; what counts is that the kept or failed connection goes quietly.
    try {
        EXPECT_EQ(exchange(*session).body, "ok");
    } catch (const HttpError& failure) {
        EXPECT_EQ(failure.getStatus(), 0);
    }
    ASSERT_TRUE(isReset.await());
    session.reset();
}

TEST_F(HttpSessionTlsTest, LargeBodyIsSentWhole) {
    const TlsIdentity identity = m_authority.issue({{"localhost"}});
    const std::string end = "the end";
    std::size_t received = 0;
    HttpRequest request;
    request.method = "POST";
    request.body = std::string(2 * 1024 * 1024, 'x') + end;
    ScriptedPeer peer([&](PeerConnection& client) {
        TlsServer server(client, identity);
        server.readUntil("\r\n\r\n");
        received = server.readUntil(end).size();
        server.write(ok);
    });
    const auto session = sessionWith(peer, "localhost");
    EXPECT_EQ(session->exchange(request, std::chrono::steady_clock::now() + std::chrono::seconds(10)).status, 200);
    ASSERT_TRUE(peer.awaitScripts());
    EXPECT_EQ(received, request.body.size());
}

} // namespace
