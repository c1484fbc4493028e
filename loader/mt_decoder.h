// The "MT" action table format.
#pragma once

#include "loader/act_table.h"
#include "loader/stream.h"

// Decodes from the magic on. On failure the table is empty.
bool D_ActTable_decode(ActTable* table, LoaderStream* stream);
