// The text of a scene file in memory.
#include "mi/source.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace stage::mi {

namespace {

// Closes a file descriptor at the end of a block.
struct Descriptor {
    int number;
    ~Descriptor() {
        if (number >= 0)
            ::close(number);
    }
};

[[noreturn]] void fail(const std::string& path, int error) {
    throw std::runtime_error("cannot read \"" + path + "\": " + std::generic_category().message(error));
}

std::string read_all(int descriptor, std::size_t size, const std::string& path) {
    std::string text(size, '\0');
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = ::read(descriptor, text.data() + done, size - done);
        if (got < 0)
            fail(path, errno);
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    text.resize(done);
    return text;
}

} // namespace

std::shared_ptr<Source> Source::open(const std::string& path) {
    const Descriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    struct stat status {};
    if (file.number < 0 || ::fstat(file.number, &status) != 0)
        fail(path, errno);
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error("cannot read \"" + path + "\": it is no file");

    std::shared_ptr<Source> source(new Source);
    source->name_ = std::make_shared<const std::string>(path);
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    source->folder_ = folder.empty() ? std::string(1, '.') : folder.string();
    const auto size = static_cast<std::size_t>(status.st_size);
    // The rest of a mapping's last page is zero; a file that fills its last page has no zero byte behind it.
    if (size % static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) != 0) {
        void* mapping = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.number, 0);
        if (mapping != MAP_FAILED) {
            ::madvise(mapping, size, MADV_SEQUENTIAL);
            source->mapping_ = mapping;
            source->mapped_ = size;
            source->begin_ = static_cast<const char*>(mapping);
            source->end_ = source->begin_ + size;
        }
    }
    if (!source->mapping_) {
        source->text_ = read_all(file.number, size, path);
        source->begin_ = source->text_.data();
        source->end_ = source->begin_ + source->text_.size();
    }
    source->start_ = source->mark_ = source->begin_;
    return source;
}

std::shared_ptr<Source> Source::from_text(std::string_view text, std::string name, std::string folder) {
    std::shared_ptr<Source> source(new Source);
    source->name_ = std::make_shared<const std::string>(std::move(name));
    source->folder_ = std::move(folder);
    source->text_ = text;
    source->begin_ = source->text_.data();
    source->end_ = source->begin_ + source->text_.size();
    source->start_ = source->mark_ = source->begin_;
    return source;
}

std::shared_ptr<Source> Source::excerpt(const Source& whole, const char* begin, const char* end) {
    const char* line_begin = begin;
    while (line_begin > whole.begin() && line_begin[-1] != '\n')
        --line_begin;
    const std::string_view text(line_begin, static_cast<std::size_t>(end - line_begin));
    std::shared_ptr<Source> source = from_text(text, {}, whole.folder_);
    source->name_ = whole.name_;
    source->start_ = source->begin_ + (begin - line_begin);
    source->first_line_ = source->mark_line_ = whole.place(begin).line;
    return source;
}

Source::~Source() {
    if (mapping_)
        ::munmap(mapping_, mapped_);
}

void Source::forget_pages() const {
    if (mapping_)
        ::madvise(mapping_, mapped_, MADV_DONTNEED);
}

Place Source::place(const char* at) const {
    if (at < mark_) {
        mark_ = begin_;
        mark_line_ = first_line_;
    }
    mark_line_ += static_cast<int>(std::count(mark_, at, '\n'));
    mark_ = at;
    const char* line_begin = at;
    while (line_begin > begin_ && line_begin[-1] != '\n')
        --line_begin;
    return {name_, mark_line_, static_cast<int>(at - line_begin) + 1};
}

std::string_view Source::line_of(const char* at) const {
    const char* first = at;
    while (first > begin_ && first[-1] != '\n')
        --first;
    const char* last = at;
    while (last < end_ && *last != '\n' && *last != '\r')
        ++last;
    return {first, static_cast<std::size_t>(last - first)};
}

} // namespace stage::mi
