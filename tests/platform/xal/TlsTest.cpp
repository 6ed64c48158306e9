#include "TestClient.h"

#include <cdxservice/Server.h>
#include <support/FaultProxy.h>
#include <support/TlsIdentity.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace {

using namespace xaltest;
using Response = std::shared_ptr<const xal::XalResponse>;

/// A service that speaks TLS, and a client that trusts one authority.
class Tls : public testing::Test {
protected:
    Tls() { trust(authority); }
    ~Tls() override {
        ::unsetenv("SSL_CERT_FILE");
        for (const auto& path : m_files)
            ::unlink(path.c_str());
    }

    void trust(const cdxtest::CertificateAuthority& trusted) {
        ::setenv("SSL_CERT_FILE", write("ca", trusted.certificate()).c_str(), 1);
    }
    /// Starts the service with such a certificate; the client reaches it by this host.
    void start(const cdxtest::TlsSubject& subject, const std::string& host) { start(authority.issue(subject), host); }
    void start(const cdxtest::TlsIdentity& identity, const std::string& host) {
        cdxservice::ServerOptions options;
        options.tlsCertificateFile = write("cert", identity.certificate);
        options.tlsKeyFile = write("key", identity.key);
        server = std::make_unique<cdxservice::Server>(options);
        server->start();
        proxy = std::make_unique<cdxtest::FaultProxy>(server->port());
        client = std::make_unique<TestClient>("https://" + host + ":" + std::to_string(proxy->port()));
        client->listen();
    }
    /// The status of an update of what is not there: 404 where the service was reached.
    int update(ItemService& service) {
        Journal results;
        const auto result = [&](const Response& response) { results.add(std::to_string(response->getStatusCode())); };
        service.updateElement<Item>(ItemDescriptor::withId("none"), result, result);
        return results.awaitCount(1) ? std::stoi(results.lines().front()) : -1;
    }

    cdxtest::CertificateAuthority authority;
    std::unique_ptr<cdxservice::Server> server;
    std::unique_ptr<cdxtest::FaultProxy> proxy;
    std::unique_ptr<TestClient> client;

private:
    std::string write(const std::string& name, const std::string& content) {
        m_files.push_back(testing::TempDir() + "xal-tls-" + name + "-" + std::to_string(::getpid()));
        std::ofstream(m_files.back()) << content;
        return m_files.back();
    }

    std::vector<std::string> m_files;
};

TEST_F(Tls, TrustsWhatTheSystemsAuthoritiesVouchFor) {
    cdxtest::TlsSubject subject;
    subject.names = {"localhost"};
    start(subject, "localhost");
    const auto service = client->connection();
    ASSERT_TRUE(service);
    EXPECT_EQ(update(*service), 404);
}

TEST_F(Tls, TrustsACertificateForAnAddress) {
    cdxtest::TlsSubject subject;
    subject.addresses = {"127.0.0.1"};
    start(subject, "127.0.0.1");
    EXPECT_TRUE(client->connection());
}

TEST_F(Tls, EndsAConnectionInTimeThoughTheServicesSideStaysOpen) {
    cdxtest::TlsSubject subject;
    subject.addresses = {"127.0.0.1"};
    start(subject, "127.0.0.1");
    ASSERT_TRUE(client->connection());
    cdxtest::FaultProxy::Travel travel;
    travel.slowClose = std::chrono::seconds(5);
    proxy->setTravel(travel);
    const auto begin = std::chrono::steady_clock::now();
    std::thread stopping([this] { server->stop(); });
    EXPECT_TRUE(client->awaitDisconnected(1));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    proxy->endAll(cdxtest::FaultProxy::End::Reset);
    stopping.join();
}

TEST_F(Tls, RefusesACertificateForAnotherName) {
    cdxtest::TlsSubject subject;
    subject.names = {"other.example"};
    start(subject, "localhost");
    EXPECT_THAT(client->log->await("no connection"), testing::HasSubstr("hostname mismatch"));
    EXPECT_EQ(client->told.size(), 0u);
}

TEST_F(Tls, RefusesACertificateForAnotherAddress) {
    cdxtest::TlsSubject subject;
    subject.addresses = {"127.0.0.2"};
    start(subject, "127.0.0.1");
    EXPECT_THAT(client->log->await("no connection"), testing::HasSubstr("IP address mismatch"));
}

TEST_F(Tls, RefusesWhatNobodyVouchesFor) {
    const cdxtest::CertificateAuthority stranger("Stranger");
    trust(stranger);
    cdxtest::TlsSubject subject;
    subject.names = {"localhost"};
    start(subject, "localhost");
    EXPECT_THAT(client->log->await("no connection"), testing::HasSubstr("certificate"));
}

TEST_F(Tls, RefusesACertificateThatVouchesForItself) {
    cdxtest::TlsSubject subject;
    subject.names = {"localhost"};
    start(cdxtest::selfSigned(subject), "localhost");
    EXPECT_THAT(client->log->await("no connection"), testing::HasSubstr("self-signed certificate"));
    EXPECT_EQ(client->told.size(), 0u);
}

TEST_F(Tls, RefusesAnExpiredCertificate) {
    cdxtest::TlsSubject subject;
    subject.names = {"localhost"};
    subject.validFromSeconds = -7200;
    subject.validToSeconds = -3600;
    start(subject, "localhost");
    EXPECT_THAT(client->log->await("no connection"), testing::HasSubstr("expired"));
}

} // namespace
