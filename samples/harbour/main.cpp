#include "samples/harbour/harbour.h"
#include "samples/make_package.h"

int main(int argc, char** argv) {
    return makePackage(argc, argv, "harbour.k8", [] { return encodeScenePackage(harbourScene()); });
}
