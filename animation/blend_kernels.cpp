#include "animation/blend_kernels.h"

#include "frame/wrap.h"

static bool fits16(int32_t value) { return value == int16_t(value); }

bool BoneFactors_compose(const Atrans3i* parent, const Atrans3i* local, Atrans3i* world, BoneFactors* factors) {
    if (parent)
        D_Atrans3i_multiply2(world, parent, local);
    else
        *world = *local;
    bool fits = true;
    for (int row = 0; row < 3; ++row) {
        const int32_t* m = &world->m[4 * row];
        fits = fits && fits16(m[0]) && fits16(m[1]) && fits16(m[2]);
        for (int half = 0; half < 2; ++half) {
            factors->xy[half][2 * row] = int16_t(m[0]);
            factors->xy[half][2 * row + 1] = int16_t(m[1]);
            factors->z[half][2 * row] = int16_t(m[2]);
        }
        factors->constants[0][row] = wrapAdd(kBlendRounding, wrapShl(m[3], 12));
        factors->constants[1][row] = kBlendRounding * kRestNormalScale;
    }
    return fits;
}

uint32_t blendNothing(const BlendTask&) { return 0; }

#if !defined(__x86_64__) && !defined(__i386__) && !defined(__aarch64__)
static constexpr BlendKernel kKernels[] = {{"plain", BoneFactors_compose, blendNothing}};

std::span<const BlendKernel> BlendKernels_supported() { return kKernels; }
#endif
