// Makes the coefficient tables of the number kernels. Run it again after changing the scheme of a table:
//
//   make_math_tables fixed        > frame/fixed_tables.cpp
//   make_math_tables trigonometry > frame/trigonometry_tables.cpp
//
// The integer kernels evaluate piecewise quadratics c0 + (c1 + c2 * u) * u with truncating shifts. For every segment
// this program starts from the quadratic through Chebyshev nodes and searches the coefficients with the least greatest
// error, measured with the kernel's own integer arithmetic at every position that the kernel can ask for.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <random>
#include <string_view>
#include <vector>

namespace {

using Real = long double;
constexpr Real kPi = std::numbers::pi_v<Real>;
constexpr Real kTwo32 = 4294967296.0L;

struct Row {
    uint32_t c0, c1, c2;
};

// How a kernel evaluates a row: the value is valueUnit * c0 plus what c1 and c2 contribute.
struct Scheme {
    int32_t valueUnit;
    int64_t (*contribution)(const Row& row, uint32_t u);
    Real slopeUnit;      // of the value, per unit of c1 and position
    Real curvatureUnit;  // of the value, per unit of c2 and squared position
};

struct Sample {
    uint32_t u;
    Real wanted;
};

struct Fit {
    Row row;
    Real greatestError;
};

Fit fitConstant(const Scheme& scheme, const std::vector<Sample>& samples, uint32_t c1, uint32_t c2) {
    const Row row{0, c1, c2};
    Real low = INFINITY, high = -INFINITY;
    for (const Sample& sample : samples) {
        const Real missing = sample.wanted - Real(scheme.contribution(row, sample.u));
        low = std::min(low, missing);
        high = std::max(high, missing);
    }
    const Real c0 = std::max(0.0L, std::round((low + high) / 2 / scheme.valueUnit));
    const Real value = c0 * scheme.valueUnit;
    return {{uint32_t(c0), c1, c2}, std::max(high - value, value - low)};
}

// The quadratic that meets the wanted function at the three Chebyshev nodes of the samples.
Row firstGuess(const Scheme& scheme, const std::vector<Sample>& samples) {
    std::array<Real, 3> x, y;
    for (size_t i = 0; i < 3; ++i) {
        const Real node = (1 - std::cos(kPi * Real(2 * i + 1) / 6)) / 2;
        const Sample& sample = samples[size_t(node * Real(samples.size() - 1) + 0.5L)];
        x[i] = sample.u;
        y[i] = sample.wanted;
    }
    const Real first = (y[1] - y[0]) / (x[1] - x[0]);
    const Real second = ((y[2] - y[1]) / (x[2] - x[1]) - first) / (x[2] - x[0]);
    const Real c1 = (first - second * (x[0] + x[1])) / scheme.slopeUnit + 32768;  // half of what the shift by 16 drops
    const Real c2 = second / scheme.curvatureUnit;
    return {0, uint32_t(std::clamp(c1, 0.0L, kTwo32 - 1)), uint32_t(std::clamp(c2, 0.0L, 65535.0L))};
}

// Random steps away from the best row so far, in rounds of half the reach of the one before. A step in the slope takes
// the curvature along, which keeps the far end of the segment near its place.
Fit fitSegment(const Scheme& scheme, const std::vector<Sample>& samples) {
    const Row guess = firstGuess(scheme, samples);
    Fit best = fitConstant(scheme, samples, guess.c1, guess.c2);
    std::minstd_rand generator(1);  // the standard fixes its sequence: the tables come out the same every time
    const auto random = [&generator] { return Real(generator()) / 1073741824.0L - 1; };
    const int tries = samples.size() < 100 ? 20000 : 60;
    Real reach = 65536.0L * 64;
    for (int round = 0; round < 14; ++round, reach /= 2) {
        const Real along = reach * scheme.slopeUnit / scheme.curvatureUnit / (samples.back().u + 1.0L);
        for (int i = 0; i < tries; ++i) {
            const Real step = random();
            const Real c1 = best.row.c1 + step * reach;
            const Real c2 = best.row.c2 - step * along + random() * (std::abs(along) / 4 + 1);
            if (c1 < 0 || c1 >= kTwo32 || c2 < 0 || c2 >= 65536) continue;
            const Fit fit = fitConstant(scheme, samples, uint32_t(c1), uint32_t(c2));
            if (fit.greatestError < best.greatestError) best = fit;
        }
    }
    return best;
}

Fit keepRow(const Scheme& scheme, const std::vector<Sample>& samples, const Row& row) {
    Real greatest = 0;
    for (const Sample& sample : samples) {
        const Real value = Real(row.c0) * scheme.valueUnit + Real(scheme.contribution(row, sample.u));
        greatest = std::max(greatest, std::abs(value - sample.wanted));
    }
    return {row, greatest};
}

void printHead(const char* header) {
    std::printf("// Made by tools/make_math_tables.cpp; do not edit.\n// clang-format off\n#include \"%s\"\n", header);
}

void printTable(const char* type, const char* name, const std::vector<Fit>& fits, const char* unit) {
    Real greatest = 0;
    for (const Fit& fit : fits) greatest = std::max(greatest, fit.greatestError);
    std::printf("\n// Greatest error of a row: %.2Lf %s.\n", greatest, unit);
    std::printf("const std::array<QuadraticRow, %s> %s = {{\n", type, name);
    for (const Fit& fit : fits) std::printf("    {0x%08x, 0x%08x, 0x%04x},\n", fit.row.c0, fit.row.c1, fit.row.c2);
    std::printf("}};\n");
}

// --- Square root: 8 segments of the fraction t/65536 in [1, 2); the value is root - 1 in 2^-33 ---

void printSquareRoot() {
    const Scheme scheme{
        1, [](const Row& row, uint32_t u) -> int64_t { return ((row.c1 - ((row.c2 * u) >> 2)) >> 16) * u; }, 0x1p-16L,
        -0x1p-18L};
    std::vector<Fit> fits;
    for (uint32_t segment = 0; segment < 8; ++segment) {
        std::vector<Sample> samples;
        for (uint32_t u = 0; u < 8192; ++u)
            samples.push_back({u, 0x1p33L * (std::sqrt(1 + Real(segment * 8192 + u) / 65536) - 1)});
        if (segment == 0)
            fits.push_back(keepRow(scheme, samples, {0x7257, 0xffc03627, 0xea10}));
        else if (segment == 7)
            fits.push_back(keepRow(scheme, samples, {0xbd15d271, 0xbae6b77e, 0x5ef4}));
        else
            fits.push_back(fitSegment(scheme, samples));
    }
    for (Fit& fit : fits) fit.greatestError /= 65536;
    printTable("8", "kSquareRootRows", fits, "units of 2^-17");
}

// --- Sine and cosine: 16 segments of an eighth of a turn, 32 angles of 1/4096 turn in each; the value is in 2^-32 ---

// The kernel rounds its values to 12 bits. A value close to a tie is moved away from it by more than the fits miss, so
// that it is rounded to the right side.
Real awayFromTie(Real value) {
    constexpr Real kDistance = 2500, kUnit = 0x1p20L;
    const Real tie = (std::floor(value / kUnit) + 0.5L) * kUnit;
    return std::abs(value - tie) < kDistance ? tie + std::copysign(kDistance, value - tie) : value;
}

std::vector<Sample> octantSamples(uint32_t segment, Real (*function)(Real)) {
    std::vector<Sample> samples;
    for (uint32_t i = 0; i < 32; ++i)
        samples.push_back({i << 11, awayFromTie(kTwo32 * function(kPi / 2 * Real(segment * 32 + i) / 1024))});
    return samples;
}

void printSine() {
    const Scheme scheme{
        1, [](const Row& row, uint32_t u) -> int64_t { return (((row.c1 - ((row.c2 * u) >> 6)) >> 16) * u) >> 4; },
        0x1p-20L, -0x1p-26L};
    const std::array<Row, 2> given = {{{0, 0xc91b0000, 0x7c6}, {0xc8faf77, 0xc8dd8137, 0x1740}}};
    std::vector<Fit> fits;
    for (uint32_t segment = 0; segment < 16; ++segment) {
        const std::vector<Sample> samples = octantSamples(segment, std::sin);
        fits.push_back(segment < given.size() ? keepRow(scheme, samples, given[segment]) : fitSegment(scheme, samples));
    }
    printTable("16", "kSineRows", fits, "units of 2^-32");
}

void printCosine() {
    const Scheme scheme{2,
                        [](const Row& row, uint32_t u) {
                            return -1536 - 2 * int64_t((((((row.c2 * u) >> 5) + row.c1) >> 16) * u) >> 5);
                        },
                        -0x1p-20L, -0x1p-25L};
    std::vector<Fit> fits;
    for (uint32_t segment = 0; segment < 16; ++segment) {
        const std::vector<Sample> samples = octantSamples(segment, std::cos);
        fits.push_back(segment == 0 ? keepRow(scheme, samples, {0x7fffffff, 0x3ce7, 0x9ddb})
                                    : fitSegment(scheme, samples));
    }
    printTable("16", "kCosineRows", fits, "units of 2^-32");
}

// --- Arcsine: 12 ranges of ever narrower segments towards 1; the value is in 2^-32 of a turn ---

struct ArcsineRange {
    uint32_t end;  // first upper half of the sine behind the range
    uint32_t base;
    uint32_t curvatureShift;
};
constexpr std::array<ArcsineRange, 12> kArcsineRanges = {{{51200, 0, 5},
                                                          {59392, 25, 5},
                                                          {62976, 83, 4},
                                                          {64512, 206, 4},
                                                          {65024, 458, 3},
                                                          {65280, 966, 3},
                                                          {65408, 1986, 4},
                                                          {65472, 4030, 4},
                                                          {65504, 8122, 4},
                                                          {65520, 16310, 4},
                                                          {65528, 32690, 4},
                                                          {65535, 65454, 4}}};
constexpr uint32_t kArcsineException = 0xfffed000;  // the kernel has its own constant there

Real arcsine(uint32_t sine) { return kTwo32 * std::asin(Real(sine) / kTwo32) / (2 * kPi); }

Scheme arcsineScheme(uint32_t curvatureShift) {
    switch (curvatureShift) {
        case 3:
            return {
                1,
                [](const Row& row, uint32_t w) -> int64_t { return (((((row.c2 * w) >> 3) + row.c1) >> 16) * w) >> 7; },
                0x1p-23L, 0x1p-26L};
        case 4:
            return {
                1,
                [](const Row& row, uint32_t w) -> int64_t { return (((((row.c2 * w) >> 4) + row.c1) >> 16) * w) >> 7; },
                0x1p-23L, 0x1p-27L};
        default:
            return {
                1,
                [](const Row& row, uint32_t w) -> int64_t { return (((((row.c2 * w) >> 5) + row.c1) >> 16) * w) >> 7; },
                0x1p-23L, 0x1p-28L};
    }
}

void printArcsine() {
    std::vector<Fit> fits;
    uint32_t sine = 0;
    for (uint32_t range = 0; range < kArcsineRanges.size(); ++range) {
        const Scheme scheme = arcsineScheme(kArcsineRanges[range].curvatureShift);
        while (sine >> 16 < kArcsineRanges[range].end) {
            const uint32_t segment = sine >> (27 - range);
            std::vector<Sample> samples;
            for (; sine >> (27 - range) == segment; sine += 4096)
                if (sine != kArcsineException) samples.push_back({(sine >> (11 - range)) & 0xffff, arcsine(sine)});
            if (fits.size() == 0)
                fits.push_back(keepRow(scheme, samples, {0, 0xa2f61e14, 0x146}));
            else if (fits.size() == 1)
                fits.push_back(keepRow(scheme, samples, {0x146009e, 0xa30a7a60, 0x3d5}));
            else
                fits.push_back(fitSegment(scheme, samples));
        }
    }
    printTable("kArcsineRowCount", "kArcsineRows", fits, "units of 2^-32 of a turn");
    std::printf("\nconst std::array<uint32_t, 16> kArcsineLastAngles = {");
    for (uint32_t i = 0; i < 16; ++i) {
        const uint32_t angle = i == 0    ? 0x3fc66166
                               : i == 15 ? 0x3ff19881
                                         : uint32_t(std::round(arcsine(sine + i * 4096)));
        std::printf("%s0x%08x%s", i % 8 ? " " : "\n    ", angle, i == 15 ? "};\n" : ",");
    }
}

void printFixedTables() {
    printHead("frame/fixed_tables.h");
    printSquareRoot();
    printSine();
    printCosine();
    printArcsine();
}

// --- Double precision ---

// asin(s) = s + s * z * p(z), z = s * s <= 1/4: the coefficients of p, which interpolates at Chebyshev nodes.
template <size_t kCount>
std::array<Real, kCount> arcsinePolynomial() {
    std::array<Real, kCount> nodes, newton;
    for (size_t i = 0; i < kCount; ++i) {
        const Real z = (1 - std::cos(kPi * Real(2 * i + 1) / (2 * kCount))) / 8;
        Real sum = 0, term = 1.0L / 6;  // by its series: asin(s) - s would cancel
        for (int n = 1; n < 60; ++n) {
            sum += term;
            term *= z * Real(2 * n + 1) * Real(2 * n + 1) / (Real(2 * n + 2) * Real(2 * n + 3));
        }
        nodes[i] = z;
        newton[i] = sum;
    }
    for (size_t order = 1; order < kCount; ++order)
        for (size_t i = kCount - 1; i >= order; --i)
            newton[i] = (newton[i] - newton[i - 1]) / (nodes[i] - nodes[i - order]);
    std::array<Real, kCount> result{};
    for (size_t i = kCount; i-- > 0;) {  // result = result * (z - nodes[i]) + newton[i]
        for (size_t power = kCount - 1; power > 0; --power)
            result[power] = result[power - 1] - result[power] * nodes[i];
        result[0] = newton[i] - result[0] * nodes[i];
    }
    return result;
}

// atan(i / 16) by Euler's series, whose terms for x = i / 16 shrink by x^2 / (1 + x^2), at most a half. In integers,
// because the long double function of the C library comes from an instruction whose last bit differs between
// processors.
Real arctangentOfSixteenth(uint32_t i) {
    constexpr int kFractionBits = 104;  // the largest factor of a term has 17 bits more
    using Wide = unsigned __int128;
    Wide term = (Wide(16 * i) << kFractionBits) / (256 + i * i), sum = 0;
    for (uint32_t n = 0; term != 0; ++n) {
        sum += term;
        term = term * ((2 * n + 2) * i * i) / ((2 * n + 3) * (256 + i * i));
    }
    return std::ldexp(Real(sum), -kFractionBits);
}

void printTrigonometryTables() {
    printHead("frame/trigonometry_tables.h");
    std::printf("\nconst std::array<SplitDouble, 17> kArctangentOfSixteenths = {{\n");
    for (uint32_t i = 0; i <= 16; ++i) {
        const Real angle = arctangentOfSixteenth(i);
        const double head = double(angle);
        std::printf("    {%a, %a},\n", head, double(angle - head));
    }
    std::printf("}};\n\nconst std::array<double, 13> kArcsinePolynomial = {\n");
    for (const Real coefficient : arcsinePolynomial<13>()) std::printf("    %a,\n", double(coefficient));
    std::printf("};\n");
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const std::string_view which = argumentCount == 2 ? arguments[1] : "";
    if (which == "fixed") {
        printFixedTables();
    } else if (which == "trigonometry") {
        printTrigonometryTables();
    } else {
        std::fprintf(stderr, "usage: %s fixed|trigonometry\n", arguments[0]);
        return 2;
    }
    return 0;
}
