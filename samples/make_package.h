#pragma once

#include "tools/encode/byte_writer.h"

// The whole of a program that writes a sample's package, as `fileName`, into the folder that its argument names.
int makePackage(int argc, char** argv, const char* fileName, encode::EncodedFile (*encodePackage)());
