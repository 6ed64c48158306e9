#ifndef CDXTESTS_LIBRARY_BOOTSTRAP_FRAMEWORKDOUBLE_H
#define CDXTESTS_LIBRARY_BOOTSTRAP_FRAMEWORKDOUBLE_H

#include <support/xal/RecordingRegistry.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace cdxtest {

/// The framework's concrete classes as this program has them: linked in the place of the framework's own, they do
/// nothing but write down, in one journal, that they were made, used and destroyed, and let the test make the service
/// come and go. So what the library does with them is seen in its order.
///
/// In the journal: "make websockets", "make sessions", "make access on sessions", "make executor NAME, LABEL" (what its
/// logger puts before a message), "make registry "MODE" "URI" "CLIENT", LABEL", "make elements on a registry, LABEL";
/// "stop NAME", "unsubscribe all", "close", "remove manager SERVICE", "listen SERVICE", "destroy …"; and what
/// RecordingConnection adds.
struct FrameworkDouble {
    std::shared_ptr<Journal> journal = std::make_shared<Journal>();
    std::function<void(std::shared_ptr<xal::IServiceConnection>)> connected;
    std::function<void()> disconnected;
    std::shared_ptr<xal::IServiceRegistry::RequestHeaders> requestHeaders;
    std::map<std::string, xal::XalServiceConfigurations::ServiceSetting> serviceSettings;
    std::function<void()> onSetRequestHeaders; ///< runs while client services are made
    std::function<void()> onMakeExecutor;      ///< runs while an executor is made

    static FrameworkDouble& get();
    /// Everything as at the program's begin.
    static void reset();

    std::shared_ptr<RecordingConnection> connect();
};

} // namespace cdxtest

#endif
