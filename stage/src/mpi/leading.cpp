// The leading process's side of a frame: gives out buckets and collects samples.
#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "mpi/buckets.h"
#include "mpi/messages.h"

namespace stage::mpi {

namespace {

// Who was stopped with this process is gone within a pixel's time. mpirun gives a second to end.
constexpr std::chrono::milliseconds patience{500};

class LeadingSource : public BucketSource {
public:
    LeadingSource(const FrameShare& frame, int processes, bool& lost)
        : frame_(frame), processes_(processes), lost_(lost), told_(static_cast<std::size_t>(processes)),
          speaker_([this] { serve(); }) {}

    ~LeadingSource() override {
        if (!speaker_.joinable())
            return;
        frame_.stopped = true;
        speaker_.join();
    }

    // Threads filter what others have rendered before they render themselves, and wait for it at the end.
    std::optional<std::size_t> next() override {
        std::unique_lock lock(mutex_);
        while (!frame_.stopped.load(std::memory_order_relaxed)) {
            if (take_arrived(lock))
                continue;
            if (next_ < frame_.film.bucket_count())
                return next_++;
            if (finished_ == frame_.film.bucket_count())
                break;
            changed_.wait_for(lock, std::chrono::milliseconds(20)); // a signal handler cannot notify
        }
        return std::nullopt;
    }

    void rendered(std::size_t bucket) override {
        frame_.film.finish(bucket);
        frame_.advance();
        const std::lock_guard lock(mutex_);
        if (++finished_ == frame_.film.bucket_count())
            changed_.notify_all();
    }

    void close() override {
        speaker_.join();
        std::unique_lock lock(mutex_);
        while (take_arrived(lock)) {
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    bool take_arrived(std::unique_lock<std::mutex>& lock) {
        if (arrived_.empty())
            return false;
        const std::size_t bucket = arrived_.front();
        arrived_.pop_front();
        lock.unlock();
        rendered(bucket);
        lock.lock();
        return true;
    }

    // ---- the thread that speaks ----

    void serve() {
        for (int working = processes_ - 1; working > 0;) {
            look_for_stop();
            MPI_Status status;
            int found = 0;
            MPI_Iprobe(MPI_ANY_SOURCE, MPI_ANY_TAG, MPI_COMM_WORLD, &found, &status);
            if (found)
                receive(status, working);
            else if (is_too_late())
                lost_ = true;
            else
                rest();
            if (lost_)
                return;
        }
    }

    void look_for_stop() {
        if (stopped_ || !frame_.stopped)
            return;
        stopped_ = Clock::now();
        for (int process = 1; process < processes_; ++process)
            tell_over(process);
    }

    [[nodiscard]] bool is_too_late() const { return stopped_ && Clock::now() > *stopped_ + patience; }

    void receive(const MPI_Status& status, int& working) {
        const int from = status.MPI_SOURCE;
        switch (status.MPI_TAG) {
        case ask:
            answer(from);
            break;
        case result:
            take_result(from);
            break;
        case stop:
            MPI_Recv(nullptr, 0, MPI_INT, from, stop, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
            frame_.stopped = true;
            break;
        case left:
            MPI_Recv(nullptr, 0, MPI_INT, from, left, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
            tell_over(from);
            --working;
            break;
        default: // samples are received with their result
            break;
        }
    }

    void tell_over(int process) {
        if (told_[static_cast<std::size_t>(process)])
            return;
        told_[static_cast<std::size_t>(process)] = true;
        const int stopped = frame_.stopped ? 1 : 0;
        MPI_Send(&stopped, 1, MPI_INT, process, over, MPI_COMM_WORLD);
    }

    // Fewer than wanted towards the end, so that no process is left with a long queue.
    void answer(int process) {
        int wanted = 0;
        MPI_Recv(&wanted, 1, MPI_INT, process, ask, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
        std::vector<std::uint64_t> buckets;
        if (!frame_.stopped) {
            const std::lock_guard lock(mutex_);
            const std::size_t remaining = frame_.film.bucket_count() - next_;
            const std::size_t parts = 2 * static_cast<std::size_t>(processes_);
            for (std::size_t k = std::min<std::size_t>(wanted, (remaining + parts - 1) / parts); k > 0; --k)
                buckets.push_back(next_++);
        }
        MPI_Send(buckets.data(), static_cast<int>(buckets.size()), MPI_UINT64_T, process, give,
                 MPI_COMM_WORLD);
    }

    void take_result(int process) {
        std::uint64_t bucket = 0;
        MPI_Recv(&bucket, 1, MPI_UINT64_T, process, result, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
        BucketSamples& to = frame_.film.begin(bucket);
        if (!receive_floats(process, to.offsets.data(), to.offsets.size()) ||
            !receive_floats(process, &to.values.data()->r, 4 * to.values.size())) {
            lost_ = true;
            return;
        }
        const std::lock_guard lock(mutex_);
        arrived_.push_back(bucket);
        changed_.notify_one();
    }

    // False when the process has gone in the midst of it. What is still to come has its place in the film.
    bool receive_floats(int process, float* to, std::size_t count) {
        for (std::size_t at = 0; at < count; at += floats_of_piece) {
            MPI_Request request;
            MPI_Irecv(to + at, static_cast<int>(std::min(floats_of_piece, count - at)), MPI_FLOAT, process,
                      samples, MPI_COMM_WORLD, &request);
            while (!done(request)) {
                look_for_stop();
                if (is_too_late())
                    return false;
                rest();
            }
        }
        return true;
    }

    const FrameShare frame_;
    const int processes_;
    bool& lost_;
    std::vector<bool> told_; // that the frame is over, by process
    std::optional<Clock::time_point> stopped_;

    std::mutex mutex_; // of what follows
    std::condition_variable changed_;
    std::size_t next_ = 0;            // bucket to give out
    std::size_t finished_ = 0;        // buckets in the film
    std::deque<std::size_t> arrived_; // buckets to be filtered

    std::thread speaker_; // the last: it uses all of the above
};

} // namespace

std::unique_ptr<BucketSource> leading_source(const FrameShare& frame, int processes, bool& lost) {
    return std::make_unique<LeadingSource>(frame, processes, lost);
}

} // namespace stage::mpi
