#include "scene/contents.h"

uint64_t qelContents_next() {
    static uint64_t last;
    return ++last;
}
