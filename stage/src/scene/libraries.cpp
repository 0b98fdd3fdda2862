// Loaded shader libraries.
#include "scene/libraries.h"

#include <dlfcn.h>

#include <filesystem>

namespace stage {

namespace {

namespace fs = std::filesystem;

// The file that `link` means: as it is or with ".so", in the folders in their order.
std::string find_library(const std::string& file, const std::vector<std::string>& folders) {
    const fs::path path(file);
    std::vector<fs::path> candidates;
    if (path.is_absolute())
        candidates.push_back(path);
    else
        for (const std::string& folder : folders)
            candidates.push_back(fs::path(folder) / path);
    std::error_code ignored;
    for (const fs::path& candidate : candidates)
        for (const char* suffix : {"", ".so"})
            if (fs::path found = candidate; fs::is_regular_file(found += suffix, ignored))
                return fs::absolute(found, ignored).string();

    std::string message = "cannot find the library \"" + file + "\"";
    for (const std::string& folder : folders)
        message += (&folder == &folders.front() ? "; looked in " : ", ") + folder;
    throw std::runtime_error(message);
}

template <class Entry> Entry as_entry(void* address) {
    return reinterpret_cast<Entry>(address);
}

} // namespace

LibrarySet::~LibrarySet() {
    for (auto library = libraries_.rbegin(); library != libraries_.rend(); ++library)
        dlclose(library->handle);
}

void LibrarySet::load(const std::string& file, const std::vector<std::string>& folders) {
    const std::string path = find_library(file, folders);
    for (const Library& library : libraries_)
        if (library.path == path)
            return;
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = dlerror();
        throw std::runtime_error("cannot load the library \"" + file +
                                 "\": " + (reason ? reason : "no reason given"));
    }
    libraries_.push_back({path, handle});
    if (void* set_handle = dlsym(handle, "miSetModuleHandle"); set_handle && module_handle_)
        as_entry<void (*)(void*)>(set_handle)(module_handle_);
}

void LibrarySet::define(const std::string& symbol, void* address) {
    own_[symbol] = address;
}

void* LibrarySet::find(const std::string& symbol, std::string* library) const {
    if (const auto own = own_.find(symbol); own != own_.end()) {
        if (library)
            library->clear();
        return own->second;
    }
    for (const Library& candidate : libraries_) {
        if (void* address = dlsym(candidate.handle, symbol.c_str())) {
            if (library)
                *library = candidate.path;
            return address;
        }
    }
    return nullptr;
}

std::string LibrarySet::names() const {
    std::string text;
    for (const Library& library : libraries_)
        text += (text.empty() ? "" : ", ") + library.path;
    return text.empty() ? "none" : text;
}

ShaderCode* LibrarySet::find_code(Scene& scene, const std::string& name) {
    if (const auto known = scene.code.find(name); known != scene.code.end())
        return known->second.get();
    std::string library;
    void* entry = scene.libraries->find(name, &library);
    if (!entry)
        return nullptr;
    auto code = std::make_unique<ShaderCode>();
    code->name = name;
    code->library = library;
    code->entry = as_entry<ShaderEntry>(entry);
    code->init = as_entry<InitEntry>(scene.libraries->find(name + "_init"));
    code->exit = as_entry<ExitEntry>(scene.libraries->find(name + "_exit"));
    code->version = as_entry<VersionEntry>(scene.libraries->find(name + "_version"));
    return scene.code.emplace(name, std::move(code)).first->second.get();
}

void bind_code(Scene& scene, Declaration& declaration) {
    if (declaration.code)
        return;
    const std::string shader =
        "shader \"" + declaration.name + "\" (declared at " + declaration.place.text() + ")";
    ShaderCode* code = LibrarySet::find_code(scene, declaration.name);
    if (!code)
        throw std::runtime_error(shader + " is in no linked library (linked: " + scene.libraries->names() +
                                 ")");
    const int declared = declaration.version;
    const bool of_library = !code->library.empty(); // the program's own functions need no check
    if (of_library && declared != 0 && !code->version)
        throw std::runtime_error(shader + " is declared with version " + std::to_string(declared) + ", but " +
                                 code->library + " exports no " + code->name + "_version to compare with");
    const int version = declared != 0 && code->version ? code->version() : declared;
    if (version != declared)
        throw std::runtime_error(shader + " has version " + std::to_string(version) + " in " + code->library +
                                 ", but version " + std::to_string(declaration.version) + " is declared");
    declaration.code = code;
}

} // namespace stage
