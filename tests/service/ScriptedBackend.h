#ifndef CDXTESTS_SERVICE_SCRIPTEDBACKEND_H
#define CDXTESTS_SERVICE_SCRIPTEDBACKEND_H

#include <cdxservice/Store.h>

#include <atomic>

namespace cdxservice {

/// A backend that keeps what it is given, or says that it cannot.
class ScriptedBackend : public StoreBackend {
public:
    struct Kept {
        std::atomic<Outcome> next = Outcome::Stored; ///< of the next commit
        StoredState state;
    };
    explicit ScriptedBackend(Kept& kept) : m_kept(kept) {}

    StoredState load() override { return m_kept.state; }
    Outcome commit(const std::string& epoch, const std::vector<StoredChange>& changes) override {
        if (m_kept.next == Outcome::Stored) {
            m_kept.state.epoch = epoch;
            m_kept.state.changes.insert(m_kept.state.changes.end(), changes.begin(), changes.end());
        }
        return m_kept.next;
    }
    bool answers() override { return m_kept.next != Outcome::Away; }

private:
    Kept& m_kept;
};

} // namespace cdxservice

#endif
