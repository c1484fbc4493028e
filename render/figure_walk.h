// The figures below a scene group, depth first in child order, nested scene groups included. The levels of the walk
// are pool records, so depth costs no stack.
#pragma once

#include "render/record_pool.h"

struct FigureWalkLevel {
    const K8Group* group;
    uint32_t nextChild;
    FigureWalkLevel* below;  // the level that this group was met on
};

struct FigureWalk {
    RecordPool* pool;
    FigureWalkLevel* top;
    bool failed;  // memory ran out
};

// False when there is no record for the first level.
bool K8FigureWalk_begin(FigureWalk* walk, const K8Group* group, RecordPool* pool);
// Null at the end, which is also the end when memory runs out.
const K8Figure* K8FigureWalk_next(FigureWalk* walk);
// Gives back what an unfinished walk holds.
void K8FigureWalk_end(FigureWalk* walk);
