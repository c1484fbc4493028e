/* The smallest whole host: loads a figure, lights it, plays its first action and writes some frames of it as one
 * picture, a strip from top to bottom. EGL draws into memory, so no display is needed.
 *     hello penguin.k8 walk.ppm */
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES/gl.h>
#include <k8.h>
#include <stdio.h>
#include <stdlib.h>

enum { WIDTH = 320, HEIGHT = 320, FRAMES = 4, NO_CONTEXT = 77 /* what test drivers take for skipped */ };
enum { AMBIENT, SUN, LIGHTS };

typedef struct Stage {
    K8Handle* content;
    K8Light* lights[LIGHTS];
    K8Transform view, sunTurn;
    K8Render* render;
} Stage;

static bool fail(const char* what) {
    const int32_t status = K8ErrStorage_getErrorStatus(); /* -1 unless the library failed */
    const char* why = status == K8_ERR_OUT_OF_MEMORY ? ": memory ran out" : status == K8_ERR_FAILURE ? ": refused" : "";
    fprintf(stderr, "hello: %s%s\n", what, why);
    return false;
}

/* ---- A surface in memory, with its context current ---- */

/* The display, or EGL_NO_DISPLAY. eglTerminate releases what was made with it. */
static EGLDisplay openSurface(void) {
    /* clang-format off */
    static const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES_BIT,
                                    EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_DEPTH_SIZE, 16, EGL_NONE};
    /* clang-format on */
    static const EGLint size[] = {EGL_WIDTH, WIDTH, EGL_HEIGHT, HEIGHT, EGL_NONE};
    static const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 1, EGL_NONE};
    PFNEGLGETPLATFORMDISPLAYEXTPROC getDisplay =
        (PFNEGLGETPLATFORMDISPLAYEXTPROC)eglGetProcAddress("eglGetPlatformDisplayEXT");
    EGLDisplay display =
        getDisplay ? getDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, NULL) : EGL_NO_DISPLAY;
    EGLConfig config;
    EGLint count = 0;
    if (display == EGL_NO_DISPLAY || !eglInitialize(display, NULL, NULL)) return EGL_NO_DISPLAY;
    if (eglChooseConfig(display, wanted, &config, 1, &count) && count > 0) {
        EGLSurface surface = eglCreatePbufferSurface(display, config, size);
        EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, version);
        if (surface && context && eglMakeCurrent(display, surface, surface, context)) return display;
    }
    eglTerminate(display);
    return EGL_NO_DISPLAY;
}

/* ---- Content ---- */

static K8Handle* load(const char* path) {
    FILE* file = fopen(path, "rb");
    if (!file) return NULL;
    fseek(file, 0, SEEK_END);
    const long size = ftell(file);
    rewind(file);
    void* bytes = size > 0 && size <= INT32_MAX ? malloc((size_t)size) : NULL;
    K8Handle* content = NULL;
    if (bytes && fread(bytes, 1, (size_t)size, file) == (size_t)size)
        content = K8Loader_loadObject((int32_t)size, bytes, &MALK8_malc);
    free(bytes); /* nothing refers to them */
    fclose(file);
    return content;
}

/* Everything that came with one load. Textures live in the OpenGL ES context: it must still be current. */
static void destroyContent(K8Handle* content) {
    if (content && (content->classId == K8_CLASS_GROUP || content->classId == K8_CLASS_SCENE_GROUP)) {
        for (K8Handle** other = ((K8Group*)content)->info->childData; *other; ++other) K8Object3D_destroy(*other);
    } else if (content && content->classId == K8_CLASS_FIGURE) {
        const K8FigureInfo* info = ((K8Figure*)content)->info;
        for (int i = 0; i < info->loadedTextureCount; ++i) {
            int first = 0; /* one texture may be listed several times */
            while (info->loadedTextures[first] != info->loadedTextures[i]) ++first;
            if (first == i) K8Texture_destroy(info->loadedTextures[i]);
        }
        K8ActionTable_destroy(info->loadedAction);
    }
    K8Object3D_destroy(content);
}

static K8Light* makeLight(int32_t mode, int32_t intensity, int32_t dx, int32_t dy, int32_t dz) {
    const K8LightInfo info = {.direction = {dx, dy, dz}};
    K8Light* light = K8Light_create(NULL, &MALK8_malc);
    K8Light_setMode(light, mode);
    K8Light_setIntensity(light, intensity);
    if (light && K8Light_setTmpData(light, &info)) return light;
    K8Light_destroy(light);
    return NULL;
}

static bool build(Stage* stage, const char* path) {
    stage->content = load(path);
    if (!stage->content) return fail("the file cannot be loaded");
    if (stage->content->classId != K8_CLASS_FIGURE) return fail("the file holds no figure");
    stage->lights[AMBIENT] = makeLight(K8_LIGHT_AMBIENT, K8_F(0.5), 0, 0, 0);
    stage->lights[SUN] = makeLight(K8_LIGHT_DIRECTIONAL, K8_F(0.9), K8_F(-0.5), K8_F(-0.7), K8_F(-0.6));
    if (!stage->lights[AMBIENT] || !stage->lights[SUN]) return fail("there is no light");
    stage->render = K8Render_create(NULL, &MALK8_malc);
    if (!stage->render || !K8Render_bind(stage->render, stage, WIDTH, HEIGHT, WIDTH, 0, 0, WIDTH, HEIGHT))
        return fail("there is no render context");

    const int32_t position[] = {K8_F(24), K8_F(24), K8_F(46)}, look[] = {K8_F(-24), K8_F(-12), K8_F(-46)};
    const int32_t up[] = {0, K8_ONE, 0};
    K8Transform_create(&stage->view, &MALK8_malc);
    K8Transform_lookAt(&stage->view, position, look, up);
    /* The sun's direction is one of the world: see K8RenderParams in k8.h. */
    K8Transform_createT(&stage->sunTurn, &MALK8_malc, stage->view.elements);
    if (!K8Transform_invert(&stage->sunTurn)) return fail("the view cannot be inverted");
    K8Transform_scale(&stage->sunTurn, K8_ONE, -K8_ONE, -K8_ONE);
    K8Transform_multiply(&stage->sunTurn, &stage->view);
    return true;
}

/* ---- Drawing ---- */

static bool drawFrame(Stage* stage, int32_t frame) {
    K8Figure* figure = (K8Figure*)stage->content;
    K8FigureInfo info = *figure->info;
    info.frame = frame;
    if (!K8Figure_setTmpData(figure, &info)) return fail("the figure takes no frame");

    K8Transform* lightTransforms[LIGHTS] = {[SUN] = &stage->sunTurn};
    const K8RenderParams params = {.projection = K8_PROJECTION_PERSPECTIVE_ANGLE,
                                   .screenWidth = WIDTH,
                                   .screenHeight = HEIGHT,
                                   .nearDistance = K8_F(10),
                                   .farDistance = K8_F(200),
                                   .verticalAngle = K8_F(36),
                                   .viewingTransform = &stage->view,
                                   .lightCount = LIGHTS,
                                   .lights = stage->lights,
                                   .lightTransforms = lightTransforms};
    glClearColor(0.75f, 0.85f, 0.95f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    return (K8Render_render3D(stage->render, &params, stage->content, NULL) &&
            K8Render_flush(stage->render, 0, 0, WIDTH, HEIGHT)) ||
           fail("the figure cannot be drawn");
}

static bool writeFrame(FILE* file) {
    static unsigned char pixels[HEIGHT][WIDTH][4];
    glReadPixels(0, 0, WIDTH, HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
    for (int y = HEIGHT - 1; y >= 0; --y) /* OpenGL ES reads the bottom row first */
        for (int x = 0; x < WIDTH; ++x)
            if (fwrite(pixels[y][x], 1, 3, file) != 3) return fail("the picture cannot be written");
    return true;
}

static bool play(Stage* stage, FILE* file) {
    const K8ActionTable* actions = K8Figure_getLoadedAction((K8Figure*)stage->content);
    const int32_t length = actions ? K8ActionTable_getMaxFrame(actions, 0) : 0;
    fprintf(file, "P6 %d %d 255\n", WIDTH, HEIGHT * FRAMES);
    for (int i = 0; i < FRAMES; ++i)
        if (!drawFrame(stage, length / FRAMES * i) || !writeFrame(file)) return false;
    return true;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: hello FIGURE.k8 PICTURE.ppm\n");
        return 2;
    }
    EGLDisplay display = openSurface();
    if (display == EGL_NO_DISPLAY) {
        fprintf(stderr, "hello: no OpenGL ES 1.1 context without a display (EGL error 0x%04X)\n",
                (unsigned)eglGetError());
        return NO_CONTEXT;
    }
    MALK8_touchMA();
    K8ErrStorage_setErrorStatus(-1); /* which no failure of the library stores */
    Stage stage = {0};
    bool done = build(&stage, argv[1]);
    FILE* file = done ? fopen(argv[2], "wb") : NULL;
    if (done && !file) done = fail("the picture cannot be made");
    if (file) {
        done = play(&stage, file);
        if (fclose(file) != 0 && done) done = fail("the picture cannot be written");
    }
    K8Render_destroy(stage.render); /* a member that was not made is null, and ignored */
    destroyContent(stage.content);
    for (int i = 0; i < LIGHTS; ++i) K8Light_destroy(stage.lights[i]);
    eglTerminate(display); /* last: nothing of the library's is left in the context */
    return done ? 0 : 1;
}
