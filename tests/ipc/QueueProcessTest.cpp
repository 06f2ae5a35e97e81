#include "ipc/IpcHost.h"
