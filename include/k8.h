/* K8: a real-time 3D engine for OpenGL ES 1.1. This header is the whole public interface, valid C99 and C++17.
 *
 * Two interfaces stand on one object engine:
 *   K8   functions over handles. A host hands content as byte buffers to K8Loader_loadObject, places the handles that
 *        come back, queues them with K8Render_render3D and draws them with K8Render_flush.
 *   qel  the engine's own reference-counted objects and float matrices, a subset of the JSR 184 object model.
 *
 * The library draws into the surface whose OpenGL ES 1.1 context is current on the calling thread. It opens no
 * files, windows or threads, reads no environment, and takes all memory from allocator objects.
 *
 * Numbers
 *   F number   signed 20.12 fixed point in an int32_t, 4096 is 1.0; the real number of the K8 interface; K8_F(1.5)
 *              makes one of a constant
 *   J number   a 32-bit IEEE float; the real number of the qel interface
 *   angle      1/4096 of a turn where it is called an integer angle, otherwise degrees
 *   frame      16.16 fixed point in an int32_t: the whole frame in the upper half; negative positions count as 0. Times
 *              of scenes are whole milliseconds instead
 *   colour     0xRRGGBB or 0xAARRGGBB
 *
 * Frames of reference
 *   The K8 frame has x to the right, y down and z away from the viewer; screen coordinates start at the top left.
 *   Matrices are row-major and multiply column vectors from the left: p' = M p.
 *
 * Errors
 *   A K8 function that fails returns null, false or 0 and stores an error status, which K8ErrStorage_getErrorStatus
 *   reads. The status is sticky: success never clears it, so look at it only after a failure. "Fails" below means:
 *   stores K8_ERR_FAILURE and returns the failure value. Running out of memory stores K8_ERR_OUT_OF_MEMORY instead.
 *   The status does not tell why content is refused; the k8 program does: `k8 check FILE`.
 *   qel functions return a result code or write one through a `result` pointer, which may not be null. Nor may the
 *   object that they work on, unless its function says so.
 *
 * Ownership
 *   A create or load function hands its result to the host, who gives it back with the matching destroy. A handle
 *   holds one reference to the engine object it wraps, and engine objects live as long as something refers to them.
 *   Unless a comment says otherwise pointer arguments are borrowed for the call.
 *   Textures, and scenes with textures in them, belong to the OpenGL ES context in which they were drawn: destroy them
 *   while it is current. In another context textures of that one may be deleted in their place; without any their
 *   memory stays with the context.
 *
 * Threads
 *   None are created and nothing is locked: use the library from one thread at a time, the one whose context is
 *   current. */
#ifndef K8_H
#define K8_H

#include <stdbool.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(K8_BUILD)
#define K8_API __declspec(dllexport)
#elif defined(K8_STATIC)
#define K8_API
#else
#define K8_API __declspec(dllimport)
#endif
#else
#define K8_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* 1.0 as an F number, and a number constant as one, cut toward zero. K8Math_J2F does so at run time. */
#define K8_ONE 4096
#define K8_F(x) ((int32_t)(K8_ONE * (x)))

/* ---- Error status ------------------------------------------------------------------------------------------------ */

enum {
    K8_ERR_FAILURE = 0,      /* invalid argument, wrong class, content that cannot be loaded or drawn */
    K8_ERR_OUT_OF_MEMORY = 1 /* an allocation failed, or texture memory is exhausted */
};

/* Result codes of qel functions. */
enum {
    QEL_STATUS_OK = 0,
    QEL_STATUS_ILLEGAL_ARGUMENT = 1,   /* an argument is out of range or incompatible */
    QEL_STATUS_NULL_POINTER = 2,       /* a required object or array is null */
    QEL_STATUS_INDEX_OUT_OF_RANGE = 3, /* an index is outside the valid range */
    QEL_STATUS_ILLEGAL_STATE = 4,      /* the object's state forbids the operation */
    QEL_STATUS_OUT_OF_MEMORY = 5,      /* an allocation failed */
    QEL_STATUS_ARITHMETIC = 6          /* impossible, for example inverting a singular matrix */
};

/* Stores the error status and returns it. To see whether anything failed since, store a value that no function does,
 * for example -1: the 0 of K8_ERR_FAILURE is also what the status is before any failure. */
K8_API int32_t K8ErrStorage_setErrorStatus(int32_t status);

/* The code of the most recent failure of a K8 function, 0 before the first. */
K8_API int32_t K8ErrStorage_getErrorStatus(void);

/* ---- Memory ------------------------------------------------------------------------------------------------------ */

typedef struct K8Allocator K8Allocator;

/* The operations of an allocator. Sizes are bytes; each operation receives the allocator object itself first, so
 * that a host can keep its own state behind the table pointer. */
typedef struct K8AllocatorFunctions {
    void *(*alloc)(K8Allocator *allocator, int32_t size); /* a block aligned for any object, or null */
    /* A null block is served like alloc. Returning null leaves the old block valid. */
    void *(*realloc)(K8Allocator *allocator, void *block, int32_t size);
    void (*free)(K8Allocator *allocator, void *block); /* ignores null */
} K8AllocatorFunctions;

/* An allocator is any structure that begins with this one. It must outlive every handle made with it. Blocks need
 * not be zeroed. */
struct K8Allocator {
    const K8AllocatorFunctions *functions;
};

/* The library's own allocator over the process heap. Its blocks come zero-filled and a negative size yields null;
 * bytes that a realloc adds are not cleared. Empty until the first MALK8_touchMA. The engine takes everything that
 * no handle owns from this object, through its table pointer: a host that wants to watch or limit the engine's
 * memory exchanges that pointer, after touching, while nothing is allocated. Blocks of its own alloc, and of realloc
 * for a null block, must then be zero-filled, too. */
K8_API extern K8Allocator MALK8_malc;

/* Makes MALK8_malc usable. Call it once before passing &MALK8_malc to a create function; later calls do nothing. */
K8_API void MALK8_touchMA(void);

/* ---- Engine objects ---------------------------------------------------------------------------------------------- */

/* Engine objects are opaque here. They come with handles, mostly from K8Loader_loadObject, and are reached as the
 * `object` of a handle: to be looked at (class ids, the parts of a mesh, poses of actions), for picking, and with the
 * matrices that this takes. No function builds a mesh; geometry of the host's own goes into K8Primitive handles.
 * qelObject3D is the base of all the others: a pointer to one may be cast to qelObject3D *. */
typedef struct qelObject3D qelObject3D;
typedef struct qelActTable qelActTable;
typedef struct qelFigureMesh qelFigureMesh; /* also a qelMesh */
typedef struct qelMesh qelMesh;
typedef struct qelMorphingMesh qelMorphingMesh; /* also a qelMesh */
typedef struct qelSkinnedMesh qelSkinnedMesh;   /* also a qelMesh; a qelFigureMesh is one */
typedef struct qelVertexArray qelVertexArray;
typedef struct qelVertexBuffer qelVertexBuffer;
typedef struct qelAppearance qelAppearance;
typedef struct qelCompositingMode qelCompositingMode;
typedef struct qelMaterial qelMaterial;

/* Class ids of engine objects, as qelObject3D_getClassID returns them. */
enum {
    QEL_CLASS_ACT_TABLE = 0,
    QEL_CLASS_FIGURE_MESH = 1,
    QEL_CLASS_ANIMATION_CONTROLLER = 2,
    QEL_CLASS_ANIMATION_TRACK = 3,
    QEL_CLASS_APPEARANCE = 4,
    QEL_CLASS_BACKGROUND = 5,
    QEL_CLASS_CAMERA = 6,
    QEL_CLASS_COMPOSITING_MODE = 7,
    QEL_CLASS_FOG = 8,
    QEL_CLASS_GROUP = 10,
    QEL_CLASS_IMAGE2D = 11,
    QEL_CLASS_KEYFRAME_SEQUENCE = 12,
    QEL_CLASS_LIGHT = 13,
    QEL_CLASS_MATERIAL = 14,
    QEL_CLASS_MESH = 15,
    QEL_CLASS_MORPHING_MESH = 16,
    QEL_CLASS_NODE = 17,
    QEL_CLASS_OBJECT3D = 18,
    QEL_CLASS_POLYGON_MODE = 19,
    QEL_CLASS_SKINNED_MESH = 20,
    QEL_CLASS_SPRITE3D = 21,
    QEL_CLASS_TEXTURE2D = 22,
    QEL_CLASS_TRIANGLE_STRIP_ARRAY = 24,
    QEL_CLASS_VERTEX_ARRAY = 25,
    QEL_CLASS_VERTEX_BUFFER = 26,
    QEL_CLASS_WORLD = 27
};

/* The object's class id. The object must not be null. */
K8_API uint32_t qelObject3D_getClassID(const qelObject3D *object);

/* Adds a reference and returns the object; null is returned unchanged. */
K8_API qelObject3D *qelObject3D_ref(qelObject3D *object);

/* Gives a reference back; the last one destroys the object and what only it refers to. Ignores null. */
K8_API void qelObject3D_unref(qelObject3D *object);

/* ---- Handles ----------------------------------------------------------------------------------------------------- */

/* Class ids of handles. */
enum {
    K8_CLASS_ACTION_TABLE = 1, /* K8ActionTable */
    K8_CLASS_FIGURE = 2,       /* K8Figure */
    K8_CLASS_TEXTURE = 3,      /* K8Texture */
    K8_CLASS_FOG = 4,          /* K8Fog */
    K8_CLASS_LIGHT = 5,        /* K8Light */
    K8_CLASS_PRIMITIVE = 6,    /* K8Primitive */
    K8_CLASS_GROUP = 7,        /* K8Group */
    K8_CLASS_SCENE_GROUP = 8   /* a K8Group that wraps a loaded scene */
};

/* Every handle begins with this header. The structures are declared whole so that a host may provide their memory;
 * it reads members but changes them only through functions. */
typedef struct K8Handle {
    qelObject3D *object;    /* the engine object the handle wraps, one reference; null while nothing is attached */
    int16_t classId;        /* K8_CLASS_... */
    K8Allocator *allocator; /* given at creation; also serves the blocks hanging off the handle */
    void *ownBlock;         /* the handle's own address when a create function allocated it, else null */
} K8Handle;

/* The life of every handle family below:
 *   create (memory, allocator)   builds the handle in `memory` (borrowed until destroy; may be uninitialised) or, when
 *                                that is null, in a block of the allocator. Returns null when the allocator is null or
 *                                memory runs out
 *   destroy (handle)             releases the loaded info, the reference to the wrapped object and, if create allocated
 *                                it, the handle; a handle in host memory is left zeroed. Ignores null
 *   setTmpData (handle, info)    copies the host's record into the handle's own ("loaded info"), allocating it on first
 *                                use. Returns false for null arguments and when memory runs out
 *   clearTmpData (handle)        releases the loaded info and the arrays it owns. Ignores null and handles without
 *                                loaded info
 *   clearLoadedInfo (handle)     releases the arrays and zeroes the record but keeps it
 * All functions of a family take a handle of another one, such as the loader makes of bytes that hold something else
 * than was hoped for, as null; destroy destroys it as what it is. */

/* The handle's class id; null fails with 0. */
K8_API int32_t K8Object3D_getClassId(const K8Handle *handle);

/* Destroys a handle of any family. Ignores null and unknown class ids. */
K8_API void K8Object3D_destroy(K8Handle *handle);

/* The member `frame` in the loaded info of a figure or group, 0 when it has none or for the other families; null and
 * unknown class ids fail with 0. */
K8_API int32_t K8Object3D_getTime(const K8Handle *handle);

/* ---- Action tables: the animations of a figure ------------------------------------------------------------------- */

typedef struct K8ActionTable {
    K8Handle header; /* wraps a qelActTable */
} K8ActionTable;

K8_API K8ActionTable *K8ActionTable_create(K8ActionTable *memory, K8Allocator *allocator);
K8_API void K8ActionTable_destroy(K8ActionTable *handle);

/* The number of actions; 1 for a handle without object; null fails with 0. */
K8_API int32_t K8ActionTable_getNumActions(const K8ActionTable *handle);

/* The length of an action as a frame position (whole frames in the upper 16 bits); 0 for an action that does not
 * exist, 2147483647 for a handle without object; null fails with 0. */
K8_API int32_t K8ActionTable_getMaxFrame(const K8ActionTable *handle, int32_t action);

/* ---- Textures ---------------------------------------------------------------------------------------------------- */

typedef struct K8Texture K8Texture;

typedef struct K8TextureInfo {
    uint8_t hasSecondMap; /* 1: `secondMap` is added on texture unit 1 */
    int16_t textureMode;  /* 1: the texture replaces the lit colour; anything else: it modulates it */
    K8Texture *secondMap; /* not owned */
} K8TextureInfo;

struct K8Texture {
    K8Handle header; /* wraps a Texture2D */
    K8TextureInfo *info;
    uint8_t keepsBlending; /* set by the loader on textures of a scene: only figures that wrap a qelFigureMesh change
                            * their blending */
};

K8_API K8Texture *K8Texture_create(K8Texture *memory, K8Allocator *allocator);

/* Call it while the OpenGL ES context in which the texture was drawn is current. */
K8_API void K8Texture_destroy(K8Texture *handle);

/* Copies the record, overwriting an existing one. The second map stays the host's. */
K8_API bool K8Texture_setTmpData(K8Texture *handle, const K8TextureInfo *info);
K8_API void K8Texture_clearTmpData(K8Texture *handle);

/* ---- Figures: animated models ------------------------------------------------------------------------------------ */

/* Blend modes of figures and primitives. */
enum {
    K8_BLEND_NONE = 0,
    K8_BLEND_ALPHA = 32,   /* source alpha over destination */
    K8_BLEND_ADDITIVE = 64 /* source added to destination, weighted by its alpha but in points, lines and sprites */
};

/* To animate a figure, hand it a changed copy of its info:
 *   K8FigureInfo info = *figure->info;
 *   info.frame = position;
 *   K8Figure_setTmpData(figure, &info);
 * Textures and actions that were loaded by themselves are attached in the same way, through the figure's allocator a:
 *   info.loadedTextures = a->functions->alloc(a, 2 * sizeof *info.loadedTextures);
 *   info.loadedTextures[0] = skin, info.loadedTextures[1] = clothes, info.loadedTextureCount = 2;
 *   info.loadedAction = table; */
typedef struct K8FigureInfo {
    int32_t frame;                 /* frame position at which the figure is posed when drawn. Behind the end of the
                                    * action its last pose holds: what repeats takes the position modulo
                                    * K8ActionTable_getMaxFrame. Milliseconds for a mesh of a scene */
    uint8_t perspectiveCorrection; /* 1: ask for perspective-correct texturing */
    int16_t blendMode;             /* K8_BLEND_... */
    int32_t transparency;          /* opacity in percent, F number (409600 is opaque); counts where something blends */
    uint8_t canChangeTextures;
    uint32_t action;             /* bits 0-30: the action to pose; one that does not exist leaves the last pose. Bit
                                  * 31: draw `pattern`, not the action's patterns */
    uint32_t pattern;            /* the mask as K8Figure_setPattern stores it: the host's mask shifted left by one */
    uint16_t loadedTextureCount; /* entries of `loadedTextures` */
    K8Texture **loadedTextures;  /* owned array, through the handle's allocator; the textures in it are not owned.
                                   * Texture j of the figure's polygons is drawn with entry j */
    uint8_t canChangeAction;
    K8ActionTable *loadedAction; /* whose action is posed; not owned; null leaves the figure in its last pose */
    uint16_t *textureIndices;    /* owned array, used while a package loads; null otherwise */
} K8FigureInfo;

typedef struct K8Figure {
    K8Handle header; /* wraps a qelFigureMesh, or a mesh of a loaded scene */
    K8FigureInfo *info;
} K8Figure;

K8_API K8Figure *K8Figure_create(K8Figure *memory, K8Allocator *allocator);
K8_API void K8Figure_destroy(K8Figure *handle);

/* Copies every member, after releasing the arrays of an existing record that the new one does not name again. The
 * figure then owns `loadedTextures` and `textureIndices`, which must come from its allocator. */
K8_API bool K8Figure_setTmpData(K8Figure *handle, const K8FigureInfo *info);
K8_API void K8Figure_clearTmpData(K8Figure *handle);
K8_API void K8Figure_clearLoadedInfo(K8Figure *handle);

/* Members of the loaded info; a null handle or one without loaded info fails with 0. */
K8_API int32_t K8Figure_getLoadedNumTextures(const K8Figure *handle);
K8_API K8Texture **K8Figure_getLoadedTextures(const K8Figure *handle);
K8_API K8ActionTable *K8Figure_getLoadedAction(const K8Figure *handle);
K8_API int32_t K8Figure_canChangeLoadedAction(const K8Figure *handle);
K8_API int32_t K8Figure_canChangeLoadedTextures(const K8Figure *handle);

/* True when the action table can animate the figure: the figure wraps a qelFigureMesh, not a mesh of a scene. Fails
 * with false when a handle or its object is null. */
K8_API bool K8Figure_canChangeAction(const K8Figure *figure, const K8ActionTable *actionTable);

/* The number of patterns (polygon groups that can be switched), 1 for a mesh of a scene; a null handle or one
 * without object fails with 0. */
K8_API int32_t K8Figure_getNumPatterns(const K8Figure *handle);

/* Chooses which patterns are drawn while bit 31 of the info's `action` is set.
 * pattern   bit k shows pattern k + 1; pattern 0 is always drawn. Kept shifted left by one, so bit 31 is lost
 * Returns true when the pattern was taken; a figure that wraps a mesh of a scene takes only what shifts to 0. Fails
 * with false for a null handle, a handle without object, and a qelFigureMesh without loaded info; nothing is changed
 * then. Allocates nothing. */
K8_API bool K8Figure_setPattern(K8Figure *handle, uint32_t pattern);

/* The number of bones; 0 for null and for anything that is not a qelFigureMesh. */
K8_API int32_t K8Figure_getNumBones(const K8Figure *handle);

/* ---- Transforms of the K8 interface ------------------------------------------------------------------------------ */

/* A 4x4 float matrix, row-major: element 4 r + c is row r, column c; the translation is in elements 3, 7 and 11.
 * Arguments of its functions are F numbers unless they are elements. Has no handle header. */
typedef struct K8Transform {
    float elements[16];
    K8Allocator *allocator;
    void *ownBlock; /* the structure's own address when K8Transform_create allocated it, else null */
} K8Transform;

/* An identity transform, in `memory` or in a block of the allocator. Null for a null allocator (K8_ERR_FAILURE) or
 * when memory runs out. */
K8_API K8Transform *K8Transform_create(K8Transform *memory, K8Allocator *allocator);

/* The same with the 16 given elements; null elements give the identity. */
K8_API K8Transform *K8Transform_createT(K8Transform *memory, K8Allocator *allocator, const float *elements);

/* Zeroes the elements and frees the block if create allocated it. Ignores null. */
K8_API void K8Transform_destroy(K8Transform *transform);

/* All functions below ignore a null transform. */
K8_API void K8Transform_setIdentity(K8Transform *transform);
K8_API void K8Transform_set(K8Transform *transform, const float *elements);    /* null elements: identity */
K8_API void K8Transform_setAll(K8Transform *transform, const float *elements); /* null elements: no change */
K8_API void K8Transform_getAll(const K8Transform *transform, float *out);
/* An index outside 0..15 is ignored, and reads as 0, like a null transform. */
K8_API void K8Transform_setElement(K8Transform *transform, int32_t index, float value);
K8_API float K8Transform_getElement(const K8Transform *transform, int32_t index);

/* Replaces the matrix by its inverse. Fails with false for null and for a singular matrix, which stays as it was. */
K8_API bool K8Transform_invert(K8Transform *transform);
K8_API void K8Transform_transpose(K8Transform *transform);

/* a = a b. Ignored unless both are given. */
K8_API void K8Transform_multiply(K8Transform *a, const K8Transform *b);

/* t = t S, t = t R (axis and degrees), t = t R (quaternion), t = t T; all arguments are F numbers. A zero axis or
 * quaternion rotates nothing. */
K8_API void K8Transform_scale(K8Transform *transform, int32_t sx, int32_t sy, int32_t sz);
K8_API void K8Transform_rotate(K8Transform *transform, int32_t x, int32_t y, int32_t z, int32_t degrees);
K8_API void K8Transform_rotateQuat(K8Transform *transform, int32_t qx, int32_t qy, int32_t qz, int32_t qw);
K8_API void K8Transform_translate(K8Transform *transform, int32_t tx, int32_t ty, int32_t tz);

/* Makes a viewing transform: the viewer stands at `position` and looks along the direction `look`, with `up` upwards
 * on the screen. F vectors of three; look and up need no unit length. The result maps the world into the y-down,
 * z-forward K8 frame; elements 12 to 15 stay. */
K8_API void K8Transform_lookAt(K8Transform *transform, const int32_t *position, const int32_t *look, const int32_t *up);

/* out = rows 0 to 2 of the matrix, as F numbers, applied to (v, 1). F vectors of three; out may be v. */
K8_API void K8Transform_transVector(const K8Transform *transform, const int32_t *v, int32_t *out);

/* ---- Groups ------------------------------------------------------------------------------------------------------ */

typedef struct K8GroupInfo {
    int32_t frame;             /* of a scene: its time in whole milliseconds, no 16.16 number. Other groups carry it */
    K8Transform *transform;    /* applied to the children; may be null. Owned on groups that the loader made, else the
                                * host's */
    uint16_t childHandleCount; /* entries of `childHandles` */
    K8Handle **childHandles;   /* owned array, through the handle's allocator; the children in it are not owned. The
                                * same group may be a child several times */
    K8Handle **childData;      /* owned array that the loader attaches to the root of what it made: every other
                                * handle of the load, null-terminated; null on the other groups. To dispose of a
                                * loaded tree, destroy each of them and then the root */
    uint8_t flag;              /* 1 on groups that the loader made; carried */
} K8GroupInfo;

typedef struct K8Group {
    K8Handle header; /* K8_CLASS_GROUP wraps nothing, K8_CLASS_SCENE_GROUP a loaded scene */
    K8GroupInfo *info;
} K8Group;

K8_API K8Group *K8Group_create(K8Group *memory, K8Allocator *allocator);
K8_API void K8Group_destroy(K8Group *handle);

/* Copies every member, after releasing what an existing record owns and the new one does not name again. The group
 * then owns `childHandles` and `childData`, which must come from its allocator. A transform that takes the place of a
 * loaded one stays the host's. */
K8_API bool K8Group_setTmpData(K8Group *handle, const K8GroupInfo *info);
K8_API void K8Group_clearTmpData(K8Group *handle);
K8_API void K8Group_clearLoadedInfo(K8Group *handle);

/* ---- Lights ------------------------------------------------------------------------------------------------------ */

enum { K8_LIGHT_AMBIENT = 128, K8_LIGHT_DIRECTIONAL = 129, K8_LIGHT_OMNI = 130, K8_LIGHT_SPOT = 131 };

/* Where a light stands and which way it shines. F numbers, in the frame that the light's transforms start from: those
 * of the parameter block, or of the groups that it is in. After them the axes are OpenGL's: y up and z towards the
 * viewer, not turned like the drawn objects are. A light that shines along the view, away from the viewer, has the
 * direction (0, 0, -4096). A zero direction counts as that default. The viewing transform is one of the transforms, for
 * lights of the block as for those in groups: K8RenderParams tells how to give a light that stands in the world. */
typedef struct K8LightInfo {
    int32_t position[3];
    int32_t direction[3];
} K8LightInfo;

typedef struct K8Light {
    K8Handle header; /* wraps a Light: directional, white, intensity 1.0 */
    K8LightInfo *info;
} K8Light;

K8_API K8Light *K8Light_create(K8Light *memory, K8Allocator *allocator);
K8_API void K8Light_destroy(K8Light *handle);

/* Copies the record, overwriting an existing one. A light must have one before it is used to draw. */
K8_API bool K8Light_setTmpData(K8Light *handle, const K8LightInfo *info);
K8_API void K8Light_clearTmpData(K8Light *handle);

/* Setters ignore null handles, handles without object and values out of range; they store no error. */
K8_API void K8Light_setMode(K8Light *handle, int32_t mode);             /* K8_LIGHT_... */
K8_API void K8Light_setIntensity(K8Light *handle, int32_t intensity);   /* F number, any value */
K8_API void K8Light_setColor(K8Light *handle, uint32_t color);          /* 0xRRGGBB */
K8_API void K8Light_setSpotAngle(K8Light *handle, int32_t degrees);     /* F number, 0..90 */
K8_API void K8Light_setSpotExponent(K8Light *handle, int32_t exponent); /* F number, 0..128 */

/* The divisor of an omni or spot light's intensity, constant + linear d + quadratic d^2, as F numbers. A negative
 * factor is ignored with the others; three zeros become 0.0001 each. */
K8_API void K8Light_setAttenuation(K8Light *handle, int32_t constant, int32_t linear, int32_t quadratic);

/* ---- Fog --------------------------------------------------------------------------------------------------------- */

enum { K8_FOG_EXPONENTIAL = 80, K8_FOG_LINEAR = 81 };

typedef struct K8Fog {
    K8Handle header; /* wraps a Fog: linear, black, from 0 to 1.0 */
} K8Fog;

K8_API K8Fog *K8Fog_create(K8Fog *memory, K8Allocator *allocator);
K8_API void K8Fog_destroy(K8Fog *handle);

/* Setters ignore null handles, handles without object and values out of range; they store no error. */
K8_API void K8Fog_setMode(K8Fog *handle, int32_t mode);                                /* K8_FOG_... */
K8_API void K8Fog_setLinear(K8Fog *handle, int32_t nearDistance, int32_t farDistance); /* F numbers, view distances */
K8_API void K8Fog_setDensity(K8Fog *handle, int32_t density);                          /* F number, not negative */
K8_API void K8Fog_setColor(K8Fog *handle, uint32_t color);                             /* 0xRRGGBB */

/* ---- Primitives: geometry that the host gives -------------------------------------------------------------------- */

/* A primitive is a set of points, lines, sprites (rectangles that face the viewer), triangles or quadrilaterals.
 *   triangles, quadrilaterals   Meshes, drawn in turn with figures and seen from both sides. The corners of a
 *                               quadrilateral go round. Without colours or texture white; lit, in those colours,
 *                               when normals are given. A texture modulates or replaces as its info says; without a
 *                               texture, texture coordinates change nothing
 *   points, lines               Always coloured, never lit
 *   sprites                     White or textured, never lit, seen from the front: of one negative side they are not.
 *                               A texture that sprites show is neither repeated nor filtered from then on
 * A texture of a loaded scene is better not shared with primitives or figure models: they give it a scale of their own
 * for good.
 * Points, lines and sprites come after everything else of the flush, with a depth buffer of their own: nothing but
 * each other hides them. */

/* Primitive types; also accepted as type << 24. */
enum { K8_PRIM_POINTS = 1, K8_PRIM_LINES = 2, K8_PRIM_TRIANGLES = 3, K8_PRIM_QUADS = 4, K8_PRIM_SPRITES = 5 };

/* Mode bits of a primitive: what its value arrays hold. At most one of each group; a group may go without, except for
 * the colours of points and lines and the records of sprites. */
enum {
    /* triangles and quadrilaterals */
    K8_PRIM_NORMAL_PER_PRIMITIVE = 0x200,
    K8_PRIM_NORMAL_PER_VERTEX = 0x300,
    /* all but sprites; not together with texture coordinates */
    K8_PRIM_COLOR_PER_SET = 0x400, /* one for all */
    K8_PRIM_COLOR_PER_PRIMITIVE = 0x800,
    /* sprites */
    K8_PRIM_SPRITE_PER_SET = 0x1000, /* one record for all */
    K8_PRIM_SPRITE_PER_PRIMITIVE = 0x3000,
    /* triangles and quadrilaterals */
    K8_PRIM_TEXTURE_PER_VERTEX = 0x3000,
    /* triangles, quadrilaterals, sprites */
    K8_PRIM_ALPHA_TEST = 0x10 /* leave out texels of alpha 0 */
};

/* Kinds of value arrays.
 * Triangles and quadrilaterals stand where their F numbers say: to 1/4096 in a set that is less than 16 units across,
 * to 2/4096 in one of less than 32 units, and so on; texture coordinates likewise.
 * Points, lines and sprites count in whole units and texels, -32768 to 32767. F numbers are rounded down to them, and
 * sprites stand on whole units before the viewer, too. */
enum {
    K8_PRIM_POSITIONS = 0,      /* x, y, z per vertex, F numbers; of a sprite its centre */
    K8_PRIM_NORMALS = 1,        /* x, y, z, F numbers of any length */
    K8_PRIM_COLORS = 2,         /* 0xRRGGBB */
    K8_PRIM_TEXTURE_COORDS = 3, /* s, t per vertex in texels, F numbers */
    K8_PRIM_SPRITE_PARAMS = 4   /* records of 8: width, height (F), rotation (1/4096 turn), the top left and the bottom
                                 * right corner in the texture s0, t0, s1, t1 (F texels; t counts parts of the width,
                                 * too, so textures should be square), K8_SPRITE_... flags */
};

/* Flags of a sprite record. Without any, the size is in the units of positions. */
enum {
    K8_SPRITE_IN_PIXELS = 1,   /* in pixels; under a perspective projection those of a sprite at nearDistance */
    K8_SPRITE_AT_OWN_DEPTH = 2 /* with the other, under a perspective projection: at any distance */
};

typedef struct K8PrimitiveInfo {
    uint8_t perspectiveCorrection; /* 1: ask for perspective-correct texturing */
    int16_t blendMode;             /* K8_BLEND_...; K8_BLEND_ALPHA is half transparent */
    int32_t size;                  /* opacity of points, lines and sprites that blend, F number: at 0 they are hidden,
                                    * with K8_BLEND_ADDITIVE up to 50.0. It makes nothing larger or smaller */
    uint8_t reserved;              /* carried, not read */
    K8Texture *texture;            /* not owned; may be null */
    uint32_t type;                 /* K8_PRIM_... */
    uint32_t params;               /* mode bits */
    uint32_t primitiveCount;       /* drawing goes by the number of positions */
    uint32_t counts[5];            /* values in each array: whole primitives, all arrays for as many as there are
                                    * positions of. Drawing a primitive with shorter arrays fails */
    int32_t *values[5];            /* owned arrays, through the handle's allocator; one may serve several kinds */
} K8PrimitiveInfo;

typedef struct K8Primitive {
    K8Handle header; /* wraps nothing */
    K8PrimitiveInfo *info;
} K8Primitive;

K8_API K8Primitive *K8Primitive_create(K8Primitive *memory, K8Allocator *allocator);
K8_API void K8Primitive_destroy(K8Primitive *handle);

/* Copies every member, after releasing the arrays of an existing record that the new one does not name again. The
 * primitive then owns the five arrays, which must come from its allocator. */
K8_API bool K8Primitive_setTmpData(K8Primitive *handle, const K8PrimitiveInfo *info);
K8_API void K8Primitive_clearTmpData(K8Primitive *handle);

/* Releases the five arrays and forgets the texture; the other members keep their values. */
K8_API void K8Primitive_clearLoadedInfo(K8Primitive *handle);

/* Whether a type may have these mode bits: 0 if so; otherwise fails with a code
 *   1 unknown type                                     6 sprites without sprite parameters
 *   2 points and lines: not exactly coloured           7 normals 0x100
 *   3 triangles, quadrilaterals: colour and texture    8 colours 0xC00
 *   4 params is 0x1000 alone                           9 texture 0x1000 or 0x2000
 *   5 sprites: a bit they do not know                 10 sprites: texture 0x2000 */
K8_API int32_t K8Primitive_checkValues(uint32_t type, uint32_t params);

/* How many 32-bit values array `kind` needs per primitive; -n means n values for the whole set. Fails with 0 for an
 * unknown kind and for what K8Primitive_checkValues rejects. */
K8_API int32_t K8Primitive_getLength(uint32_t type, uint32_t params, int32_t kind);

/* ---- Loading ----------------------------------------------------------------------------------------------------- */

/* Loads content from memory and returns the handle that wraps it, which belongs to the host:
 *   "MB" figure model     a K8Figure with loaded info: frame 0, opaque, no textures, no action; both canChange...
 *                         members 1
 *   "MT" action table     a K8ActionTable
 *   "BM" BMP image        a K8Texture with loaded info of zeros. 8-bit palette or 24-bit, uncompressed, at most 256 x
 *                         256. An image whose sides are not both powers of two is padded with zeros to a square that
 *                         is; palette index 0 becomes transparent
 *   "K8" package          either several objects, figures with their textures and action tables, lights, fogs and
 *                         primitives, and groups over them: the first group, or without groups the first object. Or a
 *                         JSR 184 scene: a K8Group of class K8_CLASS_SCENE_GROUP
 * Everything a package holds belongs to the host, who disposes of it handle by handle:
 *   a group               destroy every handle in its info's `childData`, then the group. The list is complete: groups
 *                         and objects that are not below the root are in it as well
 *   a figure              destroy the textures in `loadedTextures`, each once, where a place may be empty and a texture
 *                         may have several, then `loadedAction`, if there is one, and the figure. Objects that a first
 *                         object does not use are not kept
 *   anything else         destroy the handle
 * Figures of a package are opaque and unposed like single ones; K8Figure_getLoadedTextures and
 * K8Figure_getLoadedAction give what belongs to them. Groups that contain each other in a circle are not accepted.
 * A scene is accepted when one object, a World, is left that no other object refers to. Its handles stand for the nodes
 * below: groups of class K8_CLASS_SCENE_GROUP without `transform`, lights placed as in the World, and meshes as figures
 * with a texture for every submesh that has one on unit 0, in order and at most 64 with their second maps. Other nodes
 * have none. Images without pixels are at most 2048 x 2048; these, mipmaps and deformed vertices take at most 16 MiB
 * and 16 times the size of the file together. Nor is any other content accepted that would take memory or time, at
 * once or in each frame, out of all proportion to its size.
 * size        bytes of data
 * data        borrowed; nothing refers to it afterwards
 * allocator   for the handle and its records
 * Returns null and stores an error status when an argument is null or 0, when the content is not accepted, or when
 * memory runs out; nothing is left allocated then. */
K8_API K8Handle *K8Loader_loadObject(int32_t size, const void *data, K8Allocator *allocator);

/* ---- Drawing ----------------------------------------------------------------------------------------------------- */

/* Projections of K8RenderParams. */
enum {
    K8_PROJECTION_PARALLEL = 1,         /* one unit is one pixel; the screen's centre is the origin */
    K8_PROJECTION_PERSPECTIVE_SIZE = 2, /* the screen, in units, lies in the near plane */
    K8_PROJECTION_PERSPECTIVE_ANGLE = 3 /* from the vertical opening angle */
};

/* How a call of K8Render_render3D is seen and lit. Members that make no projection (another kind, a size, near or far
 * distance that is not above 0, an angle out of range) leave the camera as the item before left it.
 * Light i is placed by V T P, with V the viewing transform, T its light transform and P its position and direction. Of
 * what is drawn the y and z axes are turned after that, of lights they are not. So position and direction are those of
 * the world that V looks at where T is V^-1 S V, with S the scale (1, -1, -1):
 *   K8Transform_createT(&t, allocator, v->elements);
 *   K8Transform_invert(&t);
 *   K8Transform_scale(&t, K8_ONE, -K8_ONE, -K8_ONE);
 *   K8Transform_multiply(&t, v);
 * T changes with V. A group with this transform, queued without another, does the same for the lights in it. */
typedef struct K8RenderParams {
    int16_t projection;   /* K8_PROJECTION_... */
    uint16_t screenWidth; /* pixels */
    uint16_t screenHeight;
    int32_t nearDistance; /* F numbers, along the view, not equal; perspective projections only */
    int32_t farDistance;
    int32_t verticalAngle;         /* F number, degrees in (0, 180); K8_PROJECTION_PERSPECTIVE_ANGLE only. For points,
                                    * lines and sprites the opening over the width of the surface */
    K8Transform *viewingTransform; /* world to view, for example from K8Transform_lookAt; null: identity */
    uint16_t lightCount;           /* only the first K8Render_getMaxLights() count */
    K8Light **lights;              /* each with loaded info. Without any, what is lit is black: see K8Render_render3D */
    K8Transform **lightTransforms; /* one entry per light, which may be null; the array itself may be null. `transform`
                                    * of K8Render_render3D does not place these lights */
    K8Fog *fog;                    /* for objects that bring no fog of their own; may be null */
} K8RenderParams;

typedef struct K8RenderContext K8RenderContext;

enum { K8_RENDER_CONTEXT_SIZE = 8192 }; /* bytes that are enough for a K8RenderContext on every target */

/* A render context: a draw list, and the surface it goes to. Calling order: create, bind, then any number of
 * render3D followed by flush or clear3D, again and again; destroy. */
typedef struct K8Render {
    K8Handle header; /* class id 0; `object` is non-null while bound */
    K8RenderContext *context;
} K8Render;

/* Makes an unbound context. Needs no current OpenGL ES context. Null for a null allocator or when memory runs out.
 * memory   null, or the host's memory for the handle, of which only the member `context` is read: null, or the host's
 *          block of K8_RENDER_CONTEXT_SIZE bytes, aligned for any object, for what the context keeps */
K8_API K8Render *K8Render_create(K8Render *memory, K8Allocator *allocator);

/* Discards the list and releases everything. Call it while the OpenGL ES context is still current. Ignores null. */
K8_API void K8Render_destroy(K8Render *handle);

/* Binds the context to the current surface. Call it again when the surface or the rectangle changes.
 * target         any non-null pointer that names the surface for the host; only stored
 * width, height  of the surface in pixels, 1 to 2048
 * bufferWidth    pixels per row of the surface's buffer; what is less than width, or more than 2048, counts as width
 * x, y, w, h     the part of the surface that may be drawn to
 * Fails with false for a null handle or target or a size out of these bounds; also when memory runs out. The context
 * stays as it was then, unbound or bound. */
K8_API bool K8Render_bind(K8Render *handle, void *target, int32_t width, int32_t height, int32_t bufferWidth, int32_t x,
                          int32_t y, int32_t w, int32_t h);

/* Queues an object for the next flush. Everything needed is copied: the host may change or destroy its handles
 * afterwards.
 * object      a figure, a primitive, a group or a scene group
 * transform   object to world; null: identity. Figure vertices are in 1/64 of a unit
 * What is lit comes out black without a light, but for what a material emits: polygons of a figure that are made to be
 * lit, primitives with normals, meshes of a scene with a material. An ambient light is enough to see the first two.
 * A group is walked depth first. Each of its figures and primitives becomes an item of the list, placed by the
 * transforms above it; a group that several groups contain is drawn in each. Null children and handles of other
 * families are passed over, but
 *   lights   light the whole call, next to those of the block. The viewing transform, `transform` and the transforms of
 *            the groups above them place them. Of more lights than K8Render_getMaxLights() the deepest in the tree are
 *            left out, those of the block never. A light without loaded info is passed over
 *   fog      is the fog of the whole call, before that of the block. Of several the nearest to the root counts, and the
 *            first of those
 * The whole group is queued or nothing of it.
 * A scene group becomes one item: its scene is animated to the group's frame position, counted as milliseconds of world
 * time, and drawn as its author made it, with what the handles below the group say in place of that:
 *   figures    figure k of the group, depth first, stands for mesh k of the scene in the same order, as the loader made
 *              them; a skinned mesh has the meshes of its skeleton with it. Its blend mode, transparency (on top of the
 *              mesh's own, unless that is animated) and perspective correction count; its frame, action and pattern do
 *              not
 *   textures   what the figures list in `loadedTextures` takes the places of the scene's textures in the same order;
 *              where too few are listed, white does. Of an 8-bit image loaded as a K8 texture only the image is
 *              exchanged, the settings and the animation of the scene's texture stay
 *              Submeshes that share an appearance, or components of it, share what is set last
 *   lights     the handles count; the scene's own light nodes are taken out of the scene
 *   fog        that of the call, or none, takes the place of the scene's
 * What handles put in place of the scene's is put back after the draw; what the animation writes stays. Cameras and the
 * background of a scene are not used.
 * A figure of a scene can also be queued by itself: its mesh is then animated to the figure's own `frame`, milliseconds
 * as well, and entry j of `loadedTextures` is for the j-th submesh that came with a texture.
 * Fails with false, queueing nothing, for null arguments (but transform), for a light of the block without loaded info,
 * for a handle of another class, and for a tree of more than 65535 groups or 1048576 children, each counted as often as
 * it is met. Fails with K8_ERR_OUT_OF_MEMORY also when the list would hold more than 2048 items and when groups are
 * nested more than 2048 deep, as one that contains itself is; and when the copies of one list come to more than 2048
 * handles of a family. A figure with an empty place in `loadedTextures` fails, as does a handle of the wrong family in
 * place of a texture, action table, light or fog. May be called while unbound. */
K8_API bool K8Render_render3D(K8Render *handle, const K8RenderParams *params, K8Handle *object,
                              const K8Transform *transform);

/* Draws what is queued into the intersection of the bind rectangle and (x, y, w, h), and empties the list. Clears the
 * depth buffer and draws figures, scenes, triangles and quadrilaterals in queue order. Points, lines and sprites
 * follow: for each call that queued some, the depth buffer is cleared again, then the opaque ones are drawn, then the
 * blended ones. So they cover everything else, and can be hidden only by those of the same call. Colours are not
 * cleared: the host does that. An intersection without pixels draws nothing and succeeds.
 * Fails with false for a null handle, w or h 0, an unbound context with a filled list, and when something cannot be
 * drawn; the list is empty afterwards in every case but a null handle.
 * The OpenGL ES state that the draws need is set anew by every flush and left as the last one needed it, client arrays
 * included: a host that draws on its own sets its own. State that the library never touches (buffer objects, stencil,
 * clip planes and the like) is expected at its OpenGL ES defaults. */
K8_API bool K8Render_flush(K8Render *handle, int32_t x, int32_t y, int32_t w, int32_t h);

/* Whether anything queued blends with what is behind it: a figure that blends as a whole or has polygons that do, in
 * whichever pattern; triangles, quadrilaterals and sprites that are drawn with a blend mode; the figures of a scene
 * group. Points and lines count as opaque.
 * out   receives 0; or, with the answer true, 1 for a null handle and 2 when a scene has more than 511 figures and
 *       groups, too many to look at, or memory runs out. May be null */
K8_API bool K8Render_CheckAlphaBlend(K8Render *handle, uint32_t *out);

/* Empties the list without drawing. Fails with false for a null or unbound handle. */
K8_API bool K8Render_clear3D(K8Render *handle);

/* The number of lights that one call can use: 8. */
K8_API int32_t K8Render_getMaxLights(void);

/* Limits the bytes of texture memory in use by the whole process; 0 is no limit. A draw that would exceed it fails
 * with K8_ERR_OUT_OF_MEMORY. The limit belongs to the engine that all bound contexts share, and goes with the last of
 * them: an unbound handle fails with false. */
K8_API bool K8Render_limitTexMemory(K8Render *handle, uint32_t bytes);

/* ---- Fixed-point math -------------------------------------------------------------------------------------------- */

/* J to F, truncating toward zero; below 1/4096 and not finite gives 0; 524288 and above wraps. Two names for one
 * function. */
K8_API int32_t K8Math_J2F(float j);
K8_API int32_t K8Math_J2I(float j);

/* F to J, exact below 2^24 in magnitude, truncated above. Two names for one function. */
K8_API float K8Math_F2J(int32_t f);
K8_API float K8Math_I2J(int32_t f);

/* The same value. */
K8_API int32_t K8Math_F2I(int32_t f);
K8_API int32_t K8Math_I2F(int32_t f);

/* Scalar functions convert their arguments with K8Math_J2F and return F numbers. Sums wrap at 32 bits; products and
 * quotients keep as many bits as 32-bit words allow; a division by 0 gives 0. */
K8_API int32_t K8Math_add(float a, float b);
K8_API int32_t K8Math_sub(float a, float b);
K8_API int32_t K8Math_mul(float a, float b);
K8_API int32_t K8Math_div(float a, float b);
K8_API int32_t K8Math_abs(float a);
K8_API int32_t K8Math_sqrt(float a); /* a negative argument counts as its unsigned bit pattern */

/* Angles are degrees. The angle is cut to 1/4096 of a turn first. tan gives 0 where the cosine is 0. */
K8_API int32_t K8Math_sin(float degrees);
K8_API int32_t K8Math_cos(float degrees);
K8_API int32_t K8Math_tan(float degrees);

/* F degrees: -90..90 and 0..180; outside [-1, 1] gives 0. */
K8_API int32_t K8Math_asin(float a);
K8_API int32_t K8Math_acos(float a);

/* F degrees. atan2 (a, b) is the angle of the slope b / a: 90 for a = 0, else 0 for b = 0, else atan (b / a), plus
 * 180 when the signs of a and b differ. */
K8_API int32_t K8Math_atan(float a);
K8_API int32_t K8Math_atan2(float a, float b);

/* Degrees (J) to an integer angle 0..4096, truncating, and back to F degrees. */
K8_API int32_t K8Math_convAngleF2I(float degrees);
K8_API int32_t K8Math_convAngleI2F(int32_t angle);

/* Scales an F vector to length 1.0 in place. A zero vector is left alone and gives false. Two functions of one
 * behaviour. */
K8_API bool K8Math_normalizeVector(int32_t *v);
K8_API bool K8Math_normalize(int32_t *v);

/* Products of F vectors of three. */
K8_API int32_t K8Math_dotVectors(const int32_t *a, const int32_t *b);
K8_API void K8Math_crossVectors(const int32_t *a, const int32_t *b, int32_t *out);

/* Float vectors of three; `out` may be an argument. Sums are taken in double precision and stored as floats. */
K8_API void _qel_scale3(float s, const float *a, float *out);
K8_API void _qel_add3(const float *a, const float *b, float *out);
K8_API void _qel_sub3(const float *a, const float *b, float *out);
K8_API bool _qel_normalize3(float *v); /* false, and v as it was, when the length is 0 or not a number */
K8_API float _qel_dot3(const float *a, const float *b);
K8_API void _qel_cross3(const float *a, const float *b, float *out);
K8_API float _qel_dot2(float ax, float ay, float bx, float by); /* ax bx + ay by */
K8_API float _qel_det2(float a, float b, float c, float d);     /* a d - b c */

/* Compares two floats, given as their bit patterns: 0 when at most maxUlps representable values lie between them,
 * else 1 for a above b, -1 below. Numbers of different sign and a magnitude of 2.0 or more are never close. */
K8_API int32_t _ieee_float_cmp_ulps(int32_t a, int32_t b, int32_t maxUlps);

/* ---- Matrices of the engine -------------------------------------------------------------------------------------- */

/* A 4x4 float matrix, row-major, translation in elements 3, 7 and 11. The host may allocate it;
 * qelTransform_setIdentity or qelTransform_set_fl initialises it. The other members cache what is known about the
 * elements: write elements through functions. */
typedef struct qelTransform {
    float elements[16];
    uint32_t identityState;        /* 0 not known, 1 not the identity, 2 exactly the identity */
    uint32_t uniformDiagonalState; /* 0 not known, 1 the first three diagonal entries differ, 2 they are equal */
    uint8_t changed;               /* set by every write, cleared by the renderer */
} qelTransform;

/* Transform pointers must not be null where nothing is said. Functions that return int32_t return a result code;
 * those that can fail leave the transform as it was. Names with an underscore in front are the same functions. */
K8_API void qelTransform_setIdentity(qelTransform *t);
K8_API int32_t qelTransform_set_fl(qelTransform *t, const float *elements);      /* NULL_POINTER for null elements */
K8_API int32_t qelTransform_set_tr(qelTransform *t, const qelTransform *source); /* NULL_POINTER for a null source */
K8_API int32_t qelTransform_get(const qelTransform *t, float *out);              /* 16 floats; NULL_POINTER for null */

/* Inverts in place or into `out`, which may be t. ARITHMETIC for a singular matrix. LU decomposition with implicit
 * row scaling and partial pivoting. */
K8_API int32_t qelTransform_invert(qelTransform *t);
K8_API int32_t qelTransform_invert_copy(const qelTransform *t, qelTransform *out);

/* The inverse of a rotation with a translation: transposes the 3x3 block and turns the translation. Wrong for
 * anything scaled. */
K8_API int32_t qelTransform_invertNonScaled_copy(const qelTransform *t, qelTransform *out);

/* t = t other, and out = a b; out may be a or b. NULL_POINTER for a null second operand or result. The elements of
 * `other` stay, but what it caches about them may change. */
K8_API int32_t qelTransform_postMultiply(qelTransform *t, qelTransform *other);
K8_API int32_t qelTransform_postMultiply_copy(const qelTransform *a, const qelTransform *b, qelTransform *out);

/* t = t R. Degrees about an axis of any length; ILLEGAL_ARGUMENT for a zero axis with an angle other than 0, or a
 * zero quaternion. */
K8_API int32_t qelTransform_postRotate(qelTransform *t, float degrees, float x, float y, float z);
K8_API int32_t _qelTransform_postRotate(qelTransform *t, float degrees, float x, float y, float z);
K8_API int32_t _qelTransform_postRotateQuat(qelTransform *t, float qx, float qy, float qz, float qw);

/* t = t S and t = t T. */
K8_API void qelTransform_postScale(qelTransform *t, float sx, float sy, float sz);
K8_API void _qelTransform_postScale(qelTransform *t, float sx, float sy, float sz);
K8_API void qelTransform_postTranslate(qelTransform *t, float tx, float ty, float tz);
K8_API void _qelTransform_postTranslate(qelTransform *t, float tx, float ty, float tz);

/* out = rows 0 to 2 applied to (v, 1), and the upper-left 3x3 applied to v without normalising. Three floats each;
 * out may be v. Both return out. */
K8_API float *qelTransform_affineTransform(const qelTransform *t, const float *v, float *out);
K8_API float *qelTransform_transformNormal(const qelTransform *t, const float *v, float *out);

/* A 3x4 integer affine matrix, row-major: three rows of three F numbers (m) and one translation in the units of the
 * vectors transformed. */
typedef struct Atrans3i {
    int32_t m[12]; /* m00 m01 m02 t0  m10 m11 m12 t1  m20 m21 m22 t2 */
} Atrans3i;

/* out = a b (b is applied first), each entry rounded half up, 32-bit wrap-around; out may be a or b. */
K8_API void D_Atrans3i_multiply2(Atrans3i *out, const Atrans3i *a, const Atrans3i *b);

/* The same matrix in floats; m / 4096, t as it is. Ignores null. */
K8_API void Atrans3i2qelTransform(qelTransform *out, const Atrans3i *a);

/* ---- Engine objects: figures and action tables ------------------------------------------------------------------- */

/* out = rest M, where M is what the track of `bone` in `action` says at the frame position. action and bone must be
 * in range (bone below the table's bone count); rest is the bone's rest transform. */
K8_API void ActTable__calcTrans(const qelActTable *table, int32_t action, int32_t bone, int32_t frame, Atrans3i *out,
                                const Atrans3i *rest);

/* The pattern mask of the action at the frame position: bit i draws pattern i. 0 without a pattern track. action
 * must be in range. */
K8_API uint32_t ActTable__calcPattern(const qelActTable *table, int32_t action, int32_t frame);

K8_API int32_t D_ActTable_getNumActions(const qelActTable *table);

/* Shows the patterns whose bits are set, pattern 0 always, hides the others, and returns the mask. A figure with
 * fewer than two patterns keeps all it has. */
K8_API uint32_t D_Figure_setPattern(qelFigureMesh *figure, uint32_t mask);

/* The mask last asked for; 0xFFFFFFFF before the first. */
K8_API uint32_t D_Figure_getPattern(const qelFigureMesh *figure);
K8_API int32_t D_Figure_getNumPatterns(const qelFigureMesh *figure);

/* Deforms the figure's vertices and normals by the transforms its bones have. Drawing does this itself. */
K8_API void _Figure_blendVertices(qelFigureMesh *figure);

/* ---- Engine objects: meshes and appearances ---------------------------------------------------------------------- */

/* A zero-filled array of integer vertex attributes, one reference. No function here fills it or gives it to a mesh.
 * vertexCount 1..65535, componentCount 2..4, componentSize 1 or 2 bytes
 * Null with ILLEGAL_ARGUMENT or OUT_OF_MEMORY in `result`. */
K8_API qelVertexArray *qelVertexArray_create(int32_t vertexCount, int32_t componentCount, int32_t componentSize,
                                             int32_t *result);

/* Makes it an array of no vertices with one reference, which qelObject3D_unref then frees, and releases what it owned.
 * Only for an array that nobody else refers to: references of others would no longer be counted. */
K8_API void qelVertexArray_finalize(qelVertexArray *array);

/* The positions array, borrowed. scaleBias, if given, receives the scale and the three bias values: position = scale
 * * integer + bias. */
K8_API qelVertexArray *qelVertexBuffer_getPositions(const qelVertexBuffer *buffer, float *scaleBias);

/* Borrowed parts of a mesh. getAppearance gives null for a submesh without one, and null with INDEX_OUT_OF_RANGE
 * unless 0 <= index < submesh count. */
K8_API qelVertexBuffer *qelMesh_getVertexBuffer(const qelMesh *mesh);
K8_API qelAppearance *qelMesh_getAppearance(const qelMesh *mesh, int32_t index, int32_t *result);

/* Borrowed parts of an appearance; null when it has none. */
K8_API qelCompositingMode *qelAppearance_getCompositingMode(const qelAppearance *appearance);
K8_API qelMaterial *qelAppearance_getMaterial(const qelAppearance *appearance);

/* Blending modes, as JSR 184 numbers them, and two of the engine's own: 70 adds source and destination, 71 adds the
 * source weighted by its alpha. */
enum {
    QEL_BLENDING_ALPHA = 64,
    QEL_BLENDING_ALPHA_ADD = 65,
    QEL_BLENDING_MODULATE = 66,
    QEL_BLENDING_MODULATE_X2 = 67,
    QEL_BLENDING_REPLACE = 68,
    QEL_BLENDING_ADD = 70,
    QEL_BLENDING_ADD_WEIGHTED = 71
};
K8_API int32_t qelCompositingMode_getBlending(const qelCompositingMode *mode);

/* One colour of a material, 0xRRGGBB (diffuse 0xAARRGGBB); 0 for any other target, combinations included. */
enum {
    QEL_MATERIAL_AMBIENT = 1024,
    QEL_MATERIAL_DIFFUSE = 2048,
    QEL_MATERIAL_EMISSIVE = 4096,
    QEL_MATERIAL_SPECULAR = 8192
};
K8_API uint32_t qelMaterial_getColor(const qelMaterial *material, int32_t target);

/* ---- Picking: what a ray hits ------------------------------------------------------------------------------------ */

/* One hit. The host provides it and initialises it before picking. */
typedef struct qelRayIntersection {
    float distance;       /* from the origin of the ray, in lengths of its direction; 0 at first */
    qelMesh *intersected; /* the mesh that was hit, borrowed; null at first */
    int32_t submeshIndex;
    float textureS[2]; /* texture coordinates per texture unit, after the texture's own transform; 0 at first. Units */
    float textureT[2]; /* without coordinates for the triangle leave them as they are */
    float normal[3];   /* of the triangle's plane, unit length, on the front side of the winding. Written when the mesh
                        * has normals; (0, 0, 1) at first */
    float ray[6];      /* origin and direction as given to a pickMultiple function; (0, 0, 0), (0, 0, 1) at first */
} qelRayIntersection;

/* Any number of hits. The host provides it, initialises it before picking and finalises it afterwards. */
typedef struct qelRayIntersectionArray {
    int32_t capacity; /* of `records`, grows in steps of 32 */
    int32_t count;
    qelRayIntersection *records; /* owned */
} qelRayIntersectionArray;

/* Both write the values that a record has at first. Pointers to records and arrays must not be null. */
K8_API void qelRayIntersection_initialize(qelRayIntersection *record);
K8_API void qelRayIntersection_finalize(qelRayIntersection *record);

K8_API float qelRayIntersection_getDistance(const qelRayIntersection *record);
K8_API int32_t qelRayIntersection_getSubmeshIndex(const qelRayIntersection *record);

/* For unit 0 or 1; for any other 0, with INDEX_OUT_OF_RANGE in `result`. */
K8_API float qelRayIntersection_getTextureS(const qelRayIntersection *record, int32_t unit, int32_t *result);
K8_API float qelRayIntersection_getTextureT(const qelRayIntersection *record, int32_t unit, int32_t *result);

K8_API float qelRayIntersection_getNormalX(const qelRayIntersection *record);
K8_API float qelRayIntersection_getNormalY(const qelRayIntersection *record);
K8_API float qelRayIntersection_getNormalZ(const qelRayIntersection *record);

/* Makes an array empty, whatever its bytes are; finalize first frees the records. */
K8_API void qelRayIntersectionArray_initialize(qelRayIntersectionArray *array);
K8_API void qelRayIntersectionArray_finalize(qelRayIntersectionArray *array);

K8_API int32_t qelRayIntersectionArray_getRayIntersectionCount(const qelRayIntersectionArray *array);

/* Borrowed, until the next pick into the array. Null with INDEX_OUT_OF_RANGE unless 0 <= index < count. */
K8_API qelRayIntersection *qelRayIntersectionArray_getRayIntersection(const qelRayIntersectionArray *array,
                                                                      int32_t index, int32_t *result);

/* The nearest triangle that a ray hits.
 * mesh        the object of a K8Figure handle. Its class id says which function suits it; a qelFigureMesh takes
 *             qelSkinnedMesh_pick. Morphing and skinned meshes are deformed first, by the weights and bones they have;
 *             figures are as they were posed last
 * ox, oy, oz  origin of the ray, dx, dy, dz its direction, of any length but 0. In the mesh's own coordinates: the
 *             node's transform is not applied. The positions of a figure are in 1/64 of a unit, so a ray of the world
 *             gets there by the inverse of what the figure is drawn with, scaled by 1/64; distances along it stay the
 *             same. Where the nodes of a scene stand no function tells: rays for their meshes need to be known there
 * record      changed by hits only, and only by those that are not farther than the hit it has (at distance 0: none).
 *             Initialise it before each pick, or hand it along a row of meshes for the nearest hit of all. Null asks
 *             whether there is any hit
 * result      receives OK also when nothing is hit; ILLEGAL_ARGUMENT for the direction (0, 0, 0); ILLEGAL_STATE for a
 *             mesh without positions, an index beyond them (hits before it are recorded), or one that cannot be
 *             deformed; OUT_OF_MEMORY when morphing runs out of it
 * True when a hit was found and, with a record, recorded. Hits are where the ray meets a triangle, at its origin or
 * ahead of it, within 1/10000 of the edges; of equally near hits the last one counts. Triangles seen edge-on never
 * count, nor those of submeshes without appearance, nor those seen from behind unless the PolygonMode culls otherwise.
 * Edge-on is where twice a triangle's area, times the length of the direction along its normal, is below 1e-8: small
 * triangles want a direction that is not too short.
 * Picking a mesh of 256 or more triangles again and again while its positions stay takes less time after 16 picks,
 * unless it is a morphing mesh. What that needs, at most 16 bytes per triangle and 32 more while it is made, is one
 * block kept with the positions; of meshes that share them the one with more than half of the picks has it. */
K8_API bool qelMesh_pick(qelMesh *mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                         qelRayIntersection *record, int32_t *result);
K8_API bool qelMorphingMesh_pick(qelMorphingMesh *mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                                 qelRayIntersection *record, int32_t *result);
K8_API bool qelSkinnedMesh_pick(qelSkinnedMesh *mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                                qelRayIntersection *record, int32_t *result);

/* The same for every hit: appends them to the array in the order of the triangles, not sorted by distance. A null array
 * asks whether there is any. OUT_OF_MEMORY, with false, when the array cannot grow; what was appended stays. True when
 * a hit was appended. */
K8_API bool qelMesh_pickMultiple(qelMesh *mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                                 qelRayIntersectionArray *array, int32_t *result);
K8_API bool qelMorphingMesh_pickMultiple(qelMorphingMesh *mesh, float ox, float oy, float oz, float dx, float dy,
                                         float dz, qelRayIntersectionArray *array, int32_t *result);
K8_API bool qelSkinnedMesh_pickMultiple(qelSkinnedMesh *mesh, float ox, float oy, float oz, float dx, float dy,
                                        float dz, qelRayIntersectionArray *array, int32_t *result);

/* ---- Collision --------------------------------------------------------------------------------------------------- */

/* Whether two placed objects touch: 1 when an edge of a triangle of one goes through a triangle of the other, else 0.
 * objectA, objectB        figures, primitives or groups of them, up to 65535 deep; handles of other families have
 *                         nothing that could touch, nor have points and sprites. Lines touch triangles that they go
 *                         through, each other hardly. A group with a group in it that has no loaded info has nothing,
 *                         nor has a mesh with an index beyond its vertices
 * transformA, transformB  object to a space that both share; null: identity. Equal transforms change nothing
 * Figures are as they were posed last, whatever patterns they show; their vertices count as in drawing, in 1/64 of a
 * unit, those of primitives as the F numbers' raw words, which must stay within 26 bits. So a figure takes the
 * transform that it is drawn with, a primitive that transform scaled by 1/4096, and a tree with both in it is asked
 * about object by object:
 *   K8Transform place = *drawnAt;
 *   K8Transform_scale(&place, 1, 1, 1);
 * Skinned meshes follow their skeletons, morphing meshes have their base shape. Meshes of a scene are placed by their
 * own transforms and those of handles, not by the nodes above them in the scene. Triangles that lie in one plane do not
 * touch.
 * The answer is computed with 10 significant bits per coordinate of an object and 16 for both together: what is nearer
 * than that resolves may be taken to touch or not. Coordinates wrap around 131072 steps from the middle between the two
 * placements, where a step is the smaller one of the two objects: 1/64 unit, so 2048 units, for figures less than 16
 * units in size, the position scale times the node's own for meshes of a scene less than 1024 steps in size, and twice
 * as much at twice the size. What is farther apart may be taken to touch, too; steps below 1/4096 never touch.
 * Stores error status 0 first, even when it succeeds, unlike all others. Null objects give 0. The answer is also 0 when
 * memory runs out (K8_ERR_OUT_OF_MEMORY, or K8_ERR_FAILURE when already the first blocks cannot be had), when neither
 * object has an allocator, when a group contains itself or has more than 16384 figures and primitives, when a mesh has
 * more than 1048576 triangles, or when to compare all that overlaps would take longer than several seconds
 * (K8_ERR_FAILURE). Memory comes from objectA's allocator, or else from objectB's, and is given back. */
K8_API int32_t K8Util_getCrossStatus(const K8Handle *objectA, const K8Transform *transformA, const K8Handle *objectB,
                                     const K8Transform *transformB);

#ifdef __cplusplus
}
#endif

#endif
