// Anchors the interfaces' vtables in one object file.
#include "platform/Platform.h"
