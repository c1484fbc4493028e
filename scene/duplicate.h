// Copies of single objects and of whole subtrees.
#pragma once

#include "scene/names.h"

// A copy of one object, sharing what the class shares. Null for classes that cannot be duplicated (ActTable,
// FigureMesh, abstract ones) and when memory runs out.
Object3D* qelObject3D_duplicate(Object3D* object);

// A copy of a node and everything below it: skeletons, bones, active camera and alignment references inside the subtree
// are replaced by their copies. An object that is no node is duplicated alone. Null on any failure, with the copies
// made so far released.
Object3D* qelObject3D_duplicateSubtree(Object3D* root);
