// The processes that render a scene together: one alone, or those that mpirun started on one machine or
// several. Each reads the scene and renders buckets; the first one leads: it collects the samples, makes the
// pictures and talks to the user.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "render/film.h"

namespace stage {

// What a process brings to a frame.
struct FrameShare {
    Film& film;
    std::atomic<bool>& stopped;    // by the user; also set when another process was stopped
    int threads;                   // that ask for buckets
    std::function<void()> advance; // a bucket of whichever process is in the film; called by those threads
};

// Gives the buckets of one frame to the threads of all processes.
class BucketSource {
public:
    BucketSource() = default;
    virtual ~BucketSource() = default; // stops the frame unless it was closed
    BucketSource(const BucketSource&) = delete;
    BucketSource& operator=(const BucketSource&) = delete;

    // The next bucket for the calling thread; nothing when none is left or the frame is stopped.
    virtual std::optional<std::size_t> next() = 0;
    // The film has the samples of a bucket that this process rendered. Any thread.
    virtual void rendered(std::size_t bucket) = 0;
    // Behind the last bucket, by one thread: returns when the leading process has all samples.
    virtual void close() = 0;
};

class Ranks {
public:
    Ranks() = default;
    virtual ~Ranks() = default;
    Ranks(const Ranks&) = delete;
    Ranks& operator=(const Ranks&) = delete;

    [[nodiscard]] virtual bool leads() const { return true; }
    [[nodiscard]] virtual int count() const { return 1; }
    // The buckets of the next frame; all processes take part. The frame outlives the source.
    virtual std::unique_ptr<BucketSource> share(const FrameShare& frame);
    // Waits until all processes are here. Returns their texts, the leading one's first. Throws
    // std::runtime_error with the reason when one of them has come to its end.
    virtual std::vector<std::string> meet(const std::string& text) { return {text}; }
    // The last call of a process: with its exit code and, when it failed, what to tell the user. Returns the
    // exit code of all.
    virtual int end(int code, const std::string& error);
};

// Joins the others when mpirun started this process. Throws std::runtime_error when that is not possible.
std::unique_ptr<Ranks> join_ranks();

} // namespace stage
