/* A host in C99 that knows only k8.h: it loads the sample's penguin, walks it before a camera, looks at the pixels, and
 * gives everything back. Its argument is the penguin's package. Ends with 77 where there is no OpenGL ES 1.1. */
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES/gl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "k8.h"

enum { SIDE = 96, SKIPPED = 77, TEXTURES = 2, LIGHTS = 2, ONE = 4096 };

static int failures;

static void check(int holds, const char* what) {
    if (holds) return;
    fprintf(stderr, "failed: %s (error status %d)\n", what, (int)K8ErrStorage_getErrorStatus());
    ++failures;
}

/* ---- Memory that is counted ---- */

typedef struct CountingAllocator {
    K8Allocator head;
    int live, calls;
} CountingAllocator;

static void* countedAlloc(K8Allocator* allocator, int32_t size) {
    CountingAllocator* counter = (CountingAllocator*)allocator;
    void* block = size < 0 ? NULL : malloc(size > 0 ? (size_t)size : 1);
    if (block) memset(block, 0xA5, (size_t)size); /* a host need not clear its blocks */
    counter->live += block != NULL;
    ++counter->calls;
    return block;
}

static void* countedRealloc(K8Allocator* allocator, void* block, int32_t size) {
    if (!block) return countedAlloc(allocator, size);
    return size < 0 ? NULL : realloc(block, size > 0 ? (size_t)size : 1);
}

static void countedFree(K8Allocator* allocator, void* block) {
    ((CountingAllocator*)allocator)->live -= block != NULL;
    free(block);
}

static const K8AllocatorFunctions countedFunctions = {countedAlloc, countedRealloc, countedFree};
static CountingAllocator host = {{&countedFunctions}, 0, 0};

/* The engine's own blocks, watched through the table of MALK8_malc. */
static const K8AllocatorFunctions* engineFunctions;
static int engineLive;

static void* engineAlloc(K8Allocator* allocator, int32_t size) {
    void* block = engineFunctions->alloc(allocator, size);
    engineLive += block != NULL;
    return block;
}

static void* engineRealloc(K8Allocator* allocator, void* block, int32_t size) {
    void* moved = engineFunctions->realloc(allocator, block, size);
    engineLive += !block && moved;
    return moved;
}

static void engineFree(K8Allocator* allocator, void* block) {
    engineLive -= block != NULL;
    engineFunctions->free(allocator, block);
}

static const K8AllocatorFunctions watchedFunctions = {engineAlloc, engineRealloc, engineFree};

/* ---- A surface ---- */

static int openSurface(void) {
    static const EGLint wanted[] = {EGL_SURFACE_TYPE,
                                    EGL_PBUFFER_BIT,
                                    EGL_RENDERABLE_TYPE,
                                    EGL_OPENGL_ES_BIT,
                                    EGL_RED_SIZE,
                                    8,
                                    EGL_GREEN_SIZE,
                                    8,
                                    EGL_BLUE_SIZE,
                                    8,
                                    EGL_DEPTH_SIZE,
                                    16,
                                    EGL_NONE};
    static const EGLint size[] = {EGL_WIDTH, SIDE, EGL_HEIGHT, SIDE, EGL_NONE};
    static const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 1, EGL_NONE};
    const PFNEGLGETPLATFORMDISPLAYEXTPROC getDisplay =
        (PFNEGLGETPLATFORMDISPLAYEXTPROC)eglGetProcAddress("eglGetPlatformDisplayEXT");
    if (!getDisplay) return 0;
    const EGLDisplay display = getDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, NULL);
    EGLConfig config;
    EGLint count = 0;
    if (!eglInitialize(display, NULL, NULL) || !eglChooseConfig(display, wanted, &config, 1, &count) || count == 0)
        return 0;
    const EGLSurface surface = eglCreatePbufferSurface(display, config, size);
    const EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, version);
    return surface && context && eglMakeCurrent(display, surface, surface, context);
}

/* How many pixels differ from what the host cleared to; `sum` becomes a number that depends on all of them. */
static int countDrawn(unsigned long* sum) {
    static unsigned char pixels[SIDE * SIDE * 4];
    int drawn = 0;
    *sum = 5381;
    glReadPixels(0, 0, SIDE, SIDE, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
    for (size_t i = 0; i < sizeof pixels; i += 4) {
        drawn += pixels[i] != 255 || pixels[i + 1] != 0 || pixels[i + 2] != 255;
        for (size_t channel = 0; channel < 3; ++channel) *sum = *sum * 33 + pixels[i + channel];
    }
    return drawn;
}

/* ---- Content ---- */

static K8Handle* load(const char* path, int16_t classId) {
    static unsigned char bytes[1 << 16];
    FILE* file = fopen(path, "rb");
    const size_t size = file ? fread(bytes, 1, sizeof bytes, file) : 0;
    if (file) fclose(file);
    K8Handle* handle = K8Loader_loadObject((int32_t)size, bytes, &host.head);
    memset(bytes, 0, sizeof bytes); /* nothing may refer to them afterwards */
    check(handle && handle->classId == classId, path);
    if (!handle) exit(1);
    return handle;
}

/* The figure comes with textures in an array of its own; the host gives it another one, with the same textures. */
static void exchangeTextures(K8Figure* figure) {
    const int liveBefore = host.live;
    K8FigureInfo info = *figure->info;
    info.loadedTextures = countedAlloc(&host.head, TEXTURES * (int32_t)sizeof *info.loadedTextures);
    memcpy(info.loadedTextures, K8Figure_getLoadedTextures(figure), TEXTURES * sizeof *info.loadedTextures);
    check(K8Figure_setTmpData(figure, &info), "the figure takes an array of textures");
    check(host.live == liveBefore, "and gives the one it had back");
}

static int drawFrame(K8Render* render, const K8RenderParams* params, K8Figure* figure, const K8Transform* place,
                     int32_t frame, unsigned long* sum) {
    K8FigureInfo info = *figure->info;
    info.frame = frame;
    check(K8Figure_setTmpData(figure, &info), "the figure takes a frame");
    glClear(GL_COLOR_BUFFER_BIT);
    check(K8Render_render3D(render, params, &figure->header, place), "queueing");
    check(K8Render_flush(render, 0, 0, SIDE, SIDE), "flushing");
    check(glGetError() == GL_NO_ERROR, "no error of OpenGL ES");
    return countDrawn(sum);
}

static void walk(K8Render* render, const K8RenderParams* params, K8Figure* figure, K8ActionTable* actions,
                 const K8Transform* place) {
    const int32_t middle = K8ActionTable_getMaxFrame(actions, 0) / 3;
    unsigned long first, later, again, empty;
    const int drawn = drawFrame(render, params, figure, place, 0, &first);
    check(drawn > SIDE * SIDE / 20 && drawn < SIDE * SIDE, "a penguin's share of the pixels is drawn");
    drawFrame(render, params, figure, place, middle, &later);
    check(later != first, "it moves");
    drawFrame(render, params, figure, place, 0, &again);
    check(again == first, "it comes back to where it was");

    const int callsBefore = host.calls, liveBefore = host.live, engineBefore = engineLive;
    for (int i = 0; i < 20; ++i) drawFrame(render, params, figure, place, middle * i / 20, &later);
    check(host.calls - callsBefore <= 20 * 3, "a frame allocates the arrays of lights and textures");
    check(host.live == liveBefore && engineLive == engineBefore, "and gives back what it allocated");

    glClear(GL_COLOR_BUFFER_BIT);
    check(K8Render_render3D(render, params, &figure->header, place), "queueing what is to be cleared");
    check(K8Render_clear3D(render) && K8Render_flush(render, 0, 0, SIDE, SIDE), "clearing the list");
    check(countDrawn(&empty) == 0, "nothing is left of it");
}

static K8Light* makeLight(int32_t mode, int32_t intensity, const K8LightInfo* info) {
    K8Light* light = K8Light_create(NULL, &host.head);
    K8Light_setMode(light, mode);
    K8Light_setIntensity(light, intensity);
    check(K8Light_setTmpData(light, info), "a light");
    return light;
}

int main(int argumentCount, char** arguments) {
    static const K8LightInfo everywhere = {{0, 0, 0}, {0, 0, 0}}, fromLeft = {{0, 0, 0}, {-2048, -2867, -2458}};
    static const int32_t position[] = {0, 11 * ONE, 46 * ONE}, look[] = {0, 0, -ONE}, up[] = {0, ONE, 0};
    if (argumentCount != 2) return 1;
    if (!openSurface()) {
        fprintf(stderr, "no OpenGL ES 1.1 context without a display\n");
        return SKIPPED;
    }
    MALK8_touchMA();
    engineFunctions = MALK8_malc.functions;
    MALK8_malc.functions = &watchedFunctions;

    K8Figure* figure = (K8Figure*)load(arguments[1], K8_CLASS_FIGURE);
    K8ActionTable* actions = K8Figure_getLoadedAction(figure);
    check(K8Figure_getLoadedNumTextures(figure) == TEXTURES, "two textures");
    check(K8ActionTable_getNumActions(actions) >= 3, "three actions");
    check(K8Figure_getNumPatterns(figure) >= 3, "three patterns");
    check(K8Figure_getNumBones(figure) >= 12, "twelve bones");
    check(K8Figure_canChangeAction(figure, actions), "the actions fit the figure");
    exchangeTextures(figure);

    K8Light* lights[LIGHTS] = {makeLight(K8_LIGHT_AMBIENT, ONE / 2, &everywhere),
                               makeLight(K8_LIGHT_DIRECTIONAL, ONE, &fromLeft)};
    K8Transform place;
    K8Transform_create(&place, &host.head);
    K8Transform_lookAt(&place, position, look, up);
    K8RenderParams params = {0};
    params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
    params.screenWidth = params.screenHeight = SIDE;
    params.nearDistance = 10 * ONE;
    params.farDistance = 100 * ONE;
    params.verticalAngle = 36 * ONE;
    params.lightCount = LIGHTS;
    params.lights = lights;

    K8Render* render = K8Render_create(NULL, &host.head);
    check(render && K8Render_bind(render, &place, SIDE, SIDE, SIDE, 0, 0, SIDE, SIDE), "binding to the surface");
    glClearColor(1, 0, 1, 1);
    walk(render, &params, figure, actions, &place);
    check(!K8Render_render3D(render, &params, &figure->info->loadedTextures[0]->header, NULL),
          "a texture cannot be queued");

    K8Render_destroy(render);
    for (int i = 0; i < TEXTURES; ++i) K8Object3D_destroy(&figure->info->loadedTextures[i]->header);
    K8Object3D_destroy(&actions->header);
    K8Object3D_destroy(&figure->header);
    for (int i = 0; i < LIGHTS; ++i) K8Object3D_destroy(&lights[i]->header);
    check(host.live == 0, "every block of the host's has come back");
    check(engineLive == 0, "and every one of the engine's");
    return failures != 0;
}
