// The scene as it is kept in memory: elements by tag, declarations, shader instances and their connections.
//
// Elements hold exactly the public records that shaders see (geoshader.h), plus what only the renderer needs
// beside them. The parser builds a Scene; rendering reads it.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "geoshader.h"
#include "shader.h"

namespace stage {

// Where something stands in a scene file; lines and columns count from 1. An empty file means "made by the
// stage".
struct Place {
    std::shared_ptr<const std::string> file;
    int line = 0;
    int column = 0;
    [[nodiscard]] std::string text() const; // "file:line:column", or "(built in)"
};

// A mistake in a scene. what() is the whole report: "file:line:column: message", the offending line and a
// caret.
class SceneError : public std::runtime_error {
public:
    SceneError(const Place& place, const std::string& message, std::string_view source_line = {});
    // A mistake of no place in a file, such as a file that cannot be read: the message alone.
    explicit SceneError(const std::string& message) : std::runtime_error(message) {}
    // The same report with another line below it.
    SceneError(const SceneError& error, const std::string& note);
};

// ---- declarations --------------------------------------------------------------------------------

// One parameter, struct member or result member, laid out by C rules.
struct Param {
    std::string name;
    miParam_type type = miTYPE_INTEGER;
    std::vector<Param> members; // of a struct; of an array: the one element type
    std::uint32_t offset = 0;   // in the enclosing block; of an array: of its i_, n_ pair
    std::uint32_t size = 0;     // of an array: of the pair and its first element, as the C member run
    std::uint32_t alignment = 1;
    std::vector<std::byte> default_value; // empty when there is none; zeros then
};

struct PhenomenonBody; // of the parser
struct ShaderCode;

// A `declare shader`, `declare phenomenon` or `declare data`.
struct Declaration {
    enum class Kind { shader, phenomenon, data };
    Kind kind = Kind::shader;
    std::string name;
    Place place;
    miTag tag = miNULLTAG; // its database element, a miFunction_decl
    Param result;          // unused for data
    std::vector<Param> params;
    std::uint32_t block_size = 0;         // bytes of a block with every array holding one element
    int version = 0;                      // 0: not stated
    std::uint32_t apply = 0;              // bit n for miShader_type n
    std::string shadow_mode;              // demanded mode: "", "off", "on", "sort", "segments"
    std::string trace_mode;               // demanded: "", "off", "on"
    std::string scanline_mode;            // demanded: "", "off" (every ray is traced), "on"
    ShaderCode* code = nullptr;           // of a shader: found in the libraries at the first use
    std::shared_ptr<PhenomenonBody> body; // of a phenomenon
    [[nodiscard]] const Param* find(std::string_view param) const;
};

// ---- shader code and shader instances ------------------------------------------------------------

using ShaderEntry = miBoolean (*)(void* result, miState* state, void* params, void* arg);
using InitEntry = void (*)(miState* state, void* params, miBoolean* inst_init_req);
using ExitEntry = void (*)(miState* state, void* params);
using VersionEntry = int (*)();

// For what is told once: whether this is the first time. Any thread.
inline bool is_first(std::atomic<bool>& told) {
    return !told.load(std::memory_order_relaxed) && !told.exchange(true, std::memory_order_relaxed);
}

// The functions of one shader in a loaded library. One for each shader name, shared by its instances.
struct ShaderCode {
    std::string name;
    std::string library; // file name, for messages
    ShaderEntry entry = nullptr;
    InitEntry init = nullptr;
    ExitEntry exit = nullptr;
    VersionEntry version = nullptr;

    miLock lock = nullptr; // of all instances, miQ_DECL_LOCK; from the first call on
    std::shared_ptr<miLock_record> owned_lock;
    std::atomic<bool> initialised{false}; // X_init(null) has run
    bool wants_instance_init = false;
    // What has been reported of the shader, once each:
    std::atomic<bool> reported_bad_value{false};     // a NaN or infinite result
    std::atomic<bool> reported_depth{false};         // calls that led too deep
    std::atomic<bool> reported_bent_ray{false};      // a lens shader that the rasterizer cannot follow
    std::atomic<bool> reported_stray_eye_ray{false}; // an eye ray of what is no lens shader
};

// What a connected parameter gets its value from. Entry k of the connection table is connections[k - 1].
// The parser settles references to a phenomenon's interface while it builds an instance of the phenomenon:
// what is literal there is copied, what is connected there is connected to the same shader.
struct Connection {
    std::uint32_t offset = 0;        // of the parameter (or struct member, or array element) in the block
    std::uint32_t size = 0;          // bytes of the value
    miTag shader = miNULLTAG;        // shader instance whose result is the value
    std::uint32_t source_offset = 0; // of the value in the shader's result
};

// What the renderer keeps for a shader instance beside its public record (miFunction).
struct ShaderInstance {
    const Declaration* declaration = nullptr;
    ShaderCode* code = nullptr; // null for a phenomenon
    miTag root = miNULLTAG;     // of a phenomenon instance: the shader or material it stands for
    miTag lens = miNULLTAG, output = miNULLTAG, volume = miNULLTAG, environment = miNULLTAG; // further roots
    std::uint32_t result_size = 0;
    std::vector<Connection> connections;

    void* user = nullptr;                 // miQ_FUNC_USERPTR
    std::vector<void*> thread_user;       // by thread number; miQ_FUNC_TLS_*
    std::shared_ptr<miLock_record> lock;  // the one in its miFunction; from the first call on
    std::atomic<bool> initialised{false}; // ready to be called: inits have run
    bool initialising = false;            // guarded by init_guard
};

// ---- elements --------------------------------------------------------------------------------------

// Storage behind miTriangles and miObject.
struct Geometry {
    std::vector<float> vertices;
    std::vector<miUint> indices;
    std::vector<miTag> materials;
    std::vector<miUint> data;
    miTriangles view{}; // points into the vectors above
};

class Image;         // of a texture (image/texture.h)
struct LightProfile; // scene/light_profile.h
struct ColorProfile; // scene/color_profile.h

// The named frame buffers of a camera.
struct FramebufferDesc {
    std::string name;
    std::string datatype =
        "rgba";           // as in the scene language: rgba, rgba_fp, rgb, a, s, z, n, m, tag, coverage, ...
    std::string filename; // "": not written to a file of its own
    std::string filetype;
    std::string compression;
    std::string colorprofile;
    std::string field; // of an interlaced picture: even, odd; "" or frame is all of it
    int quality = -1;
    int dpi = 0;
    bool filtering = true;
    bool premultiplied = true;
    bool primary = false;
    bool user = false;
    bool useopacity = false;
    bool tiled = false;
    bool dod = false;
};

struct Element {
    miTag tag = miNULLTAG;
    int type = 0; // miScene_type
    std::string name;
    Place place;
    void* record = nullptr; // the public record
    std::size_t size = 0;   // bytes of it
    std::atomic<int> pins{0};
    std::vector<std::uint64_t> block; // owns the record of most elements (aligned, zeroed)

    std::unique_ptr<ShaderInstance> shader;    // miSCENE_FUNCTION
    std::unique_ptr<Geometry> geometry;        // miSCENE_OBJECT
    std::vector<FramebufferDesc> framebuffers; // miSCENE_FRAMEBUFFERS
    const Declaration* declaration = nullptr;  // miSCENE_FUNCTION_DECL, miSCENE_USERDATA
    std::string file;                          // miSCENE_IMAGE: file name as found on the search path
    std::shared_ptr<Image> image;              // miSCENE_IMAGE: filled at first use
    std::mutex image_guard;                    // held while it is filled
    std::atomic<Image*> loaded_image{nullptr}; // the same, once it can be used without the guard
    std::vector<std::pair<std::string, std::string>> string_options; // miSCENE_OPTIONS
    std::vector<miTag> state_shaders;       // miSCENE_OPTIONS: in the order of their calls
    bool motion_said = false;               // miSCENE_OPTIONS: that it is on or that it is off
    std::atomic<bool> lacks_energy{false};  // miSCENE_LIGHT: states none, and no shader has asked for it yet
    std::atomic<bool> origin_missed{false}; // miSCENE_LIGHT: told that its shader does not see the origin
    std::atomic<bool> direction_missed{false};   // miSCENE_LIGHT: the same of its direction
    std::shared_ptr<const LightProfile> profile; // miSCENE_LIGHTPROFILE: null when its file is missing
    float texture_filter = 1.0f;   // miSCENE_IMAGE: scale of the filter, when the image asks for one
    std::string texture_file_type; // miSCENE_IMAGE, writable: file format, "" by the file's name
    const ColorProfile* color_profile = nullptr; // miSCENE_IMAGE: how its pixels are stored; null as they are

    template <class T> [[nodiscard]] T* as() { return static_cast<T*>(record); }
    template <class T> [[nodiscard]] const T* as() const { return static_cast<const T*>(record); }
};

// The element of a shader that has run or is running: the first call leaves it in the public record.
inline Element* element_of(const miFunction* function) {
    return static_cast<Element*>(function->reserved[0]);
}

// All elements. Tags count from 1 and are never used twice. Reading is free of locks and may happen on many
// threads; elements are added only while no frame is rendered, or under `add`'s own lock by the renderer.
class Database {
public:
    Database();
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Adds an element with a zeroed record of `size` bytes. An empty name makes it nameless.
    Element& add(int type, std::string name, const Place& place, std::size_t size);
    // Gives the element a zeroed record of another size; the old bytes are kept as far as they fit.
    void resize(Element& element, std::size_t size);
    // Null for a tag that names nothing. Inline: every call of a shader looks elements up.
    [[nodiscard]] Element* find(miTag tag) const {
        if (tag == miNULLTAG || tag > count_.load(std::memory_order_acquire))
            return nullptr;
        const auto [page, at] = locate(tag - 1);
        return &pages_[page].load(std::memory_order_acquire)[at];
    }
    [[nodiscard]] Element* find(std::string_view name) const;
    void rename(Element& element, std::string name);
    void remove(Element& element);          // `delete "name"`: the name goes, the tag stays valid
    [[nodiscard]] std::size_t size() const; // highest tag

    template <class T> [[nodiscard]] T* record(miTag tag, int type) const {
        Element* e = find(tag);
        return e && e->type == type ? e->as<T>() : nullptr;
    }

private:
    // Elements lie in pages that never move, each twice as large as the one before, so that readers need no
    // lock while a page is added.
    static constexpr std::size_t first_page = 64;
    static constexpr std::size_t page_limit = 24;
    // The page of an index, and the place in it.
    [[nodiscard]] static std::pair<std::size_t, std::size_t> locate(std::size_t index) {
        const std::size_t position = index + first_page;
        const auto page = static_cast<std::size_t>(std::bit_width(position) - std::bit_width(first_page));
        return {page, position - (first_page << page)};
    }
    struct NameHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };
    std::array<std::atomic<Element*>, page_limit> pages_{};
    std::atomic<std::size_t> count_{0};
    std::unordered_map<std::string, miTag, NameHash, std::equal_to<>> names_;
    mutable std::mutex guard_;
};

// Options of which no statement has been made yet.
[[nodiscard]] miOptions default_options();

// The shader instance whose parameters an instance is called with: itself or the one that it takes them from.
Element& parameter_holder(const Database& database, Element& element);

// ---- the scene -------------------------------------------------------------------------------------

struct RenderCommand {
    miTag root = miNULLTAG; // instgroup
    miTag camera_instance = miNULLTAG;
    miTag options = miNULLTAG;
    miTag inheritance = miNULLTAG;
    Place place;
};

class LibrarySet; // loaded shader libraries (scene/libraries.h)

struct Scene {
    Scene();
    ~Scene();

    Database database;
    // By name: shaders and phenomena as they are called, data declarations with "data " in front.
    std::unordered_map<std::string, std::unique_ptr<Declaration>> declarations;
    std::unordered_map<std::string, std::unique_ptr<ShaderCode>> code;
    std::unique_ptr<LibrarySet> libraries;
    std::vector<std::string> search_path;   // for link, include, textures and data files
    std::vector<std::string> warnings;      // missing texture, ...: each names element and place
    std::unordered_set<std::string> warned; // those of the frames, each given once for all of them

    std::function<void(const std::string& text)>
        on_echo;        // the `echo` command; null prints on standard output
    int verbosity = -1; // the `verbose` command; -1 when there was none

    // Calls the exit functions of all initialised instances and shaders, in reverse order of their first
    // calls. Each call's state is a copy of `prototype` (or an empty one) with `shader` set; afterwards
    // everything may be initialised anew.
    void exit_shaders(const miState* prototype = nullptr);
    std::vector<miTag> init_order; // instances by first call; guarded by init_guard
    // Held while init functions run. They may evaluate parameters and so bring about further first calls.
    std::recursive_mutex init_guard;
};

} // namespace stage
