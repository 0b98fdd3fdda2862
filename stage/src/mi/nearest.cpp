#include "mi/nearest.h"

#include <algorithm>
#include <array>

namespace stage::mi {

namespace {

constexpr std::size_t longest = 64; // letters of a word that is compared
// Weights of a letter that is missing, too many or swapped with the next one, and of a wrong one.
constexpr std::size_t slip = 2, change = 3;

// The least sum of weights that leads from one word to the other, where nothing is changed twice: optimal
// string alignment (Damerau, A technique for computer detection and correction of spelling errors, 1964).
std::size_t distance(std::string_view a, std::string_view b) {
    std::array<std::array<std::size_t, longest + 1>, 3> rows{}; // by the letters of `a`, in turn
    for (std::size_t i = 0; i <= a.size(); ++i) {
        auto& now = rows[i % 3];
        const auto &last = rows[(i + 2) % 3], &before = rows[(i + 1) % 3];
        now[0] = i * slip;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            now[j] = now[j - 1] + slip;
            if (i == 0)
                continue;
            const bool same = a[i - 1] == b[j - 1];
            now[j] = std::min({now[j], last[j] + slip, last[j - 1] + (same ? 0 : change)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                now[j] = std::min(now[j], before[j - 2] + slip);
        }
    }
    return rows[a.size() % 3][b.size()];
}

} // namespace

// One slip is allowed in the shortest words, one change in those of two letters.
Nearest::Nearest(std::string_view typed) : typed_(typed), least_(2 + typed.size() / 2) {}

void Nearest::offer(std::string_view word) {
    const std::size_t most = std::max(typed_.size(), word.size());
    if (most > longest || (most - std::min(typed_.size(), word.size())) * slip > least_)
        return;
    const std::size_t far = distance(typed_, word);
    if (far < least_ || (far == least_ && (!found() || word < word_))) {
        least_ = far;
        word_ = word;
    }
}

std::string Nearest::question(char mark) const {
    return found() ? std::string("; did you mean ") + mark + std::string(word_) + mark + '?' : std::string();
}

} // namespace stage::mi
