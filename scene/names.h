// The public header gives engine classes a qel prefix so that they cannot collide with a host's own classes; inside the
// library they go by their short names. Classes that no exported function mentions have only the short one.
#pragma once

#include <cstddef>
#include <cstdint>

#include "k8.h"

// Declared before the short names, which its enumerators repeat.
enum class ClassId : uint32_t {
    ActTable = QEL_CLASS_ACT_TABLE,
    FigureMesh = QEL_CLASS_FIGURE_MESH,
    AnimationController = QEL_CLASS_ANIMATION_CONTROLLER,
    AnimationTrack = QEL_CLASS_ANIMATION_TRACK,
    Appearance = QEL_CLASS_APPEARANCE,
    Background = QEL_CLASS_BACKGROUND,
    Camera = QEL_CLASS_CAMERA,
    CompositingMode = QEL_CLASS_COMPOSITING_MODE,
    Fog = QEL_CLASS_FOG,
    Group = QEL_CLASS_GROUP,
    Image2D = QEL_CLASS_IMAGE2D,
    KeyframeSequence = QEL_CLASS_KEYFRAME_SEQUENCE,
    Light = QEL_CLASS_LIGHT,
    Material = QEL_CLASS_MATERIAL,
    Mesh = QEL_CLASS_MESH,
    MorphingMesh = QEL_CLASS_MORPHING_MESH,
    Node = QEL_CLASS_NODE,
    Object3D = QEL_CLASS_OBJECT3D,
    PolygonMode = QEL_CLASS_POLYGON_MODE,
    SkinnedMesh = QEL_CLASS_SKINNED_MESH,
    Sprite3D = QEL_CLASS_SPRITE3D,
    Texture2D = QEL_CLASS_TEXTURE2D,
    TriangleStripArray = QEL_CLASS_TRIANGLE_STRIP_ARRAY,
    VertexArray = QEL_CLASS_VERTEX_ARRAY,
    VertexBuffer = QEL_CLASS_VERTEX_BUFFER,
    World = QEL_CLASS_WORLD,
};

using Object3D = qelObject3D;
using ActTable = qelActTable;
using FigureMesh = qelFigureMesh;
using Mesh = qelMesh;
using VertexArray = qelVertexArray;
using VertexBuffer = qelVertexBuffer;
using Appearance = qelAppearance;
using CompositingMode = qelCompositingMode;
using Material = qelMaterial;
using MorphingMesh = qelMorphingMesh;
using SkinnedMesh = qelSkinnedMesh;
using RayIntersection = qelRayIntersection;
using RayIntersectionArray = qelRayIntersectionArray;

struct AnimationController;
struct AnimationTrack;
struct Background;
struct Camera;
struct Fog;
struct Group;
struct Image2D;
struct KeyframeSequence;
struct Light;
struct Node;
struct PolygonMode;
struct RendererTexture;
struct Sprite3D;
struct Texture2D;
struct Transformable;
struct TriangleStripArray;
struct World;

// Result codes are the QEL_STATUS_ constants.
using Result = int32_t;
