#include "RevisionLog.h"

#include <gtest/gtest.h>

namespace cdxservice {
namespace {

ElementPtr element(const std::string& id, Revision revision) {
    const ResourceSchema& config = schema()[*findResource("cdxConfig")];
    Values values(config.fields.size());
    values[idField] = id;
    values[uriField] = elementUri(config, id);
    return std::make_shared<const Element>(config, values, std::nullopt, revision);
}

void put(RevisionLog& log, const ElementPtr& element, Revision previous) {
    log.prepare(element);
    log.commit(element->revision(), previous);
}

void remove(RevisionLog& log, const std::string& id, Revision previous, Revision revision) {
    log.prepareRemoval(id, revision);
    log.commit(revision, previous);
}

/// What a subscriber who starts at `position` is told: revisions, negative ones for removals.
std::vector<long> told(const RevisionLog& log, Revision position, Revision removalsAfter = 0) {
    std::vector<long> result;
    for (;;) {
        const RevisionLog::Entry entry = log.after(position, removalsAfter);
        if (entry.revision == 0) {
            return result;
        }
        position = entry.revision;
        result.push_back(entry.element ? static_cast<long>(entry.revision) : -static_cast<long>(entry.revision));
    }
}

TEST(RevisionLog, TellsEachElementOnceAtItsLatestChange) {
    RevisionLog log(10);
    put(log, element("a", 1), 0);
    put(log, element("b", 2), 0);
    put(log, element("a", 3), 1);
    EXPECT_EQ(told(log, 0), (std::vector<long>{2, 3}));
    EXPECT_EQ(told(log, 2), (std::vector<long>{3}));
    EXPECT_EQ(told(log, 3), (std::vector<long>{}));
    EXPECT_EQ(log.latest(), 3u);
}

TEST(RevisionLog, TellsRemovalsInTheirPlace) {
    RevisionLog log(10);
    put(log, element("a", 1), 0);
    put(log, element("b", 2), 0);
    remove(log, "a", 1, 3);
    put(log, element("c", 4), 0);
    EXPECT_EQ(told(log, 0), (std::vector<long>{2, -3, 4}));
    EXPECT_EQ(*log.after(2, 0).removedId, "a");
    EXPECT_EQ(told(log, 0, 3), (std::vector<long>{2, 4}));
}

TEST(RevisionLog, KnowsNothingOfWhatWasTakenBack) {
    RevisionLog log(1);
    put(log, element("a", 1), 0);
    log.prepare(element("a", 2));
    log.prepareRemoval("b", 3);
    log.prepareRemoval("c", 4);
    for (const Revision revision : {2, 3, 4}) {
        log.revert(revision);
    }
    EXPECT_EQ(told(log, 0), (std::vector<long>{1}));
    EXPECT_EQ(log.latest(), 1u);
    EXPECT_EQ(log.forgotten(), 0u);
}

TEST(RevisionLog, ForgetsTheOldestRemovalsBeyondTheirNumber) {
    RevisionLog log(2);
    for (Revision revision = 1; revision <= 4; ++revision) {
        EXPECT_EQ(log.forgotten(), revision > 2 ? revision - 3 : 0u);
        remove(log, "x" + std::to_string(revision), 0, revision);
    }
    EXPECT_EQ(log.forgotten(), 2u);
    EXPECT_EQ(told(log, 0), (std::vector<long>{-3, -4}));
}

} // namespace
} // namespace cdxservice
