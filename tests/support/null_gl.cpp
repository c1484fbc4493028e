#include "tests/support/null_gl.h"

#include <GLES/gl.h>

#include <array>
#include <cstddef>

static std::array<uint64_t, 4> calls;
static GLuint lastTexture = 0;

uint64_t nullGl_calls(GlCall call) { return calls[size_t(call)]; }

static void count(GlCall call) { ++calls[size_t(call)]; }

void GL_APIENTRY glActiveTexture(GLenum) {}
void GL_APIENTRY glAlphaFunc(GLenum, GLfloat) {}
void GL_APIENTRY glBindTexture(GLenum, GLuint) {}
void GL_APIENTRY glBlendFunc(GLenum, GLenum) {}
void GL_APIENTRY glClear(GLbitfield) {}
void GL_APIENTRY glClearColor(GLfloat, GLfloat, GLfloat, GLfloat) {}
void GL_APIENTRY glClientActiveTexture(GLenum) {}
void GL_APIENTRY glColor4f(GLfloat, GLfloat, GLfloat, GLfloat) {}
void GL_APIENTRY glColorMask(GLboolean, GLboolean, GLboolean, GLboolean) {}
void GL_APIENTRY glColorPointer(GLint, GLenum, GLsizei, const void*) {}
void GL_APIENTRY glCompressedTexImage2D(GLenum, GLint, GLenum, GLsizei, GLsizei, GLint, GLsizei, const void*) {}
void GL_APIENTRY glCullFace(GLenum) {}
void GL_APIENTRY glDeleteTextures(GLsizei, const GLuint*) { count(GlCall::DeleteTextures); }
void GL_APIENTRY glDepthFunc(GLenum) {}
void GL_APIENTRY glDepthMask(GLboolean) {}
void GL_APIENTRY glDepthRangef(GLfloat, GLfloat) {}
void GL_APIENTRY glDisable(GLenum) {}
void GL_APIENTRY glDisableClientState(GLenum) {}
void GL_APIENTRY glDrawArrays(GLenum, GLint, GLsizei) { count(GlCall::DrawArrays); }
void GL_APIENTRY glDrawElements(GLenum, GLsizei, GLenum, const void*) { count(GlCall::DrawElements); }
void GL_APIENTRY glEnable(GLenum) {}
void GL_APIENTRY glEnableClientState(GLenum) {}
void GL_APIENTRY glFinish() {}
void GL_APIENTRY glFogf(GLenum, GLfloat) {}
void GL_APIENTRY glFogfv(GLenum, const GLfloat*) {}
void GL_APIENTRY glFrontFace(GLenum) {}
void GL_APIENTRY glGenTextures(GLsizei n, GLuint* textures) {
    count(GlCall::GenTextures);
    for (GLsizei i = 0; i < n; ++i) textures[i] = ++lastTexture;
}
GLenum GL_APIENTRY glGetError() { return GL_NO_ERROR; }
void GL_APIENTRY glGetIntegerv(GLenum, GLint* data) { *data = 0; }
void GL_APIENTRY glHint(GLenum, GLenum) {}
void GL_APIENTRY glLightModelf(GLenum, GLfloat) {}
void GL_APIENTRY glLightModelfv(GLenum, const GLfloat*) {}
void GL_APIENTRY glLightf(GLenum, GLenum, GLfloat) {}
void GL_APIENTRY glLightfv(GLenum, GLenum, const GLfloat*) {}
void GL_APIENTRY glLoadIdentity() {}
void GL_APIENTRY glLoadMatrixf(const GLfloat*) {}
void GL_APIENTRY glMaterialf(GLenum, GLenum, GLfloat) {}
void GL_APIENTRY glMaterialfv(GLenum, GLenum, const GLfloat*) {}
void GL_APIENTRY glMatrixMode(GLenum) {}
void GL_APIENTRY glNormalPointer(GLenum, GLsizei, const void*) {}
void GL_APIENTRY glOrthof(GLfloat, GLfloat, GLfloat, GLfloat, GLfloat, GLfloat) {}
void GL_APIENTRY glPolygonOffset(GLfloat, GLfloat) {}
void GL_APIENTRY glPopMatrix() {}
void GL_APIENTRY glPushMatrix() {}
void GL_APIENTRY glReadPixels(GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, void*) {}
void GL_APIENTRY glScalef(GLfloat, GLfloat, GLfloat) {}
void GL_APIENTRY glScissor(GLint, GLint, GLsizei, GLsizei) {}
void GL_APIENTRY glShadeModel(GLenum) {}
void GL_APIENTRY glTexCoordPointer(GLint, GLenum, GLsizei, const void*) {}
void GL_APIENTRY glTexEnvf(GLenum, GLenum, GLfloat) {}
void GL_APIENTRY glTexEnvfv(GLenum, GLenum, const GLfloat*) {}
void GL_APIENTRY glTexEnvx(GLenum, GLenum, GLfixed) {}
void GL_APIENTRY glTexImage2D(GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum, const void*) {}
void GL_APIENTRY glTexParameterf(GLenum, GLenum, GLfloat) {}
void GL_APIENTRY glVertexPointer(GLint, GLenum, GLsizei, const void*) {}
void GL_APIENTRY glViewport(GLint, GLint, GLsizei, GLsizei) {}
