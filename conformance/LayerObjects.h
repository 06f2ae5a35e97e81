#ifndef CONFORMANCE_LAYER_OBJECTS_H
#define CONFORMANCE_LAYER_OBJECTS_H

#include "platform/HTClass.h"
#include "platform/KelNetio.h"
#include "platform/VornCDRStream.h"

/// The objects that the library is only given, and that a layer makes in ways of its own: the
/// library knows no size and no constructor of them. LayerObjects.cpp makes them as the headers
/// say. For a layer with other ways, write that file anew, against the layer's own headers, and
/// name it to CMake (VORN_CONFORMANCE_OBJECTS). No object is ever deleted.

/// An address that the layer's `sendTo` takes, in host byte order.
KELNetioAddr* AddressNew(unsigned int address, int port);

/// A stream over `buffer`, at `position`. Null if the layer's streams cannot begin there.
VORNCDRStream* StreamNew(char* buffer, int capacity, VORNCDRByteOrder byteOrder, int position);

/// An empty table.
HTClass* TableNew();

#endif
