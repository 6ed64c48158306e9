#include "HttpSession.h"
#include "Listener.h"
#include "ServerCore.h"
#include "Tls.h"

#include <cdxservice/Server.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <exception>
#include <new>
#include <optional>
#include <pthread.h>
#include <stdexcept>
#include <thread>
#include <utility>

namespace cdxservice {

namespace asio = boost::asio;

namespace {

/// How far removals that are due and connections whose time is over may lag.
constexpr std::chrono::milliseconds tickInterval(200);

/// One start to the next stop. Made and destroyed by the owner, everything between on the server's thread.
class Run {
public:
    Run(const ServerOptions& options, const asio::ip::address& address, std::uint16_t port, Access::Rules rules,
        std::unique_ptr<asio::ssl::context> tls)
        : m_options(options), m_tls(std::move(tls)), m_core(m_io, options, std::move(rules)),
          m_listener(m_io, address, port), m_tick(m_io), m_deadline(m_io) {
        m_listener.start(
            [this](Listener::Socket socket) { accept(std::move(socket)); },
            [this](const std::exception& why) { m_core.logFailure("no connection can be accepted", why); });
        tick();
        m_thread = std::thread([this] {
            ::pthread_setname_np(::pthread_self(), "cdx-service");
            run();
        });
    }

    ~Run() {
        try {
            asio::post(m_io, [this] { stop(); });
        } catch (const std::bad_alloc&) {
            m_io.stop();
        }
        m_thread.join();
    }

    std::uint16_t port() const { return m_listener.port(); }

private:
    /// What memory is short for fails alone, and what always must go on is taken up again.
    void run() {
        for (;;) {
            try {
                resume();
                m_io.run();
                return;
            } catch (const std::exception& failure) {
                m_core.logFailure("a step failed", failure);
            }
        }
    }

    void resume() {
        while (!m_core.stopping()) {
            try {
                m_listener.resume();
                if (!m_ticking) {
                    tick();
                }
                return;
            } catch (const std::bad_alloc&) {
                std::this_thread::sleep_for(tickInterval);
            }
        }
    }

    void accept(Listener::Socket socket) {
        const auto session =
            std::make_shared<HttpSession>(m_core, std::make_unique<Transport>(std::move(socket), m_tls.get()));
        m_core.add(session);
        session->start();
    }

    void tick() {
        m_tick.expires_after(tickInterval);
        m_tick.async_wait([this](boost::system::error_code cancelled) {
            m_ticking = false;
            if (!cancelled && !m_core.stopping()) {
                tick();
                m_core.tick();
            }
        });
        m_ticking = true;
    }

    void stop() {
        m_listener.stop();
        bool limited = true;
        try {
            m_deadline.expires_after(m_options.closeTimeout);
            m_deadline.async_wait([this](boost::system::error_code cancelled) {
                if (!cancelled) {
                    m_core.closeAll();
                }
            });
        } catch (const std::bad_alloc&) {
            limited = false;
        }
        m_core.stop([this] {
            m_tick.cancel();
            m_deadline.cancel();
        });
        if (!limited) {
            m_core.closeAll();
        }
    }

    const ServerOptions& m_options;
    std::unique_ptr<asio::ssl::context> m_tls;
    asio::io_context m_io{1};
    ServerCore m_core;
    Listener m_listener;
    asio::steady_timer m_tick;
    asio::steady_timer m_deadline;
    bool m_ticking = false;
    std::thread m_thread;
};

} // namespace

class Server::Impl {
public:
    explicit Impl(ServerOptions given) : m_options(std::move(given)) {
        if (!m_options.store) {
            m_options.store = std::make_shared<Store>();
        }
        if (!m_options.clock) {
            m_options.clock = std::make_shared<Clock>();
        }
    }

    void start() {
        if (m_run) {
            return;
        }
        boost::system::error_code error;
        const auto address = asio::ip::make_address(m_options.bindAddress, error);
        if (error) {
            throw std::runtime_error("not an address to bind to, such as 127.0.0.1: " + m_options.bindAddress);
        }
        if (m_options.maxConnections == 0) {
            throw std::runtime_error("a service without connections serves nobody");
        }
        Access::Rules rules;
        rules.boundAddress = m_options.bindAddress;
        rules.hostNames = m_options.hostNames;
        if (!m_options.tokenFile.empty()) {
            rules.token = readToken(m_options.tokenFile);
        }
        if (rules.token.empty() && !address.is_loopback()) {
            throw std::runtime_error("beyond loopback the service needs a token file: " + m_options.bindAddress);
        }
        auto tls = makeTlsContext(m_options.tlsCertificateFile, m_options.tlsKeyFile);
        const bool isTls = tls != nullptr;
        rules.tls = isTls;
        const std::string host = address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
        m_run = std::make_unique<Run>(m_options, address, m_port == 0 ? m_options.port : m_port, std::move(rules),
                                      std::move(tls));
        m_port = m_run->port();
        m_uri = (isTls ? "https://" : "http://") + host + ":" + std::to_string(m_port);
    }

    void stop() { m_run.reset(); }
    std::uint16_t port() const { return m_port; }
    const std::string& uri() const { return m_uri; }

private:
    ServerOptions m_options;
    std::uint16_t m_port = 0;
    std::string m_uri;
    std::unique_ptr<Run> m_run;
};

Server::Server(ServerOptions options) : m_impl(std::make_unique<Impl>(std::move(options))) {}
Server::~Server() {
    stop();
}
void Server::start() {
    m_impl->start();
}
void Server::stop() {
    m_impl->stop();
}
std::uint16_t Server::port() const {
    return m_impl->port();
}
std::string Server::uri() const {
    return m_impl->uri();
}

} // namespace cdxservice
