// Noise. Expected tables and values come from two programs of their own, in Python and in C++, which share no
// code with the library and follow the definition, rounded to single precision after each operation.
#include "noise.h"
#include "noise_batch.h"
#include "noise_tables.h"
#include "shader_fixture.h"

#include <array>
#include <bit>
#include <cstdlib>
#include <random>
#include <thread>

using namespace orl;

namespace {

// ---- the tables

// What the first builder of the process left behind, for each of three threads that all found the tables
// missing and one that comes while they are built.
struct Built {
    std::array<float, 4> last_entry;
    std::array<int, 4> next_random;
    int builds = 0, late_locks;
};

const Built& build_tables() {
    static const Built built = [] {
        scripted::Renderer& renderer = scripted::Renderer::get();
        renderer.reset();
        miSetModuleHandle(renderer.handle());
        Built result{};
        std::atomic<int> waiting = 0, locks = 0;
        renderer.mi_lock = [&](miLock lock) {
            for (++waiting; waiting < 3;)
                std::this_thread::yield();
            renderer.mi_lock.unscripted(lock);
            ++locks;
        };
        // Whoever builds overwrites the mark that the one before left.
        miScalar& marked = noise_tables.cellPoissonTable[0];
        miScalar entry = 0.0f;
        renderer.mi_unlock = [&](miLock lock) {
            if (marked != 2.0f)
                ++result.builds, entry = std::exchange(marked, 2.0f);
            renderer.mi_unlock.unscripted(lock);
        };
        miLock lock;
        mi_init_lock(&lock);
        std::array<std::thread, 4> threads;
        for (std::size_t i = 0; i < threads.size(); ++i)
            threads[i] = std::thread([&, i] {
                scripted::State state;
                state->global_lock = lock;
                while (i == 0 && locks == 0)
                    std::this_thread::yield();
                noiseTablesInit(state);
                result.last_entry[i] = cellRandom(9999);
                result.next_random[i] = std::rand();
            });
        for (std::thread& thread : threads)
            thread.join();
        locks = 0;
        noiseTablesInit(scripted::State());
        result.late_locks = locks;
        mi_delete_lock(&lock);
        marked = entry;
        renderer.reset();
        return result;
    }();
    return built;
}

class Noise : public testing::Test {
protected:
    Noise() { build_tables(); }
};

TEST_F(Noise, TablesAreBuiltOnceAndTheGeneratorIsAsItShouldBe) {
    EXPECT_EQ(build_tables().builds, 1);
    EXPECT_EQ(build_tables().late_locks, 0);
    [[maybe_unused]] int restarted = 0;
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(build_tables().last_entry[i], 0.573625922f);
        restarted += build_tables().next_random[i] == 41;
    }
#ifdef _WIN32 // The state belongs to a thread there; each starts with the default, whose first number is 41.
    EXPECT_EQ(restarted, 4);
#endif
}

// Fowler, Noll and Vo, variant 1a in 64 bits, of the table's bytes in little-endian order.
template <class T> std::uint64_t checksum(const T& table) {
    std::array<unsigned char, sizeof(T)> bytes;
    std::memcpy(bytes.data(), &table, sizeof table);
    std::uint64_t sum = 0xcbf29ce484222325;
    for (const unsigned char byte : bytes)
        sum = (sum ^ byte) * 0x100000001b3;
    return sum;
}

TEST_F(Noise, TablesAreTheHosts) {
    EXPECT_EQ(checksum(noise_tables.perm), 0x4ab5422ce49f7fbb);
    EXPECT_EQ(checksum(noise_tables.grad1), 0x3b9d1d60a52b3960);
    EXPECT_EQ(checksum(noise_tables.grad2), 0xc17fb02fb964a4fc);
    EXPECT_EQ(checksum(noise_tables.grad3), 0xa818a1610dae67d3);
    EXPECT_EQ(checksum(noise_tables.grad4), 0x1ceb5a5e7f28f223);
    EXPECT_EQ(checksum(noise_tables.cellPoissonTable), 0xfcd6aba01d5b95db);
    EXPECT_EQ(checksum(noise_tables.cellRandomTable), 0xd7f171529a71952b);
    EXPECT_EQ(cellRandom(0), noise_tables.cellRandomTable[0]);
    EXPECT_EQ(cellRandom(10000), cellRandom(0));
    EXPECT_EQ(cellRandom(29999), noise_tables.cellRandomTable[9999]);
    EXPECT_GE(cellRandom(-1), 0.0f); // an entry, whichever
}

// ---- values

using Point = std::array<float, 4>;

// Noise in the first n dimensions of the point.
float noise_at(int n, const Point& p) {
    if (n < 3)
        return n == 1 ? perlinNoise1(p[0]) : perlinNoise2(p[0], p[1]);
    return n == 3 ? perlinNoise3(p[0], p[1], p[2]) : perlinNoise4(p[0], p[1], p[2], p[3]);
}

TEST_F(Noise, CoordinatesAtTheEndOfTheLatticeAndBeyond) {
    // The first and the last whole parts that an int holds.
    EXPECT_EQ(perlinNoise2(2147473536.0f, 0.3f), 0.0970701426f);
    EXPECT_EQ(perlinNoise2(-2147493376.0f, 0.3f), -0.304295152f);
    for (const float odd :
         {not_a_number, infinite, -infinite, 2147473664.0f, -2147493632.0f, 1e30f, -3e38f}) {
        EXPECT_EQ(perlinNoise1(odd), 0.0f) << odd;
        for (int n = 2; n <= 4; ++n)
            for (int axis = 0; axis < n; ++axis) {
                Point point{0.3f, 0.4f, 0.6f, 0.7f};
                point[axis] = odd;
                EXPECT_LT(std::fabs(noise_at(n, point)), 2.0f) << odd << ", axis " << axis << " of " << n;
            }
    }
}

TEST_F(Noise, ManyValues) {
    static std::array<std::array<float, 20000>, 4> noise; // in 1 to 4 dimensions, all over the lattice
    std::mt19937 random(4);
    for (std::size_t i = 0; i < noise[0].size(); ++i) {
        Point point;
        for (float& coordinate : point)
            coordinate = static_cast<float>(random() >> 8) * 0x1p-13f - 1024.0f;
        for (int n = 1; n <= 4; ++n)
            noise[n - 1][i] = noise_at(n, point);
    }
    EXPECT_EQ(checksum(noise[0]), 0x2869a469575182ae);
    EXPECT_EQ(checksum(noise[1]), 0xc47b15aa3fde600f);
    EXPECT_EQ(checksum(noise[2]), 0x574642e532f0272c);
    EXPECT_EQ(checksum(noise[3]), 0x7ad939050359b0ca);
}

// ---- many points at once

struct Points {
    std::vector<float> axis[4];
    void add(const Point& point) {
        for (int i = 0; i < 4; ++i)
            axis[i].push_back(point[i]);
    }
};

Points points_of_all_kinds() {
    const float odd[] = {not_a_number, infinite,      -infinite,      0.0f,      -0.0f,
                         1e-40f,       -1e-9f,        0.9999999f,     -10000.5f, -20000.25f,
                         8388607.5f,   2147473536.0f, -2147493376.0f, 3e9f,      -1e30f};
    std::mt19937 random(8);
    const auto coordinate = [&](float width) {
        return (static_cast<float>(random() >> 8) * 0x1p-24f - 0.5f) * width;
    };
    Points points;
    for (int i = 0; i < 4000; ++i) // far apart
        points.add({coordinate(1000), coordinate(1000), coordinate(1000), coordinate(30000)});
    for (const float step : {0.003f, 0.06f, 0.3f, -0.05f}) { // marches
        Point point{coordinate(100), coordinate(100), coordinate(100), coordinate(100)};
        for (int i = 0; i < 1000; ++i) {
            points.add(point);
            point = {point[0] + step, point[1] - 0.7f * step, point[2] + 0.4f * step, point[3] + 0.1f * step};
        }
    }
    for (int i = 0; i < 4000; ++i) { // odd ones among others
        Point point{coordinate(4), coordinate(4), coordinate(4), coordinate(4)};
        point[i % 4] = odd[random() % std::size(odd)];
        points.add(point);
    }
    return points;
}

bool same_bits(float a, float b) {
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

void expect_same_bits(const char* what, const Points& points, NoiseBatch<3>* batch3, NoiseBatch<4>* batch4) {
    const std::size_t count = points.axis[0].size();
    std::vector<float> noise3(count), noise4(count);
    const auto& [x, y, z, w] = points.axis;
    batch3({x.data(), y.data(), z.data()}, count, noise3.data());
    batch4({x.data(), y.data(), z.data(), w.data()}, count, noise4.data());
    int different = 0;
    for (std::size_t i = 0; i < count; ++i) {
        different += !same_bits(noise3[i], perlinNoise3(x[i], y[i], z[i]));
        different += !same_bits(noise4[i], perlinNoise4(x[i], y[i], z[i], w[i]));
        EXPECT_TRUE(std::isfinite(noise3[i]) && std::isfinite(noise4[i])) << what << ", point " << i;
    }
    EXPECT_EQ(different, 0) << what;
}

TEST_F(Noise, ManyPointsAtOnceGiveTheSameBits) {
    const Points points = points_of_all_kinds();
    expect_same_bits("SSE2", points, noise_batch_sse2, noise_batch_sse2);
    if (__builtin_cpu_supports("avx2"))
        expect_same_bits("AVX2", points, noise_batch_avx2, noise_batch_avx2);
}

TEST_F(Noise, AnyNumberOfPointsAnywhereInMemory) {
    const Points points = points_of_all_kinds();
    const auto& [x, y, z, w] = points.axis;
    for (std::size_t count = 0; count <= 17; ++count)
        for (std::size_t start = 0; start < 4; ++start) {
            std::vector<float> in_place(x.begin(), x.begin() + 32), noise(32, 99.0f);
            perlinNoise3(&in_place[start], &y[start], &z[start], count, &in_place[start]);
            perlinNoise4(&x[start], &y[start], &z[start], &w[start], count, &noise[start]);
            for (std::size_t i = 0; i < 32; ++i) {
                const bool inside = i >= start && i < start + count;
                EXPECT_EQ(in_place[i], inside ? perlinNoise3(x[i], y[i], z[i]) : x[i]);
                EXPECT_EQ(noise[i], inside ? perlinNoise4(x[i], y[i], z[i], w[i]) : 99.0f);
            }
        }
}

// ---- what is made of it

TEST_F(Noise, ScaledNoiseStaysInItsRange) {
    // 1.65 times -0.637 and 0.0232501328.
    EXPECT_EQ(noise3Scaled(70.529f, 233.044f, 132.426f), -1.0f);
    EXPECT_FLOAT_EQ(noise3Scaled(0.5f, 0.25f, 0.75f), 0.038362719f);
    EXPECT_LE(std::fabs(noise3Scaled(-10000.9f, -10000.9f, -10000.9f)), 1.0f);
}

TEST_F(Noise, SumsOfOctaves) {
    EXPECT_EQ(fractalAbsNoise1(0.3f, 6), 0.0627679676f);
    EXPECT_EQ(fractalAbsNoise2(0.3f, -7.2f, 6), 0.352948815f);
    for (const int none : {0, -1, std::numeric_limits<int>::min()}) {
        EXPECT_EQ(fractalAbsNoise1(0.3f, none), 0.0f);
        EXPECT_EQ(fractalAbsNoise2(0.3f, 0.4f, none), 0.0f);
    }
    EXPECT_EQ(fractalAbsNoise1(-3.3f, 1), std::fabs(perlinNoise1(-3.3f)));
    // The sum of 30; terms past its digits are lost, and do not take for ever.
    EXPECT_EQ(fractalAbsNoise1(0.3f, std::numeric_limits<int>::max()), 0.0664497018f);
    EXPECT_TRUE(std::isfinite(fractalAbsNoise2(not_a_number, infinite, 1000)));
}

TEST(NoiseHelpers, PositiveMod) {
    EXPECT_EQ(positiveMod(-1.0f, 4.0f), 3.0f);
    EXPECT_EQ(positiveMod(9.5f, 4.0f), 1.5f);
    EXPECT_EQ(positiveMod(-8.0f, 4.0f), 0.0f);
    for (const float x : {8589934592.0f, 1e30f, -1e30f, infinite, -infinite, not_a_number})
        EXPECT_EQ(positiveMod(x, 4.0f), 0.0f) << x;
    EXPECT_EQ(positiveMod(1.0f, 0.0f), 0.0f);
}

} // namespace
