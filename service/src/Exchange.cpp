#include "Exchange.h"

#include "Random.h"
#include "StrictJson.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace cdxservice {

namespace {

bool isTaken(const ElementPtr& holder, std::string_view id) {
    return holder && holder->id() != id;
}

Problem conflict(const char* detail, std::size_t field) {
    return {409, detail, pointerTo(schema()[0].fields[field].key)};
}

} // namespace

Exchange::Exchange(std::unique_ptr<StoreBackend> backend, std::size_t keptRemovals) : m_backend(std::move(backend)) {
    m_resources.reserve(resourceCount);
    for (const ResourceSchema& schema : schema()) {
        m_resources.emplace_back(schema, keptRemovals);
    }
    if (m_backend) {
        load();
    }
    if (m_epoch.empty()) {
        m_epoch = randomHex(32);
    }
}

void Exchange::load() {
    StoredState state = m_backend->load();
    m_epoch = std::move(state.epoch);
    for (const StoredChange& change : state.changes) {
        const auto index = findResource(change.resource);
        if (!index) {
            throw std::runtime_error("the store holds an unknown resource: " + change.resource);
        }
        Resource& resource = m_resources[*index];
        resource.nextElementId = std::max(resource.nextElementId, change.nextElementId);
        if (!change.json) {
            resource.prepareRemoval(change.id, change.revision);
            resource.commitRemoval(change.id, change.revision);
            continue;
        }
        std::string problem;
        const auto json = readStrictJson(*change.json, {}, problem);
        Values values(resource.schema().fields.size());
        values[idField] = change.id;
        values[uriField] = elementUri(resource.schema(), change.id);
        if (!json || !json->is_object() || Document(resource.schema(), json->get_object()).applyTo(values, false)) {
            throw std::runtime_error("the store holds an element that is none: " + change.resource + "/" + change.id);
        }
        // What is stored has lost its writer's prefix; a name may begin like one all the same.
        if (const auto name = Document(resource.schema(), json->get_object()).text(nameField)) {
            values[nameField] = std::string(*name);
        }
        const auto element =
            std::make_shared<const Element>(resource.schema(), std::move(values), change.isNew, change.revision);
        resource.prepare(element);
        resource.commit(element);
    }
}

bool Exchange::answers() {
    return !m_backend || m_backend->answers();
}

void Exchange::attach(Observer observer, std::shared_ptr<Clock> clock, std::size_t maxElementBytes) {
    if (m_attached.exchange(true)) {
        throw std::runtime_error("another server uses the store");
    }
    m_observer = std::move(observer);
    m_clock = std::move(clock);
    m_maxElementBytes = maxElementBytes;
}

void Exchange::detach() {
    m_observer = {};
    m_clock.reset();
    m_attached = false;
}

void Exchange::expire() {
    const std::size_t data = wellKnown().data;
    std::int64_t until = m_clock->sinceEpoch().count();
    if (const auto before = m_resources[data].log().passedOver()) {
        // What counts nowhere does not come back when the calendar is set back.
        until = std::max(until, *before);
    }
    const auto over = m_resources[data].expired(until);
    m_resources[data].passOver(until);
    // A store that is away keeps them for now; the next look tries again.
    if (over.empty() || !commit(removals(data, over), 0)) {
        m_resources[data].passOver(std::nullopt);
    }
}

/// What was written is stored: its answer must not say otherwise because memory is short for something else.
void Exchange::expireAfterWrite() noexcept {
    try {
        expire();
    } catch (const std::exception&) {
        // The next look tries again.
    }
}

Exchange::Result Exchange::post(std::size_t index, const boost::json::object& body, std::size_t bodyBytes) {
    const Resource& resource = m_resources[index];
    const ResourceSchema& schema = resource.schema();
    const Document document(schema, body);

    const auto name = document.name();
    const auto postedId = document.text(idField);
    const ElementPtr existing = schema.oneOfEachName && name && !name->empty() ? resource.findName(*name) : nullptr;
    if (existing && postedId && *postedId != existing->id()) {
        return conflict("the element of this name has another id", idField);
    }
    if (!existing && postedId && resource.find(std::string(*postedId))) {
        return conflict("an element with this id exists", idField);
    }

    Values values(schema.fields.size());
    values[idField] = existing ? existing->id() : postedId ? std::string(*postedId) : randomUuid();
    values[uriField] = elementUri(schema, std::get<std::string>(values[idField]));
    auto invalid = document.applyTo(values, false);
    if (postedId && !isElementId(*postedId) && !invalid) {
        invalid = Problem{422, "\"id\" is 1 to 128 of the letters, the digits, _ and -", pointerTo("id")};
    }
    if (invalid) {
        return wrong(*invalid, document, values, bodyBytes);
    }

    const std::size_t elementId = *schema.find("elementId");
    bool numbered = false;
    if (existing && !document.has(elementId)) {
        values[elementId] = existing->values()[elementId];
    } else if (!document.has(elementId)) {
        values[elementId] = static_cast<std::int64_t>(resource.nextElementId);
        numbered = true;
    }
    if (existing && existing->values() == values && existing->isNew() == document.isNew()) {
        return Written{existing, false};
    }
    const Revision revision = resource.log().latest() + 1;
    const auto element = std::make_shared<const Element>(schema, std::move(values), document.isNew(), revision);
    if (element->json().size() > m_maxElementBytes) {
        return Problem{413, "the element would be too large"};
    }
    if (auto problem = commit({{index, revision, element, false}}, numbered ? 1 : 0)) {
        return *problem;
    }
    expireAfterWrite();
    return Written{element, !existing};
}

Exchange::Result Exchange::patch(std::size_t index, const ElementPtr& element, const boost::json::object& body,
                                 std::size_t bodyBytes) {
    const Resource& resource = m_resources[index];
    const ResourceSchema& schema = resource.schema();
    const Document document(schema, body);

    const auto name = document.name();
    if (schema.oneOfEachName && name && !name->empty() && isTaken(resource.findName(*name), element->id())) {
        return conflict("another element has this name", nameField);
    }
    Values values = copyOf(element->values());
    const auto invalid = document.applyTo(values, true);
    if (invalid) {
        return wrong(*invalid, document, element->values(), bodyBytes);
    }

    std::vector<Change> changes;
    ElementPtr result = element;
    const std::optional<bool> isNew = document.has(nameField) ? document.isNew() : element->isNew();
    if (values != element->values() || isNew != element->isNew()) {
        const Revision revision = resource.log().latest() + 1;
        result = std::make_shared<const Element>(schema, std::move(values), isNew, revision);
        if (result->json().size() > m_maxElementBytes) {
            return Problem{413, "the element would be too large"};
        }
        changes.push_back({index, revision, result, false});
    }

    std::vector<Settlement> settlements;
    const auto ticket = schema.settlesData ? document.text(wellKnown().controlEventTicket) : std::nullopt;
    if (ticket && !result->name().empty()) {
        const auto settled = m_resources[wellKnown().data].findEvent(result->name(), *ticket);
        const auto removed = removals(wellKnown().data, settled);
        changes.insert(changes.end(), removed.begin(), removed.end());
        const std::string* outcome = result->text(wellKnown().controlDeliveryResult);
        for (const ElementPtr& data : settled) {
            settlements.push_back({std::string(result->name()), std::string(*ticket),
                                   outcome ? std::optional<std::string>(*outcome) : std::nullopt, data->id()});
        }
    }
    if (auto problem = commit(changes, 0)) {
        return *problem;
    }
    for (const Settlement& settlement : settlements) {
        if (m_observer.settled) {
            m_observer.settled(settlement);
        }
    }
    expireAfterWrite();
    return Written{result, false};
}

std::optional<Problem> Exchange::remove(std::size_t index, const ElementPtr& element) {
    return commit(removals(index, {element}), 0);
}

/// What a wrong document would make cannot be told exactly: that it is too large, which comes first, is an estimate.
Problem Exchange::wrong(const Problem& invalid, const Document& document, const Values& values,
                        std::size_t bodyBytes) const {
    constexpr std::size_t keysAndIdentity = 1024;
    std::size_t bound = bodyBytes + keysAndIdentity;
    for (const Value& value : values) {
        if (const auto* text = std::get_if<std::string>(&value)) {
            bound += 6 * text->size();
        } else if (const auto* list = std::get_if<std::vector<std::string>>(&value)) {
            for (const std::string& entry : *list) {
                bound += 6 * entry.size() + 3;
            }
        }
    }
    const bool large = bound > m_maxElementBytes && document.sizeOver(values) > m_maxElementBytes;
    return large ? Problem{413, "the element would be too large"} : invalid;
}

std::vector<Exchange::Change> Exchange::removals(std::size_t index, const std::vector<ElementPtr>& elements) const {
    std::vector<Change> changes;
    Revision revision = m_resources[index].log().latest();
    for (const ElementPtr& element : elements) {
        changes.push_back({index, ++revision, element, true});
    }
    return changes;
}

std::optional<Problem> Exchange::commit(const std::vector<Change>& changes, std::size_t numbered) {
    if (changes.empty()) {
        return std::nullopt;
    }
    const auto revert = [&](std::size_t prepared) noexcept {
        for (std::size_t i = 0; i < prepared; ++i) {
            Resource& resource = m_resources[changes[i].resource];
            changes[i].removed ? resource.revertRemoval(changes[i].revision) : resource.revert(changes[i].element);
        }
    };
    std::size_t prepared = 0;
    std::optional<Problem> problem;
    try {
        for (const Change& change : changes) {
            Resource& resource = m_resources[change.resource];
            change.removed ? resource.prepareRemoval(change.element->id(), change.revision)
                           : resource.prepare(change.element);
            ++prepared;
        }
        problem = store(changes, numbered);
    } catch (...) {
        revert(prepared);
        throw;
    }
    if (problem) {
        revert(prepared);
        return problem;
    }
    apply(changes, numbered);
    return std::nullopt;
}

std::optional<Problem> Exchange::store(const std::vector<Change>& changes, std::size_t numbered) {
    if (!m_backend) {
        return std::nullopt;
    }
    std::vector<StoredChange> stored;
    stored.reserve(changes.size());
    for (const Change& change : changes) {
        const Resource& resource = m_resources[change.resource];
        StoredChange& entry = stored.emplace_back();
        entry.resource = resource.schema().name;
        entry.revision = change.revision;
        entry.id = change.element->id();
        if (!change.removed) {
            entry.json = change.element->json();
            entry.isNew = change.element->isNew();
        }
        entry.nextElementId = resource.nextElementId + numbered;
    }
    switch (m_backend->commit(m_epoch, stored)) {
    case StoreBackend::Outcome::Away:
        return Problem{503, "the store is away; nothing was stored"};
    case StoreBackend::Outcome::Full:
        return Problem{507, "the store is full; nothing was stored"};
    default:
        return std::nullopt;
    }
}

/// From here on the changes are stored: nothing may fail any more.
void Exchange::apply(const std::vector<Change>& changes, std::size_t numbered) noexcept {
    m_resources[changes.front().resource].nextElementId += numbered;
    std::array<bool, resourceCount> touched = {};
    for (const Change& change : changes) {
        Resource& resource = m_resources[change.resource];
        change.removed ? resource.commitRemoval(change.element->id(), change.revision)
                       : resource.commit(change.element);
        touched[change.resource] = true;
    }
    for (std::size_t i = 0; i < touched.size(); ++i) {
        if (touched[i] && m_observer.changed) {
            m_observer.changed(i);
        }
    }
}

} // namespace cdxservice
