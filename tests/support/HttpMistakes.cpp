#include "HttpMistakes.h"

#include <support/ConformanceReport.h>

#include <gtest/gtest.h>

#include <ostream>
#include <sstream>

namespace cdxtest {

namespace {

const std::string isChunked = "Transfer-Encoding: chunked\r\n";
const std::string lastChunk = "0\r\n\r\n";

std::string length(const std::string& value) {
    return "Content-Length:" + value + "\r\n";
}

std::string hexadecimal(std::size_t number) {
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

} // namespace

std::vector<HttpMistake> lengthMistakes(const std::string& body) {
    const std::string right = std::to_string(body.size());
    const std::string wrong = std::to_string(body.size() + 1);
    const std::string chunk = hexadecimal(body.size()) + "\r\n" + body + "\r\n" + lastChunk;
    return {
        {"two lengths that differ", length(" " + right) + length(" " + wrong), body},
        {"two lengths that agree", length(" " + right) + length(" " + right), body},
        {"a list of lengths", length(" " + right + ", " + right), body},
        {"an empty length", length(""), body},
        {"a length with a plus", length(" +" + right), body},
        {"a length with a minus", length(" -" + right), body},
        {"a hexadecimal length", length(" 0x" + hexadecimal(body.size())), body},
        {"a length with a blank inside", length(" 1 2"), body},
        {"a length with a fraction", length(" " + right + ".0"), body},
        {"a length with a vertical tab", length(" \v" + right), body},
        {"a length beyond 64 bits", length(" 99999999999999999999999"), body, HttpFlaw::lengthOverLimit},
        {"a length beyond the limit", length(" 67108865"), body, HttpFlaw::lengthOverLimit},
        {"a blank before the colon of the length", "Content-Length : " + right + "\r\n", body},
        {"a length and a transfer coding", length(" " + right) + isChunked, chunk},
        {"a transfer coding and a length", isChunked + length(" " + right), chunk},
    };
}

std::vector<HttpMistake> codingMistakes(const std::string& body) {
    const std::string size = hexadecimal(body.size());
    const std::string rest = "\r\n" + body + "\r\n" + lastChunk;
    const std::string right = size + rest;
    const auto coding = [&](const std::string& value) { return "Transfer-Encoding:" + value + "\r\n"; };
    return {
        {"chunkedchunked", coding(" chunkedchunked"), right},
        {"chunked in two headers", isChunked + isChunked, right},
        {"chunked twice", coding(" chunked, chunked"), right},
        {"chunked that is not the last", coding(" chunked, gzip"), right, HttpFlaw::endless},
        {"chunked with a parameter", coding(" chunked;a=b"), right},
        {"chunked after a vertical tab", coding(" \vchunked"), right},
        {"chunked in quotes", coding(" \"chunked\""), right},
        {"an unknown coding before chunked", coding(" gzip, chunked"), right, HttpFlaw::unknownCoding},
        {"identity", coding(" identity"), body, HttpFlaw::endless},
        {"an empty coding", coding(""), body, HttpFlaw::endless},
        {"a chunk without a size", isChunked, rest},
        {"a chunk's size that is no number", isChunked, "x" + rest},
        {"a chunk's size with 0x", isChunked, "0x" + right},
        {"a chunk's size with a sign", isChunked, "+" + right},
        {"a chunk's size behind a blank", isChunked, " " + right},
        {"a chunk's size beyond 64 bits", isChunked, "1" + std::string(16 - size.size(), '0') + right},
        {"a chunk beyond the limit", isChunked, "4000001\r\n", HttpFlaw::lengthOverLimit},
        {"a chunk's line that ends with a bare line feed", isChunked, size + "\n" + body + "\r\n" + lastChunk},
        {"a chunk that ends with a bare line feed", isChunked, size + "\r\n" + body + "\n" + lastChunk},
        {"a chunk longer than its size", isChunked, size + "\r\n" + body + "a\r\n" + lastChunk},
        {"a chunk's extension with a bare line feed", isChunked, size + ";a\n" + rest},
        {"a chunk's extension with a bare carriage return", isChunked, size + ";a\rb" + rest},
        {"an over-long chunk extension", isChunked, size + ";" + std::string(70'000, 'a') + rest},
        {"a trailer that is no header", isChunked, size + "\r\n" + body + "\r\n0\r\nno header\r\n\r\n"},
        {"a folded trailer", isChunked, size + "\r\n" + body + "\r\n0\r\na: b\r\n c\r\n\r\n"},
        {"over-long trailers", isChunked,
         size + "\r\n" + body + "\r\n0\r\na: " + std::string(70'000, 'a') + "\r\n\r\n"},
    };
}

std::vector<HttpMistake> headerMistakes(const std::string& others, const std::string& body) {
    std::string many;
    for (int i = 0; i < 20'000; ++i)
        many += "A: b\r\n";
    return {
        {"a first header that begins with a blank", " A: b\r\n" + others, body},
        {"a header that ends with a bare line feed", "A: b\nC: d\r\n" + others, body},
        {"a bare carriage return in a header", "A: b\rC: d\r\n" + others, body},
        {"a folded header", "A: b\r\n c\r\n" + others, body},
        {"a header folded with a tab", "A: b\r\n\tc\r\n" + others, body},
        {"a blank before the colon", "A : b\r\n" + others, body},
        {"a tab before the colon", "A\t: b\r\n" + others, body},
        {"a header without a colon", "A\r\n" + others, body},
        {"a header without a name", ": b\r\n" + others, body},
        {"a name with a blank", "A B: c\r\n" + others, body},
        {"a name with a delimiter", "A(B: c\r\n" + others, body},
        {"a name that is no ASCII", "\xc3\xa4: c\r\n" + others, body},
        {"a NUL in a value", std::string("A: \0b\r\n", 7) + others, body},
        {"a NUL in a name", std::string("A\0: b\r\n", 7) + others, body},
        {"a control character in a value", "A: \x01\r\n" + others, body},
        {"an over-long header", "A: " + std::string(70'000, 'a') + "\r\n" + others, body, HttpFlaw::headerOverLimit},
        {"a header of one MiB", "A: " + std::string(1'048'576, 'a') + "\r\n" + others, body, HttpFlaw::headerOverLimit},
        {"too many headers", many + others, body, HttpFlaw::headerOverLimit},
    };
}

std::ostream& operator<<(std::ostream& out, const HttpStrictnessSection& section) {
    return out << section.name;
}

void playSection(const char* side, const HttpStrictnessSection& section, const char* behindStatus,
                 const std::function<std::string(const HttpStrictnessCase&)>& difference) {
    ConformanceReport report(side, std::string("http_") + section.name);
    int number = 0;
    for (const HttpStrictnessCase& sent : section.cases()) {
        const std::string expected = sent.reason.empty() ? std::to_string(sent.status) + behindStatus : sent.reason;
        const std::string found = difference(sent);
        EXPECT_EQ(found, "") << sent.title << "; expected " << expected;
        report.add(std::to_string(++number), sent.title, expected, "", found);
    }
}

} // namespace cdxtest
