#include "samples/floe/floe.h"
#include "samples/make_package.h"

int main(int argc, char** argv) {
    return makePackage(argc, argv, "floe.k8", [] { return encodeK8(floePackage()); });
}
