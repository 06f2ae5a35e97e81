#include "time/VORNClockClass.h"

VORNClockClass::~VORNClockClass() = default;
