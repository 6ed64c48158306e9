#ifndef CDXTESTS_SUPPORT_SCRIPTEDPEER_H
#define CDXTESTS_SUPPORT_SCRIPTEDPEER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace cdxtest {

/// The listening side's end of one connection, in the hands of a script. Every operation ends within the peer's
/// patience, and when the peer goes.
class PeerConnection {
public:
    PeerConnection(int descriptor, int wakeUp, std::chrono::steady_clock::time_point deadline);
    ~PeerConnection();
    PeerConnection(const PeerConnection&) = delete;
    PeerConnection& operator=(const PeerConnection&) = delete;

    /// What comes up to and with `end`; what comes behind it waits for the next read. Throws std::runtime_error when
    /// the other side goes, or the patience is over, before.
    std::string readUntil(const std::string& end);
    std::string readBytes(std::size_t count);
    /// A request's head, and its body where it has a Content-Length.
    std::string readRequest();
    /// Waits until the other side has closed; true if it did so, false if it sent something instead, or nothing.
    bool awaitClose();

    /// Sends all of it. Throws std::runtime_error when the other side has gone.
    void write(const std::string& bytes);
    /// Sends it one byte at a time, each in a packet of its own.
    void writeSliced(const std::string& bytes);
    /// Ends this direction only.
    void closeWriting();
    void close();
    /// Ends the connection with a reset: the other side's next call fails.
    void reset();

private:
    void receiveMore();
    bool awaitReady(short events);

    int m_descriptor;
    const int m_wakeUp;
    const std::chrono::steady_clock::time_point m_deadline;
    std::string m_received;
};

/// A server on loopback, on a port of the system's choice, that does exactly what the test's script says: the n-th
/// script is run with the n-th connection, each on a thread of its own; connections beyond are accepted and closed.
///
///     ScriptedPeer peer([](PeerConnection& client) {
///         client.readRequest();
///         client.write("HTTP/1.1 204 No Content\r\n\r\n");
///     });
///     ... connect to peer.port() ...
///
/// A connection is closed when its script returns or throws, as it does when the other side goes. The destructor ends
/// all scripts: whatever they wait for gives up.
class ScriptedPeer {
public:
    using Script = std::function<void(PeerConnection&)>;

    explicit ScriptedPeer(Script script) : ScriptedPeer(std::vector<Script>{std::move(script)}) {}
    explicit ScriptedPeer(std::vector<Script> scripts,
                          std::chrono::milliseconds scriptsTake = std::chrono::milliseconds(10'000));
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    std::uint16_t port() const { return m_port; }
    /// "http://127.0.0.1:PORT"; another scheme on demand.
    std::string uri(const std::string& scheme = "http") const;

    /// How many connections were accepted so far.
    std::size_t getConnections() const { return m_accepted; }
    /// Waits until all scripts have run; false when the patience is over before.
    bool awaitScripts();

private:
    void accept();
    void run(const Script& script, int descriptor);

    const std::vector<Script> m_scripts;
    const std::chrono::steady_clock::time_point m_deadline;
    int m_listener = -1;
    int m_wakeUp = -1; ///< readable once the peer goes
    std::uint16_t m_port = 0;
    std::atomic<std::size_t> m_accepted{0};

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::size_t m_ended = 0;

    std::vector<std::thread> m_runners; ///< of the accepting thread, until that is joined
    std::thread m_acceptor;
};

} // namespace cdxtest

#endif
