#pragma once

#include "animation/pose_kernels.h"

// Only on x86, and only where the processor has AVX2.
void poseAvx2(const PoseBatch& batch);
