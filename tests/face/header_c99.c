/* The header is C99, and a program without C++ links with the library and nothing else. */
#include "k8.h"

int main(void) {
    MALK8_touchMA();
    K8Fog* fog = K8Fog_create(0, &MALK8_malc);
    if (!fog || fog->header.classId != K8_CLASS_FOG) return 1;
    K8Object3D_destroy(&fog->header);
    return K8Fog_create(0, 0) || K8ErrStorage_getErrorStatus() != K8_ERR_FAILURE;
}
