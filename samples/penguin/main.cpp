#include "samples/make_package.h"
#include "samples/penguin/penguin.h"

int main(int argc, char** argv) {
    return makePackage(argc, argv, "penguin.k8", [] { return encodeK8(penguinPackage()); });
}
