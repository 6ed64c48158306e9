#ifndef CDXTESTS_PLATFORM_XAL_RECORDINGCONNECTION_H
#define CDXTESTS_PLATFORM_XAL_RECORDINGCONNECTION_H

#include <xal/Service.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace xaltest {

/// Stands in for the framework: keeps what a service object asks for, and lets the test answer.
class RecordingConnection : public xal::IServiceConnection {
public:
    struct Log : xalutil::ILogger {
        std::vector<std::string> lines;
        void trace(const std::string& text) override { lines.push_back(text); }
        void debug(const std::string& text) override { lines.push_back(text); }
        void info(const std::string& text) override { lines.push_back(text); }
        void warning(const std::string& text) override { lines.push_back("warning: " + text); }
        void error(const std::string& text) override { lines.push_back("error: " + text); }
        void system(const std::string& text) override { lines.push_back(text); }
        bool isTrace() const override { return true; }
        bool isDebug() const override { return true; }
        bool isInfo() const override { return true; }
        bool isWarning() const override { return true; }
        bool isError() const override { return true; }
        bool isSystem() const override { return true; }
        std::shared_ptr<ILogger> getSubFacilityLogger(const std::string&) const override {
            return std::make_shared<Log>();
        }
    };

    void send(xal::Request request, Answer answer) override {
        requests.push_back(std::move(request));
        answers.push_back(std::move(answer));
    }
    std::shared_ptr<xal::Subscription> subscribe(xal::SubscribeRequest request,
                                                 std::function<void(xal::Event)> callback) override {
        subscribeRequests.push_back(std::move(request));
        callbacks.push_back(std::move(callback));
        return nullptr;
    }
    xalutil::ILogger& getLogger() override { return log; }

    /// Answers the last request; an empty text: without a value.
    void answer(int status, const std::string& json = {}) {
        const auto value =
            json.empty() ? nullptr
                         : std::make_shared<xalutil::JsonValue>(xalutil::JsonFactory::createJsonParser()->parse(json));
        answers.back()(std::make_shared<const xal::XalResponse>(status), value);
    }

    // Events for the last subscription.
    void changed(const std::string& json) {
        xal::Event event;
        event.element = xalutil::JsonFactory::createJsonParser()->parse(json).asObject();
        callbacks.back()(event);
    }
    void changedId(const std::string& id, const std::string& name = "n") {
        changed(R"({"id":")" + id + R"(","name":")" + name + R"("})");
    }
    void removed(const std::string& id) {
        xal::Event event;
        event.kind = xal::Event::REMOVED;
        event.id = id;
        callbacks.back()(event);
    }
    void tell(xal::Event::Kind kind, int status = 0) {
        xal::Event event;
        event.kind = kind;
        event.status = status;
        callbacks.back()(event);
    }

    std::vector<xal::Request> requests;
    std::vector<Answer> answers;
    std::vector<xal::SubscribeRequest> subscribeRequests;
    std::vector<std::function<void(xal::Event)>> callbacks;
    Log log;
};

} // namespace xaltest

#endif
