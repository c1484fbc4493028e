// The main function of pixel tests. Without an OpenGL ES 1.1 context it says so and ends with the code that ctest takes
// for a skipped test.
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>

#include "tools/gl_surface.h"

int main(int argc, char** argv) {
    constexpr int kSkipped = 77;
    testing::InitGoogleTest(&argc, argv);
    try {
        GlSurface::create(1, 1);
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return kSkipped;
    }
    return RUN_ALL_TESTS();
}
