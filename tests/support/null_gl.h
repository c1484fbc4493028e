// An OpenGL ES 1.1 that draws nothing: exactly the functions that the library may call. Programs that link it need no
// driver; a call of anything else fails at link time.
#pragma once

#include <cstdint>

// The calls that are counted, from the start of the program.
enum class GlCall : uint32_t { DeleteTextures, DrawArrays, DrawElements, GenTextures };
uint64_t nullGl_calls(GlCall call);
