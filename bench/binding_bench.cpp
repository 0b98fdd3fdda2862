// What it costs that renderer functions are found by name: a forwarded call beside one through a pointer, and
// a parameter's evaluation beside a plain load and beside a direct call of the renderer.
#include "orlshaderapi.h"

#include <benchmark/benchmark.h>

#include <dlfcn.h>

namespace {

using DbType = int (*)(miTag);
using PhenEval = void* (*)(miState*, void*);

void* renderer() {
    static void* const handle = [] {
        void* const opened = dlopen(ORL_FILE_TRIVIAL_RENDERER, RTLD_NOW | RTLD_LOCAL);
        miSetModuleHandle(opened);
        return opened;
    }();
    return handle;
}

void forwarded_call(benchmark::State& run) {
    renderer();
    for (auto _ : run)
        benchmark::DoNotOptimize(mi_db_type(7));
}
BENCHMARK(forwarded_call)->Name("forwarded call/ours");

void pointer_call(benchmark::State& run) {
    DbType function = reinterpret_cast<DbType>(dlsym(renderer(), "mi_db_type"));
    benchmark::DoNotOptimize(function);
    for (auto _ : run)
        benchmark::DoNotOptimize(function(7));
}
BENCHMARK(pointer_call)->Name("forwarded call/function pointer");

// A shader instance with one scalar parameter and, behind it, its connection entry.
struct Instance {
    miFunction function{};
    struct Block {
        miScalar value;
        int connection;
    } block{2.0f, 1};
    miState state{};

    explicit Instance(bool connected) {
        function.connection_offset = connected ? static_cast<miIntptr>(offsetof(Block, connection)) : 0;
        state.shader = &function;
    }
};

void evaluation(benchmark::State& run, bool connected) {
    renderer();
    Instance instance(connected);
    benchmark::DoNotOptimize(&instance);
    for (auto _ : run) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(orl::eval(&instance.state, instance.block.value));
    }
}
BENCHMARK_CAPTURE(evaluation, literal, false)->Name("literal parameter/ours");
BENCHMARK_CAPTURE(evaluation, connected, true)->Name("connected parameter/ours");

void plain_load(benchmark::State& run) {
    Instance instance(false);
    benchmark::DoNotOptimize(&instance);
    for (auto _ : run) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(instance.block.value);
    }
}
BENCHMARK(plain_load)->Name("literal parameter/plain load");

void direct_evaluation(benchmark::State& run) {
    PhenEval function = reinterpret_cast<PhenEval>(dlsym(renderer(), "mi_phen_eval"));
    Instance instance(true);
    benchmark::DoNotOptimize(&instance);
    benchmark::DoNotOptimize(function);
    for (auto _ : run) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(*static_cast<miScalar*>(function(&instance.state, &instance.block.value)));
    }
}
BENCHMARK(direct_evaluation)->Name("connected parameter/function pointer");

} // namespace
