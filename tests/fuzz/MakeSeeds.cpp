// Writes the fuzz inputs that are too big to be kept: `fuzz-make-seeds TARGET FOLDER`.
#include <fstream>
#include <iostream>
#include <map>
#include <string>

namespace {

std::string repeated(const std::string& piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    while (count-- > 0)
        text += piece;
    return text;
}

std::map<std::string, std::string> elementSeeds() {
    constexpr std::size_t mebibyte = 1U << 20;
    return {
        {"string-1mib.json", R"({"recordBody":")" + std::string(mebibyte, 'x') + "\"}"},
        {"string-escapes-1mib.json", R"({"messageContent":")" + repeated("\\u20ac", mebibyte / 6) + "\"}"},
        {"key-1mib.json", "{\"" + std::string(mebibyte, 'k') + R"(":1,"elementId":2})"},
        {"report-1mib.json", R"({"cdxClientDataReport":[)" + repeated("\"entry\",", mebibyte / 8) + "\"last\"]}"},
        {"report-of-numbers.json", R"({"cdxClientDataReport":[)" + repeated("7,", 20000) + "7]}"},
        {"arrays-100000-deep.json", R"({"offeredDataType":)" + std::string(100000, '[')},
        {"objects-100000-deep.json", repeated("{\"elementId\":", 100000)},
        {"digits-100000.json", R"({"elementId":1)" + std::string(100000, '0') + "}"},
        {"members-50000.json", "{" + repeated(R"("elementId":1,)", 50000) + R"("elementId":2})"},
    };
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: fuzz-make-seeds TARGET FOLDER\n";
        return 2;
    }
    if (std::string(argv[1]) != "element")
        return 0; // the others' inputs are all small
    for (const auto& [name, text] : elementSeeds()) {
        std::ofstream file(std::string(argv[2]) + "/" + name, std::ios::binary);
        if (!(file << text)) {
            std::cerr << "fuzz-make-seeds: cannot write " << name << "\n";
            return 1;
        }
    }
    return 0;
}
