// The progress line on the standard error stream: percentage and time left.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

namespace stage {

// The line for `done` of `total` parts after `seconds`.
[[nodiscard]] std::string progress_text(std::size_t done, std::size_t total, double seconds);

class Progress {
public:
    // `work` says what is going on: "rendering".
    Progress(std::size_t total, bool enabled, std::string work = "rendering");
    ~Progress(); // ends the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(std::size_t parts = 1); // so many more are done; any thread

private:
    const std::size_t total_;
    const bool enabled_, terminal_;
    const std::string work_;
    const std::chrono::steady_clock::time_point start_;
    std::atomic<std::size_t> done_{0};
    std::mutex guard_;
    int shown_ = -1; // percentage
    double shown_at_ = -1.0;
};

} // namespace stage
