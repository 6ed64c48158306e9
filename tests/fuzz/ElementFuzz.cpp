// Any text, through the parser, into each element, and out again. What is held: nothing but a std::exception comes from
// the parser, a fill throws nothing, and what was written out fills an element that writes out the same.
#include "Hold.h"
#include "SilentLogger.h"

#include <Cardataexchange.h>

#include <cstdint>
#include <exception>
#include <string>

namespace {

using Service = xalobjects_GX2::CardataexchangeService;

using cdxfuzz::hold;
using cdxfuzz::SilentLogger;

class SilentFactory : public xalutil::LoggerFactory {
public:
    std::unique_ptr<xalutil::ILogger> createLogger(const std::string&) override {
        return std::make_unique<SilentLogger>();
    }
};

template <class Element>
void fillAndWriteOut(const std::shared_ptr<xalutil::JsonObject>& object) {
    Element element(nullptr);
    element.fillFromJson(object); // whatever it throws ends the run

    const auto descriptor = element.getDescriptor();
    const auto written = descriptor.getAsJson();
    const std::string text = written->toString();
    hold(!descriptor.getAsXALBody()->toString().empty(), "a body is written");

    Element again(nullptr);
    again.parseJson(text);
    hold(again.getDescriptor().getAsJson()->toString() == text, "what is written out fills an equal element");
    hold(again.getDescriptor().getFilter().getPairs() == descriptor.getFilter().getPairs(),
         "an equal element has an equal filter");
    hold(Element(written).getDescriptor().getAsJson()->toString() == text, "the written object fills an equal element");
    try {
        static_cast<void>(element.getElementIdAsString());
    } catch (const std::exception&) { // no string: the caller is told
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    xalutil::LoggerFactory::setDefaultLoggerFactory(std::make_shared<SilentFactory>());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::shared_ptr<xalutil::JsonObject> object;
    try {
        object = xalutil::JsonFactory::createJsonParser()->parse(text).asObject();
    } catch (const std::exception&) {
        return 0;
    }
    fillAndWriteOut<Service::CdxData>(object);
    fillAndWriteOut<Service::CdxClientState>(object);
    fillAndWriteOut<Service::CdxConfig>(object);
    fillAndWriteOut<Service::CdxTrigger>(object);
    fillAndWriteOut<Service::CdxMasterControl>(object);
    return 0;
}
