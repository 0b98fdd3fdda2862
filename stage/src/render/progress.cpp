#include "render/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace stage {

namespace {

constexpr double terminal_pause = 0.1; // seconds between two states of the line
constexpr int log_step = 10;           // per cent between two lines of a log

} // namespace

std::string progress_text(std::size_t done, std::size_t total, double seconds) {
    const int percent = total ? static_cast<int>(100 * done / total) : 100;
    char text[64];
    if (done == 0 || done >= total) {
        std::snprintf(text, sizeof text, "%3d %%", percent);
        return text;
    }
    const double left = seconds * static_cast<double>(total - done) / static_cast<double>(done);
    const long whole = std::lround(std::ceil(left));
    std::snprintf(text, sizeof text, "%3d %%, %ld:%02ld left", percent, whole / 60, whole % 60);
    return text;
}

Progress::Progress(std::size_t total, bool enabled, std::string work)
    : total_(total), enabled_(enabled), terminal_(isatty(STDERR_FILENO) != 0), work_(std::move(work)),
      start_(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
    if (enabled_ && terminal_ && shown_ >= 0)
        std::fputc('\n', stderr);
}

void Progress::advance(std::size_t parts) {
    const std::size_t done = std::min(done_.fetch_add(parts, std::memory_order_relaxed) + parts, total_);
    if (!enabled_)
        return;
    const std::unique_lock<std::mutex> lock(guard_, std::try_to_lock);
    if (!lock)
        return;
    const int percent = static_cast<int>(100 * done / total_);
    const double now = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    const bool last = done == total_;
    const bool due = terminal_ ? percent > shown_ && (last || now >= shown_at_ + terminal_pause)
                               : percent / log_step > shown_ / log_step;
    if (!due)
        return;
    shown_ = percent;
    shown_at_ = now;
    // Spaces wipe out what a longer line before may have left.
    std::fprintf(stderr, terminal_ ? "\r%s %-24s" : "%s %s\n", work_.c_str(),
                 progress_text(done, total_, now).c_str());
    std::fflush(stderr);
}

} // namespace stage
