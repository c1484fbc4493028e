#include "scene/figure_mesh.h"

#include <algorithm>
#include <span>

#include "scene/appearance.h"
#include "scene/vertex_array.h"

constexpr uint32_t kNoPattern = 0xFFFFFFFF;

void FigureBones_release(FigureBones* bones) {
    qelFree(bones->bones);  // with the arrays behind it
    qelFree(bones->groupVertices);
    *bones = {};
}

static void destroyFigureMesh(Object3D* object) {
    qelFigureMesh_finalise(static_cast<FigureMesh*>(object));
    qelFree(object);
}

FigureMesh* qelFigureMesh_create() {
    auto* figure = qelObject3D_alloc<FigureMesh>(ClassId::FigureMesh);
    if (figure) qelFigureMesh_init(figure);
    return figure;
}

void qelFigureMesh_init(FigureMesh* figure) {
    qelSkinnedMesh_initEmpty(figure);
    figure->classId = ClassId::FigureMesh;
    figure->animate = nullptr;  // posed by action tables, not by keyframes
    figure->destroy = destroyFigureMesh;
    figure->scaleWord = 1;
    figure->requestedPattern = figure->appliedPattern = kNoPattern;
    figure->polygonCount = 0;
    figure->patternCount = 0;
    figure->textureSlotCount = 0;
    figure->hasColors = 0;
    figure->classCount = 0;
    figure->appearanceCount = 0;
    figure->appearanceTable = nullptr;
    figure->slotFlags = nullptr;
    std::ranges::fill(figure->textureSlots, nullptr);
    figure->posedTable = nullptr;
    figure->posedAction = figure->posedFrame = -1;
    figure->patternTable = nullptr;
    figure->bones = {};
    figure->blendFlags = 0;
    figure->opaqueColors = nullptr;
    figure->blendPlan = nullptr;
}

void qelFigureMesh_finalise(FigureMesh* figure) {
    // The slots hold no references, so the mesh below must not find any to give back.
    std::fill_n(figure->appearances, figure->submeshCount, nullptr);
    for (Appearance* appearance : std::span(figure->appearanceTable, figure->appearanceCount))
        qelObject3D_unref(appearance);
    qelFree(figure->appearanceTable);
    qelFree(figure->slotFlags);
    qelFree(figure->patternTable);
    FigureBones_release(&figure->bones);
    qelObject3D_unref(figure->opaqueColors);
    qelFree(figure->blendPlan);
    qelSkinnedMesh_finalise(figure);
    qelFigureMesh_init(figure);
}
