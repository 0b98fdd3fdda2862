// The text of a scene file in memory, and where in it something stands.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "scene/scene.h"

namespace stage::mi {

// Text with at least one zero byte behind its end, so that scanners need not test for the end at every byte.
class Source {
public:
    // Maps or reads a regular file. Throws std::runtime_error with the reason.
    static std::shared_ptr<Source> open(const std::string& path);
    static std::shared_ptr<Source> from_text(std::string_view text, std::string name, std::string folder);
    // The lines of a source from `begin` to `end`; places in it are those of the whole source.
    static std::shared_ptr<Source> excerpt(const Source& whole, const char* begin, const char* end);
    ~Source();
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    [[nodiscard]] const char* begin() const { return begin_; }
    [[nodiscard]] const char* end() const { return end_; }
    [[nodiscard]] const char* start() const { return start_; } // where reading starts
    [[nodiscard]] const std::string& name() const { return *name_; }
    [[nodiscard]] const std::string& folder() const { return folder_; }

    [[nodiscard]] Place place(const char* at) const;
    [[nodiscard]] std::string_view line_of(const char* at) const;
    // Lets the system take back the memory of a mapped file; it is read again when needed.
    void forget_pages() const;

private:
    Source() = default;
    std::shared_ptr<const std::string> name_;
    std::string folder_;
    std::string text_;
    void* mapping_ = nullptr;
    std::size_t mapped_ = 0;
    const char* begin_ = nullptr;
    const char* end_ = nullptr;
    const char* start_ = nullptr;
    int first_line_ = 1;
    // The line that was asked for last: places are asked for in rising order.
    mutable const char* mark_ = nullptr;
    mutable int mark_line_ = 1;
};

} // namespace stage::mi
