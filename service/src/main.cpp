#include <cdxservice/Server.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <ctime>
#include <exception>
#include <iostream>
#include <string>
#include <sys/resource.h>

namespace {

/// A connection is a descriptor: the soft limit is below what the service promises to serve.
void raiseDescriptorLimit() {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/// An option that is there says something: an empty token would be none, and "--host=" would take the next option's
/// name.
std::string checkGiven(const std::string& value) {
    return value.empty() || value.substr(0, 2) == "--" ? "has no value" : "";
}

void logLine(const std::string& line) {
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    ::gmtime_r(&now, &parts);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ ", &parts);
    std::clog << stamp + line + "\n" << std::flush;
}

} // namespace

int main(int argc, char** argv) {
    cdxservice::ServerOptions options;
    options.port = 8080;
    CLI::App app("The car data exchange service: elements over HTTP, their changes over WebSocket.", "cdx-service");
    const CLI::Validator given(checkGiven, "");
    app.add_option("--port", options.port, "Port to listen on; 0: any free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--bind", options.bindAddress, "Address to listen on; beyond loopback a token file is needed")
        ->type_name("ADDRESS")
        ->check(given)
        ->capture_default_str();
    app.add_option("--host", options.hostNames, "Another name by which clients reach the service (repeatable)")
        ->type_name("NAME")
        ->check(given)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--token-file", options.tokenFile, "File with the token that clients present")
        ->type_name("FILE")
        ->check(given);
    auto* certificate = app.add_option("--tls-cert", options.tlsCertificateFile, "Certificate chain, PEM: TLS only");
    auto* key = app.add_option("--tls-key", options.tlsKeyFile, "The certificate's key, PEM");
    certificate->type_name("FILE")->needs(key)->check(given);
    key->type_name("FILE")->needs(certificate)->check(given);
    app.add_option("--max-connections", options.maxConnections, "Connections served at a time")
        ->check(CLI::Range(1, 1'000'000))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    options.log = logLine;

    // Blocked before the server's thread is made, which inherits the mask: the signals are this thread's.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    raiseDescriptorLimit();

    try {
        cdxservice::Server server(std::move(options));
        server.start();
        std::cout << "cdx-service: listening on " << server.uri() << std::endl;
        int signal = 0;
        while (::sigwait(&ends, &signal) != 0) {
        }
        server.stop();
    } catch (const std::exception& failure) {
        std::cerr << "cdx-service: " << failure.what() << "\n";
        return 1;
    }
    return 0;
}
