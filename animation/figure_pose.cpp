#include "animation/figure_pose.h"

#include <algorithm>

#include "animation/pose_kernels.h"
#include "scene/vertex_buffer.h"

static bool canPose(const FigureMesh* figure, const ActTable* table, int32_t action) {
    return table && table->data && action >= 0 && uint32_t(action) < table->actionCount && figure &&
           figure->vertexBuffer && figure->vertexBuffer->positions;
}

// Sets the local transforms and the changed flags of the bones that the table has tracks for.
static void poseBones(FigureBones& bones, const ActTable* table, int32_t action, int32_t frame) {
    const PoseKernel kernel = PoseKernels_supported().front().kernel;
    const uint32_t* trackWords = table->tracks[action];
    KeyCursor cursor = keyCursorAt(frame);
    PoseBatch batch;
    batch.count = 0;
    const uint32_t boneCount = std::min(table->boneCount, bones.boneCount);
    for (uint32_t b = 0; b < boneCount; ++b) {
        BoneRecord& bone = bones.bones[b];
        bone.changed = 1;
        if (ActTrack_transformWithoutKeys(table, trackWords[b], &bone.rest, &bones.local[b])) continue;
        ActTrack_evaluate(table, trackWords[b], cursor, &batch.values[batch.count]);
        batch.rest[batch.count] = &bone.rest;
        batch.out[batch.count] = &bones.local[b];
        if (++batch.count < kPoseBatchSize) continue;
        kernel(batch);
        batch.count = 0;
    }
    if (batch.count > 0) kernel(batch);
}

void D_Figure_applyAction(FigureMesh* figure, const ActTable* table, int32_t action, int32_t frame) {
    if (!canPose(figure, table, action)) return;
    poseBones(figure->bones, table, action, frame);
    _Figure_blendVertices(figure);
    D_Figure_setPattern(figure, ActTable__calcPattern(table, action, frame));
    figure->posedTable = table;
    figure->posedAction = action;
    figure->posedFrame = frame;
}
