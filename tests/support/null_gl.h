// An OpenGL ES 1.1 that draws nothing and counts its calls: exactly the functions that the library may call. Programs
// that link it need no driver; a call of anything else fails at link time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// clang-format off
enum class GlCall : uint32_t {
    ActiveTexture, AlphaFunc, BindTexture, BlendFunc, Clear, ClearColor, ClientActiveTexture, Color4f, ColorMask,
    ColorPointer, CompressedTexImage2D, CullFace, DeleteTextures, DepthFunc, DepthMask, DepthRangef, Disable,
    DisableClientState, DrawArrays, DrawElements, Enable, EnableClientState, Finish, Fogf, Fogfv, FrontFace,
    GenTextures, GetError, GetIntegerv, Hint, LightModelf, LightModelfv, Lightf, Lightfv, LoadIdentity, LoadMatrixf,
    Materialf, Materialfv, MatrixMode, NormalPointer, Orthof, PolygonOffset, PopMatrix, PushMatrix, ReadPixels, Scalef,
    Scissor, ShadeModel, TexCoordPointer, TexEnvf, TexEnvfv, TexEnvx, TexImage2D, TexParameterf, VertexPointer,
    Viewport,
    Count
};
// clang-format on
constexpr size_t kGlCallCount = size_t(GlCall::Count);

// Calls since the start or the last reset, by GlCall.
extern std::array<uint64_t, kGlCallCount> nullGlCalls;

void nullGl_reset();
uint64_t nullGl_calls(GlCall call);
uint64_t nullGl_allCalls();
const char* nullGl_name(GlCall call);  // "glActiveTexture"
