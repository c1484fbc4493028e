// Made by tools/make_math_tables.cpp; do not edit.
// clang-format off
#include "frame/trigonometry_tables.h"

const std::array<SplitDouble, 17> kArctangentOfSixteenths = {{
    {0x0p+0, 0x0p+0},
    {0x1.ff55bb72cfdeap-5, -0x1.c9p-60},
    {0x1.fd5ba9aac2f6ep-4, -0x1.cdp-59},
    {0x1.7b97b4bce5b02p-3, 0x1.34p-58},
    {0x1.f5b75f92c80ddp-3, 0x1.8a8p-57},
    {0x1.362773707ebccp-2, -0x1.96p-57},
    {0x1.6f61941e4def1p-2, -0x1.c6p-56},
    {0x1.a64eec3cc23fdp-2, -0x1.25p-56},
    {0x1.dac670561bb4fp-2, 0x1.a28p-56},
    {0x1.0657e94db30dp-1, -0x1.d6p-56},
    {0x1.1e00babdefeb4p-1, -0x1.94p-58},
    {0x1.345f01cce37bbp-1, 0x1.1p-55},
    {0x1.4978fa3269ee1p-1, 0x1.24p-56},
    {0x1.5d58987169b18p-1, 0x1p-57},
    {0x1.700a7c5784634p-1, -0x1.8cp-56},
    {0x1.819d0b7158a4dp-1, -0x1.bfp-56},
    {0x1.921fb54442d18p-1, 0x1.1a8p-55},
}};

const std::array<double, 13> kArcsinePolynomial = {
    0x1.5555555555556p-3,
    0x1.3333333332ecap-4,
    0x1.6db6db6e31f94p-5,
    0x1.f1c71c1dab081p-6,
    0x1.6e8bb1c8ff24ep-6,
    0x1.1c4d35bb33d24p-6,
    0x1.c9cf09b212956p-7,
    0x1.78263c9116337p-7,
    0x1.52428be40b966p-7,
    0x1.65a5c886bc23bp-8,
    0x1.1d1b0e1601a38p-6,
    -0x1.e6b1ad31fe217p-7,
    0x1.d72d54f577497p-6,
};
