// Numbers for what the data of an object is, for those who keep something made from it: addresses return, numbers
// never.
#pragma once

#include <cstdint>

uint64_t qelContents_next();  // never 0
