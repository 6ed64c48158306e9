#ifndef CDXTESTS_SUPPORT_CONFORMANCECASE_H
#define CDXTESTS_SUPPORT_CONFORMANCECASE_H

#include <support/WebSocketPeer.h>

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace cdxtest {

/// What the cases need to know of the side that is tested: neither side echoes, so a message is one of its protocol,
/// and taking it whole shows in what the side does about it.
class Dialect {
public:
    virtual ~Dialect() = default;

    /// A message that is taken when it is the connection's `index`-th, from 0, with `bytes` in the midst of its text.
    virtual std::string carrying(std::size_t index, std::string_view bytes) const = 0;
    /// What a text that is no message of the protocol leads to: the code that it is closed with; 0: it is dropped.
    virtual unsigned codeForUnreadable() const = 0;
    /// The largest message, in bytes, that is taken.
    virtual std::size_t limit() const = 0;
    /// What a binary message is closed with; `size` is that of all its fragments.
    virtual unsigned codeForBinary(std::size_t size) const = 0;
    /// Whether frames to this side are masked: it is a server.
    virtual bool isServer() const = 0;

    /// A message of `size` bytes; the shortest there is where that is longer.
    std::string sized(std::size_t index, std::size_t size) const;
};

/// One case: what is sent, and what must come of it.
struct ConformanceCase {
    struct Step {
        std::string bytes;
        std::size_t slice = 0; ///< bytes in each piece; 0: in one
    };

    std::string number;
    std::string title;
    std::vector<Step> steps = {};

    std::size_t taken = 0; ///< messages
    std::vector<std::string> pongs = {};
    std::vector<unsigned> closes = {}; ///< codes of which one ends it; empty: it is open until the test closes it
    std::string reason = {};           ///< where the case is not as the suite has it: why
};

/// What came of a case.
struct ConformanceResult {
    std::size_t taken = 0;
    std::vector<std::string> pongs = {};
    unsigned close = 0;     ///< the other side's code; 1005: a close without one; 0: none came
    bool ended = false;     ///< the connection's end followed
    std::string fault = {}; ///< a frame that the other side must not send

    /// Empty when it is what the case asks for; otherwise what is not.
    std::string differenceTo(const ConformanceCase& expected) const;
};

std::string describeExpectation(const ConformanceCase& expected);

/// Plays the case on a fresh connection. `isTaking` tells which of the other side's messages shows that it took one;
/// the caller adds what shows elsewhere.
ConformanceResult play(const ConformanceCase& played, WebSocketPeer& peer,
                       const std::function<bool(const std::string& message)>& isTaking);

/// A case being written down: what is sent, with what must come of it beside it.
class Script {
public:
    Script(const Dialect& dialect, std::string number, std::string title);

    Script& send(const std::vector<Frame>& frames, std::size_t slice = 0);
    Script& send(const Frame& frame, std::size_t slice = 0) { return send(std::vector<Frame>{frame}, slice); }
    Script& pong(std::string payload);
    Script& closes(unsigned code);
    Script& reason(std::string text);
    /// What a text that is no message of the protocol leads to.
    Script& unreadable();

    /// The next message, which must be taken.
    std::string message(std::string_view bytes = "a");
    std::string sized(std::size_t size);
    /// A message that comes too late to be taken.
    std::string late() const;

    const Dialect& dialect() const { return m_dialect; }
    const ConformanceCase& written() const { return m_case; }

private:
    const Dialect& m_dialect;
    ConformanceCase m_case;
};

/// Takes each case as it is made; they are too large to be kept together.
using CaseVisitor = std::function<void(const ConformanceCase&)>;

/// The sections of the well-known public suite, with its numbers.
void framingCases(const Dialect& dialect, const CaseVisitor& visit);       // 1
void pingCases(const Dialect& dialect, const CaseVisitor& visit);          // 2
void reservedBitCases(const Dialect& dialect, const CaseVisitor& visit);   // 3
void opcodeCases(const Dialect& dialect, const CaseVisitor& visit);        // 4
void fragmentationCases(const Dialect& dialect, const CaseVisitor& visit); // 5
void utf8Cases(const Dialect& dialect, const CaseVisitor& visit);          // 6
void closeCases(const Dialect& dialect, const CaseVisitor& visit);         // 7
void limitCases(const Dialect& dialect, const CaseVisitor& visit);         // 9
void miscellaneousCases(const Dialect& dialect, const CaseVisitor& visit); // 10

struct ConformanceSection {
    const char* name;
    void (*cases)(const Dialect&, const CaseVisitor&);
    std::size_t count;
};

const std::vector<ConformanceSection>& conformanceSections();
std::ostream& operator<<(std::ostream& out, const ConformanceSection& section);

/// The text as fragments of the given sizes (the last one takes the rest), with the right opcodes.
std::vector<Frame> fragments(const std::string& message, std::size_t size, unsigned opcode = Opcode::text);

} // namespace cdxtest

#endif
