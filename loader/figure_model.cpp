#include "loader/figure_model.h"

#include <type_traits>

#include "frame/allocator.h"

static_assert(std::is_trivially_copyable_v<FigureModelData>);

void D_FigureModel_release(FigureModelData* model) {
    qelFree(model->positions);
    qelFree(model->normals);
    qelFree(model->colors);
    qelFree(model->texCoords);
    qelFree(model->colorTriangleStarts);
    qelFree(model->triangles);
    qelFree(model->quads);
    FigureBones_release(&model->bones);
    *model = {};
}
