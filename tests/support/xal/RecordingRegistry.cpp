#include "RecordingRegistry.h"

#include <xalutil/Json.h>

#include <stdexcept>
#include <utility>

namespace cdxtest {

namespace {

std::string nameOf(const std::string& resource, const std::string& id) {
    return id.empty() ? resource : resource + "/" + id;
}

const char* verbOf(xal::Request::Kind kind) {
    switch (kind) {
    case xal::Request::CREATE:
        return "create ";
    case xal::Request::UPDATE:
        return "update ";
    case xal::Request::REMOVE:
        return "remove ";
    case xal::Request::READ:
        break;
    }
    return "read ";
}

xal::Event eventOf(xal::Event::Kind kind) {
    xal::Event event;
    event.kind = kind;
    return event;
}

} // namespace

void Journal::add(std::string entry) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.push_back(std::move(entry));
}

void Journal::clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
}

std::vector<std::string> Journal::entries() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries;
}

struct RecordingConnection::Watch {
    std::string name;
    std::function<void(xal::Event)> event; ///< empty once nobody is to be told any more; guarded by the mutex
    std::mutex mutex;

    void end() {
        std::function<void(xal::Event)> dropped;
        const std::lock_guard<std::mutex> lock(mutex);
        dropped.swap(event);
    }
};

class RecordingConnection::RecordingSubscription : public xal::Subscription {
public:
    RecordingSubscription(std::shared_ptr<Journal> journal, std::shared_ptr<Watch> watch)
        : m_journal(std::move(journal)), m_watch(std::move(watch)) {}
    ~RecordingSubscription() override {
        m_journal->add("release " + m_watch->name);
        m_watch->end();
    }
    void unsubscribe() override {
        m_journal->add("unsubscribe " + m_watch->name);
        m_watch->end();
    }

private:
    std::shared_ptr<Journal> m_journal;
    std::shared_ptr<Watch> m_watch;
};

RecordingConnection::RecordingConnection(std::shared_ptr<Journal> journal)
    : m_journal(std::move(journal)),
      m_logger(xalutil::LoggerFactory::getDefaultLoggerFactory()->createLogger("RecordingConnection")) {}

RecordingConnection::~RecordingConnection() = default;

void RecordingConnection::send(xal::Request request, Answer answer) {
    m_journal->add(verbOf(request.kind) + nameOf(request.resourceName, request.id));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_unanswered.push_back({std::move(request), std::move(answer)});
}

std::shared_ptr<xal::Subscription> RecordingConnection::subscribe(xal::SubscribeRequest request,
                                                                  std::function<void(xal::Event)> event) {
    auto watch = std::make_shared<Watch>();
    watch->name = nameOf(request.resourceName, request.id);
    watch->event = std::move(event);
    m_journal->add("subscribe " + watch->name + (request.narrowed ? " narrowed" : ""));
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_refusal.empty())
        throw std::runtime_error(m_refusal);
    m_watches.push_back(watch);
    return std::make_shared<RecordingSubscription>(m_journal, watch);
}

xalutil::ILogger& RecordingConnection::getLogger() {
    return *m_logger;
}

std::size_t RecordingConnection::unansweredCount() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_unanswered.size();
}

xal::Request RecordingConnection::nextRequest() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_unanswered.empty())
        throw std::out_of_range("no request waits for an answer");
    return m_unanswered.front().request;
}

RecordingConnection::Sent RecordingConnection::takeNext() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_unanswered.empty())
        throw std::out_of_range("no request waits for an answer");
    Sent next = std::move(m_unanswered.front());
    m_unanswered.pop_front();
    return next;
}

void RecordingConnection::answer(int status, const std::string& json) {
    const Sent sent = takeNext();
    std::shared_ptr<xalutil::JsonValue> value;
    if (!json.empty())
        value = std::make_shared<xalutil::JsonValue>(xalutil::JsonFactory::createJsonParser()->parse(json));
    sent.answer(std::make_shared<const xal::XalResponse>(status), value);
}

void RecordingConnection::answerWithException(const std::string& what) {
    takeNext().answer(std::make_shared<const xal::XalException>(0, what), nullptr);
}

void RecordingConnection::tell(const std::string& subscription, const xal::Event& event) {
    std::function<void(xal::Event)> handler;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (auto watch = m_watches.rbegin(); watch != m_watches.rend() && !handler; ++watch) {
            const std::lock_guard<std::mutex> watchLock((*watch)->mutex);
            if ((*watch)->name == subscription)
                handler = (*watch)->event;
        }
    }
    if (!handler)
        throw std::out_of_range("nobody is subscribed to " + subscription);
    handler(event);
}

void RecordingConnection::tellChange(const std::string& subscription, const std::string& elementJson) {
    xal::Event event = eventOf(xal::Event::CHANGED);
    event.element = jsonObject(elementJson);
    event.id = event.element->has("id") ? event.element->getString("id") : std::string();
    tell(subscription, event);
}

void RecordingConnection::tellRemoval(const std::string& subscription, const std::string& id) {
    xal::Event event = eventOf(xal::Event::REMOVED);
    event.id = id;
    tell(subscription, event);
}

void RecordingConnection::tellCurrent(const std::string& subscription) {
    tell(subscription, eventOf(xal::Event::CURRENT));
}

void RecordingConnection::refuseSubscriptions(const std::string& what) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_refusal = what;
}

RecordingRegistry::RecordingRegistry() : m_journal(std::make_shared<Journal>()) {}

RecordingRegistry::~RecordingRegistry() = default;

void RecordingRegistry::close() {
    m_journal->add("close");
}

void RecordingRegistry::setRequestHeaders(std::shared_ptr<RequestHeaders> headers) {
    m_headers = std::move(headers);
}

std::shared_ptr<RecordingConnection> RecordingRegistry::makeConnection() const {
    return std::make_shared<RecordingConnection>(m_journal);
}

std::shared_ptr<RecordingConnection> RecordingRegistry::connect() {
    auto connection = makeConnection();
    m_connected(connection);
    return connection;
}

void RecordingRegistry::disconnect() {
    m_disconnected();
}

void RecordingRegistry::fail(const std::exception& error) {
    m_error(error);
}

void RecordingRegistry::registerListener(const std::string& service,
                                         std::function<void(std::shared_ptr<xal::IServiceConnection>)> connected,
                                         std::function<void()> disconnected,
                                         std::function<void(const std::exception&)> error) {
    m_journal->add("listen " + service);
    m_connected = std::move(connected);
    m_disconnected = std::move(disconnected);
    m_error = std::move(error);
}

std::shared_ptr<xalutil::JsonObject> jsonObject(const std::string& text) {
    return xalutil::JsonFactory::createJsonParser()->parse(text).asObject();
}

} // namespace cdxtest
