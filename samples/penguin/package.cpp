#include "samples/penguin/penguin.h"

encode::K8Package penguinPackage() {
    enum { Figure, Body, Gear, Actions };
    encode::K8Package package;
    package.objects.resize(4);
    package.objects[Figure] = encode::K8FigureRecord{encodeMb(penguinFigure()), Actions, {Body, Gear}};
    package.objects[Body] = encode::K8TextureRecord{encodeBmp(penguinBodyTexture())};
    package.objects[Gear] = encode::K8TextureRecord{encodeBmp(penguinGearTexture())};
    package.objects[Actions] = encode::K8ActionTableRecord{encodeMt(penguinActions())};
    return package;
}
