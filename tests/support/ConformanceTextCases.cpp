// Section 6: what is UTF-8 and what is not.
#include "ConformanceCase.h"

#include <array>
#include <utility>

namespace cdxtest {

namespace {

std::string bytesOf(std::string_view hex) {
    const auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(digit(hex[i]) << 4 | digit(hex[i + 1]));
    return bytes;
}

/// Each byte from first to last, each followed by a blank.
std::string spaced(unsigned first, unsigned last) {
    std::string bytes;
    for (unsigned byte = first; byte <= last; ++byte)
        (bytes += static_cast<char>(byte)) += ' ';
    return bytes;
}

std::string encodeUtf8(unsigned point) {
    std::string bytes;
    if (point < 0x10000) {
        bytes += static_cast<char>(0xe0U | point >> 12);
    } else {
        bytes += static_cast<char>(0xf0U | point >> 18);
        bytes += static_cast<char>(0x80U | (point >> 12 & 0x3fU));
    }
    bytes += static_cast<char>(0x80U | (point >> 6 & 0x3fU));
    bytes += static_cast<char>(0x80U | (point & 0x3fU));
    return bytes;
}

/// Writes a subsection's cases, numbered in the order they come.
class Subsection {
public:
    Subsection(const Dialect& dialect, const CaseVisitor& visit, int number)
        : m_dialect(dialect), m_visit(visit), m_prefix("6." + std::to_string(number) + ".") {}

    Script next(const std::string& title) { return Script(m_dialect, m_prefix + std::to_string(++m_case), title); }

    void bytes(const std::string& title, const std::string& content, bool isValid) {
        Script script = next(title);
        if (isValid)
            script.send({Opcode::text, script.message(content)});
        else
            script.send({Opcode::text, m_dialect.carrying(0, content)}).closes(1007);
        m_visit(script.written());
    }
    void hex(const std::string& title, std::initializer_list<std::string_view> contents, bool isValid) {
        for (const std::string_view content : contents)
            bytes(title + ": " + std::string(content), bytesOf(content), isValid);
    }

private:
    const Dialect& m_dialect;
    const CaseVisitor& m_visit;
    std::string m_prefix;
    int m_case = 0;
};

const std::array<std::string_view, 10> incomplete = {"c0", "e080", "f08080", "f8808080", "fc80808080",
                                                     "df", "efbf", "f7bfbf", "fbbfbfbf", "fdbfbfbfbf"};

void emptyTexts(const Dialect& dialect, const CaseVisitor& visit) {
    Subsection section(dialect, visit, 1);
    visit(section.next("text of no bytes").send(Frame{Opcode::text, ""}).unreadable().written());
    visit(section.next("text of three fragments of no bytes")
              .send({{Opcode::text, "", false}, {Opcode::continuation, "", false}, {Opcode::continuation, ""}})
              .unreadable()
              .written());
    Script middle = section.next("text of three fragments, the first and last of no bytes");
    middle.send(
        {{Opcode::text, "", false}, {Opcode::continuation, middle.message(), false}, {Opcode::continuation, ""}});
    visit(middle.written());
}

void fragmentedTexts(const Dialect& dialect, const CaseVisitor& visit) {
    const std::string text = "Hello-\xc2\xb5@\xc3\x9f\xc3\xb6\xc3\xa4\xc3\xbc\xc3\xa0\xc3\xa1-UTF-8!!";
    const std::string greek = bytesOf("cebae1bdb9cf83cebcceb5");
    Subsection valid(dialect, visit, 2);
    valid.bytes("valid text in one frame", text, true);
    Script boundary = valid.next("valid text in two fragments, between characters");
    const std::string whole = boundary.message(text);
    visit(boundary.send(fragments(whole, whole.find("\xc2\xb5"))).written());
    for (const std::string& content : {text, greek}) {
        Script single = valid.next("valid text in fragments of one byte");
        visit(single.send(fragments(single.message(content), 1)).written());
    }
    Subsection invalid(dialect, visit, 3);
    const std::string bad = greek + bytesOf("eda080") + "edited";
    invalid.bytes("text with a surrogate", bad, false);
    visit(invalid.next("text with a surrogate, in fragments of one byte")
              .send(fragments(dialect.carrying(0, bad), 1))
              .closes(1007)
              .written());
}

/// The end is due at the first wrong byte: the rest of the message is never sent.
void failFast(const Dialect& dialect, const CaseVisitor& visit) {
    Subsection section(dialect, visit, 4);
    const std::string greek = bytesOf("cebae1bdb9cf83cebcceb5");
    const std::array<std::string, 2> wrong = {bytesOf("f4908080"), bytesOf("f490")};
    const std::string start = dialect.carrying(0, greek + "|");
    const std::string head = start.substr(0, start.find('|'));
    for (const std::string& bytes : wrong) {
        visit(section.next("wrong from the second of three fragments on, the third kept back")
                  .send(Frame{Opcode::text, head, false})
                  .send(Frame{Opcode::continuation, bytes, false})
                  .closes(1007)
                  .written());
    }
    for (const std::string& bytes : wrong) {
        Frame partly{Opcode::text, head + bytes};
        partly.claimedLength = partly.payload.size() + 40;
        visit(section.next("wrong within one frame, whose rest is kept back").send(partly).closes(1007).written());
    }
}

} // namespace

void utf8Cases(const Dialect& dialect, const CaseVisitor& visit) {
    emptyTexts(dialect, visit);
    fragmentedTexts(dialect, visit);
    failFast(dialect, visit);
    const auto section = [&](int number) { return Subsection(dialect, visit, number); };

    section(5).hex("valid",
                   {"68656c6c6f24776f726c64", "68656c6c6fc2a2776f726c64", "68656c6c6fe282ac776f726c64",
                    "68656c6c6ff0a4ada2776f726c64", "cebae1bdb9cf83cebcceb5"},
                   true);
    const std::string greek = "cebae1bdb9cf83cebcceb5";
    Subsection prefixes = section(6);
    for (std::size_t bytes = 1; bytes <= 11; ++bytes) {
        const bool isWhole = bytes == 2 || bytes == 5 || bytes == 7 || bytes == 9 || bytes == 11;
        prefixes.hex("beginning of a text", {std::string_view(greek).substr(0, bytes * 2)}, isWhole);
    }
    Subsection firsts = section(7);
    visit(firsts.next("first of its length: 00").send({Opcode::text, std::string(1, '\0')}).unreadable().written());
    firsts.hex("first of its length", {"c280", "e0a080", "f0908080"}, true);
    section(8).hex("first of its length, too long", {"f888808080", "fc8480808080"}, false);
    section(9).hex("last of its length", {"7f", "dfbf", "efbfbf", "f48fbfbf"}, true);
    section(10).hex("last of its length, too high", {"f7bfbfbf", "fbbfbfbfbf", "fdbfbfbfbfbf"}, false);
    Subsection boundaries = section(11);
    boundaries.hex("boundary", {"ed9fbf", "ee8080", "efbfbd", "f48fbfbf"}, true);
    boundaries.hex("boundary", {"f4908080"}, false);
    Subsection continuations = section(12);
    continuations.hex("continuation bytes alone",
                      {"80", "bf", "80bf", "80bf80", "80bf80bf", "80bf80bf80", "80bf80bf80bf"}, false);
    std::string all;
    for (unsigned byte = 0x80; byte <= 0xbf; ++byte)
        all += static_cast<char>(byte);
    continuations.bytes("all continuation bytes", all, false);
    Subsection lonely = section(13);
    for (const auto& [first, last] : {std::pair(0xc0U, 0xdfU), std::pair(0xe0U, 0xefU), std::pair(0xf0U, 0xf7U),
                                      std::pair(0xf8U, 0xfbU), std::pair(0xfcU, 0xfdU)})
        lonely.bytes("first bytes alone", spaced(first, last), false);
    Subsection cutShort = section(14);
    std::string together;
    for (const std::string_view sequence : incomplete) {
        cutShort.hex("last byte missing", {sequence}, false);
        together += bytesOf(sequence);
    }
    section(15).bytes("ten sequences without their last byte", together, false);
    section(16).hex("bytes that never occur", {"fe", "ff", "fefeffff"}, false);
    section(17).hex("longer than needed", {"c0af", "e080af", "f08080af", "f8808080af", "fc80808080af"}, false);
    section(18).hex("longer than needed", {"c1bf", "e09fbf", "f08fbfbf", "f887bfbfbf", "fc83bfbfbfbf"}, false);
    section(19).hex("longer than needed", {"c080", "e08080", "f0808080", "f880808080", "fc8080808080"}, false);
    section(20).hex("surrogate", {"eda080", "edadbf", "edae80", "edafbf", "edb080", "edbe80", "edbfbf"}, false);
    section(21).hex("pair of surrogates",
                    {"eda080edb080", "eda080edbfbf", "edadbfedb080", "edadbfedbfbf", "edae80edb080", "edae80edbfbf",
                     "edafbfedb080", "edafbfedbfbf"},
                    false);
    Subsection noCharacters = section(22);
    for (unsigned plane = 0; plane <= 16; ++plane) {
        noCharacters.bytes("no character, plane " + std::to_string(plane), encodeUtf8(plane << 16 | 0xfffeU), true);
        noCharacters.bytes("no character, plane " + std::to_string(plane), encodeUtf8(plane << 16 | 0xffffU), true);
    }
    section(23).hex("special", {"efbfb9", "efbfba", "efbfbb", "efbfbc", "efbfbd", "efbfbe", "efbfbf"}, true);
}

} // namespace cdxtest
