// What a service answers to the framework's upgrade, and the frames behind it. What is held: the same is given on
// whether it comes at once or byte by byte, and what is given on begins with the acceptance, or nothing is.
#include "Hold.h"
#include "UpgradeReader.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace {

using cdxfuzz::hold;

/// Gives so many bytes at a time, and fails at their end.
class Slices : public xal::ByteSource {
public:
    Slices(std::string_view bytes, std::size_t slice) : m_bytes(bytes), m_slice(slice) {}

    void read(boost::asio::mutable_buffer into, std::unique_ptr<Waiter> waiter) override {
        const std::size_t count = std::min({m_bytes.size(), m_slice, into.size()});
        if (count == 0)
            return waiter->ended(boost::asio::error::eof, 0);
        m_bytes.copy(static_cast<char*>(into.data()), count);
        m_bytes.remove_prefix(count);
        waiter->ended({}, count);
    }

private:
    std::string_view m_bytes;
    const std::size_t m_slice;
};

struct Told : xal::ByteSource::Waiter {
    Told(xal::ByteSource::Error& failure, std::size_t& bytes) : m_failure(failure), m_bytes(bytes) {}
    void ended(const xal::ByteSource::Error& failure, std::size_t bytes) override {
        m_failure = failure;
        m_bytes = bytes;
    }
    xal::ByteSource::Error& m_failure;
    std::size_t& m_bytes;
};

struct Outcome {
    std::string given, refusal;
    bool operator==(const Outcome& other) const { return given == other.given && refusal == other.refusal; }
};

Outcome readAll(const std::string& answer, std::size_t slice) {
    Slices source(answer, slice);
    xal::UpgradeReader reader(source, "p");
    Outcome outcome;
    for (;;) {
        char buffer[1536];
        xal::ByteSource::Error failure;
        std::size_t bytes = 0;
        reader.read(boost::asio::buffer(buffer), std::make_unique<Told>(failure, bytes));
        outcome.given.append(buffer, bytes);
        if (failure)
            break;
    }
    outcome.refusal = reader.getRefusal();
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string answer(data, data + size);
    const Outcome whole = readAll(answer, answer.size() + 1);
    hold(whole == readAll(answer, 1), "an answer is the same however it comes");
    const std::string acceptance = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n";
    hold(whole.given.empty() || whole.given.compare(0, acceptance.size(), acceptance) == 0, "it begins with a 101");
    hold(whole.given.empty() || whole.refusal.empty(), "what is refused is not given on");
    return 0;
}
