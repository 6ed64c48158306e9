#include <boost/asio/error.hpp>
#include <boost/beast/websocket/error.hpp>
#include <gmock/gmock.h>

#include <UpgradeReader.h>
#include <stdexcept>

namespace {

using xal::ByteSource;
using xal::UpgradeReader;

const std::string longDigest(64, 'd');
const std::string shortest = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                             "Sec-WebSocket-Accept: " +
                             longDigest + "\r\n\r\n";
const std::string answer = "HTTP/1.1 101 \r\nA: b\r\nSec-WebSocket-Protocol: p\r\nSec-WebSocket-Accept: " + longDigest +
                           "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n";

/// Gives one piece for each read, no more than was asked for, and fails once there are none.
class Pieces : public ByteSource {
public:
    void read(boost::asio::mutable_buffer into, std::unique_ptr<Waiter> waiter) override {
        asked.push_back(into.size());
        if (pieces.empty())
            return waiter->ended(boost::asio::error::eof, 0);
        const std::size_t length = pieces.front().copy(static_cast<char*>(into.data()), into.size());
        pieces.front().erase(0, length);
        if (pieces.front().empty())
            pieces.erase(pieces.begin());
        waiter->ended({}, length);
    }

    std::vector<std::string> pieces;
    std::vector<std::size_t> asked;
};

class UpgradeReaderTest : public testing::Test {
protected:
    struct Told : ByteSource::Waiter {
        explicit Told(UpgradeReaderTest& test) : m_test(test) {}
        void ended(const ByteSource::Error& error, std::size_t bytes) override {
            m_test.failure = error;
            m_test.taken = std::string(m_test.buffer.data(), bytes);
        }
        UpgradeReaderTest& m_test;
    };

    /// Of exactly the room that is asked for, so that a byte too many is one out of bounds.
    void read(std::size_t room = 1536) {
        buffer = std::vector<char>(room);
        reader.read(boost::asio::buffer(buffer), std::make_unique<Told>(*this));
    }

    Pieces source;
    UpgradeReader reader{source, "p"};
    std::vector<char> buffer;
    ByteSource::Error failure;
    std::string taken;
};

TEST_F(UpgradeReaderTest, GivesTheShortestFormWithAllThatCameBehindItWhereverItIsCut) {
    std::string behind;
    for (int i = 0; i < 4000; ++i)
        behind += static_cast<char>('a' + i % 23);
    for (std::size_t cut = 0; cut < answer.size(); ++cut) {
        Pieces cutSource;
        cutSource.pieces = {answer.substr(0, cut), answer.substr(cut) + behind};
        if (cut == 0)
            cutSource.pieces.erase(cutSource.pieces.begin());
        UpgradeReader cutReader(cutSource, "p");
        std::string all;
        while (!cutSource.pieces.empty()) {
            buffer = std::vector<char>(1536);
            cutReader.read(boost::asio::buffer(buffer), std::make_unique<Told>(*this));
            ASSERT_FALSE(failure) << failure.message();
            all += taken;
        }
        EXPECT_EQ(all, shortest + behind) << "cut at " << cut;
    }
}

TEST_F(UpgradeReaderTest, HandsTheReadsOnOnceTheAnswerIsWhole) {
    source.pieces = {answer, "frame"};
    read();
    EXPECT_EQ(taken, shortest);
    read(5);
    EXPECT_EQ(taken, "frame");
    EXPECT_EQ(source.asked.back(), 5u);
    read(5);
    EXPECT_EQ(failure, boost::asio::error::eof);
    EXPECT_EQ(reader.getRefusal(), "");
}

TEST_F(UpgradeReaderTest, RefusesALongerDigest) {
    source.pieces = {answer};
    source.pieces.front().insert(answer.find(longDigest), "d");
    read();
    EXPECT_EQ(failure, boost::beast::websocket::error::upgrade_declined);
    EXPECT_EQ(reader.getRefusal(), "upgrade without one digest of its key");
}

TEST_F(UpgradeReaderTest, SaysThatAnAnswerWasCutShort) {
    source.pieces = {answer.substr(0, 20)};
    read();
    EXPECT_EQ(failure, boost::beast::websocket::error::upgrade_declined);
    EXPECT_EQ(reader.getRefusal(), "malformed answer: the connection was closed before its end");
}

TEST_F(UpgradeReaderTest, PassesOnWhyThereIsNoAnswer) {
    read();
    EXPECT_EQ(failure, boost::asio::error::eof);
    EXPECT_EQ(reader.getRefusal(), "");
}

TEST_F(UpgradeReaderTest, WantsRoomForTheShortestForm) {
    source.pieces = {answer};
    EXPECT_THROW(read(shortest.size()), std::length_error);
    EXPECT_TRUE(source.asked.empty());
    read(shortest.size() + 1);
    EXPECT_EQ(taken, shortest);
}

} // namespace
