#ifndef CDXTESTS_SUPPORT_XAL_RECORDINGREGISTRY_H
#define CDXTESTS_SUPPORT_XAL_RECORDINGREGISTRY_H

#include <xal/Service.h>
#include <xal/ServiceRegistry.h>
#include <xalutil/Logger.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cdxtest {

/// What was done to the doubles, in order. May be used from several threads at once.
class Journal {
public:
    void add(std::string entry);
    void clear();
    std::vector<std::string> entries() const;

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_entries;
};

/// Stands in for one connection to a service: keeps requests until the test answers them, and tells subscribers what
/// the test says. In the journal: "create cdxConfig", "update cdxConfig/ID", "remove …", "subscribe cdxData",
/// "subscribe cdxData/ID", "unsubscribe …", and "release …" when the last reference to a subscription goes.
class RecordingConnection : public xal::IServiceConnection {
public:
    explicit RecordingConnection(std::shared_ptr<Journal> journal);
    ~RecordingConnection() override;

    void send(xal::Request request, Answer answer) override;
    std::shared_ptr<xal::Subscription> subscribe(xal::SubscribeRequest request,
                                                 std::function<void(xal::Event)> event) override;
    xalutil::ILogger& getLogger() override;

    std::size_t unansweredCount() const;
    /// The oldest request that was not answered yet. Throws std::out_of_range where there is none.
    xal::Request nextRequest() const;
    /// Answers it on the caller's thread; an empty text is an answer without a value.
    void answer(int status, const std::string& json = {});
    /// Answers it as a request whose sending threw.
    void answerWithException(const std::string& what);

    /// Tells the subscription of this name ("cdxData", "cdxData/ID") that was made last and is held, on the caller's
    /// thread. Throws std::out_of_range where there is none.
    void tell(const std::string& subscription, const xal::Event& event);
    void tellChange(const std::string& subscription, const std::string& elementJson);
    void tellRemoval(const std::string& subscription, const std::string& id);
    void tellCurrent(const std::string& subscription);
    /// The next subscriptions throw.
    void refuseSubscriptions(const std::string& what);

private:
    struct Sent {
        xal::Request request;
        Answer answer;
    };
    struct Watch;
    class RecordingSubscription;

    Sent takeNext();

    std::shared_ptr<Journal> m_journal;
    std::unique_ptr<xalutil::ILogger> m_logger;
    mutable std::mutex m_mutex;
    std::deque<Sent> m_unanswered;
    std::vector<std::shared_ptr<Watch>> m_watches;
    std::string m_refusal;
};

/// Stands in for the framework: keeps the listener, and lets the test make the service come and go. In the journal:
/// "listen CarDataExchange", "close".
class RecordingRegistry : public xal::IServiceRegistry {
public:
    RecordingRegistry();
    ~RecordingRegistry() override;

    void close() override;
    void setRequestHeaders(std::shared_ptr<RequestHeaders> headers) override;

    /// The service comes: the listener gets a service object that speaks through the returned connection.
    std::shared_ptr<RecordingConnection> connect();
    /// The same without telling the listener.
    std::shared_ptr<RecordingConnection> makeConnection() const;
    void disconnect();
    void fail(const std::exception& error);

    const std::shared_ptr<Journal>& journal() const { return m_journal; }
    const std::shared_ptr<RequestHeaders>& requestHeaders() const { return m_headers; }

protected:
    void registerListener(const std::string& service,
                          std::function<void(std::shared_ptr<xal::IServiceConnection>)> connected,
                          std::function<void()> disconnected,
                          std::function<void(const std::exception&)> error) override;

private:
    std::shared_ptr<Journal> m_journal;
    std::shared_ptr<RequestHeaders> m_headers;
    std::function<void(std::shared_ptr<xal::IServiceConnection>)> m_connected;
    std::function<void()> m_disconnected;
    std::function<void(const std::exception&)> m_error;
};

/// An element or a body from its text.
std::shared_ptr<xalutil::JsonObject> jsonObject(const std::string& text);

} // namespace cdxtest

#endif
