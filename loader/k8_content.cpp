#include "loader/k8_content.h"

#include "frame/fixed_point.h"
#include "loader/bmp_decoder.h"
#include "loader/figure_builder.h"
#include "loader/mt_decoder.h"
#include "scene/texture2d.h"

// Gives a new handle the object to wrap. Without a handle the object goes, and null is returned.
template <typename Handle>
static Handle* wrap(Handle* handle, Object3D* object) {
    if (handle)
        handle->header.object = object;
    else
        qelObject3D_unref(object);
    return handle;
}

K8ActionTable* K8Content_loadActionTable(LoaderStream* stream, K8Allocator* allocator) {
    ActTable* table = qelActTable_create();
    if (!table) return nullptr;
    const bool decoded = D_ActTable_decode(table, stream);
    return wrap(decoded ? K8ActionTable_create(nullptr, allocator) : nullptr, table);
}

K8FigureInfo K8Content_figureDefaults() {
    constexpr int32_t kOpaque = 100 * kFixedOne;
    K8FigureInfo info = {};
    info.transparency = kOpaque;
    info.canChangeTextures = info.canChangeAction = 1;
    return info;
}

K8Figure* K8Content_loadFigure(LoaderStream* stream, K8Allocator* allocator) {
    FigureMesh* mesh = qelFigureMesh_create();
    if (!mesh) return nullptr;
    const bool loaded = D_Figure_load(mesh, stream, false);
    K8Figure* figure = wrap(loaded ? K8Figure_create(nullptr, allocator) : nullptr, mesh);
    if (!figure) return nullptr;
    const K8FigureInfo info = K8Content_figureDefaults();
    if (K8Figure_setTmpData(figure, &info)) return figure;
    K8Figure_destroy(figure);
    return nullptr;
}

K8Texture* K8Content_loadTexture(LoaderStream* stream, K8Allocator* allocator) {
    Image2D* image = qelBmp_loadTextureImage(stream);
    if (!image) return nullptr;
    Result result;
    Texture2D* object = qelTexture2D_create(image, &result);
    qelObject3D_unref(image);
    if (!object) return nullptr;
    K8Texture* texture = wrap(K8Texture_create(nullptr, allocator), object);
    if (!texture) return nullptr;
    const K8TextureInfo info = {};
    if (K8Texture_setTmpData(texture, &info)) return texture;
    K8Texture_destroy(texture);
    return nullptr;
}
