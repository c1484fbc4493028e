#include "loader/act_table.h"

#include <type_traits>

#include "frame/allocator.h"

static_assert(std::is_trivially_copyable_v<ActTable> && std::is_trivially_default_constructible_v<ActTable>);

// Keys are read from a pool of 16-bit words.
static_assert(sizeof(VectorKey) == 8 && sizeof(ScalarKey) == 4 && sizeof(PatternKey) == 6);

// Where pointers have 32 bits the records have the sizes that the format was laid out for.
template <typename Record>
constexpr bool hasSize32(size_t size) {
    return sizeof(void*) != 4 || sizeof(Record) == size;
}
static_assert(hasSize32<ConstantMatrixTrack>(24) && hasSize32<TranslateScaleDirectionRollTrack>(24) &&
              hasSize32<DirectionFixedTranslateRollTrack>(16) && hasSize32<DirectionRollTrack>(12) &&
              hasSize32<DirectionTrack>(8) && hasSize32<TranslateDirectionRollTrack>(20) && hasSize32<PatternTrack>(8));

static void destroyActTable(Object3D* object) {
    qelActTable_finalise(static_cast<ActTable*>(object));
    qelFree(object);
}

static void initHeader(ActTable* table) {
    qelObject3D_init(table);
    table->classId = ClassId::ActTable;
    table->destroy = destroyActTable;
}

ActTable* qelActTable_create() {
    auto* table = static_cast<ActTable*>(qelAlloc(uint32_t(ClassId::ActTable), sizeof(ActTable)));
    if (table) initHeader(table);
    return table;
}

void qelActTable_releaseData(ActTable* table) {
    qelFree(table->data);
    table->data = nullptr;
    table->actionCount = 0;
    table->boneCount = 0;
    table->tracks = nullptr;
    table->frameCounts = nullptr;
}

void qelActTable_finalise(ActTable* table) {
    qelActTable_releaseData(table);
    qelObject3D_finalise(table);
    initHeader(table);
}
