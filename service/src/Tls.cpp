#include "Tls.h"

#include <stdexcept>

namespace cdxservice {

namespace ssl = boost::asio::ssl;

std::unique_ptr<ssl::context> makeTlsContext(const std::string& certificateFile, const std::string& keyFile) {
    if (certificateFile.empty() && keyFile.empty()) {
        return nullptr;
    }
    if (certificateFile.empty() || keyFile.empty()) {
        throw std::runtime_error("TLS needs a certificate and its key");
    }
    auto context = std::make_unique<ssl::context>(ssl::context::tls_server);
    context->set_options(ssl::context::default_workarounds | ssl::context::no_sslv2 | ssl::context::no_sslv3 |
                         ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1 | ssl::context::no_compression);
    boost::system::error_code error;
    context->use_certificate_chain_file(certificateFile, error);
    if (error) {
        throw std::runtime_error("the TLS certificate cannot be used: " + certificateFile + ": " + error.message());
    }
    context->use_private_key_file(keyFile, ssl::context::pem, error);
    if (error) {
        throw std::runtime_error("the TLS key cannot be used: " + keyFile + ": " + error.message());
    }
    if (SSL_CTX_check_private_key(context->native_handle()) != 1) {
        throw std::runtime_error("the TLS key is not the certificate's: " + keyFile);
    }
    return context;
}

} // namespace cdxservice
