#pragma once

#include <set>

#include "k8.h"

// Everything that one load made, found in the way that k8.h tells a host to.
inline std::set<K8Handle*> handlesOf(K8Handle* root) {
    std::set<K8Handle*> handles = {root};
    if (root->classId == K8_CLASS_GROUP || root->classId == K8_CLASS_SCENE_GROUP) {
        for (K8Handle** each = reinterpret_cast<K8Group*>(root)->info->childData; *each; ++each) handles.insert(*each);
    } else if (root->classId == K8_CLASS_FIGURE) {
        const K8FigureInfo& info = *reinterpret_cast<K8Figure*>(root)->info;
        for (int k = 0; k < info.loadedTextureCount; ++k)
            handles.insert(reinterpret_cast<K8Handle*>(info.loadedTextures[k]));
        handles.insert(reinterpret_cast<K8Handle*>(info.loadedAction));
    }
    handles.erase(nullptr);
    return handles;
}

inline void dispose(K8Handle* root) {
    if (!root) return;
    for (K8Handle* handle : handlesOf(root)) K8Object3D_destroy(handle);
}
