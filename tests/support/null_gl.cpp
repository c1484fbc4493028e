#include "tests/support/null_gl.h"

#include <GLES/gl.h>

#include <numeric>

std::array<uint64_t, kGlCallCount> nullGlCalls;

// clang-format off
static constexpr std::array<const char*, kGlCallCount> kNames = {
    "glActiveTexture", "glAlphaFunc", "glBindTexture", "glBlendFunc", "glClear", "glClearColor",
    "glClientActiveTexture", "glColor4f", "glColorMask", "glColorPointer", "glCompressedTexImage2D", "glCullFace",
    "glDeleteTextures", "glDepthFunc", "glDepthMask", "glDepthRangef", "glDisable", "glDisableClientState",
    "glDrawArrays", "glDrawElements", "glEnable", "glEnableClientState", "glFinish", "glFogf", "glFogfv",
    "glFrontFace", "glGenTextures", "glGetError", "glGetIntegerv", "glHint", "glLightModelf", "glLightModelfv",
    "glLightf", "glLightfv", "glLoadIdentity", "glLoadMatrixf", "glMaterialf", "glMaterialfv", "glMatrixMode",
    "glNormalPointer", "glOrthof", "glPolygonOffset", "glPopMatrix", "glPushMatrix", "glReadPixels", "glScalef",
    "glScissor", "glShadeModel", "glTexCoordPointer", "glTexEnvf", "glTexEnvfv", "glTexEnvx", "glTexImage2D",
    "glTexParameterf", "glVertexPointer", "glViewport"
};
// clang-format on

static GLuint lastTexture = 0;

void nullGl_reset() { nullGlCalls.fill(0); }
uint64_t nullGl_calls(GlCall call) { return nullGlCalls[size_t(call)]; }
uint64_t nullGl_allCalls() { return std::accumulate(nullGlCalls.begin(), nullGlCalls.end(), uint64_t{0}); }
const char* nullGl_name(GlCall call) { return kNames[size_t(call)]; }

static void count(GlCall call) { ++nullGlCalls[size_t(call)]; }

void GL_APIENTRY glActiveTexture(GLenum) { count(GlCall::ActiveTexture); }
void GL_APIENTRY glAlphaFunc(GLenum, GLfloat) { count(GlCall::AlphaFunc); }
void GL_APIENTRY glBindTexture(GLenum, GLuint) { count(GlCall::BindTexture); }
void GL_APIENTRY glBlendFunc(GLenum, GLenum) { count(GlCall::BlendFunc); }
void GL_APIENTRY glClear(GLbitfield) { count(GlCall::Clear); }
void GL_APIENTRY glClearColor(GLfloat, GLfloat, GLfloat, GLfloat) { count(GlCall::ClearColor); }
void GL_APIENTRY glClientActiveTexture(GLenum) { count(GlCall::ClientActiveTexture); }
void GL_APIENTRY glColor4f(GLfloat, GLfloat, GLfloat, GLfloat) { count(GlCall::Color4f); }
void GL_APIENTRY glColorMask(GLboolean, GLboolean, GLboolean, GLboolean) { count(GlCall::ColorMask); }
void GL_APIENTRY glColorPointer(GLint, GLenum, GLsizei, const void*) { count(GlCall::ColorPointer); }
void GL_APIENTRY glCompressedTexImage2D(GLenum, GLint, GLenum, GLsizei, GLsizei, GLint, GLsizei, const void*) {
    count(GlCall::CompressedTexImage2D);
}
void GL_APIENTRY glCullFace(GLenum) { count(GlCall::CullFace); }
void GL_APIENTRY glDeleteTextures(GLsizei, const GLuint*) { count(GlCall::DeleteTextures); }
void GL_APIENTRY glDepthFunc(GLenum) { count(GlCall::DepthFunc); }
void GL_APIENTRY glDepthMask(GLboolean) { count(GlCall::DepthMask); }
void GL_APIENTRY glDepthRangef(GLfloat, GLfloat) { count(GlCall::DepthRangef); }
void GL_APIENTRY glDisable(GLenum) { count(GlCall::Disable); }
void GL_APIENTRY glDisableClientState(GLenum) { count(GlCall::DisableClientState); }
void GL_APIENTRY glDrawArrays(GLenum, GLint, GLsizei) { count(GlCall::DrawArrays); }
void GL_APIENTRY glDrawElements(GLenum, GLsizei, GLenum, const void*) { count(GlCall::DrawElements); }
void GL_APIENTRY glEnable(GLenum) { count(GlCall::Enable); }
void GL_APIENTRY glEnableClientState(GLenum) { count(GlCall::EnableClientState); }
void GL_APIENTRY glFinish() { count(GlCall::Finish); }
void GL_APIENTRY glFogf(GLenum, GLfloat) { count(GlCall::Fogf); }
void GL_APIENTRY glFogfv(GLenum, const GLfloat*) { count(GlCall::Fogfv); }
void GL_APIENTRY glFrontFace(GLenum) { count(GlCall::FrontFace); }
void GL_APIENTRY glGenTextures(GLsizei n, GLuint* textures) {
    count(GlCall::GenTextures);
    for (GLsizei i = 0; i < n; ++i) textures[i] = ++lastTexture;
}
GLenum GL_APIENTRY glGetError() {
    count(GlCall::GetError);
    return GL_NO_ERROR;
}
void GL_APIENTRY glGetIntegerv(GLenum, GLint* data) {
    count(GlCall::GetIntegerv);
    *data = 0;
}
void GL_APIENTRY glHint(GLenum, GLenum) { count(GlCall::Hint); }
void GL_APIENTRY glLightModelf(GLenum, GLfloat) { count(GlCall::LightModelf); }
void GL_APIENTRY glLightModelfv(GLenum, const GLfloat*) { count(GlCall::LightModelfv); }
void GL_APIENTRY glLightf(GLenum, GLenum, GLfloat) { count(GlCall::Lightf); }
void GL_APIENTRY glLightfv(GLenum, GLenum, const GLfloat*) { count(GlCall::Lightfv); }
void GL_APIENTRY glLoadIdentity() { count(GlCall::LoadIdentity); }
void GL_APIENTRY glLoadMatrixf(const GLfloat*) { count(GlCall::LoadMatrixf); }
void GL_APIENTRY glMaterialf(GLenum, GLenum, GLfloat) { count(GlCall::Materialf); }
void GL_APIENTRY glMaterialfv(GLenum, GLenum, const GLfloat*) { count(GlCall::Materialfv); }
void GL_APIENTRY glMatrixMode(GLenum) { count(GlCall::MatrixMode); }
void GL_APIENTRY glNormalPointer(GLenum, GLsizei, const void*) { count(GlCall::NormalPointer); }
void GL_APIENTRY glOrthof(GLfloat, GLfloat, GLfloat, GLfloat, GLfloat, GLfloat) { count(GlCall::Orthof); }
void GL_APIENTRY glPolygonOffset(GLfloat, GLfloat) { count(GlCall::PolygonOffset); }
void GL_APIENTRY glPopMatrix() { count(GlCall::PopMatrix); }
void GL_APIENTRY glPushMatrix() { count(GlCall::PushMatrix); }
void GL_APIENTRY glReadPixels(GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, void*) { count(GlCall::ReadPixels); }
void GL_APIENTRY glScalef(GLfloat, GLfloat, GLfloat) { count(GlCall::Scalef); }
void GL_APIENTRY glScissor(GLint, GLint, GLsizei, GLsizei) { count(GlCall::Scissor); }
void GL_APIENTRY glShadeModel(GLenum) { count(GlCall::ShadeModel); }
void GL_APIENTRY glTexCoordPointer(GLint, GLenum, GLsizei, const void*) { count(GlCall::TexCoordPointer); }
void GL_APIENTRY glTexEnvf(GLenum, GLenum, GLfloat) { count(GlCall::TexEnvf); }
void GL_APIENTRY glTexEnvfv(GLenum, GLenum, const GLfloat*) { count(GlCall::TexEnvfv); }
void GL_APIENTRY glTexEnvx(GLenum, GLenum, GLfixed) { count(GlCall::TexEnvx); }
void GL_APIENTRY glTexImage2D(GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum, const void*) {
    count(GlCall::TexImage2D);
}
void GL_APIENTRY glTexParameterf(GLenum, GLenum, GLfloat) { count(GlCall::TexParameterf); }
void GL_APIENTRY glVertexPointer(GLint, GLenum, GLsizei, const void*) { count(GlCall::VertexPointer); }
void GL_APIENTRY glViewport(GLint, GLint, GLsizei, GLsizei) { count(GlCall::Viewport); }
