#include "scene/duplicate.h"

#include <span>

#include "animation/animation_controller.h"
#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"
#include "scene/appearance.h"
#include "scene/background.h"
#include "scene/camera.h"
#include "scene/compositing_mode.h"
#include "scene/fog.h"
#include "scene/image2d.h"
#include "scene/light.h"
#include "scene/material.h"
#include "scene/morphing_mesh.h"
#include "scene/polygon_mode.h"
#include "scene/skinned_mesh.h"
#include "scene/sprite3d.h"
#include "scene/subtree.h"
#include "scene/texture2d.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"
#include "scene/world.h"

// --- One object ---

Object3D* qelObject3D_duplicate(Object3D* object) {
    if (!object) return nullptr;
    switch (object->classId) {
        case ClassId::AnimationController:
            return qelAnimationController_duplicate(static_cast<AnimationController*>(object));
        case ClassId::AnimationTrack: return qelAnimationTrack_duplicate(static_cast<AnimationTrack*>(object));
        case ClassId::Appearance: return qelAppearance_duplicate(static_cast<Appearance*>(object));
        case ClassId::Background: return qelBackground_duplicate(static_cast<Background*>(object));
        case ClassId::Camera: return qelCamera_duplicate(static_cast<Camera*>(object));
        case ClassId::CompositingMode: return qelCompositingMode_duplicate(static_cast<CompositingMode*>(object));
        case ClassId::Fog: return qelFog_duplicate(static_cast<Fog*>(object));
        case ClassId::Group: return qelGroup_duplicate(static_cast<Group*>(object));
        case ClassId::Image2D: return qelImage2D_duplicate(static_cast<Image2D*>(object));
        case ClassId::KeyframeSequence: return qelKeyframeSequence_duplicate(static_cast<KeyframeSequence*>(object));
        case ClassId::Light: return qelLight_duplicate(static_cast<Light*>(object));
        case ClassId::Material: return qelMaterial_duplicate(static_cast<Material*>(object));
        case ClassId::Mesh: return qelMesh_duplicate(static_cast<Mesh*>(object));
        case ClassId::MorphingMesh: return qelMorphingMesh_duplicate(static_cast<MorphingMesh*>(object));
        case ClassId::PolygonMode: return qelPolygonMode_duplicate(static_cast<PolygonMode*>(object));
        case ClassId::SkinnedMesh: return qelSkinnedMesh_duplicate(static_cast<SkinnedMesh*>(object));
        case ClassId::Sprite3D: return qelSprite3D_duplicate(static_cast<Sprite3D*>(object));
        case ClassId::Texture2D: return qelTexture2D_duplicate(static_cast<Texture2D*>(object));
        case ClassId::TriangleStripArray:
            return qelTriangleStripArray_duplicate(static_cast<TriangleStripArray*>(object));
        case ClassId::VertexArray: return qelVertexArray_duplicate(static_cast<VertexArray*>(object));
        case ClassId::VertexBuffer: return qelVertexBuffer_duplicate(static_cast<VertexBuffer*>(object));
        case ClassId::World: return qelWorld_duplicate(static_cast<World*>(object));
        case ClassId::ActTable:
        case ClassId::FigureMesh:
        case ClassId::Node:
        case ClassId::Object3D: break;
    }
    return nullptr;
}

// --- A subtree ---

// Hands the copy of a node to the copy of its parent, which stands where the source's parent does.
static void attachCopy(const Node* source, Node* copy) {
    Node* parent = source->parent->lastDuplicate;
    copy->parent = parent;
    if (qelObject3D_isGroup(parent)) {
        static_cast<Group*>(parent)->children[source->childSlot] = copy;
    } else {
        static_cast<SkinnedMesh*>(parent)->skeleton = static_cast<Group*>(copy);
    }
}

// Copies every node of the subtree; lastDuplicate of a source node is its copy. Null on failure, with nothing kept.
static Node* copyNodes(Node* root) {
    Node* rootCopy = nullptr;
    SubtreeWalk walk{root, root, 0};
    do {
        auto* copy = static_cast<Node*>(qelObject3D_duplicate(walk.node));
        if (!copy) {
            qelObject3D_unref(rootCopy);
            return nullptr;
        }
        walk.node->lastDuplicate = copy;
        if (walk.node == root) {
            rootCopy = copy;
        } else {
            attachCopy(walk.node, copy);
        }
    } while (qelSubtreeWalk_next(&walk));
    return rootCopy;
}

// What stands for a node in the copy: its own copy if it lies in the copied subtree, else itself.
static Node* inCopy(Node* node, const Node* root) {
    return node && qelNode_isAncestor(root, node) ? node->lastDuplicate : node;
}

// Turns the references of a copied node from the source subtree to the copy. Every node has its copy by now.
static void redirect(const Node* source, const Node* root) {
    Node* copy = source->lastDuplicate;
    qelNode_setAlignmentReferences(copy, inCopy(source->zReference, root), inCopy(source->yReference, root));
    // The copy of a single skinned mesh has no skeleton, and nothing of what its bones name belongs to it.
    if (source->classId == ClassId::SkinnedMesh && static_cast<const SkinnedMesh*>(source)->skeleton) {
        auto* mesh = static_cast<SkinnedMesh*>(copy);
        for (Node*& bone : std::span(mesh->bones, size_t(mesh->boneCount))) bone = bone->lastDuplicate;
    }
    if (source->classId == ClassId::World) {
        Camera* camera = static_cast<const World*>(source)->activeCamera;
        if (camera && qelNode_isAncestor(root, camera))
            qelWorld_setActiveCamera(static_cast<World*>(copy), static_cast<Camera*>(camera->lastDuplicate));
    }
}

Object3D* qelObject3D_duplicateSubtree(Object3D* root) {
    if (!qelObject3D_isNode(root)) return qelObject3D_duplicate(root);
    auto* top = static_cast<Node*>(root);
    Node* copy = copyNodes(top);
    if (!copy) return nullptr;
    SubtreeWalk walk{top, top, 0};
    do redirect(walk.node, top);
    while (qelSubtreeWalk_next(&walk));
    return copy;
}
