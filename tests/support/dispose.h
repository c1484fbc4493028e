#pragma once

#include <set>

#include "k8.h"

// Destroys everything that one load made, in the way that k8.h tells a host to.
inline void dispose(K8Handle* root) {
    if (!root) return;
    std::set<K8Handle*> others;
    if (root->classId == K8_CLASS_GROUP || root->classId == K8_CLASS_SCENE_GROUP) {
        for (K8Handle** each = reinterpret_cast<K8Group*>(root)->info->childData; *each; ++each) others.insert(*each);
    } else if (root->classId == K8_CLASS_FIGURE) {
        const K8FigureInfo& info = *reinterpret_cast<K8Figure*>(root)->info;
        for (int k = 0; k < info.loadedTextureCount; ++k)
            others.insert(reinterpret_cast<K8Handle*>(info.loadedTextures[k]));
        others.insert(reinterpret_cast<K8Handle*>(info.loadedAction));
    }
    for (K8Handle* handle : others) K8Object3D_destroy(handle);
    K8Object3D_destroy(root);
}
