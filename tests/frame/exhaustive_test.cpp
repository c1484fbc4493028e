// Number kernels over all 2^32 arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <future>
#include <thread>
#include <vector>

#include "frame/fixed_point.h"
#include "tests/frame/number_reference.h"

namespace {

constexpr uint64_t kWords = uint64_t(1) << 32;

// Checks every word, a part of them per core. check(first, end) returns the first word that fails, or `end`.
template <typename Check>
void checkAllWords(Check check) {
    const uint64_t parts = std::max(1u, std::thread::hardware_concurrency());
    std::vector<std::future<void>> running;
    for (uint64_t part = 0; part < parts; ++part)
        running.push_back(std::async(std::launch::async, [=] {
            const uint64_t first = kWords * part / parts, end = kWords * (part + 1) / parts;
            EXPECT_EQ(check(first, end), end) << "fails for this word";
        }));
}

TEST(FixedPointExhaustive, J2F) {
    checkAllWords([](uint64_t word, uint64_t end) {
        while (word < end &&
               j2f(std::bit_cast<float>(uint32_t(word))) == expectedJ2F(std::bit_cast<float>(uint32_t(word))))
            ++word;
        return word;
    });
}

TEST(FixedPointExhaustive, F2J) {
    checkAllWords([](uint64_t word, uint64_t end) {
        while (word < end && f2j(int32_t(word)) == expectedF2J(int32_t(word))) ++word;
        return word;
    });
}

TEST(FixedPointExhaustive, SquareRoot) {
    checkAllWords([](uint64_t word, uint64_t end) {
        uint64_t root = uint64_t(std::sqrt(double(word)));
        while (word > root * (root + 1)) ++root;  // the nearest
        for (; word < end; ++word) {
            if (word > root * (root + 1)) ++root;
            if (integerSqrt(uint32_t(word)) != root) break;
        }
        return word;
    });
}

}  // namespace
