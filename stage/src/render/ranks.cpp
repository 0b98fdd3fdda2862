// One process alone, and the way to the others. What speaks to them is a library of its own, which is loaded
// only when there are others: loading MPI takes longer than rendering a small picture.
#include "render/ranks.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace stage {

namespace {

class OwnBuckets : public BucketSource {
public:
    explicit OwnBuckets(const FrameShare& frame) : frame_(frame) {}

    std::optional<std::size_t> next() override {
        if (frame_.stopped.load(std::memory_order_relaxed))
            return std::nullopt;
        const std::size_t bucket = next_.fetch_add(1, std::memory_order_relaxed);
        return bucket < frame_.film.bucket_count() ? std::optional(bucket) : std::nullopt;
    }
    void rendered(std::size_t bucket) override {
        frame_.film.finish(bucket);
        frame_.advance();
    }
    void close() override {}

private:
    const FrameShare frame_;
    std::atomic<std::size_t> next_{0};
};

// Of Open MPI, of MPICH and its kin, and of batch systems.
bool started_with_others() {
    for (const char* size : {"OMPI_COMM_WORLD_SIZE", "PMI_SIZE"})
        if (const char* value = std::getenv(size))
            return std::atoi(value) > 1;
    return std::getenv("PMIX_RANK") != nullptr;
}

std::string own_folder() {
    Dl_info own{};
    if (!dladdr(reinterpret_cast<const void*>(&join_ranks), &own) || !own.dli_fname)
        return ".";
    return std::filesystem::path(own.dli_fname).parent_path().string();
}

} // namespace

std::unique_ptr<BucketSource> Ranks::share(const FrameShare& frame) {
    return std::make_unique<OwnBuckets>(frame);
}

int Ranks::end(int code, const std::string& error) {
    if (!error.empty())
        std::fprintf(stderr, "%s\n", error.c_str());
    return code;
}

// MPI loads plug-ins of its own, which find it only among the names that all can see.
std::unique_ptr<Ranks> join_ranks() {
    if (!started_with_others())
        return std::make_unique<Ranks>();
    const std::string file = own_folder() + "/stage_mpi.so";
    void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_GLOBAL);
    void* join = library ? dlsym(library, "stage_join_mpi") : nullptr;
    if (!join)
        throw std::runtime_error(std::string("cannot render together with other processes: ") + dlerror());
    return std::unique_ptr<Ranks>(reinterpret_cast<Ranks* (*)()>(join)());
}

} // namespace stage
