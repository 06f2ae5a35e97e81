#include "LayerObjects.h"

KELNetioAddr* AddressNew(unsigned int address, int port) {
  auto* made = new KELNetioAddr;
  KelNetioAddrInitialize(made, address, port);
  return made;
}

VORNCDRStream* StreamNew(char* buffer, int capacity, VORNCDRByteOrder byteOrder, int position) {
  auto* made = new VORNCDRStream;
  VornCDRStreamInitialize(made, buffer, capacity, byteOrder);
  return VornCDRStreamPositionSet(made, position) != 0 ? made : nullptr;
}

HTClass* TableNew() { return new HTClass; }
