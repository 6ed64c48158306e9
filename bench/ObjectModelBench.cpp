// The object model's cost, each case beside its reference: filling against reading the members by hand, parsing and
// filling against the fastest parser there is, writing out against writing by hand. The counter "allocs" is the number
// of allocations in one iteration.
#include "AllocationCounter.h"

#include <Cardataexchange.h>

#include <benchmark/benchmark.h>
#ifdef CDX_BENCH_SIMDJSON
#include <simdjson.h>
#endif

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using Service = xalobjects_GX2::CardataexchangeService;
using benchmark::DoNotOptimize;

/// A data message with all of its 17 members, 600 bytes of JSON.
const std::string message =
    R"({"id":"0d9f2c1a-6a3e-4c1b-9b1e-2f6d8f7f1c55","name":"RefreshField^true>>navigation",)"
    R"("uri":"/CarDataExchange/cdxData/0d9f2c1a-6a3e-4c1b-9b1e-2f6d8f7f1c55",)"
    R"("authenticode":"c2lnbmF0dXJlLW9mLXRoZS1tZXNzYWdl","cdxClientDataReport":["speed=51.5;heading=270","fuel=0.42"],)"
    R"("correlationTag":"trip-2381-leg-4","deliveryMode":"atLeastOnce","elementId":17,"eventId":"event-000000000017",)"
    R"("isCallbackAbilityRequested":true,"isMixinOfUserIdRequested":false,"isMixinOfVinRequested":true,)"
    R"("messageId":"message-000000000017","timeToLive":3600,"timestamp":1781164800000,"timezone":60,"version":"2.4.1"})";

/// What a program would keep that has no object model.
struct PlainData {
    std::string id, name, uri;
    std::string authenticode;
    std::vector<std::string> cdxClientDataReport;
    std::string correlationTag;
    Service::CDXDATA_DELIVERYMODE deliveryMode;
    std::int64_t elementId;
    std::string eventId;
    bool isCallbackAbilityRequested, isMixinOfUserIdRequested, isMixinOfVinRequested;
    std::string messageId;
    std::int64_t timeToLive, timestamp, timezone;
    std::string version;
};

const std::string keys[] = {"id",
                            "name",
                            "uri",
                            "authenticode",
                            "cdxClientDataReport",
                            "correlationTag",
                            "deliveryMode",
                            "elementId",
                            "eventId",
                            "isCallbackAbilityRequested",
                            "isMixinOfUserIdRequested",
                            "isMixinOfVinRequested",
                            "messageId",
                            "timeToLive",
                            "timestamp",
                            "timezone",
                            "version"};

std::shared_ptr<xalutil::JsonObject> parsedMessage() {
    return xalutil::JsonFactory::createJsonParser()->parse(message).asObject();
}

template <class Step>
void measure(benchmark::State& state, Step step) {
    step(); // what is made once and kept is not an iteration's
    const auto before = cdxbench::allocationCount();
    for (auto _ : state)
        step();
    state.counters["allocs"] =
        static_cast<double>(cdxbench::allocationCount() - before) / static_cast<double>(state.iterations());
}

void readByHand(const xalutil::JsonObject& json, PlainData& data) {
    data.id = json.getString(keys[0]);
    data.name = json.getString(keys[1]);
    data.uri = json.getString(keys[2]);
    data.authenticode = json.getString(keys[3]);
    const auto report = json.getArray(keys[4]);
    data.cdxClientDataReport.reserve(report->size());
    for (std::size_t index = 0; index < report->size(); ++index)
        data.cdxClientDataReport.push_back(report->getString(index));
    data.correlationTag = json.getString(keys[5]);
    data.deliveryMode = json.getString(keys[6]) == "atMostOnce" ? Service::CDXDATA_DELIVERYMODE_atMostOnce
                                                                : Service::CDXDATA_DELIVERYMODE_atLeastOnce;
    data.elementId = json.getInt64(keys[7]);
    data.eventId = json.getString(keys[8]);
    data.isCallbackAbilityRequested = json.getBool(keys[9]);
    data.isMixinOfUserIdRequested = json.getBool(keys[10]);
    data.isMixinOfVinRequested = json.getBool(keys[11]);
    data.messageId = json.getString(keys[12]);
    data.timeToLive = json.getInt64(keys[13]);
    data.timestamp = json.getInt64(keys[14]);
    data.timezone = json.getInt64(keys[15]);
    data.version = json.getString(keys[16]);
}

void FillReference_ReadByHand(benchmark::State& state) {
    const auto json = parsedMessage();
    measure(state, [&] {
        PlainData data;
        readByHand(*json, data);
        DoNotOptimize(&data);
    });
}
BENCHMARK(FillReference_ReadByHand);

void Fill_MakeElement(benchmark::State& state) {
    const auto json = parsedMessage();
    measure(state, [&] {
        const Service::CdxData element(json);
        DoNotOptimize(&element);
    });
}
BENCHMARK(Fill_MakeElement);

void Fill_FillElement(benchmark::State& state) {
    const auto json = parsedMessage();
    measure(state, [&] {
        Service::CdxData element(nullptr);
        element.fillFromJson(json);
        DoNotOptimize(&element);
    });
}
BENCHMARK(Fill_FillElement);

void Fill_RefillElement(benchmark::State& state) {
    const auto json = parsedMessage();
    Service::CdxData element(nullptr);
    measure(state, [&] {
        element.fillFromJson(json);
        DoNotOptimize(&element);
    });
}
BENCHMARK(Fill_RefillElement);

void Copy_Element(benchmark::State& state) {
    const Service::CdxData element(parsedMessage());
    measure(state, [&] {
        const Service::CdxData copy(element);
        DoNotOptimize(&copy);
    });
}
BENCHMARK(Copy_Element);

#ifdef CDX_BENCH_SIMDJSON
void ParseAndFillReference_Simdjson(benchmark::State& state) {
    simdjson::ondemand::parser parser;
    const simdjson::padded_string text(message);
    const auto string = [](simdjson::ondemand::value value) { return std::string(value.get_string().value()); };
    measure(state, [&] {
        PlainData data;
        auto document = parser.iterate(text);
        auto json = document.get_object().value();
        data.id = string(json.find_field("id").value());
        data.name = string(json.find_field("name").value());
        data.uri = string(json.find_field("uri").value());
        data.authenticode = string(json.find_field("authenticode").value());
        for (auto entry : json.find_field("cdxClientDataReport").get_array().value())
            data.cdxClientDataReport.push_back(string(entry.value()));
        data.correlationTag = string(json.find_field("correlationTag").value());
        data.deliveryMode = json.find_field("deliveryMode").get_string().value() == "atMostOnce"
                                ? Service::CDXDATA_DELIVERYMODE_atMostOnce
                                : Service::CDXDATA_DELIVERYMODE_atLeastOnce;
        data.elementId = json.find_field("elementId").get_int64().value();
        data.eventId = string(json.find_field("eventId").value());
        data.isCallbackAbilityRequested = json.find_field("isCallbackAbilityRequested").get_bool().value();
        data.isMixinOfUserIdRequested = json.find_field("isMixinOfUserIdRequested").get_bool().value();
        data.isMixinOfVinRequested = json.find_field("isMixinOfVinRequested").get_bool().value();
        data.messageId = string(json.find_field("messageId").value());
        data.timeToLive = json.find_field("timeToLive").get_int64().value();
        data.timestamp = json.find_field("timestamp").get_int64().value();
        data.timezone = json.find_field("timezone").get_int64().value();
        data.version = string(json.find_field("version").value());
        DoNotOptimize(&data);
    });
}
BENCHMARK(ParseAndFillReference_Simdjson);
#endif

void ParseAndFill_Parse(benchmark::State& state) {
    const auto parser = xalutil::JsonFactory::createJsonParser();
    measure(state, [&] {
        const auto json = parser->parse(message).asObject();
        DoNotOptimize(json.get());
    });
}
BENCHMARK(ParseAndFill_Parse);

void ParseAndFill_Element(benchmark::State& state) {
    const auto parser = xalutil::JsonFactory::createJsonParser();
    measure(state, [&] {
        const Service::CdxData element(parser->parse(message).asObject());
        DoNotOptimize(&element);
    });
}
BENCHMARK(ParseAndFill_Element);

void WriteOutReference_SetByHand(benchmark::State& state) {
    PlainData data;
    readByHand(*parsedMessage(), data);
    measure(state, [&] {
        const auto json = xalutil::JsonFactory::createJsonObject();
        json->set(keys[0], data.id);
        json->set(keys[1], data.name);
        json->set(keys[2], data.uri);
        json->set(keys[3], data.authenticode);
        const auto report = xalutil::JsonFactory::createJsonArray();
        for (const auto& entry : data.cdxClientDataReport)
            report->add(entry);
        json->set(keys[4], std::shared_ptr<const xalutil::JsonArray>(report));
        json->set(keys[5], data.correlationTag);
        json->set(keys[6],
                  data.deliveryMode == Service::CDXDATA_DELIVERYMODE_atMostOnce ? "atMostOnce" : "atLeastOnce");
        json->set(keys[7], data.elementId);
        json->set(keys[8], data.eventId);
        json->set(keys[9], data.isCallbackAbilityRequested);
        json->set(keys[10], data.isMixinOfUserIdRequested);
        json->set(keys[11], data.isMixinOfVinRequested);
        json->set(keys[12], data.messageId);
        json->set(keys[13], data.timeToLive);
        json->set(keys[14], data.timestamp);
        json->set(keys[15], data.timezone);
        json->set(keys[16], data.version);
        DoNotOptimize(json->toString());
    });
}
BENCHMARK(WriteOutReference_SetByHand);

void WriteOut_Descriptor(benchmark::State& state) {
    const auto descriptor = Service::CdxData(parsedMessage()).getDescriptor();
    measure(state, [&] { DoNotOptimize(descriptor.getAsJson()->toString()); });
}
BENCHMARK(WriteOut_Descriptor);

} // namespace

BENCHMARK_MAIN();
