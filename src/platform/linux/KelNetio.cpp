#include "platform/KelNetio.h"

namespace {

int PortGet(KELNetioAddr* self) { return self->port; }

unsigned int AddressGet(KELNetioAddr* self) { return self->address; }

}  // namespace

void KelNetioAddrInitialize(KELNetioAddr* self, unsigned int address, int port) {
  if (self != nullptr)
    *self = {PortGet, AddressGet, address, port};
}

// Linux needs no start-up call; the operation exists for hosts that do.
int KelNetioInit() { return 1; }
