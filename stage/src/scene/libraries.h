// Loaded shader libraries: finds a shader's functions by name.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "scene/scene.h"

namespace stage {

class LibrarySet {
public:
    LibrarySet() = default;
    ~LibrarySet();
    LibrarySet(const LibrarySet&) = delete;
    LibrarySet& operator=(const LibrarySet&) = delete;

    // The handle of the renderer's own module, which libraries that export miSetModuleHandle are given after
    // loading. Set it before the first `load`; null leaves them without.
    void set_module_handle(void* handle) { module_handle_ = handle; }

    // Loads a library, once. `file` is searched for in `folders` unless it is absolute, with ".so" added when
    // there is no such file without. Throws std::runtime_error with the reason.
    void load(const std::string& file, const std::vector<std::string>& folders);

    // Makes a function of the program itself known, as if a library exported it. It comes before libraries.
    void define(const std::string& symbol, void* address);

    // A symbol's address, null when no library has it; `library`, if given, receives the file's name.
    [[nodiscard]] void* find(const std::string& symbol, std::string* library = nullptr) const;

    // The functions of the shader `name`, shared by all its instances; null when no library exports it.
    static ShaderCode* find_code(Scene& scene, const std::string& name);

    [[nodiscard]] std::string names() const; // of all libraries, for messages

private:
    struct Library {
        std::string path;
        void* handle;
    };
    std::vector<Library> libraries_;
    std::unordered_map<std::string, void*> own_;
    void* module_handle_ = nullptr;
};

// Finds the code of a declared shader at its first use and compares versions. Throws std::runtime_error when
// the shader is missing or its version differs from the declaration's.
void bind_code(Scene& scene, Declaration& declaration);

} // namespace stage
