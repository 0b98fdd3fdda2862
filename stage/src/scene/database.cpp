// The elements by tag and by name.
#include <algorithm>
#include <cstring>

#include "scene/scene.h"

namespace stage {

Database::Database() = default;

Database::~Database() {
    for (const std::atomic<Element*>& page : pages_)
        delete[] page.load(std::memory_order_relaxed);
}

Element& Database::add(int type, std::string name, const Place& place, std::size_t size) {
    const std::lock_guard lock(guard_);
    const std::size_t index = count_.load(std::memory_order_relaxed);
    const auto [page, at] = locate(index);
    if (page >= page_limit)
        throw SceneError(place, "too many elements in the scene");
    if (!pages_[page].load(std::memory_order_relaxed))
        pages_[page].store(new Element[first_page << page], std::memory_order_release);

    Element& element = pages_[page].load(std::memory_order_relaxed)[at];
    element.tag = static_cast<miTag>(index + 1);
    element.type = type;
    element.place = place;
    element.name = std::move(name);
    resize(element, size);
    if (!element.name.empty())
        names_[element.name] = element.tag;
    count_.store(index + 1, std::memory_order_release);
    return element;
}

void Database::resize(Element& element, std::size_t size) {
    std::vector<std::uint64_t> block((size + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t));
    if (element.record && !block.empty())
        std::memcpy(block.data(), element.record, std::min(size, element.size));
    element.block = std::move(block);
    element.record = element.block.data();
    element.size = size;
}

Element* Database::find(std::string_view name) const {
    const std::lock_guard lock(guard_);
    const auto found = names_.find(name);
    return found == names_.end() ? nullptr : find(found->second);
}

void Database::rename(Element& element, std::string name) {
    remove(element);
    const std::lock_guard lock(guard_);
    element.name = std::move(name);
    if (!element.name.empty())
        names_[element.name] = element.tag;
}

void Database::remove(Element& element) {
    const std::lock_guard lock(guard_);
    const auto found = names_.find(element.name);
    if (found != names_.end() && found->second == element.tag)
        names_.erase(found);
}

std::size_t Database::size() const {
    return count_.load(std::memory_order_acquire);
}

} // namespace stage
