// Processes that speak through MPI.
#include <cstdio>
#include <stdexcept>

#include "mpi/buckets.h"
#include "mpi/messages.h"
#include "render/ranks.h"

namespace stage::mpi {

namespace {

// What a process brings to a meeting.
struct Head {
    std::int32_t ending, code, length; // of the text
};
constexpr int head_ints = 3;

class MpiRanks : public Ranks {
public:
    // Each process uses MPI in one thread at a time, not always in the same one.
    MpiRanks() {
        int provided = 0;
        MPI_Init_thread(nullptr, nullptr, MPI_THREAD_SERIALIZED, &provided);
        MPI_Comm_rank(MPI_COMM_WORLD, &rank_);
        MPI_Comm_size(MPI_COMM_WORLD, &count_);
        if (provided >= MPI_THREAD_SERIALIZED)
            return;
        MPI_Finalize();
        throw std::runtime_error("this MPI library cannot be used by programs with threads");
    }

    [[nodiscard]] bool leads() const override { return rank_ == 0; }
    [[nodiscard]] int count() const override { return count_; }

    std::unique_ptr<BucketSource> share(const FrameShare& frame) override {
        return leads() ? leading_source(frame, count_, lost_) : following_source(frame);
    }

    std::vector<std::string> meet(const std::string& text) override {
        if (lost_)
            return {text};
        std::vector<std::string> texts = exchange({0, 0, 0}, text);
        for (std::size_t k = 0; k < heads_.size(); ++k)
            if (heads_[k].ending)
                throw std::runtime_error(texts[k].empty() ? "another process has ended" : texts[k]);
        return texts;
    }

    int end(int code, const std::string& error) override {
        if (lost_)
            MPI_Abort(MPI_COMM_WORLD, code);
        if (!ended_)
            tell(exchange({1, code, 0}, with_place(error)), error);
        else
            tell({}, error);
        for (const Head& head : heads_)
            code = code ? code : head.code;
        MPI_Finalize();
        return code;
    }

private:
    // Behind a meeting in which one ended nobody meets again.
    std::vector<std::string> exchange(Head own, const std::string& text) {
        own.length = static_cast<std::int32_t>(text.size());
        heads_.assign(static_cast<std::size_t>(count_), {});
        MPI_Request request;
        MPI_Iallgather(&own, head_ints, MPI_INT32_T, heads_.data(), head_ints, MPI_INT32_T, MPI_COMM_WORLD,
                       &request);
        wait(request);

        std::vector<int> lengths, starts;
        int all = 0;
        for (const Head& head : heads_) {
            ended_ = ended_ || head.ending;
            lengths.push_back(head.length);
            starts.push_back(all);
            all += head.length;
        }
        std::string joined(static_cast<std::size_t>(all), ' ');
        MPI_Iallgatherv(text.data(), own.length, MPI_CHAR, joined.data(), lengths.data(), starts.data(),
                        MPI_CHAR, MPI_COMM_WORLD, &request);
        wait(request);
        std::vector<std::string> texts;
        for (std::size_t k = 0; k < heads_.size(); ++k)
            texts.push_back(
                joined.substr(static_cast<std::size_t>(starts[k]), static_cast<std::size_t>(lengths[k])));
        return texts;
    }

    // Errors of the leading process stand as they are: mostly they are those of all.
    [[nodiscard]] std::string with_place(const std::string& error) const {
        if (error.empty() || leads())
            return error;
        char host[MPI_MAX_PROCESSOR_NAME];
        int length = 0;
        MPI_Get_processor_name(host, &length);
        return "process " + std::to_string(rank_) + " (" +
               std::string(host, static_cast<std::size_t>(length)) + "): " + error;
    }

    // The leading process tells the user of all errors, of equal ones once.
    void tell(const std::vector<std::string>& errors, const std::string& own) const {
        if (!leads())
            return;
        if (!own.empty())
            std::fprintf(stderr, "%s\n", own.c_str());
        for (std::size_t k = 1; k < errors.size(); ++k)
            if (heads_[k].ending && !errors[k].empty() && (own.empty() || !errors[k].ends_with("): " + own)))
                std::fprintf(stderr, "%s\n", errors[k].c_str());
    }

    int rank_ = 0, count_ = 1;
    bool lost_ = false, ended_ = false;
    std::vector<Head> heads_; // of the last meeting
};

} // namespace

} // namespace stage::mpi

extern "C" __attribute__((visibility("default"))) stage::Ranks* stage_join_mpi() {
    return new stage::mpi::MpiRanks;
}
