#include <support/VtableLayout.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <link.h>
#include <memory>
#include <optional>
#include <stdexcept>

namespace cdxtest {
namespace {

void eraseAll(std::string& text, const std::string& part) {
    for (auto found = text.find(part); found != std::string::npos; found = text.find(part, found))
        text.erase(found, part.size());
}

/// With strings as they are written, not as the standard library's versions spell them.
std::string demangled(const char* symbol) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(symbol, nullptr, nullptr, &status),
                                                      std::free);
    std::string text = status == 0 ? name.get() : symbol;
    const std::string longString = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >";
    for (auto found = text.find(longString); found != std::string::npos; found = text.find(longString, found))
        text.replace(found, longString.size(), "std::string");
    eraseAll(text, "[abi:cxx11]");
    return text;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

struct Symbol {
    const char* name;
    std::uintptr_t address; ///< in this process
    std::size_t size;
    bool isFunction;
};

/// A file that is loaded into this process, and where.
struct LoadedFile {
    std::string path;
    std::uintptr_t base;
};

std::vector<LoadedFile> loadedFiles() {
    std::vector<LoadedFile> files;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* result) {
            const std::string path = *info->dlpi_name == '\0' ? "/proc/self/exe" : info->dlpi_name;
            static_cast<std::vector<LoadedFile>*>(result)->push_back({path, info->dlpi_addr});
            return 0;
        },
        &files);
    return files;
}

template <class T>
T at(const std::string& bytes, std::size_t offset) {
    T value;
    if (offset + sizeof value > bytes.size())
        throw std::runtime_error("truncated object file");
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary | std::ios::ate);
    std::string bytes(stream ? static_cast<std::size_t>(stream.tellg()) : 0, '\0');
    stream.seekg(0);
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

/// Visits all that the file's full symbol table defines; of a stripped file, what it exports.
template <class Visit>
void forEachSymbol(const LoadedFile& file, Visit visit) {
    const std::string bytes = contentOf(file.path);
    if (bytes.compare(0, SELFMAG, ELFMAG) != 0 || bytes[EI_CLASS] != ELFCLASS64)
        return;
    const auto header = at<Elf64_Ehdr>(bytes, 0);
    const auto section = [&](std::size_t index) {
        return at<Elf64_Shdr>(bytes, header.e_shoff + index * sizeof(Elf64_Shdr));
    };
    std::optional<Elf64_Shdr> table;
    for (std::size_t index = 0; index < header.e_shnum; ++index) {
        const auto candidate = section(index);
        if (candidate.sh_type == SHT_SYMTAB || (candidate.sh_type == SHT_DYNSYM && !table))
            table = candidate;
    }
    if (!table)
        return;
    const auto names = section(table->sh_link).sh_offset;
    for (std::size_t offset = 0; offset < table->sh_size; offset += sizeof(Elf64_Sym)) {
        const auto symbol = at<Elf64_Sym>(bytes, table->sh_offset + offset);
        const auto type = ELF64_ST_TYPE(symbol.st_info);
        if (symbol.st_shndx != SHN_UNDEF && (type == STT_FUNC || type == STT_OBJECT))
            visit(Symbol{bytes.c_str() + names + symbol.st_name, file.base + symbol.st_value,
                         std::size_t{symbol.st_size}, type == STT_FUNC});
    }
}

/// The process's own memory as it stands, also what a sanitizer keeps its own program from reading.
std::vector<std::uintptr_t> wordsAt(std::uintptr_t address, std::size_t count) {
    std::vector<std::uintptr_t> words(count);
    std::ifstream memory("/proc/self/mem", std::ios::binary);
    memory.seekg(static_cast<std::streamoff>(address));
    if (!memory.read(reinterpret_cast<char*>(words.data()),
                     static_cast<std::streamsize>(count * sizeof(std::uintptr_t))))
        throw std::runtime_error("unreadable memory");
    return words;
}

/// Where the functions of the class's table stand, in the order of its slots.
std::vector<std::uintptr_t> functionsIn(const std::string& className, const std::vector<LoadedFile>& files) {
    const std::string wanted = "vtable for " + className;
    std::vector<std::uintptr_t> functions;
    for (const auto& file : files) {
        forEachSymbol(file, [&](const Symbol& symbol) {
            if (std::strncmp(symbol.name, "_ZTV", 4) != 0 || demangled(symbol.name) != wanted)
                return;
            // Before the first slot stand the offset to the top of the object and the type information; behind the last
            // one may stand a sanitizer's padding.
            functions = wordsAt(symbol.address, symbol.size / sizeof(std::uintptr_t));
            functions.erase(functions.begin(), functions.begin() + 2);
            while (!functions.empty() && functions.back() == 0)
                functions.pop_back();
        });
        if (!functions.empty())
            return functions;
    }
    throw std::runtime_error("no loaded file defines the " + wanted);
}

} // namespace

std::vector<VtableSlot> vtableOf(const std::string& className) {
    const auto files = loadedFiles();
    const auto functions = functionsIn(className, files);
    std::vector<VtableSlot> slots(functions.size());
    for (const auto& file : files) {
        forEachSymbol(file, [&](const Symbol& symbol) {
            if (!symbol.isFunction)
                return;
            for (std::size_t slot = 0; slot < slots.size(); ++slot) {
                if (functions[slot] == symbol.address)
                    slots[slot].push_back(demangled(symbol.name) +
                                          (endsWith(symbol.name, "D0Ev") ? " [deleting]" : ""));
            }
        });
    }
    return slots;
}

std::string differenceFrom(const std::vector<std::string>& expected, const std::vector<VtableSlot>& slots) {
    std::string differences;
    for (std::size_t index = 0; index < std::max(expected.size(), slots.size()); ++index) {
        const std::string want = index < expected.size() ? expected[index] : "nothing";
        const VtableSlot have = index < slots.size() ? slots[index] : VtableSlot{"nothing"};
        if (std::find(have.begin(), have.end(), want) != have.end())
            continue;
        differences += "slot " + std::to_string(index) + ": " + want + " expected, found";
        for (const auto& name : have)
            differences += " " + name;
        differences += "\n";
    }
    return differences;
}

} // namespace cdxtest
