#ifndef SERVICE_SRC_TLS_H
#define SERVICE_SRC_TLS_H

#include <boost/asio/ssl/context.hpp>

#include <memory>
#include <string>

namespace cdxservice {

/// What TLS connections are made with. Null where neither file is named. Throws std::runtime_error that names the file
/// that is missing or wrong.
std::unique_ptr<boost::asio::ssl::context> makeTlsContext(const std::string& certificateFile,
                                                          const std::string& keyFile);

} // namespace cdxservice

#endif
