#ifndef XAL_UPGRADEREADER_H
#define XAL_UPGRADEREADER_H

#include "Connection.h"

#include <xalutil/HttpAnswerParser.h>

#include <optional>

namespace xal {

/// What a channel reads of its connection: first the answer to its upgrade, held to HTTP's grammar and to what was
/// asked for, which is then given on in its shortest form; from then on the bytes as they come.
///
/// The key's digest is left to the WebSocket stream, which chose the key.
class UpgradeReader : public ByteSource {
public:
    UpgradeReader(ByteSource& source, std::string subprotocol);

    void read(boost::asio::mutable_buffer into, std::unique_ptr<Waiter> waiter) override;
    /// Why the answer was refused; empty where it was not.
    const std::string& getRefusal() const { return m_refusal; }

private:
    class AnswerWaiter;

    void received(const Error& failure, boost::asio::mutable_buffer into, std::size_t bytes,
                  std::unique_ptr<Waiter> waiter);
    /// The answer as it is given on. Throws HttpError where it is another one than was hoped for.
    std::string shorten(const xalutil::HttpResponse& answer) const;

    ByteSource& m_source;
    const std::string m_subprotocol;
    std::optional<xalutil::HttpAnswerParser> m_parser; ///< until the answer is whole
    std::string m_refusal;
};

} // namespace xal

#endif
