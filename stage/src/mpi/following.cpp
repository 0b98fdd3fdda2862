// The side of a process that does not lead: asks for buckets ahead of need, sends their samples away.
#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "mpi/buckets.h"
#include "mpi/messages.h"

namespace stage::mpi {

namespace {

class FollowingSource : public BucketSource {
public:
    explicit FollowingSource(const FrameShare& frame)
        : frame_(frame), given_(static_cast<std::size_t>(frame.threads)), speaker_([this] { serve(); }) {}

    ~FollowingSource() override {
        if (!speaker_.joinable())
            return;
        frame_.stopped = true;
        FollowingSource::close();
    }

    // Waits too while many samples are still to be sent: the memory for them is bounded.
    std::optional<std::size_t> next() override {
        std::unique_lock lock(mutex_);
        while (!frame_.stopped.load(std::memory_order_relaxed)) {
            if (queue_.empty() && exhausted_)
                break;
            if (!queue_.empty() && results_.size() < 2 * given_.size()) {
                const std::size_t bucket = queue_.front();
                queue_.pop_front();
                return bucket;
            }
            changed_.wait_for(lock, std::chrono::milliseconds(20)); // a signal handler cannot notify
        }
        return std::nullopt;
    }

    void rendered(std::size_t bucket) override {
        const std::lock_guard lock(mutex_);
        results_.push_back({bucket, frame_.film.take(bucket)});
    }

    void close() override {
        {
            const std::lock_guard lock(mutex_);
            closing_ = true;
        }
        speaker_.join();
    }

private:
    struct Rendered {
        std::uint64_t bucket;
        std::unique_ptr<BucketSamples> samples;
    };

    // ---- the thread that speaks ----

    void serve() {
        int stopped = 0;
        MPI_Request over_request;
        MPI_Irecv(&stopped, 1, MPI_INT, 0, over, MPI_COMM_WORLD, &over_request);
        bool is_over = false;
        while (!has_left()) {
            if (!is_over && done(over_request)) {
                is_over = true;
                frame_.stopped = true; // else it comes behind `left`
            }
            tell_stop();
            if (!speak())
                rest();
        }
        tell_stop();
        MPI_Send(nullptr, 0, MPI_INT, 0, left, MPI_COMM_WORLD);
        if (is_over)
            return;
        wait(over_request);
        if (stopped)
            frame_.stopped = true;
    }

    bool has_left() {
        const std::lock_guard lock(mutex_);
        return closing_ && results_.empty() && !asking_;
    }

    void tell_stop() {
        if (told_stop_ || !frame_.stopped)
            return;
        told_stop_ = true;
        MPI_Send(nullptr, 0, MPI_INT, 0, stop, MPI_COMM_WORLD);
    }

    // Whether there was something to do.
    bool speak() {
        const bool asked = asking_ ? take_buckets() : ask_for_buckets();
        return send_result() || asked;
    }

    bool ask_for_buckets() {
        int wanted = 0;
        {
            const std::lock_guard lock(mutex_);
            if (exhausted_ || closing_ || frame_.stopped)
                return false;
            wanted = static_cast<int>(given_.size()) - static_cast<int>(queue_.size());
        }
        if (wanted <= 0)
            return false;
        asking_ = true;
        MPI_Irecv(given_.data(), wanted, MPI_UINT64_T, 0, give, MPI_COMM_WORLD, &give_request_);
        MPI_Send(&wanted, 1, MPI_INT, 0, ask, MPI_COMM_WORLD);
        return true;
    }

    bool take_buckets() {
        MPI_Status status;
        if (!done(give_request_, &status))
            return false;
        asking_ = false;
        int count = 0;
        MPI_Get_count(&status, MPI_UINT64_T, &count);
        const std::lock_guard lock(mutex_);
        queue_.insert(queue_.end(), given_.begin(), given_.begin() + count);
        exhausted_ = count == 0;
        changed_.notify_all();
        return true;
    }

    bool send_result() {
        Rendered next;
        {
            const std::lock_guard lock(mutex_);
            if (results_.empty())
                return false;
            next = std::move(results_.front());
            results_.pop_front();
            changed_.notify_all();
        }
        MPI_Send(&next.bucket, 1, MPI_UINT64_T, 0, result, MPI_COMM_WORLD);
        send_floats(next.samples->offsets.data(), next.samples->offsets.size());
        send_floats(&next.samples->values.data()->r, 4 * next.samples->values.size());
        return true;
    }

    static void send_floats(const float* from, std::size_t count) {
        for (std::size_t at = 0; at < count; at += floats_of_piece)
            MPI_Send(from + at, static_cast<int>(std::min(floats_of_piece, count - at)), MPI_FLOAT, 0,
                     samples, MPI_COMM_WORLD);
    }

    const FrameShare frame_;
    std::vector<std::uint64_t> given_; // memory of the answer under way: a bucket for each thread
    MPI_Request give_request_ = MPI_REQUEST_NULL;
    bool asking_ = false, told_stop_ = false;

    std::mutex mutex_; // of what follows
    std::condition_variable changed_;
    std::deque<std::uint64_t> queue_; // buckets to render
    std::deque<Rendered> results_;
    bool exhausted_ = false, closing_ = false;

    std::thread speaker_; // the last: it uses all of the above
};

} // namespace

std::unique_ptr<BucketSource> following_source(const FrameShare& frame) {
    return std::make_unique<FollowingSource>(frame);
}

} // namespace stage::mpi
