#include "ServiceFixture.h"

#include <support/ComesTrue.h>
#include <support/P99.h>
#include <support/ProcessState.h>
#include <support/TlsIdentity.h>

#include <openssl/ssl.h>

#include <arpa/inet.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cdxservice {
namespace {

template <class T, void (*release)(T*)>
struct Release {
    void operator()(T* object) const { release(object); }
};
using Context = std::unique_ptr<SSL_CTX, Release<SSL_CTX, SSL_CTX_free>>;
using Session = std::unique_ptr<SSL, Release<SSL, SSL_free>>;

/// A key, a certificate that vouches for itself and a token, in files that go with the object.
class Credentials {
public:
    Credentials() {
        std::string pattern = (std::filesystem::temp_directory_path() / "cdx-tls-XXXXXX").string();
        m_folder = ::mkdtemp(pattern.data());
        const cdxtest::TlsIdentity identity = cdxtest::selfSigned({{"localhost"}});
        std::ofstream(keyFile()) << identity.key;
        std::ofstream(certificateFile()) << identity.certificate;
        std::ofstream(tokenFile()) << "s3cret";
    }
    ~Credentials() { std::filesystem::remove_all(m_folder); }

    std::string keyFile() const { return m_folder + "/key.pem"; }
    std::string tokenFile() const { return m_folder + "/token"; }
    std::string certificateFile() const { return m_folder + "/certificate.pem"; }

private:
    std::string m_folder;
};

class Tls : public ServiceFixture {
protected:
    Tls() {
        options.tlsCertificateFile = credentials.certificateFile();
        options.tlsKeyFile = credentials.keyFile();
    }

    /// One exchange over TLS, read to the end that the service makes.
    std::string exchange(const std::string& bytes, int highestVersion = TLS1_3_VERSION) {
        const Context context(SSL_CTX_new(TLS_client_method()));
        SSL_CTX_set_max_proto_version(context.get(), highestVersion);
        SSL_CTX_set_security_level(context.get(), 0);
        const cdxtest::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(server->port());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience = {20, 0};
        ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            return "not connected";
        }
        const Session session(SSL_new(context.get()));
        SSL_set_fd(session.get(), socket.get());
        if (SSL_connect(session.get()) != 1) {
            return "no handshake";
        }
        SSL_write(session.get(), bytes.data(), static_cast<int>(bytes.size()));
        std::string answer;
        char buffer[4096];
        for (;;) {
            const int read = SSL_read(session.get(), buffer, sizeof buffer);
            if (read <= 0) {
                return SSL_get_error(session.get(), read) == SSL_ERROR_ZERO_RETURN ? answer : answer + " (cut off)";
            }
            answer.append(buffer, static_cast<std::size_t>(read));
        }
    }

    Credentials credentials;
};

TEST_F(Tls, CarriesRequestsAndNamesItsScheme) {
    EXPECT_EQ(server->uri().substr(0, 8), "https://");
    const std::string answer =
        exchange("GET /registry/CarDataExchange HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(answer.substr(0, 15), "HTTP/1.1 200 OK");
    EXPECT_NE(answer.find(R"("uri":"https://localhost"})"), std::string::npos);
    EXPECT_EQ(answer.find("(cut off)"), std::string::npos);
}

TEST_F(Tls, TakesOnlyPagesOfItsSchemeForItsOwn) {
    const auto post = [&](const std::string& origin) {
        return exchange("POST /CarDataExchange/cdxConfig HTTP/1.1\r\nHost: localhost\r\nConnection: "
                        "close\r\nContent-Type: application/json\r\n"
                        "Content-Length: 2\r\nOrigin: " +
                        origin + "://localhost\r\n\r\n{}")
            .substr(9, 3);
    };
    EXPECT_EQ(post("https"), "201");
    EXPECT_EQ(post("http"), "403");
}

TEST_F(Tls, CarriesChannels) {
    const std::string close("\x88\x82"
                            "abcd"
                            "\x62\x8a",
                            8); // 1000, masked
    const std::string answer = exchange(
        "GET /CarDataExchange HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
        "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Protocol: "
        "cdx.v1\r\n\r\n" +
        cdxtest::encode({cdxtest::Opcode::text, R"({"op":"subscribe","sub":1,"resource":"cdxData"})"}, true) + close);
    EXPECT_EQ(answer.substr(0, 12), "HTTP/1.1 101");
    EXPECT_NE(answer.find("subscribed"), std::string::npos);
    EXPECT_EQ(answer.substr(answer.size() - 4), std::string("\x88\x02\x03\xe8"));
}

TEST_F(Tls, CarriesLargeAnswersWhole) {
    const std::string body = R"({"recordBody":")" + std::string(500'000, 'x') + "\"}";
    const std::string answer = exchange("POST /CarDataExchange/cdxConfig HTTP/1.1\r\nHost: localhost\r\nConnection: "
                                        "close\r\nContent-Type: application/json\r\n"
                                        "Content-Length: " +
                                        std::to_string(body.size()) + "\r\n\r\n" + body);
    EXPECT_EQ(answer.substr(9, 3), "201");
    EXPECT_GT(answer.size(), 500'000u);
}

TEST_F(Tls, CarriesLongListsWhole) {
    const std::string body = R"({"recordBody":")" + std::string(1'000, 'x') + "\"}";
    const std::string post = "POST /CarDataExchange/cdxConfig HTTP/1.1\r\nHost: localhost\r\n" + std::string(jsonType) +
                             "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    std::string requests;
    for (int i = 0; i < 500; ++i) {
        requests += post;
    }
    const std::string answer = exchange(requests + "GET /CarDataExchange/cdxConfig HTTP/1.1\r\nHost: localhost\r\n"
                                                   "Connection: close\r\n\r\n");
    EXPECT_EQ(answer.find("(cut off)"), std::string::npos);
    const std::string list = answer.substr(answer.rfind("\r\n\r\n") + 4);
    EXPECT_EQ(boost::json::parse(list).as_array().size(), 500u);
}

TEST_F(Tls, EndsAHandshakeThatNeverEnds) {
    ASSERT_TRUE(client->send(std::string("\x16\x03\x01\x02\x00\x01", 6)));
    const std::string get = "GET /health HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    EXPECT_EQ(exchange(get).substr(9, 3), "200") << "others are served meanwhile";
    clock->advance(options.idleTimeout);
    EXPECT_TRUE(client->isEnded());
}

TEST_F(Tls, HandshakesThatFailHarmNobody) {
    const auto slowest = [this] {
        const std::string get = "GET /health HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
        std::vector<std::chrono::steady_clock::duration> times;
        for (int i = 0; i < 50; ++i) {
            const auto begin = std::chrono::steady_clock::now();
            EXPECT_EQ(exchange(get).substr(9, 3), "200");
            times.push_back(std::chrono::steady_clock::now() - begin);
        }
        return cdxtest::p99(std::move(times));
    };
    const auto alone = slowest();
    client->close();
    const std::size_t descriptors = cdxtest::openDescriptors().size();
    std::vector<cdxtest::TcpPeer> hostile;
    for (int i = 0; i < 100; ++i) {
        for (const std::string& bytes :
             {std::string("\x16\x03\x01\x02\x00\x01", 6), std::string("\x15\x03\x03\x00\x02\x02\x30", 7),
              std::string("GET / HTTP/1.1\r\n\r\n"), std::string(1'000, '\xff')}) {
            hostile.push_back(cdxtest::TcpPeer::connect(server->port()));
            hostile.back().send(bytes);
        }
    }
    const auto beside = slowest();
    std::cout << "p99 of a connection with its request " << alone.count() << " us alone, " << beside.count()
              << " us beside 400 handshakes that fail or never end\n";
    EXPECT_TRUE(beside < std::chrono::seconds(1) || !cdxtest::timeTells);
    hostile.clear();
    EXPECT_TRUE(cdxtest::comesTrue([&] { return cdxtest::openDescriptors().size() <= descriptors; }));
}

TEST_F(Tls, SpeaksNothingElse) {
    EXPECT_EQ(client->exchange("GET /health HTTP/1.1\r\n" + host() + "\r\n").status, 0);
    EXPECT_EQ(exchange("", TLS1_1_VERSION), "no handshake");
}

TEST_F(Tls, MarksItsCookieAsSecure) {
    options.tokenFile = credentials.tokenFile();
    startService();
    const std::string answer = exchange("POST /session HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
                                        "Authorization: Bearer s3cret\r\n\r\n");
    EXPECT_EQ(answer.substr(9, 3), "204");
    EXPECT_NE(answer.find("; Secure"), std::string::npos);
}

TEST_F(Tls, NeedsACertificateAndItsKey) {
    ServerOptions wrong;
    wrong.tlsCertificateFile = credentials.certificateFile();
    EXPECT_THROW(Server(wrong).start(), std::runtime_error);
    wrong.tlsKeyFile = credentials.certificateFile();
    EXPECT_THROW(Server(wrong).start(), std::runtime_error);
    wrong.tlsKeyFile = Credentials().keyFile();
    EXPECT_THROW(Server(wrong).start(), std::runtime_error);
    const Credentials other;
    wrong.tlsKeyFile = other.keyFile();
    EXPECT_THROW(Server(wrong).start(), std::runtime_error) << "a key of another certificate";
}

} // namespace
} // namespace cdxservice
