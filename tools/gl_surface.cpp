#include "tools/gl_surface.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES/gl.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace {

[[noreturn]] void failWith(const char* what) {
    char text[160];
    std::snprintf(text, sizeof text, "no OpenGL ES 1.1 context without a display: %s (EGL error 0x%04X)", what,
                  unsigned(eglGetError()));
    throw std::runtime_error(text);
}

template <typename Function>
Function findFunction(const char* name) {
    return reinterpret_cast<Function>(eglGetProcAddress(name));
}

// A display of a platform that is up and running, or none.
EGLDisplay initialize(EGLenum platform, void* native) {
    const auto getDisplay = findFunction<PFNEGLGETPLATFORMDISPLAYEXTPROC>("eglGetPlatformDisplayEXT");
    EGLDisplay display = getDisplay ? getDisplay(platform, native, nullptr) : EGL_NO_DISPLAY;
    return display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr) ? display : EGL_NO_DISPLAY;
}

// Mesa draws without any device; other drivers want to be told which of theirs. The display is one and the same for all
// surfaces of the process, so none of them terminates it.
EGLDisplay openDisplay() {
    if (EGLDisplay display = initialize(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY)) return display;
    EGLDeviceEXT device;
    EGLint count = 0;
    const auto queryDevices = findFunction<PFNEGLQUERYDEVICESEXTPROC>("eglQueryDevicesEXT");
    if (queryDevices && queryDevices(1, &device, &count) && count > 0)
        if (EGLDisplay display = initialize(EGL_PLATFORM_DEVICE_EXT, device)) return display;
    failWith("EGL has neither a surfaceless platform nor a device");
}

EGLConfig chooseConfig(EGLDisplay display) {
    for (const EGLint depthBits : {24, 16}) {
        // clang-format off
        const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES_BIT,
                                 EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE, 8,
                                 EGL_DEPTH_SIZE, depthBits, EGL_NONE};
        // clang-format on
        EGLConfig config;
        EGLint count = 0;
        if (eglChooseConfig(display, wanted, &config, 1, &count) && count > 0) return config;
    }
    failWith("no configuration with 8-8-8-8 colour and a depth buffer");
}

}  // namespace

std::unique_ptr<GlSurface> GlSurface::create(int width, int height) {
    std::unique_ptr<GlSurface> surface(new GlSurface(width, height));
    surface->open();
    return surface;
}

void GlSurface::open() {
    display_ = openDisplay();
    EGLConfig config = chooseConfig(display_);
    if (!eglBindAPI(EGL_OPENGL_ES_API)) failWith("EGL offers no OpenGL ES");
    const EGLint size[] = {EGL_WIDTH, width_, EGL_HEIGHT, height_, EGL_NONE};
    surface_ = eglCreatePbufferSurface(display_, config, size);
    if (surface_ == EGL_NO_SURFACE) failWith("the surface cannot be created");
    const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 1, EGL_NONE};
    context_ = eglCreateContext(display_, config, EGL_NO_CONTEXT, version);
    if (context_ == EGL_NO_CONTEXT) failWith("OpenGL ES 1.1 is missing");
    if (!eglMakeCurrent(display_, surface_, surface_, context_)) failWith("the context cannot be made current");
}

GlSurface::~GlSurface() {
    if (!display_) return;
    eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (context_) eglDestroyContext(display_, context_);
    if (surface_) eglDestroySurface(display_, surface_);
}

std::vector<uint8_t> GlSurface::readPixels() const {
    const size_t stride = size_t(width_) * 4;
    std::vector<uint8_t> pixels(stride * size_t(height_));
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, width_, height_, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    for (auto top = pixels.begin(), bottom = pixels.end(); bottom - top >= 2 * ptrdiff_t(stride);
         top += ptrdiff_t(stride)) {
        bottom -= ptrdiff_t(stride);  // OpenGL ES reads the bottom row first
        std::swap_ranges(top, top + ptrdiff_t(stride), bottom);
    }
    return pixels;
}
