// The word that a mistyped one was likely meant to be.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace stage::mi {

// Finds among the words that are offered the one that is nearest to `typed`, if any is near; of several that
// are as near the first of the alphabet.
class Nearest {
public:
    explicit Nearest(std::string_view typed);
    void offer(std::string_view word);
    [[nodiscard]] bool found() const { return !word_.empty(); }
    // "; did you mean \"word\"?" with that quotation mark, or nothing.
    [[nodiscard]] std::string question(char mark = '"') const;

private:
    std::string_view typed_, word_;
    std::size_t least_; // the distance of the nearest; before there is one, the largest that is near
};

} // namespace stage::mi
