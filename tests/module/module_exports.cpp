// Reads the export tables of shared libraries: ELF files, and PE images in memory.
#include "module_exports.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <elf.h>
#endif

#ifdef _WIN32

void* open_module(const char* file) {
    return reinterpret_cast<void*>(LoadLibraryA(file));
}

void* find_in_module(void* module, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

std::set<std::string> exports_of(const char*, void* module) {
    const char* image = static_cast<const char*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
    const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(image + directory.VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(image + exports->AddressOfNames);
    std::set<std::string> result;
    for (DWORD i = 0; i < exports->NumberOfNames; ++i)
        result.insert(image + names[i]);
    if (exports->NumberOfFunctions != exports->NumberOfNames)
        result.insert("(exports without a name)");
    return result;
}

#else

void* open_module(const char* file) {
    return dlopen(file, RTLD_NOW | RTLD_LOCAL);
}

void* find_in_module(void* module, const char* name) {
    return dlsym(module, name);
}

namespace {

template <class T> T read(const std::vector<char>& bytes, std::size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

} // namespace

std::set<std::string> exports_of(const char* file, void*) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const auto header = read<Elf64_Ehdr>(bytes, 0);
    const auto section = [&](std::size_t number) {
        return read<Elf64_Shdr>(bytes, header.e_shoff + number * header.e_shentsize);
    };
    std::set<std::string> result;
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        const Elf64_Shdr symbols = section(i);
        if (symbols.sh_type != SHT_DYNSYM)
            continue;
        const std::size_t strings = section(symbols.sh_link).sh_offset;
        for (std::size_t at = 0; at < symbols.sh_size; at += sizeof(Elf64_Sym)) {
            const auto symbol = read<Elf64_Sym>(bytes, symbols.sh_offset + at);
            if (symbol.st_shndx != SHN_UNDEF && ELF64_ST_BIND(symbol.st_info) != STB_LOCAL)
                result.insert(bytes.data() + strings + symbol.st_name);
        }
    }
    return result;
}

#endif
